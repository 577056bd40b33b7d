// Calendar arithmetic for syslog timestamps.
#include "logd/syslog/syslog_time.h"

#include <time.h>

namespace logd::syslog {

int64_t CivilToEpoch(int year, int month, int day, int hour, int minute, int second) {
  // Days from 1970-01-01 of a proleptic Gregorian date (the era-based method).
  int64_t y = static_cast<int64_t>(year) - (month <= 2 ? 1 : 0);
  const int64_t era = (y >= 0 ? y : y - 399) / 400;
  const int64_t yoe = y - era * 400;
  const int64_t mp = (month + 9) % 12;
  const int64_t doy = (153 * mp + 2) / 5 + day - 1;
  const int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  const int64_t days = era * 146097 + doe - 719468;
  return days * 86400 + hour * 3600 + minute * 60 + second;
}

bool TimeZoneSetting::Set(std::string_view text) {
  for (CachedHour& slot : cache_) slot = CachedHour();
  if (text == "local") {
    local_ = true;
    return true;
  }
  if (text == "UTC" || text == "utc" || text == "Z") {
    local_ = false;
    offset_seconds_ = 0;
    return true;
  }
  if (text.size() < 5 || (text[0] != '+' && text[0] != '-')) return false;
  std::string digits;
  for (size_t i = 1; i < text.size(); ++i) {
    if (text[i] == ':' && i == 3) continue;
    if (text[i] < '0' || text[i] > '9') return false;
    digits += text[i];
  }
  if (digits.size() != 4) return false;
  const int hours = (digits[0] - '0') * 10 + (digits[1] - '0');
  const int minutes = (digits[2] - '0') * 10 + (digits[3] - '0');
  if (hours > 14 || minutes > 59) return false;
  local_ = false;
  offset_seconds_ = (text[0] == '-' ? -1 : 1) * (hours * 3600 + minutes * 60);
  return true;
}

int64_t TimeZoneSetting::OffsetAt(int64_t epoch) const {
  if (!local_) return offset_seconds_;
  // Offsets change on the hour at most; a stream of messages stays within a few hours.
  const int64_t hour = epoch / 3600;
  for (const CachedHour& slot : cache_) {
    if (slot.hour == hour) return slot.offset;
  }
  const time_t t = static_cast<time_t>(epoch);
  struct tm parts {};
  CachedHour& slot = cache_[next_slot_];
  next_slot_ = (next_slot_ + 1) % kCachedHours;
  slot.offset = localtime_r(&t, &parts) != nullptr ? parts.tm_gmtoff : 0;
  slot.hour = hour;
  return slot.offset;
}

int64_t TimeZoneSetting::ToEpoch(int year, int month, int day, int hour, int minute,
                                 int second) const {
  const int64_t as_utc = CivilToEpoch(year, month, day, hour, minute, second);
  // The offset at the guess, corrected once for a change of offset between guess and answer.
  int64_t epoch = as_utc - OffsetAt(as_utc);
  epoch = as_utc - OffsetAt(epoch);
  return epoch;
}

int TimeZoneSetting::YearAt(int64_t epoch) const {
  int64_t days = (epoch + OffsetAt(epoch)) / 86400;
  if ((epoch + OffsetAt(epoch)) % 86400 < 0) --days;
  // The inverse of the era-based method in CivilToEpoch.
  days += 719468;
  const int64_t era = (days >= 0 ? days : days - 146096) / 146097;
  const int64_t doe = days - era * 146097;
  const int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  const int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const int64_t mp = (5 * doy + 2) / 153;
  const int64_t month = mp < 10 ? mp + 3 : mp - 9;
  return static_cast<int>(yoe + era * 400 + (month <= 2 ? 1 : 0));
}

}  // namespace logd::syslog
