// The backup services' plain-text logs: the last lines of one file, filtered in memory.
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <memory>

#include "catalogue/log_levels.h"
#include "catalogue/log_types.h"
#include "catalogue/text_helpers.h"
#include "platform/logfiles.h"
#include "platform/stringbundle.h"
#include "sources/core_log.h"
#include "sources/log_sources.h"
#include "sources/record_fields.h"

namespace {

constexpr int kMaxLines = 15000;
constexpr size_t kPathSize = 4096;

// A date bound of the search as the date text of the file lines; "" for no bound.
std::string DateBound(const std::string& seconds) {
  if (seconds.empty() || seconds == "0") return std::string();
  return QUORLogConvertTime1(static_cast<time_t>(strtoll(seconds.c_str(), nullptr, 10)));
}

// "YYYY/MM/DD HH:MM:SS" texts in local time as epoch seconds. Lines come in runs of the same
// day, so the start of the last day is kept: within a day that has no change of offset, a time
// is its start plus hours, minutes and seconds, and mktime runs once per day, not per line.
class LocalTimes {
 public:
  // False (and 0) when text is not such a text.
  bool Epoch(const char* text, int64_t* seconds) {
    struct tm local = {};
    *seconds = 0;
    if (!ReadCanonical(text, &local) && strptime(text, "%Y/%m/%d %H:%M:%S", &local) == nullptr) {
      return false;
    }
    int within = local.tm_hour * 3600 + local.tm_min * 60 + local.tm_sec;
    if (!known_ || local.tm_year != day_.tm_year || local.tm_mon != day_.tm_mon ||
        local.tm_mday != day_.tm_mday) {
      day_ = local;
      known_ = true;
      struct tm start = local, end = local;
      start.tm_hour = start.tm_min = start.tm_sec = 0;
      end.tm_hour = 23;
      end.tm_min = end.tm_sec = 59;
      start.tm_isdst = end.tm_isdst = -1;
      start_ = static_cast<int64_t>(mktime(&start));
      linear_ = static_cast<int64_t>(mktime(&end)) - start_ == 86399;
    }
    if (linear_) {
      *seconds = start_ + within;
    } else {
      local.tm_isdst = -1;
      *seconds = static_cast<int64_t>(mktime(&local));
    }
    return true;
  }

 private:
  // The common exact form "dddd/dd/dd dd:dd:dd" read without strptime's locale machinery;
  // false (anything else, or a field out of strptime's range) leaves the text to strptime.
  static bool ReadCanonical(const char* t, struct tm* local) {
    static const char kShape[] = "0000/00/00 00:00:00";
    for (int i = 0; kShape[i] != '\0'; ++i) {
      bool digit = t[i] >= '0' && t[i] <= '9';
      if (kShape[i] == '0' ? !digit : t[i] != kShape[i]) return false;
    }
    auto n = [t](int at, int width) {
      int value = 0;
      for (int i = at; i < at + width; ++i) value = value * 10 + (t[i] - '0');
      return value;
    };
    int month = n(5, 2), day = n(8, 2), hour = n(11, 2), minute = n(14, 2), second = n(17, 2);
    if (month < 1 || month > 12 || day < 1 || day > 31 || hour > 23 || minute > 59 || second > 61) {
      return false;
    }
    local->tm_year = n(0, 4) - 1900;
    local->tm_mon = month - 1;
    local->tm_mday = day;
    local->tm_hour = hour;
    local->tm_min = minute;
    local->tm_sec = second;
    return true;
  }

