// Keyword containment, level numbers, dates and export file names.
#include "catalogue/text_helpers.h"

#include <cstring>
#include <ctime>
#include <vector>

#include "catalogue/log_levels.h"
#include "catalogue/log_types.h"
#include "platform/slibc.h"
#include "sources/core_log.h"

bool ContainsKeyword(const std::string& text, const std::string& keyword) {
  if (text.empty() || keyword.empty()) return false;
  std::vector<char> upperText(text.size() + 1, '\0');
  std::vector<char> upperKeyword(keyword.size() + 1, '\0');
  if (SLIBCUnicodeUTF8StrUpper(text.c_str(), upperText.data(), upperText.size()) < 0) {
    LOG_ERROR_HERE("SLIBCUnicodeUTF8StrUpper failed, str=%s.", upperText.data());
    return false;
  }
  if (SLIBCUnicodeUTF8StrUpper(keyword.c_str(), upperKeyword.data(), upperKeyword.size()) < 0) {
    LOG_ERROR_HERE("SLIBCUnicodeUTF8StrUpper failed, str=%s.", upperKeyword.data());
    return false;
  }
  return strstr(upperText.data(), upperKeyword.data()) != nullptr;
}

int LevelNumber(const char* levelText) {
  const LogLevel* level = LogLevelByStored(levelText);
  return level != nullptr ? level->number : 1;
}

const char* LogConvertTime(long seconds) {
  static char buffer[101];
  memset(buffer, 0, sizeof buffer);
  time_t t = static_cast<time_t>(seconds);
  struct tm local;
  if (localtime_r(&t, &local) != nullptr) strftime(buffer, 100, "%Y-%m-%d", &local);
  return buffer;
}

std::string MakeExportFileName(const std::string& logTypeName) {
  std::string base = kLogTypes[0].exportBase;
  for (int i = 0; i < kLogTypeCount; ++i) {
    if (logTypeName == kLogTypes[i].name) {
      base = IsXferLogType(kLogTypes[i].name) ? "filexferlog" : kLogTypes[i].exportBase;
      break;
    }
  }
  time_t now = time(nullptr);
  struct tm local;
  localtime_r(&now, &local);
  char stamp[128];
  snprintf(stamp, sizeof stamp, "%d-%d-%d-%d:%d:%d", local.tm_year + 1900, local.tm_mon + 1,
           local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
  return base + "_" + stamp;
}
