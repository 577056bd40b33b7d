// The level counts of recent searches.
#include "search/level_count_cache.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <deque>

#include "sources/sql_query.h"

namespace {

const size_t kEntries = 32;

struct Entry {
  std::string key;
  int64_t levels[4];
};

// One worker serves one request at a time: the cache needs no lock.
std::deque<Entry>& Entries() {
  static std::deque<Entry> entries;
  return entries;
}

// A file's identity, size and change time, and the bytes [at, at + size) of its header in hex:
// SQLite counts every commit in the database header and renews the write-ahead log's salts at
// every restart of the log, both of which the file clock may not show.
void AddFileState(const std::string& path, off_t at, size_t size, std::string* text) {
  int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  struct stat st;
  if (fd < 0 || fstat(fd, &st) != 0) {
    if (fd >= 0) close(fd);
    *text += "-|";
    return;
  }
  unsigned char header[32] = {0};
  ssize_t got = pread(fd, header, size, at);
  close(fd);
  *text += std::to_string(st.st_dev) + ":" + std::to_string(st.st_ino) + ":" +
           std::to_string(st.st_size) + ":" + std::to_string(st.st_mtim.tv_sec) + "." +
           std::to_string(st.st_mtim.tv_nsec) + ":";
  static const char kHex[] = "0123456789abcdef";
  for (ssize_t i = 0; i < got; ++i) {
    *text += kHex[header[i] >> 4];
    *text += kHex[header[i] & 15];
  }
  *text += "|";
}

// Everything of a search that its counts depend on but the stores' state: not the level
// filter, order or page.
std::string FiltersOf(const SearchRequest& search) {
  std::string key = std::to_string(static_cast<int>(search.logClass)) + "\n";
  for (const std::string& type : search.types) key += type + ",";
  key += "\n" + (search.hasFrom ? std::to_string(search.from) : std::string("-"));
  key += "\n" + (search.hasTo ? std::to_string(search.to) : std::string("-"));
  for (const std::string& term : search.terms)
    key += "\n" + std::to_string(term.size()) + ":" + term;
  for (const Exclusion& exclusion : search.excluded) {
    key += "\n-" + exclusion.key;
    for (const std::string& value : exclusion.values)
      key += " " + std::to_string(value.size()) + ":" + value;
  }
  for (const StoreIds* ids : {&search.after, &search.through}) {
    key += ids->given ? "\n<" : "\n";
    for (const auto& id : ids->ids) key += " " + id.first + ":" + std::to_string(id.second);
  }
  return key;
}

std::string KeyOf(const SearchRequest& search, const StoreStamp& stores) {
  return FiltersOf(search) + "\n" + stores.text();
}

struct ChunkEntry {
  std::string key;
  ChunkLevelMap chunks;
};

std::deque<ChunkEntry>& ChunkEntries() {
  static std::deque<ChunkEntry> entries;
  return entries;
}

}  // namespace

void StoreStamp::AddFile(const std::string& path) {
  text_ += path + "|";
  AddFileState(path, 24, 4, &text_);           // the file change counter
  AddFileState(path + "-wal", 0, 32, &text_);  // the log's header with its checkpoint and salts
}

bool StoreStamp::ReadRowIds(PQUORDB conn) {
  if (schemas_.empty()) return true;
  std::string sql = "SELECT ";
  for (size_t i = 0; i < schemas_.size(); ++i) {
    const std::string table = schemas_[i] + ".logs";
    sql += (i ? ", " : "") + std::string("(SELECT min(rowid) FROM ") + table +
           "), (SELECT max(rowid) FROM " + table + ")";
  }
  PQUORDBRESULT rows = nullptr;
  int rc = QUORDBExecute(conn, sql.c_str(), &rows);
  QuorDbRows result(rows);
  QUORDBROW row;
  if (rc < 0 || QUORDBFetchRow(result.get(), &row) != 0) return false;
  for (size_t i = 0; i < schemas_.size() * 2; ++i) {
    const char* id = QUORDBFetchFieldAt(result.get(), row, static_cast<int>(i));
    text_ += std::string(id != nullptr ? id : "-") + "|";
  }
  return true;
}

bool FindLevelCounts(const SearchRequest& search, const StoreStamp& stores, int64_t levels[4]) {
  std::string key = KeyOf(search, stores);
  for (const Entry& entry : Entries()) {
    if (entry.key != key) continue;
    for (int i = 0; i < 4; ++i) levels[i] = entry.levels[i];
    return true;
  }
  return false;
}

void KeepLevelCounts(const SearchRequest& search, const StoreStamp& stores,
                     const int64_t levels[4]) {
  std::deque<Entry>& entries = Entries();
  if (entries.size() == kEntries) entries.pop_front();
  Entry entry{KeyOf(search, stores), {levels[0], levels[1], levels[2], levels[3]}};
  entries.push_back(std::move(entry));
}

ChunkLevelMap* ChunkLevelsOf(const SearchRequest& search, const std::string& store) {
  std::string key = FiltersOf(search) + "\n" + store;
  std::deque<ChunkEntry>& entries = ChunkEntries();
  for (ChunkEntry& entry : entries) {
    if (entry.key == key) return &entry.chunks;
  }
  if (entries.size() == kEntries) entries.pop_front();
  entries.push_back(ChunkEntry{std::move(key), ChunkLevelMap()});
  return &entries.back().chunks;
}
