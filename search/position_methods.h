// Methods of QUOR.LogCenter.Search that work by a row's place in its store rather than by
// filters, for the page's live mode and its "show in context".
//   follow   {"marks": {"<type>": newest row id, ...}, "oldest": {"<type>": oldest row id}}:
//            the two ends of each existing store of "logtype" (0 when empty), read in one
//            statement; the stores' ids only grow (a clear keeps them growing), so a row with a
//            greater id was written after the marks were read, and an oldest id that grew says
//            that a clear or retention removed rows. A plain-text log answers empty maps.
//   context  {"items": [...], "index", "moreBefore", "moreAfter"}: the entry "id" of the one
//            store "logtype" with up to "count" (1 to 100, default 10) entries before and after
//            it in time order (ties by id), whatever the filters; index is the entry's place in
//            items. An id the store does not hold answers 120 {"name": "id", "reason":
//            "condition"}.
#pragma once

#include "platform/webapi.h"

bool CheckFollowParams(QUOR::APIRequest* request, QUOR::APIResponse* response);
void FollowMethod(QUOR::APIRequest* request, QUOR::APIResponse* response);
bool CheckContextParams(QUOR::APIRequest* request, QUOR::APIResponse* response);
void ContextMethod(QUOR::APIRequest* request, QUOR::APIResponse* response);
