// The four log sources. Each reads one kind of store for a LogSearch whose level is already in
// digit form ("1,2,3"), sends records to the caller's sink in result order (or appends them to
// the caller's vector, never clearing it) and, where it counts, adds to the caller's LevelCounts.
// No source throws: a row that cannot be decoded is shown with what can be read, and a failure
// leaves no connection, statement or list behind.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <vector>

#include "platform/slibc.h"
#include "sources/log_record.h"
#include "sources/log_search.h"

// System, connection and network-backup databases of typeList, merged. Returns the number of
// matching rows (all levels, all pages), or -1 (logged) on failure. For a sink that wants no
// total, the count query is skipped and the number of rows sent is returned.
int FetchSystemLogs(const LogSearch& search, PSLIBSZLIST typeList, RecordSink* sink,
                    LevelCounts* counts);

// The transfer-log databases of typeList, merged. Transfer records have no level, so nothing is
// counted. Returns the number of matching rows (0 when no database exists), or -1 on failure;
// the total as for FetchSystemLogs.
int FetchTransferLogs(const LogSearch& search, PSLIBSZLIST typeList, RecordSink* sink);

// The disk-log database. Returns the number of matching rows (0 when the database does not
// exist), or -1 on failure; the total as for FetchSystemLogs.
int FetchDiskLogs(const LogSearch& search, RecordSink* sink, LevelCounts* counts);

// One line of a plain-text log, typed once by its source: the record the list shows, the level
// number, and the line's local time as epoch seconds (timed false, seconds 0, when unreadable).
struct PlainLine {
  Json::Value record;
  int level = 1;
  int64_t seconds = 0;
  bool timed = false;
};

// Every matching line of the last 15000 lines of search.logtype's plain-text file, newest first,
// unpaged; the caller sorts, pages and counts. *more, when given, is set when the file holds
// more lines than that window (the file is read once for both).
void FetchPlainLogs(const LogSearch& search, std::vector<PlainLine>* lines, bool* more = nullptr);
