// Small conversions shared by the sources when they turn rows and lines into records.
#include "sources/record_fields.h"

#include <stdio.h>
#include <stdlib.h>

#include "catalogue/log_levels.h"
#include "catalogue/text_helpers.h"
#include "platform/logfiles.h"

RowColumns::RowColumns(PQUORDBRESULT result, std::initializer_list<const char*> names)
    : result_(result) {
  int i = 0;
  for (const char* name : names) {
    if (i == kMax) break;
    index_[i++] = QUORDBColumnIndex(result, name);
  }
  for (; i < kMax; ++i) index_[i] = -1;
}

long long ReadInteger(const char* text) {
  while (*text == ' ' || (*text >= '\t' && *text <= '\r')) ++text;
  bool negative = *text == '-';
  if (*text == '-' || *text == '+') ++text;
  unsigned long long value = 0;
  const unsigned long long limit = negative ? 9223372036854775808ULL : 9223372036854775807ULL;
  for (; *text >= '0' && *text <= '9'; ++text) {
    unsigned digit = static_cast<unsigned>(*text - '0');
    if (value > (limit - digit) / 10) {
      value = limit;
      while (*text >= '0' && *text <= '9') ++text;
      break;
    }
    value = value * 10 + digit;
  }
  return negative ? static_cast<long long>(0 - value) : static_cast<long long>(value);
}

void TimeTexts::Convert(time_t seconds, std::string* text) {
  if (!valid_ || seconds != lastSeconds_) {
    lastText_ = QUORLogConvertTime1(seconds);
    lastSeconds_ = seconds;
    valid_ = true;
  }
  text->assign(lastText_);
}

namespace {

bool IsAscii(const char* text) {
  for (; *text != '\0'; ++text) {
    if (static_cast<unsigned char>(*text) >= 0x80) return false;
  }
  return true;
}

char UpperAscii(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

}  // namespace

bool KeywordFound(const char* text, const std::string& keyword) {
  if (text == nullptr || text[0] == '\0' || keyword.empty()) return false;
  if (!IsAscii(text) || !IsAscii(keyword.c_str())) return ContainsKeyword(text, keyword);
  const char* k = keyword.c_str();
  for (const char* start = text; *start != '\0'; ++start) {
    size_t i = 0;
    while (k[i] != '\0' && start[i] != '\0' && UpperAscii(start[i]) == UpperAscii(k[i])) ++i;
    if (k[i] == '\0') return true;
    if (start[i] == '\0') return false;  // the rest of text is shorter than keyword
  }
  return false;
}

bool LevelKept(const LogSearch& search, int level) {
  const char digit[2] = {static_cast<char>('0' + level), '\0'};
  return search.level.empty() || KeywordFound(search.level.c_str(), digit);
}

const char* CountLevel(int level, LevelCounts* counts) {
  const LogLevel& row = LogLevelOf(level);
  int32_t* counter = row.number == 3   ? &counts->error
                     : row.number == 2 ? &counts->warn
                                       : &counts->info;
  ++*counter;
  return row.recordWord;
}

std::string FileSizeText(const char* column) {
  long long n = strtoll(column, nullptr, 10);
  char text[32];
  if (n <= 1024) {
    snprintf(text, sizeof text, "%lld Bytes", n);
  } else if (n <= 1048576) {
    snprintf(text, sizeof text, "%.2f KB", n / 1024.0);
  } else if (n <= 1073741824) {
    snprintf(text, sizeof text, "%.2f MB", n / 1024.0 / 1024.0);
  } else {
    snprintf(text, sizeof text, "%.2f GB", n / 1024.0 / 1024.0 / 1024.0);
  }
  return text;
}
