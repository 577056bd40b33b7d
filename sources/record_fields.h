// Small conversions shared by the sources when they turn rows and lines into records.
#pragma once

#include <string>

#include "api/log_search.h"
#include "platform/logdb.h"

// The text of a column of the current row; "" when the column is missing or NULL.
std::string FieldText(PQUORDBRESULT result, QUORDBROW row, const char* column);

// ContainsKeyword(text, keyword), answered without the trip through full Unicode case mapping
// when both texts are ASCII: upper-casing ASCII never changes a text's length, so the answers
// agree. Sources call it once per line or row, where that trip is most of the cost.
bool KeywordFound(const char* text, const std::string& keyword);

// True when search.level is empty or names the level's digit (a case-insensitive containment,
// as clients have always had it).
bool LevelKept(const LogSearch& search, int level);

// The record's level word of a level number ("err", "warn", "info"), adding one to its counter.
const char* CountLevel(int level, LevelCounts* counts);

// A text for a "%s" of a message: "(null)" for a missing one.
inline const char* LogText(const char* text) { return text != nullptr ? text : "(null)"; }
