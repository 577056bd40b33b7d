// The single road from the methods to the log sources.
#pragma once

#include <json/value.h>

#include <vector>

#include "api/log_search.h"

// Normalises search (maps category words in logtype, rewrites level names to digits), routes it
// to the one source whose class holds every requested type (transfer, database, plain-text,
// disk, in that order), appends the page's records to *results and adds to *counts.
// Returns the number of all matching records; 0 when the types cannot be split or belong to no
// single source; negative (logged) when the source failed. Records a failing source appended
// stay in *results. search->logtype and search->level are rewritten.
int FetchLogs(LogSearch* search, std::vector<Json::Value>* results, LevelCounts* counts);
