// The search index of a log store: a sidecar database beside the store ("<store>.search-index")
// that the modules' statements never see. It holds
//   - FTS5 tables of trigrams over the case-folded searched columns of the indexed rows, one per
//     range of 2^20 row ids (row id = the store's row id), which narrow a term search to
//     candidate rows; the exact test then runs on those rows only, so answers are the scan's
//     answers, and candidates of rows the store removed since are never shown;
//   - the count of rows by id chunk (65,536 ids), minute and level, which answers level counts,
//     totals and time buckets without reading the rows;
//   - the indexed mark (rows with ids up to it are indexed) and the lowest id counted.
// Rows above the mark are read from the store itself. Rows removed from the bottom of the store
// (a clear, retention) are noticed by the store's lowest id: readers then read the lowest chunk
// from the store, and the indexer drops the counts of chunks, and the tables of ranges, wholly
// below it. A store replaced by another file, or ids that went back, reset the index.
// Only the system class and the transfer class are indexed (their searched columns are plain
// text); other stores have no index.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

// Brings the index of the store at storePath (a real path) up to the store's newest row, in
// transactions of at most 50,000 rows, creating the sidecar when it is missing and making it
// anew when it is damaged. For writers (quor-logd calls it after its commits) and for the
// background catch-up. Returns true when the index is current; false with *error when the store
// or the sidecar cannot be read or written (the store is never changed), or when the store has
// no index class. Safe against other processes doing the same: each batch is one write
// transaction of the sidecar.
bool IndexCatchUp(const std::string& storePath, std::string* error = nullptr);

// Like IndexCatchUp, but stops after about maxRows rows; *behind tells how many remain.
bool IndexCatchUpSome(const std::string& storePath, int64_t maxRows, int64_t* behind,
                      std::string* error);

// Starts IndexCatchUp of storePath on a thread of the process's one background indexer, unless
// one runs for it already. The indexer's thread ends with the process (its owner joins it).
void IndexCatchUpInBackground(const std::string& storePath);

// The sidecar's path for a store.
std::string IndexPathOf(const std::string& storePath);

// Counts per time bucket by level (index 1 to 3; 0 unused).
using BucketCounts = std::array<int64_t, 4>;

// What a count over an index is asked for: rows whose time is in the range (each bound only
// when set), counted in buckets of width seconds from first (the last bucket ends at the range's
// end); rows whose time is not an integer count in bucket 0 and only when no bound is set.
struct BucketQuery {
  bool hasFrom = false, hasTo = false;
  int64_t from = 0, to = 0;
  int64_t first = 0;
  uint64_t width = 1;
  size_t buckets = 1;
};

// A read of one store's index, consistent with the store at one moment.
class IndexReader {
 public:
  // The index of storePath when at most maxBehind rows, or fewer than half of the store's rows,
  // are above its mark (those are read from the store). Null when there is none that can answer now
  // (missing, damaged, too far behind, another class, unreadable): a background catch-up is then
  // started, and the caller scans. A reader never writes the index.
  static std::unique_ptr<IndexReader> Open(const std::string& storePath, int64_t maxBehind);
  ~IndexReader();

  // Highest indexed row id: rows above it are not in the candidate table.
  int64_t mark() const { return mark_; }

  // The FTS5 query of the folded terms with, of each term, only the kept trigrams in the fewest
  // rows (all of them when the counts cannot be read): its candidates are those of
  // CandidateQuery, or a few more, and it is merged several times faster (the trigrams in many
  // rows cost the most and narrow the least). "" when no term is three characters long.
  // *fewest: at most how many indexed rows hold every trigram of the terms (the fewest rows
  // that hold one of them; deleted rows may still count), read on the way; -1 when it cannot be
  // read.
  std::string NarrowQuery(const std::vector<std::string>& foldedTerms, size_t kept,
                          int64_t* fewest);
  // The FTS5 tables of the candidates, one per range of ids (each MATCHes a query; rowid is the
  // row's id), newest range first; the ranges do not overlap.
  std::vector<std::string> TermTables() const;
  // Rows the index holds (ids from the store's lowest up to the mark).
  int64_t span() const { return span_; }
  // The store's lowest row id: candidates below it are of rows removed since.
  int64_t low() const { return low_; }
  // Rows of the store above the mark when the index was opened.
  int64_t behind() const { return behind_; }

