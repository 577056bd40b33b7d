// Answers of the search module from the search indexes of its stores.
#include "search/search_indexes.h"

#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <deque>

#include "index/text_fold.h"
#include "sources/log_classes.h"
#include "sources/sql_query.h"

namespace {

// Rows above an index's mark that a search reads from the store at least (reading them costs
// less than reading the whole log, but a term's rows there are tested one by one); up to half a
// larger log's rows are read that way. An index further behind is caught up in the background
// while the search scans. A writer at 50,000 rows/s keeps its index a few thousand rows behind
// when the machine is idle, tens of thousands (at times over a hundred thousand) while searches
// take the cores.
const int64_t kMostBehind = 100000;

// How long a term's narrowed query is reused: a page asks it again with every page it shows
// and every refresh, and reading the trigrams' row counts costs about 30 ms on a million rows.
// Any trigrams of the terms give every matching row (the candidates are confirmed), and the
// bound only tells whether to read the log through: a narrowed query a little old is as right.
const int kNarrowedSeconds = 30;

struct Narrowed {
  std::string key, match;
  int64_t fewest;
  time_t at;
};

}  // namespace

std::string SearchIndexes::NarrowedQuery(const std::vector<std::string>& folded, int64_t* fewest) {
  // One worker serves one request at a time.
  static std::deque<Narrowed> kept;
  std::string key = sidecar_;
  for (const std::string& term : folded) key += "\n" + std::to_string(term.size()) + ":" + term;
  const time_t now = time(nullptr);
  while (!kept.empty() && (kept.size() > 16 || now - kept.front().at > kNarrowedSeconds)) {
    kept.pop_front();
  }
  for (const Narrowed& narrowed : kept) {
    if (narrowed.key != key) continue;
    *fewest = narrowed.fewest;
    return narrowed.match;
  }
  std::string match = readers_[0]->NarrowQuery(folded, 2, fewest);
  if (*fewest >= 0) kept.push_back(Narrowed{key, match, *fewest, now});
  return match;
}

bool SearchIndexes::Open(const SearchRequest& search) {
  if (search.logClass != LogClass::kSystem && search.logClass != LogClass::kTransfer) return false;
  for (const std::string& type : search.types) {
    std::string path;
    if (!StorePathOf(type.c_str(), &path) || access(path.c_str(), F_OK) != 0) continue;
    std::unique_ptr<IndexReader> reader = IndexReader::Open(path, kMostBehind);
    if (reader == nullptr) return false;
    readers_.push_back(std::move(reader));
    sidecar_ = IndexPathOf(path);
  }
  return true;
}

IndexReader* SearchIndexes::OneStore(const SearchRequest& search, std::string* sidecar,
                                     std::string* store) {
  if (readers_.size() != 1 || search.types.size() != 1 ||
      !StorePathOf(search.types[0].c_str(), store)) {
    return nullptr;
  }
  *sidecar = sidecar_;
  return readers_[0].get();
}

IndexReader* SearchIndexes::UserOrder(const SearchRequest& search, std::string* sidecar) {
  std::string store;
  IndexReader* index = OneStore(search, sidecar, &store);
  return index != nullptr && index->behind() <= kMostBehind ? index : nullptr;
}

bool SearchIndexes::Matching(const SearchRequest& search, CandidateRows* candidates,
                             int64_t* fewest) {
  if (readers_.size() != 1 || search.types.size() != 1) return false;
  std::vector<std::string> folded;
  for (const std::string& term : search.terms) folded.push_back(Folded(term));
  // With the trigrams' row counts (read for the bound), the two trigrams of each term in the
  // fewest rows: about as narrow as all of them, and merged several times faster. Without
  // (fewest null), every trigram: their counts cost more than a walk's first page.
  if (fewest == nullptr) {
    candidates->match = CandidateQuery(folded);
  } else {
    candidates->match = NarrowedQuery(folded, fewest);
  }
  candidates->sidecar = sidecar_;
  candidates->tables = readers_[0]->TermTables();
  return !candidates->match.empty();
}

