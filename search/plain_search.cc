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

// terms: the search's terms, folded.
bool Matches(const SearchRequest& search, const std::vector<std::string>& terms,
             const PlainLine& line) {
  for (const std::string& term : terms) {
    if (!FoldedContains(line.record["descr"].asCString(), term) &&
        !FoldedContains(line.record["who"].asCString(), term)) {
      return false;
    }
  }
  for (const Exclusion& exclusion : search.excluded) {
    const std::string& user = line.record[exclusion.key].asString();
    for (const std::string& value : exclusion.values) {
      if (user == value) return false;
    }
  }
  if (search.hasFrom && line.seconds < search.from) return false;
  if (search.hasTo && line.seconds > search.to) return false;
  return true;
}

// The window's lines that match every filter but the level's; *more when the log holds more
// lines than the window.
std::vector<PlainLine> ReadLines(const SearchRequest& search, bool* more) {
  LogSearch window;
  window.logtype = search.types.at(0);
  std::vector<PlainLine> lines;
  FetchPlainLogs(window, &lines, more);
  std::vector<std::string> terms;
  for (const std::string& term : search.terms) terms.push_back(Folded(term));
  lines.erase(std::remove_if(lines.begin(), lines.end(),
                             [&](const PlainLine& line) { return !Matches(search, terms, line); }),
              lines.end());
  return lines;
}

}  // namespace

bool QueryPlain(const SearchRequest& search, QueryResult* result, SearchFailure*) {
  bool more = false;
  std::vector<PlainLine> lines = ReadLines(search, &more);
  std::vector<const PlainLine*> kept;
  for (const PlainLine& line : lines) {
    ++result->levels[line.level];
    if (search.levels[line.level]) kept.push_back(&line);
  }
  result->total = static_cast<int64_t>(kept.size());
  // Newest first by default; ties keep the file's order (newest first as read).
  std::stable_sort(kept.begin(), kept.end(), [&](const PlainLine* a, const PlainLine* b) {
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
  result->partial = more;
  return true;
}

bool HistogramOfPlain(const SearchRequest& search, Histogram* histogram, SearchFailure* failure) {
  std::vector<PlainLine> lines = ReadLines(search, nullptr);
  int64_t from = search.from, to = search.to;
  bool bounded = search.hasFrom && search.hasTo;
  // A range too wide for bucket arithmetic is narrowed to the matches' own times.
  bool narrow = bounded && !SpanFits(from, to);
  bool any = false;
  // Lines whose time cannot be read count in the first bucket, as they sort first.
  bool timed = false;
  int64_t low = 0, high = 0;
  for (const PlainLine& line : lines) {
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
  for (const PlainLine& line : lines) {
    if (search.levels[line.level]) {
      CountInBucket(line.timed, line.seconds, line.level, 1, histogram);
    }
  }
  return true;
}
