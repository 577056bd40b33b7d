// The four log sources. Each reads one kind of store for a LogSearch whose level is already in
// digit form ("1,2,3"), appends records to the caller's vector (never clearing it) and, where it
// counts, adds to the caller's LevelCounts.
#pragma once

#include <json/value.h>

#include <vector>

#include "api/log_search.h"
#include "platform/slibc.h"

// System, connection and network-backup databases of typeList, merged. Returns the number of
// matching rows (all levels, all pages), or -1 (logged) on failure.
int FetchSystemLogs(const LogSearch& search, PSLIBSZLIST typeList,
                    std::vector<Json::Value>* records, LevelCounts* counts);

// The transfer-log databases of typeList, merged. Transfer records have no level, so nothing is
// counted. Returns the number of matching rows (0 when no database exists), or -1 on failure.
int FetchTransferLogs(const LogSearch& search, PSLIBSZLIST typeList,
                      std::vector<Json::Value>* records);

// The disk-log database. Returns the number of matching rows (0 when the database does not
// exist), or -1 on failure.
int FetchDiskLogs(const LogSearch& search, std::vector<Json::Value>* records, LevelCounts* counts);

// Every matching line of the last 15000 lines of search.logtype's plain-text file, unsorted and
// unpaged; the dispatcher sorts, pages and counts.
void FetchPlainLogs(const LogSearch& search, std::vector<Json::Value>* records);