bool SearchIndexes::Narrowing(const SearchRequest& search, CandidateRows* candidates) {
  int64_t fewest = 0;
  if (!Matching(search, candidates, &fewest)) return false;
  // On a large log, candidates of more than a twentieth of the rows are looked up more slowly
  // than the log is read through.
  int64_t span = readers_[0]->span();
  candidates->limit = span >= 100000 ? span / 20 : INT64_MAX;
  // A term whose every trigram is in more rows than that reads the log through at once,
  // without collecting its candidates first.
  if (candidates->limit != INT64_MAX && fewest > candidates->limit) {
    return false;
  }
  // One IN list (the candidates, then the rows above the mark), so that rows are looked up by
  // id rather than the log read through.
  candidates->filter =
      " AND id IN (SELECT id FROM temp.search_candidates UNION ALL SELECT id FROM logs WHERE id "
      "> " +
      std::to_string(readers_[0]->mark()) + ")";
  return true;
}

IndexReader* SearchIndexes::Walking(const SearchRequest& search, CandidateRows* candidates,
                                    int64_t* odd) {
  if (!Matching(search, candidates, nullptr) || !readers_[0]->ReadTimesById(odd)) return nullptr;
  candidates->limit = 0;
  candidates->filter = " AND id IN (SELECT id FROM temp.search_candidates)";
  return readers_[0].get();
}

bool SearchIndexes::Count(const BucketQuery& query, std::vector<BucketCounts>* counts) {
  counts->assign(query.buckets, BucketCounts{0, 0, 0, 0});
  std::vector<BucketCounts> one;
  for (auto& reader : readers_) {
    if (!reader->Count(query, &one)) return false;
    for (size_t i = 0; i < one.size(); ++i) {
      for (int level = 1; level <= 3; ++level) (*counts)[i][level] += one[i][level];
    }
  }
  return true;
}

bool SearchIndexes::CountLevels(const SearchRequest& search, int64_t levels[4]) {
  if (search.FiltersRows()) return false;
  BucketQuery query;
  query.hasFrom = search.hasFrom;
  query.hasTo = search.hasTo;
  query.from = search.from;
  query.to = search.to;
  query.first = INT64_MIN;
  query.width = UINT64_MAX;  // two buckets hold every time
  query.buckets = 2;
  std::vector<BucketCounts> counts;
  if (!Count(query, &counts)) return false;
  for (int level = 1; level <= 3; ++level) levels[level] = counts[0][level] + counts[1][level];
  return true;
}

bool SearchIndexes::FillHistogram(const SearchRequest& search, Histogram* histogram,
                                  SearchFailure* failure) {
  if (search.FiltersRows()) return false;
  int64_t from = search.from, to = search.to;
  bool bounded = search.hasFrom && search.hasTo;
  bool any = bounded && SpanFits(from, to);
  if (!any) {
    // The first and last time of the matches, as the scan finds them.
    int64_t low = 0, high = 0;
    bool found = false;
    for (auto& reader : readers_) {
      int64_t first = 0, last = 0;
      bool some = false;
      if (!reader->TimeBounds(search.levels, &some, &first, &last)) return false;
      if (!some) continue;
      low = found ? std::min(low, first) : first;
      high = found ? std::max(high, last) : last;
      found = true;
    }
    // Without matches in the range the scan's empty answer stands; with matches outside an
    // open range's bound, the scan knows better.
    if (!found || (search.hasFrom && high < search.from) || (search.hasTo && low > search.to)) {
      return false;
    }
    if (!search.hasFrom) from = low;
    if (!search.hasTo) to = high;
    if (!SpanFits(from, to)) {
      // Narrowed to the matches' first and last time within the range, which the index knows
      // only without a bound.
      if (search.hasFrom || search.hasTo) return false;
      from = std::max(from, low);
      to = std::min(to, high);
    }
    if (to < from) return false;
  }
  if (!SpanFits(from, to)) {
    failure->wideRange = true;
    return true;
  }
  LayOutBuckets(from, to, search.buckets, histogram);
  BucketQuery query;
  query.hasFrom = search.hasFrom;
  query.hasTo = search.hasTo;
  query.from = search.from;
  query.to = search.to;
  query.first = from;
  query.width = static_cast<uint64_t>(histogram->bucket);
  query.buckets = histogram->counts.size();
  std::vector<BucketCounts> counts;
  if (!Count(query, &counts)) return false;
  for (size_t i = 0; i < counts.size(); ++i) {
    for (int level = 1; level <= 3; ++level) {
      if (search.levels[level] && counts[i][level] != 0) {
        CountInBucket(true, from + static_cast<int64_t>(i) * histogram->bucket, level,
                      counts[i][level], histogram);
      }
    }
  }
  return true;
}
