// The search indexes of a search's stores (index/search_index.h), when they can answer now.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "index/search_index.h"
#include "search/search_result.h"

// The candidates of a term search: the rows of the FTS5 query match, at most limit of them (a
// search with more reads the log through instead: looking each up costs more), to be collected
// into the temporary table "search_candidates" of a connection with the sidecar attached as
// "search_index"; filter is the condition that then narrows an arm of the store to them and
// to the rows above the index's mark.
struct CandidateRows {
  std::string sidecar;
  std::string match;
  int64_t limit = 0;
  std::string filter;
};

class SearchIndexes {
 public:
  // Opens the index of every existing store of search. False (a background catch-up started
  // where one is missing or behind) when one cannot answer: the search then scans.
  bool Open(const SearchRequest& search);

  // How the index narrows a one-store term search to candidate rows: false when it cannot (several
  // stores, no term of three characters, a term that cannot be folded).
  bool Narrowing(const SearchRequest& search, CandidateRows* candidates);

  // The level counts of search without terms (every filter but the level's). False: scan.
  bool CountLevels(const SearchRequest& search, int64_t levels[4]);
  // The histogram of search without terms, laid out as the scan does. False: scan.
  bool FillHistogram(const SearchRequest& search, Histogram* histogram, SearchFailure* failure);

 private:
  bool Count(const BucketQuery& query, std::vector<BucketCounts>* counts);
  std::vector<std::unique_ptr<IndexReader>> readers_;
  std::string sidecar_;
};
