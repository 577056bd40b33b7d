// Local time as display text, fast for the long runs of nearby times that logs are made of.
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <string>

#include "platform/logfiles.h"

namespace {

// One local minute already converted: every second of [start, start + 60) reads as the minute's
// fields plus the distance from start, provided the zone's offset does not change inside it
// (checked once, when the minute is filled). The time zone is part of the key, so a change of TZ is
// seen at the next call, as localtime_r sees it.
struct MinuteCache {
  bool valid = false;
  time_t start = 0;
  char text[20] = "";  // "YYYY/MM/DD HH:MM:" followed by the seconds
  std::string zone;
  bool zoneSet = false;
};

void TwoDigits(char* out, int value) {
  out[0] = static_cast<char>('0' + value / 10 % 10);
  out[1] = static_cast<char>('0' + value % 10);
}

// Fills the cache for the minute holding seconds; false when the local time cannot be had or
// the year does not have four digits (strftime then decides the text).
bool FillMinute(time_t seconds, MinuteCache* cache) {
  struct tm local;
  if (localtime_r(&seconds, &local) == nullptr) return false;
  int year = local.tm_year + 1900;
  if (year < 1000 || year > 9999 || local.tm_sec > 59) return false;
  // The minute is linear when its first and last seconds read :00 and :59 of the same minute
  // under the same offset: no offset change or leap second falls inside it.
  time_t start = seconds - local.tm_sec;
  time_t end = start + 59;
  struct tm first, last;
  if (localtime_r(&start, &first) == nullptr || localtime_r(&end, &last) == nullptr ||
      first.tm_gmtoff != local.tm_gmtoff || last.tm_gmtoff != local.tm_gmtoff ||
      first.tm_sec != 0 || last.tm_sec != 59 || first.tm_min != local.tm_min ||
      last.tm_min != local.tm_min) {
    return false;
  }
  char* t = cache->text;
  TwoDigits(t, year / 100);
  TwoDigits(t + 2, year % 100);
  t[4] = '/';
  TwoDigits(t + 5, local.tm_mon + 1);
  t[7] = '/';
  TwoDigits(t + 8, local.tm_mday);
  t[10] = ' ';
  TwoDigits(t + 11, local.tm_hour);
  t[13] = ':';
  TwoDigits(t + 14, local.tm_min);
  t[16] = ':';
  t[19] = '\0';
  cache->start = start;
  cache->valid = true;
  return true;
}

// The TZ entry of the environment, looked up again only when the environment may have changed:
// a full getenv per call would cost more than the conversion itself.
struct ZoneWatch {
  char** environment = nullptr;
  int entries = -1;
  int index = -1;  // of the TZ entry, or -1
  const char* entry = nullptr;
};

int CountEntries(char** environment) {
  int n = 0;
  while (environment != nullptr && environment[n] != nullptr) ++n;
  return n;
}

// True when the environment still has the shape watch saw: same array, same length, and the
// same entry in TZ's place (setenv and unsetenv replace, add or shift entries).
bool Unchanged(const ZoneWatch& watch) {
  if (environ != watch.environment || watch.entries < 0) return false;
  if (environ == nullptr) return true;
  if (environ[watch.entries] != nullptr) return false;
  if (watch.entries > 0 && environ[watch.entries - 1] == nullptr) return false;
  return watch.index < 0 || environ[watch.index] == watch.entry;
}

bool SameZone(MinuteCache* cache) {
  thread_local ZoneWatch watch;
  if (Unchanged(watch)) return true;
  watch.environment = environ;
  watch.entries = CountEntries(environ);
  watch.index = -1;
  watch.entry = nullptr;
  for (int i = 0; i < watch.entries; ++i) {
    if (strncmp(environ[i], "TZ=", 3) == 0) {
      watch.index = i;
      watch.entry = environ[i];
      break;
    }
  }
  const char* zone = watch.entry != nullptr ? watch.entry + 3 : nullptr;
  bool same = cache->zoneSet == (zone != nullptr) && (zone == nullptr || cache->zone == zone);
  if (!same) {
    cache->zoneSet = zone != nullptr;
    cache->zone = zone != nullptr ? zone : "";
    cache->valid = false;
  }
  return same;
}

}  // namespace

std::string QUORLogConvertTime1(time_t seconds) {
  thread_local MinuteCache cache;
  SameZone(&cache);
  if (!cache.valid || seconds < cache.start || seconds - cache.start >= 60) {
    if (!FillMinute(seconds, &cache)) {
      cache.valid = false;
      struct tm local;
      char text[64] = "";
      if (localtime_r(&seconds, &local) == nullptr) return std::string();
      strftime(text, sizeof text, "%Y/%m/%d %H:%M:%S", &local);
      return text;
    }
  }
  TwoDigits(cache.text + 17, static_cast<int>(seconds - cache.start));
  return std::string(cache.text, 19);
}
