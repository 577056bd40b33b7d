// Log-type lists: splitting a comma list, mapping interface category words, class routing.
#pragma once

#include <string>

#include "platform/slibc.h"

// Splits a comma list of log types into a new string list in *list (the caller frees it).
// The whole text "filexfer" stands for the six transfer types; elsewhere items are taken as
// they stand. Returns 0, or -1 (logged, *list untouched) on failure.
int SplitLogTypes(const std::string& text, PSLIBSZLIST* list);

// Maps the interface's category words of a comma list to log types ("backup" -> "bkplog",
// ...); other words pass unchanged. An empty or unsplittable text gives "syslog".
std::string MapCategoriesToLogTypes(const std::string& categories);

// The first log type of a comma list; "system" (logged) when there is none.
std::string GetFirstLogType(const std::string& text);

// True when every item of list passes test. Null items and items starting with the digit '0'
// are skipped, so an empty list passes every test.
bool AllLogTypesAre(bool (*test)(const char*), PSLIBSZLIST list);
