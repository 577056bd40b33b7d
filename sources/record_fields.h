// Small conversions shared by the sources when they turn rows and lines into records.
#pragma once

#include <time.h>

#include <initializer_list>
#include <string>

#include "platform/logdb.h"
#include "sources/log_search.h"

// The columns a source reads from every row of one result, looked up by name once and read by
// position after. Holds at most kMax names; a name the result lacks reads as missing (null).
class RowColumns {
 public:
  static constexpr int kMax = 12;
  RowColumns(PQUORDBRESULT result, std::initializer_list<const char*> names);
  // The text of the i-th named column of the current row, or null when missing or NULL.
  const char* Field(QUORDBROW row, int i) const {
    return QUORDBFetchFieldAt(result_, row, index_[i]);
  }

 private:
  PQUORDBRESULT result_;
  int index_[kMax];
};

// strtoll(text, nullptr, 10) in the C locale (leading white space, a sign, then digits; out of
// range saturates), without the locale lookups: sources read a number on every row.
long long ReadInteger(const char* text);

// QUORLogConvertTime1(seconds) into *text, for the rows of one read. Rows often share a second,
// so the last answer is kept and given again for the same second.
class TimeTexts {
 public:
  void Convert(time_t seconds, std::string* text);

 private:
  time_t lastSeconds_ = 0;
  std::string lastText_;
  bool valid_ = false;
};

// ContainsKeyword(text, keyword), answered without the trip through full Unicode case mapping
// when both texts are ASCII: upper-casing ASCII never changes a text's length, so the answers
// agree. Sources call it once per line or row, where that trip is most of the cost.
bool KeywordFound(const char* text, const std::string& keyword);

// True when search.level is empty or names the level's digit (a case-insensitive containment,
// as clients have always had it).
bool LevelKept(const LogSearch& search, int level);

// The record's level word of a level number ("err", "warn", "info"), adding one to its counter.
const char* CountLevel(int level, LevelCounts* counts);

// A transfer's byte count as text, in the largest unit of 1024 it exceeds ("1024 Bytes",
// "1.50 KB", "2.00 MB", "1.00 GB"); each boundary stays in the smaller unit.
std::string FileSizeText(const char* column);

// A text for a "%s" of a message: "(null)" for a missing one.
inline const char* LogText(const char* text) { return text != nullptr ? text : "(null)"; }
