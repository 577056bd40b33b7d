// Helpers of the log-source tests: searches, type lists and the values of result records.
#pragma once

#include <json/value.h>

#include <string>
#include <vector>

#include "platform/slibc.h"
#include "sources/log_search.h"

// A search of the comma list types, ordered by time (newest first), without filters or paging.
LogSearch SourceSearch(const std::string& types);

// A new string list of the comma list types (the caller frees it).
PSLIBSZLIST TypeListOf(const std::string& types);

// The text of key in each record, in order.
std::vector<std::string> RecordValues(const std::vector<Json::Value>& records, const char* key);
