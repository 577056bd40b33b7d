// quor-logd's configuration file: retention per store and the queue's size.
#include "logd/config.h"

#include <cerrno>
#include <cstdlib>
#include <fstream>

namespace logd {

namespace {

std::string Trim(const std::string& text) {
  size_t begin = text.find_first_not_of(" \t\r");
  if (begin == std::string::npos) return "";
  size_t end = text.find_last_not_of(" \t\r");
  std::string trimmed = text.substr(begin, end - begin + 1);
  if (trimmed.size() >= 2 && trimmed.front() == '"' && trimmed.back() == '"') {
    trimmed = trimmed.substr(1, trimmed.size() - 2);
  }
  return trimmed;
}

// A non-negative number with an optional K, M or G (powers of 1024) suffix.
bool ParseSize(const std::string& text, int64_t* value) {
  if (text.empty() || text[0] < '0' || text[0] > '9') return false;
  errno = 0;
  char* end = nullptr;
  long long number = strtoll(text.c_str(), &end, 10);
  if (errno != 0) return false;
  int shift = 0;
  if (*end == 'K' || *end == 'k') shift = 10;
  if (*end == 'M' || *end == 'm') shift = 20;
  if (*end == 'G' || *end == 'g') shift = 30;
  if (shift > 0) ++end;
  if (*end != '\0' || number > (INT64_MAX >> shift)) return false;
  *value = static_cast<int64_t>(number) << shift;
  return true;
}

struct Key {
  const char* name;
  int64_t StoreLimits::*limit;  // null for the queue's keys
};
const Key kStoreKeys[] = {
    {"max_rows", &StoreLimits::maxRows},
    {"max_bytes", &StoreLimits::maxBytes},
    {"max_days", &StoreLimits::maxDays},
    {"keep_free_bytes", &StoreLimits::keepFreeBytes},
};

bool Apply(const std::string& key, int64_t value, LogdConfig* config) {
  for (const Key& k : kStoreKeys) {
    if (key == std::string("system_") + k.name) return config->system.*k.limit = value, true;
    if (key == std::string("connection_") + k.name) {
      return config->connection.*k.limit = value, true;
    }
  }
  if (key == "queue_entries" && value > 0) return config->queueEntries = value, true;
  if (key == "queue_bytes" && value > 0) return config->queueBytes = value, true;
  return false;
}

}  // namespace

bool LoadConfig(const std::string& realPath, LogdConfig* config, std::string* error) {
  std::ifstream file(realPath);
  if (!file) return true;
  LogdConfig read = *config;
  std::string line;
  for (int number = 1; std::getline(file, line); ++number) {
    size_t hash = line.find('#');
    if (hash != std::string::npos) line.erase(hash);
    if (Trim(line).empty()) continue;
    size_t equals = line.find('=');
    std::string key = Trim(line.substr(0, equals));
    std::string why;
    if (equals != std::string::npos && key.rfind("syslog_", 0) == 0) {
      if (syslog::SetSyslogOption(key, Trim(line.substr(equals + 1)), &read.syslog, &why)) continue;
      *error = realPath + ":" + std::to_string(number) + ": " + why;
      return false;
    }
    int64_t value = 0;
    if (equals == std::string::npos || !ParseSize(Trim(line.substr(equals + 1)), &value) ||
        !Apply(key, value, &read)) {
      *error = realPath + ":" + std::to_string(number) + ": unknown key or bad value: " + line;
      return false;
    }
  }
  *config = read;
  return true;
}

}  // namespace logd
