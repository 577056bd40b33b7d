// What a search finds: a page of records with the counts, or time buckets.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>

#include "platform/logdb.h"
#include "search/search_request.h"

struct QueryResult {
  int64_t total = 0;  // matches of every filter
  Json::Value items{Json::arrayValue};
  int64_t levels[4] = {0, 0, 0, 0};  // by level number: matches of every filter but the level's
  bool partial = false;              // a plain-text log with more lines than its window
};

struct Histogram {
  int64_t from = 0, to = 0, bucket = 1;
  Json::Value counts{Json::arrayValue};  // [start, info, warn, err] per bucket
};

// Why a store could not be read, for the error 5101 answer (already logged).
struct SearchFailure {
  std::string reason;
  std::string store;       // the log type whose store failed, when one is known
  bool wideRange = false;  // instead: the histogram's range cannot be laid out (error 120)
};

// The database classes (system, transfer, disk). False with *failure when any store of the
// search exists but cannot be read (no partial answer); a missing store is empty.
bool QueryDatabases(const SearchRequest& search, QueryResult* result, SearchFailure* failure);
bool HistogramOfDatabases(const SearchRequest& search, Histogram* histogram,
                          SearchFailure* failure);

// The rows of result (a select of a database class with a "severity" column) as records with
// the list's keys and texts and their row id, appended to *items.
void AddRecords(const SearchRequest& search, PQUORDBRESULT result, Json::Value* items);

// The plain-text class: the window of the log's last lines, searched in memory.
bool QueryPlain(const SearchRequest& search, QueryResult* result, SearchFailure* failure);
bool HistogramOfPlain(const SearchRequest& search, Histogram* histogram, SearchFailure* failure);

// True when [from, to] spans at most 2^62 seconds, so that bucket arithmetic (in SQL too) stays
// within 64 bits. A histogram over a wider range is narrowed to its matches' first and last
// time; when they too are further apart, it is refused with error 120.
bool SpanFits(int64_t from, int64_t to);

// The bucket layout of [from, to] in at most buckets buckets of whole seconds, the counts'
// rows made empty.
void LayOutBuckets(int64_t from, int64_t to, int buckets, Histogram* histogram);
// Adds count matches of level (1 to 3) at seconds to its bucket. The one place of the edge
// rules: a match whose time cannot be read (timed false) counts in the first bucket, as it
// sorts first; a time outside [from, to] counts nowhere.
void CountInBucket(bool timed, int64_t seconds, int level, int64_t count, Histogram* histogram);
