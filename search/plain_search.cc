// Searches over a plain-text backup log: the window of its last lines, read as the list reads
// it, then filtered, counted, ordered and paged in memory (the window is bounded).
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <memory>

#include "catalogue/log_levels.h"
#include "catalogue/log_types.h"
#include "index/text_fold.h"
#include "platform/logfiles.h"
#include "search/search_result.h"
#include "sources/log_sources.h"
#include "sources/record_fields.h"

namespace {

constexpr int kWindow = 15000;

struct Line {
  Json::Value record;
  int level;
  int64_t seconds;  // the line's local time as epoch seconds
  bool timed;       // false when the line's time cannot be read (it then counts as 0)
};

int LevelOfRecord(const Json::Value& record) {
  const LogLevel* level = LogLevelByRecordWord(record["level"].asCString());
  return level != nullptr ? level->number : 1;
}

// "YYYY/MM/DD HH:MM:SS" in local time as epoch seconds; false when it is not such a text.
bool EpochOfLocalText(const std::string& text, int64_t* seconds) {
  struct tm local = {};
  *seconds = 0;
  if (strptime(text.c_str(), "%Y/%m/%d %H:%M:%S", &local) == nullptr) return false;
  local.tm_isdst = -1;
  *seconds = static_cast<int64_t>(mktime(&local));
  return true;
}

// terms: the search's terms, folded.
bool Matches(const SearchRequest& search, const std::vector<std::string>& terms,
             const Json::Value& record, int64_t seconds) {
  for (const std::string& term : terms) {
    if (!FoldedContains(record["descr"].asCString(), term) &&
        !FoldedContains(record["who"].asCString(), term)) {
      return false;
    }
  }
  if (search.hasFrom && seconds < search.from) return false;
  if (search.hasTo && seconds > search.to) return false;
  return true;
}

// True when the log holds more lines than the window that is read.
bool MoreThanWindow(const std::string& type) {
  const LogTypeEntry* entry = FindLogTypeEntry(type);
  char path[4096];
  if (entry == nullptr || QUORLogFilePathGet(entry->id, path, sizeof path) != 0) return false;
  int fd = open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return false;
  std::unique_ptr<FILE, int (*)(FILE*)> file(fdopen(fd, "r"), fclose);
  if (file == nullptr) {
    close(fd);
    return false;
  }
  char** lines = nullptr;
  int count = 0;
  readfileinreverse(file.get(), &lines, &count, kWindow + 1);
  for (int i = 0; i < count; ++i) free(lines[i]);
  free(lines);
  return count > kWindow;
}

// The window's lines that match every filter but the level's.
std::vector<Line> ReadLines(const SearchRequest& search) {
  LogSearch window;
  window.logtype = search.types.at(0);
  std::vector<Json::Value> records;
  FetchPlainLogs(window, &records);
  std::vector<std::string> terms;
  for (const std::string& term : search.terms) terms.push_back(Folded(term));
  std::vector<Line> lines;
  for (Json::Value& record : records) {
    int64_t seconds = 0;
    bool timed = EpochOfLocalText(record["time"].asString(), &seconds);
    if (!Matches(search, terms, record, seconds)) continue;
    lines.push_back({std::move(record), 0, seconds, timed});
    lines.back().level = LevelOfRecord(lines.back().record);
  }
  return lines;
}

}  // namespace

bool QueryPlain(const SearchRequest& search, QueryResult* result, SearchFailure*) {
  std::vector<Line> lines = ReadLines(search);
  std::vector<const Line*> kept;
  for (const Line& line : lines) {
    ++result->levels[line.level];
    if (search.levels[line.level]) kept.push_back(&line);
  }
  result->total = static_cast<int64_t>(kept.size());
  // Newest first by default; ties keep the file's order (newest first as read).
  std::stable_sort(kept.begin(), kept.end(), [&](const Line* a, const Line* b) {
    if (search.sort == "level") {
      return search.ascending ? a->level < b->level : a->level > b->level;
    }
    if (search.sort == "time") {
      return search.ascending ? a->seconds < b->seconds : a->seconds > b->seconds;
    }
    const std::string x = a->record[search.sort].asString(), y = b->record[search.sort].asString();
    return search.ascending ? x < y : x > y;
  });
  for (size_t i = static_cast<size_t>(search.offset);
       i < kept.size() && i < static_cast<size_t>(search.offset + search.limit); ++i) {
    result->items.append(kept[i]->record);
  }
  result->partial = MoreThanWindow(search.types.at(0));
  return true;
}

bool HistogramOfPlain(const SearchRequest& search, Histogram* histogram, SearchFailure* failure) {
  std::vector<Line> lines = ReadLines(search);
  int64_t from = search.from, to = search.to;
  bool bounded = search.hasFrom && search.hasTo;
  // A range too wide for bucket arithmetic is narrowed to the matches' own times.
  bool narrow = bounded && !SpanFits(from, to);
  bool any = false;
  // Lines whose time cannot be read count in the first bucket, as they sort first.
  bool timed = false;
  int64_t low = 0, high = 0;
  for (const Line& line : lines) {
    if (!search.levels[line.level]) continue;
    any = true;
    if (!line.timed) continue;
    if (!timed || line.seconds < low) low = line.seconds;
    if (!timed || line.seconds > high) high = line.seconds;
    timed = true;
  }
  if (timed) {
    if (!search.hasFrom) from = low;
    if (!search.hasTo) to = high;
    if (!SpanFits(from, to)) {
      from = std::max(from, low);
      to = std::min(to, high);
    }
  } else if (any) {
    if (!search.hasFrom) from = search.hasTo ? search.to : 0;
    if (!search.hasTo) to = from;
  }
  if (!any && (!bounded || narrow)) {
    histogram->from = search.hasFrom ? from : 0;
    histogram->to = search.hasTo ? to : 0;
    return true;
  }
  if (!SpanFits(from, to)) {
    failure->wideRange = true;
    return false;
  }
  LayOutBuckets(from, to, search.buckets, histogram);
  for (const Line& line : lines) {
    if (search.levels[line.level]) {
      CountInBucket(line.timed ? line.seconds : from, line.level, 1, histogram);
    }
  }
  return true;
}
