// The three log levels.
#include "catalogue/log_levels.h"

#include <string.h>

// The database logs spell warnings "warning" and records say "warn": clients of both have
// always seen them so.
const LogLevel kLogLevels[] = {
    {1, "info", "info", "info", "Information"},
    {2, "warning", "warning", "warn", "Warning"},
    {3, "err", "err", "err", "Error"},
    {0, nullptr, nullptr, nullptr, nullptr},
};

const LogLevel& LogLevelOf(int number) {
  return number >= 1 && number <= 3 ? kLogLevels[number - 1] : kLogLevels[0];
}

namespace {

// The row whose spelling (the member field) is text, or null.
const LogLevel* FindLevel(const char* text, const char* LogLevel::*field) {
  for (const LogLevel* level = kLogLevels; text != nullptr && level->number != 0; ++level) {
    if (strcmp(text, level->*field) == 0) return level;
  }
  return nullptr;
}

}  // namespace

const LogLevel* LogLevelByStored(const char* text) { return FindLevel(text, &LogLevel::stored); }

const LogLevel* LogLevelByRecordWord(const char* text) {
  return FindLevel(text, &LogLevel::recordWord);
}

const LogLevel* LogLevelBySearchName(const char* text) {
  return FindLevel(text, &LogLevel::searchName);
}
