// The search indexes of a search's stores (index/search_index.h), when they can answer now.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "index/search_index.h"
#include "search/search_result.h"

class SearchIndexes {
 public:
  // Opens the index of every existing store of search. False (a background catch-up started
  // where one is missing or behind) when one cannot answer: the search then scans.
  bool Open(const SearchRequest& search);

  // The condition that narrows a one-store term search to the index's candidates and the rows
  // above its mark, for an arm of a select with the sidecar attached as "search_index"; "" when
  // the terms cannot be narrowed (several stores, no term of three characters, candidates of
  // more than a twentieth of the rows).
  std::string CandidateFilter(const SearchRequest& search);
  const std::string& sidecar() const { return sidecar_; }

  // The level counts of search without terms (every filter but the level's). False: scan.
  bool CountLevels(const SearchRequest& search, int64_t levels[4]);
  // The histogram of search without terms, laid out as the scan does. False: scan.
  bool FillHistogram(const SearchRequest& search, Histogram* histogram, SearchFailure* failure);

 private:
  bool Count(const BucketQuery& query, std::vector<BucketCounts>* counts);
  std::vector<std::unique_ptr<IndexReader>> readers_;
  std::string sidecar_;
};
