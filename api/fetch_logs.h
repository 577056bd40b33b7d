// The single road from the methods to the log sources.
#pragma once

#include <json/value.h>

#include <vector>

#include "sources/log_record.h"
#include "sources/log_search.h"

// Normalises search (maps category words in logtype, rewrites level names to digits), routes it
// to the one source whose class holds every requested type (transfer, database, plain-text,
// disk, in that order), appends the page's records to *results and adds to *counts.
// Returns the number of all matching records; 0 when the types cannot be split or belong to no
// single source; negative (logged) when the source failed. Records a failing source appended
// stay in *results. search->logtype and search->level are rewritten.
int FetchLogs(LogSearch* search, std::vector<Json::Value>* results, LevelCounts* counts);

// The same road with the records sent to sink one at a time, in result order, as the source
// reads them (a plain-text log's bounded window is sorted first). A sink that wants no total
// spares the database sources their count query; the result is then the number of records sent.
int FetchLogs(LogSearch* search, RecordSink* sink, LevelCounts* counts);
