// The level counts of recent searches, reused while the stores they were counted from are
// unchanged. Paging and sorting keep a search's filters, so only the page select runs again:
// the count is a scan of every matching row, the page often reads fifty.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "platform/logdb.h"
#include "search/search_request.h"

// What identifies the state of a search's stores: each file's identity, size and change time
// (its write-ahead log's too) and the lowest and highest row id of each table, which move with
// every insert and every trim even within one tick of the file clock.
class StoreStamp {
 public:
  // Adds the state of the store file at path (its absence when it does not exist).
  void AddFile(const std::string& path);
  // Adds the table of the store attached as schema ("main" for the opened one).
  void AddTable(const std::string& schema) { schemas_.push_back(schema); }
  // Reads the row-id bounds of every table added from conn; false when they cannot be read
  // (the counts are then not kept).
  bool ReadRowIds(PQUORDB conn);
  const std::string& text() const { return text_; }

 private:
  std::string text_;
  std::vector<std::string> schemas_;
};

// Finds the counts of search over stores in the worker's cache; true when *levels is set.
bool FindLevelCounts(const SearchRequest& search, const StoreStamp& stores, int64_t levels[4]);
// Keeps the counts (the oldest entries make room).
void KeepLevelCounts(const SearchRequest& search, const StoreStamp& stores,
                     const int64_t levels[4]);

// The level counts of a one-store search's matches by chunk of row ids, each with the rows the
// chunk held when they were counted: a search asked again while rows come and go (a writer adds
// them at the top, retention takes them at the bottom) counts again only the chunks whose rows
// changed.
struct ChunkLevels {
  int64_t rows = 0;
  int64_t levels[4] = {0, 0, 0, 0};
};
using ChunkLevelMap = std::map<int64_t, ChunkLevels>;

// The chunks kept for search over the store file of identity store (made empty when there are
// none; the oldest searches make room). Valid until the next call.
ChunkLevelMap* ChunkLevelsOf(const SearchRequest& search, const std::string& store);