  // Adds the counts of query to *counts (query.buckets entries). False when the index cannot
  // answer it exactly (rows with odd times and a bound set; a read failed): scan instead.
  bool Count(const BucketQuery& query, std::vector<BucketCounts>* counts);

  // The first and last integer time of the rows of the levels asked (levels[1..3]), *found false
  // when there is no such row. False when the index cannot tell (odd times present).
  bool TimeBounds(const bool levels[4], bool* found, int64_t* first, int64_t* last);

  // Bounds of the integer times of the indexed rows by row id, for a walk of candidates in id
  // order: LatestBelow(id) is a time no indexed row with a smaller id exceeds, EarliestAbove(id)
  // one that no indexed row with a greater id is below (whole minutes from the counts by id
  // chunk, so loose by up to a chunk and a minute). *odd: indexed rows without an integer time,
  // which the bounds leave out. False when the counts cannot be read.
  bool ReadTimesById(int64_t* odd);
  int64_t LatestBelow(int64_t id) const;
  int64_t EarliestAbove(int64_t id) const;

  struct State;

 private:
  IndexReader() = default;
  // Sets the floor for a store whose lowest row is minId, above the index's own lowest row.
  bool SetFloor(int64_t minId);
  // The highest chunk whose counts are not used (-1: none).
  int64_t FloorChunk() const;
  // The rows holding each trigram (0 for none); empty when they cannot be read.
  std::vector<int64_t> GramRows(const std::vector<std::string>& grams);
  std::unique_ptr<State> state_;
  int64_t mark_ = 0;
  int64_t span_ = 0;
  int64_t low_ = 1;
  int64_t behind_ = 0;
  // Rows from low_ up to floor_ are read from the store, and the counts of their chunks left
  // out: the index's last reconcile saw rows below them that the store has removed since
  // (retention while the writer indexes). 0: every chunk's counts hold.
  int64_t floor_ = 0;
  std::vector<int64_t> ranges_;  // of the candidate tables, lowest first
  struct ChunkTimes {
    int64_t chunk, earliest, latest;  // seconds
  };
  // By chunk; latest as the greatest of the chunk and those below it, earliest as the least of
  // the chunk and those above it.
  std::vector<ChunkTimes> times_;
};

// The index counts rows by chunk of row ids: id >> kIndexChunkBits.
constexpr int kIndexChunkBits = 16;

// The identity of the store file at storePath (its device and inode), as the index records it.
int64_t StoreIdentity(const std::string& storePath);

// For a connection with the store as "main" and its index attached as schema: one row of the
// store's lowest and highest row id, the index's mark and lowest row, and 1 when the index is of
// the store file at storePath in this format (0 otherwise). No row: the index is empty.
std::string IndexStateSql(const std::string& schema, const std::string& storePath);
// The same connection: (chunk, rows) of the index's counts for the chunks first..last.
std::string ChunkRowsSql(const std::string& schema, int64_t first, int64_t last);

// The trigrams (runs of three characters) of the folded terms.
std::vector<std::string> TrigramsOf(const std::vector<std::string>& foldedTerms);

// The FTS5 query that every row containing all of the folded terms matches (each term's
// trigrams, ANDed), or "" when no term is three characters long (no narrowing possible).
std::string CandidateQuery(const std::vector<std::string>& foldedTerms);
// The FTS5 query that ANDs the trigrams.
std::string QueryOfGrams(const std::vector<std::string>& grams);
