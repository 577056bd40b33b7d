// The methods of QUOR.LogCenter.Search, version 1, administrators only.
//   query      {"total", "items", "levels": {"info", "warn", "err"}, "partial"}
//   histogram  {"from", "to", "bucket", "counts": [[start, info, warn, err], ...]}
//   count      {"total", "levels", "partial"}: query's totals, without its page
// All take "logtype", "level", "from", "to", "q", "sort", "order", "offset", "limit" (and
// "buckets"); query also "counts" (false: "total" and "levels" are null, and the page of a
// term search comes without counting its matches); a bad one answers 120 {"name", "reason"}. When
// any store the search names exists but cannot be read, the answer is 5101 {"logtype", "reason",
// "store"} ("store" names the log type whose store failed, when one is known), never the other
// stores' rows alone.
#pragma once

#include "platform/webapi.h"

bool CheckSearchParams(QUOR::APIRequest* request, QUOR::APIResponse* response);
void QueryMethod(QUOR::APIRequest* request, QUOR::APIResponse* response);
void CountMethod(QUOR::APIRequest* request, QUOR::APIResponse* response);
void HistogramMethod(QUOR::APIRequest* request, QUOR::APIResponse* response);