  struct tm day_ = {};
  bool known_ = false;
  int64_t start_ = 0;
  bool linear_ = false;  // the kept day has no change of offset
};

struct LineFilter {
  LocalTimes* times;    // the epoch of each line's time
  std::string display;  // localized name of the log type
  std::string name;     // catalogue name
  std::string from;     // date bounds as date texts, "" for none
  std::string to;
};

// Turns one line "level\ttime\tuser\tmessage" into a record, unless it is malformed (debug
// message) or the search filters it out. line is cut up in place.
void AddLine(char* line, const LogSearch& search, const LineFilter& filter,
             std::vector<PlainLine>* lines) {
  // Kept for the messages about malformed lines; reused to spare an allocation per line.
  thread_local std::string original;
  original.assign(line);
  char* save = nullptr;
  const char* level = strtok_r(line, "\t", &save);
  if (level == nullptr) {
    LOG_DEBUG_HERE("Bad Log format szLevel: %s", original.c_str());
    return;
  }
  int levelNumber = LevelNumber(level);
  const char* time = strtok_r(nullptr, "\t", &save);
  if (time == nullptr) {
    LOG_DEBUG_HERE("Bad Log formate szTime: %s", original.c_str());
    return;
  }
  char* user = strtok_r(nullptr, "\t", &save);
  if (user == nullptr) {
    LOG_DEBUG_HERE("Bad Log formate szUser: %s", original.c_str());
    return;
  }
  // The services end the user field with a separator character; it is not part of the name.
  user[strlen(user) - 1] = '\0';
  if (save == nullptr) {
    LOG_DEBUG_HERE("Bad Log formate saveptr: %s", original.c_str());
    return;
  }
  const char* message = save;
  if (!search.keyword.empty() && !KeywordFound(message, search.keyword) &&
      !KeywordFound(user, search.keyword)) {
    return;
  }
  // The date texts sort chronologically, so a byte-wise comparison is a date comparison.
  if (!filter.from.empty() && strcmp(filter.from.c_str(), time) > 0) return;
  if (!filter.to.empty() && strcmp(filter.to.c_str(), time) < 0) return;
  if (!LevelKept(search, levelNumber)) return;
  lines->emplace_back();
  PlainLine& typed = lines->back();
  Json::Value& record = typed.record;
  record = Json::Value(Json::objectValue);
  record["logtype"] = filter.display;
  record["orginalLogType"] = filter.name;
  record["descr"] = message;
  record["who"] = user;
  record["time"] = time;
  typed.level = LogLevelOf(levelNumber).number;
  record["level"] = LogLevelOf(levelNumber).recordWord;
  typed.timed = filter.times->Epoch(time, &typed.seconds);
}

// The file at path opened for reading, or null when it is missing or not a regular file: a FIFO,
// a directory or a device is treated as missing, and opening it never waits for a writer.
FILE* OpenRegularFile(const char* path) {
  int fd = open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return nullptr;
  struct stat st;
  FILE* file = fstat(fd, &st) == 0 && S_ISREG(st.st_mode) ? fdopen(fd, "r") : nullptr;
  if (file == nullptr) close(fd);
  return file;
}

// The lines readfileinreverse hands over, freed with their array on every path.
struct ReadLines {
  char** lines = nullptr;
  int count = 0;
  ~ReadLines() {
    for (int i = 0; i < count; ++i) free(lines[i]);
    free(lines);
  }
};

}  // namespace

void FetchPlainLogs(const LogSearch& search, std::vector<PlainLine>* records, bool* more) {
  if (more != nullptr) *more = false;
  const LogTypeEntry* entry = FindLogTypeEntry(search.logtype);
  if (entry == nullptr) return;
  char path[kPathSize];
  memset(path, 0, sizeof path);
  // The first answer only probes for the file; the second decides.
  if (QUORLogFilePathGet(entry->id, path, sizeof path) != -1) (void)access(path, F_OK);
  memset(path, 0, sizeof path);
  if (QUORLogFilePathGet(entry->id, path, sizeof path) != 0) return;

  StringBundle texts("log");
  LocalTimes times;
  LineFilter filter;
  filter.times = &times;
  filter.display = texts.Text(entry->textKey, nullptr);
  filter.name = entry->name;
  filter.from = DateBound(search.date_from);
  filter.to = DateBound(search.date_to);

  std::unique_ptr<FILE, int (*)(FILE*)> file(OpenRegularFile(path), fclose);
  if (file == nullptr) return;
  ReadLines lines;
  // One line beyond the window tells whether the file holds more; it is not shown.
  if (readfileinreverse(file.get(), &lines.lines, &lines.count, kMaxLines + 1) < 0) {
    LOG_ERROR_HERE("Read %s inversely failed.", path);
  } else {
    if (more != nullptr) *more = lines.count > kMaxLines;
    for (int i = 0; i < lines.count && i < kMaxLines; ++i) {
      if (lines.lines[i] != nullptr) AddLine(lines.lines[i], search, filter, records);
    }
  }
}
