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

const LogLevel* LogLevelByStored(const char* text) {
  for (const LogLevel* level = kLogLevels; text != nullptr && level->number != 0; ++level) {
    if (strcmp(text, level->stored) == 0) return level;
  }
  return nullptr;
}

const LogLevel* LogLevelByRecordWord(const char* text) {
  for (const LogLevel* level = kLogLevels; text != nullptr && level->number != 0; ++level) {
    if (strcmp(text, level->recordWord) == 0) return level;
  }
  return nullptr;
}
