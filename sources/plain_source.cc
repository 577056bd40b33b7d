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

// "YYYY/MM/DD HH:MM:SS" in local time as epoch seconds; false (and 0) when it is not such a text.
bool EpochOfLocalText(const char* text, int64_t* seconds) {
  struct tm local = {};
  *seconds = 0;
  if (strptime(text, "%Y/%m/%d %H:%M:%S", &local) == nullptr) return false;
  local.tm_isdst = -1;
  *seconds = static_cast<int64_t>(mktime(&local));
  return true;
}

struct LineFilter {
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
  typed.timed = EpochOfLocalText(time, &typed.seconds);
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
  LineFilter filter;
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
