// Calendar arithmetic for syslog timestamps: civil time to epoch seconds in UTC, in a fixed
// offset or in the daemon's local zone, and the year of a timestamp that carries none.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace logd::syslog {

// Seconds since the epoch of a civil date and time in UTC. Out-of-range days roll over
// (February 29 of a common year is March 1).
int64_t CivilToEpoch(int year, int month, int day, int hour, int minute, int second);

// The zone in which timestamps without an offset (RFC 3164) are read. It keeps the last few
// offsets it looked up (a timestamp without a year tries three years, each an hour of its
// own): each thread that parses holds its own copy.
class TimeZoneSetting {
 public:
  // "local" (the daemon's zone, from TZ or /etc/localtime), "UTC", or a fixed offset
  // "+HH:MM" / "-HH:MM" / "+HHMM". Returns false and leaves the setting unchanged otherwise.
  bool Set(std::string_view text);
  // Epoch seconds of a civil time read in this zone.
  int64_t ToEpoch(int year, int month, int day, int hour, int minute, int second) const;
  // The civil year at |epoch| in this zone.
  int YearAt(int64_t epoch) const;

 private:
  bool local_ = true;
  int offset_seconds_ = 0;  // east of UTC, when !local_
  static constexpr int kCachedHours = 8;
  struct CachedHour {
    int64_t hour = INT64_MIN;
    int64_t offset = 0;
  };
  mutable CachedHour cache_[kCachedHours];
  mutable int next_slot_ = 0;  // the slot replaced next
  int64_t OffsetAt(int64_t epoch) const;
};

}  // namespace logd::syslog
