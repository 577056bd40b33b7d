// The methods of QUOR.LogCenter.Search, version 1, administrators only.
//   query      {"total", "items", "levels": {"info", "warn", "err"}, "partial"}
//   histogram  {"from", "to", "bucket", "counts": [[start, info, warn, err], ...]}
// Both take "logtype", "level", "from", "to", "q", "sort", "order", "offset", "limit" (and
// "buckets"); a bad one answers 120 {"name", "reason"}. When any store the search names exists
// but cannot be read, the answer is 5101 {"logtype", "reason", "store"} ("store" names the log
// type whose store failed, when one is known), never the other stores' rows alone.
#pragma once

#include "platform/webapi.h"

bool CheckSearchParams(QUOR::APIRequest* request, QUOR::APIResponse* response);
void QueryMethod(QUOR::APIRequest* request, QUOR::APIResponse* response);
void HistogramMethod(QUOR::APIRequest* request, QUOR::APIResponse* response);
