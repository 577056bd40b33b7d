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
  std::vector<std::string> tables;  // of the sidecar's candidates, newest ids first
  std::string match;
  int64_t limit = 0;  // 0: the rows are walked in batches, not collected at once
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

  // How the first pages of a one-store term search are found by walking its candidates in id
  // order, batch by batch, into "search_candidates" (filter narrows the store to them): the
  // index whose time bounds by id tell when the walk may stop (*odd: its rows without an
  // integer time, which the walk reads first), or null when it cannot be walked (as Narrowing).
  IndexReader* Walking(const SearchRequest& search, CandidateRows* candidates, int64_t* odd);

  // The index of a one-store search, or null; *sidecar: its file, to attach as "search_index";
  // *store: the store's file.
  IndexReader* OneStore(const SearchRequest& search, std::string* sidecar, std::string* store);
  // The same when a page sorted by user can walk the index's user order (its rows above the
  // mark few enough to sort): the table "users" (id, username) of the sidecar holds the indexed
  // rows' users, and its index "users_order" orders them.
  IndexReader* UserOrder(const SearchRequest& search, std::string* sidecar);

  // The level counts of search without terms (every filter but the level's). False: scan.
  bool CountLevels(const SearchRequest& search, int64_t levels[4]);
  // The histogram of search without terms, laid out as the scan does. False: scan.
  bool FillHistogram(const SearchRequest& search, Histogram* histogram, SearchFailure* failure);

 private:
  // The FTS5 query of search's terms (false: no narrowing term, or not one indexed store).
  // *fewest: at most how many rows match (IndexReader::NarrowQuery); null: not needed.
  bool Matching(const SearchRequest& search, CandidateRows* candidates, int64_t* fewest);
  // IndexReader::NarrowQuery of the folded terms (two trigrams each), reused for a while.
  std::string NarrowedQuery(const std::vector<std::string>& folded, int64_t* fewest);
  bool Count(const BucketQuery& query, std::vector<BucketCounts>* counts);
  std::vector<std::unique_ptr<IndexReader>> readers_;
  std::string sidecar_;
};
