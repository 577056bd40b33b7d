// The search record that every read of logs is described by, its level counters, and the
// ordering of result records.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>

// Filled by the list and export methods, normalised by FetchLogs, read by every log source.
struct LogSearch {
  std::string logtype;  // comma list of log types or category words
  int64_t offset = 0;   // first record of the page
  int64_t limit = 0;    // records of the page; 0: no limit
  std::string sort;     // record key that orders the result
  bool ascending = false;
  std::string keyword;    // empty: no keyword filter
  std::string date_from;  // epoch seconds as text; "0" or empty: no bound
  std::string date_to;
  std::string level;  // level names on input, level digits ("1,2,3") after FetchLogs
  std::string hostname;
  std::string program;
  std::string category;
};

// Records per level: info, warn, error. Callers zero them; sources only add.
struct LevelCounts {
  int32_t info = 0;
  int32_t warn = 0;
  int32_t error = 0;
};

// Orders records by the text of one key, compared byte by byte ("10" before "9"); a missing
// key reads as the empty text. A strict weak ordering for std::sort.
class LogCompare {
 public:
  LogCompare(std::string key, bool ascending) : key_(std::move(key)), ascending_(ascending) {}
  bool operator()(const Json::Value& a, const Json::Value& b) const;

 private:
  std::string key_;
  bool ascending_;
};
