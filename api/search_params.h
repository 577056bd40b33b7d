// Reading the search filters that the list and export methods share from a request.
#pragma once

#include <string>

#include "platform/webapi.h"
#include "sources/log_search.h"

// Fills the filters of search from the request with the interface's defaults: the system log,
// sorted by time, newest first, every level, no dates, no keyword. "offset" defaults to the
// text "0"; numbers given as texts read as numbers and integer dates as their decimal text.
// limit is the caller's. Returns the "target" text (default "LOCAL"), which selects nothing.
std::string ReadSearchParams(const QUOR::APIRequest& request, LogSearch* search);
