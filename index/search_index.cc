// The search index of a log store: catching up, reconciling removed rows, and counting.
#include "index/search_index.h"

#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <map>
#include <mutex>
#include <set>
#include <thread>
#include <tuple>

#include "index/text_fold.h"

namespace {

const int kVersion = 7;
const int kChunkBits = kIndexChunkBits;
const int64_t kBatch = 50000;
// Rows behind at which the background catch-up stops.
const int64_t kNearlyCurrent = 1000;
// The candidates are kept in one FTS5 table per range of 2^kRangeBits ids ("terms_<range>"):
// rows removed from the bottom of a store leave with whole tables, never one by one (FTS5 marks
// each deleted row, and every later read and merge of the table pays for the marks). Candidates
// of removed rows whose table stays are harmless: every candidate is confirmed in the store.
const int kRangeBits = 20;
// Pages of a range's table merged per step once the range is no longer written, until the
// table is one segment: a search opens one iterator per segment for each trigram (each parses a
// page, backwards for a newest-first walk), and FTS5's own merging leaves up to three segments
// on each level.
const int kMergePages = 2000;
// The minute (and hour) under which rows whose time is not an integer are counted.
const int64_t kOddMinute = INT64_MIN;

const char kSchema[] =
    "CREATE TABLE IF NOT EXISTS state (one INTEGER PRIMARY KEY CHECK (one = 1), version INTEGER, "
    "store INTEGER, mark INTEGER, low INTEGER);"
    "CREATE TABLE IF NOT EXISTS counts (chunk INTEGER, minute INTEGER, level INTEGER, n INTEGER, "
    "PRIMARY KEY (chunk, minute, level)) WITHOUT ROWID;"
    "CREATE INDEX IF NOT EXISTS counts_minute ON counts (minute);"
    "CREATE TABLE IF NOT EXISTS hours (chunk INTEGER, hour INTEGER, level INTEGER, n INTEGER, "
    "PRIMARY KEY (chunk, hour, level)) WITHOUT ROWID;"
    "CREATE INDEX IF NOT EXISTS hours_hour ON hours (hour);"
    "CREATE TABLE IF NOT EXISTS merged (range INTEGER PRIMARY KEY);"
    // Each indexed row's user, in user order (pages sorted by user walk it): kept here rather
    // than as an index of the store, so that the writer of the store does not pay for it.
    "CREATE TABLE IF NOT EXISTS users (id INTEGER PRIMARY KEY, username);"
    "CREATE INDEX IF NOT EXISTS users_order ON users (username);";

std::string TermsTable(int64_t range) { return "terms_" + std::to_string(range); }

struct Closer {
  void operator()(sqlite3* db) const { sqlite3_close_v2(db); }
};
struct Finalizer {
  void operator()(sqlite3_stmt* s) const { sqlite3_finalize(s); }
};
using Db = std::unique_ptr<sqlite3, Closer>;
using Stmt = std::unique_ptr<sqlite3_stmt, Finalizer>;

// What is indexed of a store's class.
struct StoreClass {
  const char* columns;   // the two searched columns, as a select list
  const char* severity;  // the level number of a row
};

const StoreClass kSystemClass = {"username, msg",
                                 "CASE level WHEN 'err' THEN 3 WHEN 'warning' THEN 2 ELSE 1 END"};
const StoreClass kTransferClass = {"username, filename", "1"};

int64_t FloorDiv(int64_t a, int64_t b) {
  int64_t q = a / b;
  return (a % b != 0 && (a < 0) != (b < 0)) ? q - 1 : q;
}

int64_t FileIdentity(const std::string& path) {
  struct stat st;
  if (stat(path.c_str(), &st) != 0) return -1;
  return static_cast<int64_t>(st.st_ino) ^ (static_cast<int64_t>(st.st_dev) << 40);
}

// A URI for a read-only open of path.
std::string ReadOnlyUri(const std::string& path) {
  std::string uri = "file:";
  for (char c : path) {
    if (c == '%' || c == '?' || c == '#') {
      char hex[4];
      snprintf(hex, sizeof hex, "%%%02X", static_cast<unsigned char>(c));
      uri += hex;
    } else {
      uri += c;
    }
  }
  return uri + "?mode=ro";
}

}  // namespace

// One connection to a sidecar with its store attached read-only as "store".
struct IndexReader::State {
  std::string storePath;
  Db db;
  const StoreClass* storeClass = nullptr;
  std::string error;
  int64_t mark = 0, low = 1;
  bool fresh = false;    // the sidecar has no state yet
  bool remake = false;   // the sidecar is to be emptied and made anew
  bool merging = false;  // the last step merged a range's segments and more remain

  bool Fail(const char* what) {
    error = std::string(what) + ": " + (db ? sqlite3_errmsg(db.get()) : "no connection");
    return false;
  }
  bool Exec(const std::string& sql) {
    return sqlite3_exec(db.get(), sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK ||
           Fail(sql.c_str());
  }
  Stmt Prepare(const std::string& sql) {
    sqlite3_stmt* s = nullptr;
    if (sqlite3_prepare_v2(db.get(), sql.c_str(), -1, &s, nullptr) != SQLITE_OK) Fail(sql.c_str());
    return Stmt(s);
  }
  // The first column of the first row of sql as an integer; fallback when NULL or no row.
  bool Int(const std::string& sql, int64_t fallback, int64_t* out) {
    Stmt s = Prepare(sql);
    if (!s) return false;
    int rc = sqlite3_step(s.get());
    *out = rc == SQLITE_ROW && sqlite3_column_type(s.get(), 0) != SQLITE_NULL
               ? sqlite3_column_int64(s.get(), 0)
               : fallback;
    return rc == SQLITE_ROW || rc == SQLITE_DONE || Fail(sql.c_str());
  }

  // Opens the sidecar (created when create) and attaches the store. False when either cannot
  // be opened, the store has no index class, or the sidecar is not a readable index.
  // Waits up to waitMs for another indexer's lock. A reader (create false) also opens the
  // sidecar of a read-only root.
  bool Open(const std::string& path, bool create, int waitMs) {
    storePath = path;
    if (access(path.c_str(), R_OK) != 0) return Fail("no store");
    sqlite3* raw = nullptr;
    int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_URI | SQLITE_OPEN_NOMUTEX;
    if (create) flags |= SQLITE_OPEN_CREATE;
    std::string side = IndexPathOf(path);
    int rc = sqlite3_open_v2(side.c_str(), &raw, flags, nullptr);
    if (rc != SQLITE_OK && !create) {
      sqlite3_close_v2(raw);
      raw = nullptr;
      rc = sqlite3_open_v2(side.c_str(), &raw, SQLITE_OPEN_READONLY | SQLITE_OPEN_URI, nullptr);
    }
    db.reset(raw);
    if (rc != SQLITE_OK) return Fail("open index");
    sqlite3_busy_timeout(db.get(), waitMs);
    if (create && !Exec("PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL;")) return false;
    std::string attach = "ATTACH '" + ReadOnlyUri(path) + "' AS store";
    if (!Exec(attach)) return false;
    int64_t hasMsg = 0, hasFile = 0;
    if (!Int("SELECT count(*) FROM pragma_table_info('logs', 'store') WHERE name = 'msg'", 0,
             &hasMsg) ||
        !Int("SELECT count(*) FROM pragma_table_info('logs', 'store') WHERE name = 'filename'", 0,
             &hasFile)) {
      return false;
    }
    storeClass = hasMsg ? &kSystemClass : hasFile ? &kTransferClass : nullptr;
    if (storeClass == nullptr) return Fail("no index class");
    return create ? Exec(kSchema) : true;
  }

  // Reads the state row (mark, low); false when the index is of another store or format.
  bool ReadState(bool* matches) {
    Stmt s = Prepare("SELECT version, store, mark, low FROM state");
    if (!s) return false;
    *matches = false;
    int rc = sqlite3_step(s.get());
    if (rc == SQLITE_ROW) {
      *matches = sqlite3_column_int64(s.get(), 0) == kVersion &&
                 sqlite3_column_int64(s.get(), 1) == FileIdentity(storePath);
      mark = sqlite3_column_int64(s.get(), 2);
      low = sqlite3_column_int64(s.get(), 3);
      return true;
    }
    fresh = rc == SQLITE_DONE;
    return rc == SQLITE_DONE || Fail("read state");
  }

  bool WriteState() {
    Stmt s = Prepare("INSERT OR REPLACE INTO state VALUES (1, ?, ?, ?, ?)");
    if (!s) return false;
    sqlite3_bind_int64(s.get(), 1, kVersion);
    sqlite3_bind_int64(s.get(), 2, FileIdentity(storePath));
    sqlite3_bind_int64(s.get(), 3, mark);
    sqlite3_bind_int64(s.get(), 4, low);
    return sqlite3_step(s.get()) == SQLITE_DONE || Fail("write state");
  }

  // Empties the index: every count and candidate goes; the mark stays unless ids went back.
  // An index that holds rows is emptied by CatchUp instead (remake set, this transaction fails),
  // in a transaction of its own that drops its tables, and made anew from the store.
  bool Reset(int64_t newMark) {
    if (!fresh) {
      remake = true;
      return Fail("the index is made anew");
    }
    mark = newMark;
    low = newMark + 1;
    return Exec("DELETE FROM counts; DELETE FROM hours; DELETE FROM merged; DELETE FROM users;") &&
           DropRangesBelow(INT64_MAX) && WriteState();
  }

  // The id ranges that have a candidate table, lowest first.
  bool Ranges(std::vector<int64_t>* ranges) {
    ranges->clear();
    Stmt s = Prepare(
        "SELECT CAST(substr(name, 7) AS INTEGER) AS r FROM sqlite_schema WHERE type = 'table' "
        "AND name GLOB 'terms_[0-9]*' AND name NOT GLOB 'terms_*_*' ORDER BY r");
    if (!s) return false;
    int rc;
    while ((rc = sqlite3_step(s.get())) == SQLITE_ROW) {
      ranges->push_back(sqlite3_column_int64(s.get(), 0));
    }
    return rc == SQLITE_DONE || Fail("read ranges");
  }

  // Drops the candidate tables of the ranges wholly below id (of every range: INT64_MAX).
  bool DropRangesBelow(int64_t id) {
    std::vector<int64_t> ranges;
    if (!Ranges(&ranges)) return false;
    for (int64_t range : ranges) {
      if (id != INT64_MAX && range >= (id >> kRangeBits)) break;
      if (!Exec("DROP TABLE " + TermsTable(range) +
                "; DELETE FROM merged WHERE range = " + std::to_string(range))) {
        return false;
      }
    }
    return true;
  }

  // Merges the segments of the newest range that is no longer written and not yet one segment,
  // by at most kMergePages pages.
  bool MergeFinishedRange() {
    merging = false;
    std::vector<int64_t> ranges;
    if (!Ranges(&ranges)) return false;
    for (size_t i = ranges.size(); i-- > 0;) {
      int64_t range = ranges[i], done = 0;
      if (range >= (mark >> kRangeBits)) continue;
      if (!Int("SELECT count(*) FROM merged WHERE range = " + std::to_string(range), 0, &done)) {
        return false;
      }
      if (done != 0) continue;
      const std::string table = TermsTable(range);
      // Fewer than two changes: there was nothing left to merge.
      sqlite3_int64 before = sqlite3_total_changes64(db.get());
      if (!Exec("INSERT INTO " + table + " (" + table + ", rank) VALUES ('merge', -" +
                std::to_string(kMergePages) + ")")) {
        return false;
      }
      merging = sqlite3_total_changes64(db.get()) - before >= 2;
      if (merging) return true;
      return Exec("INSERT INTO merged VALUES (" + std::to_string(range) + ")");
    }
    return true;
  }

  // Adds the counts of the store's rows with ids in [first, last] (severity, minute).
  bool CountRows(int64_t first, int64_t last) {
    std::string sql = "SELECT time, " + std::string(storeClass->severity) +
                      " FROM store.logs WHERE id BETWEEN ? AND ?";
    Stmt s = Prepare(sql);
    if (!s) return false;
    sqlite3_bind_int64(s.get(), 1, first);
    sqlite3_bind_int64(s.get(), 2, last);
    std::map<std::pair<int64_t, int>, int64_t> add;
    int rc;
    while ((rc = sqlite3_step(s.get())) == SQLITE_ROW) {
      add[{MinuteOf(s.get(), 0), sqlite3_column_int(s.get(), 1)}]++;
    }
    if (rc != SQLITE_DONE) return Fail("count rows");
    return AddCounts(first >> kChunkBits, add);
  }

  static int64_t MinuteOf(sqlite3_stmt* s, int column) {
    if (sqlite3_column_type(s, column) != SQLITE_INTEGER) return kOddMinute;
    return FloorDiv(sqlite3_column_int64(s, column), 60);
  }

  // Adds counts by (minute, level) of a chunk to the minutes and to the hours.
  bool AddCounts(int64_t chunk, const std::map<std::pair<int64_t, int>, int64_t>& add) {
    std::map<std::pair<int64_t, int>, int64_t> hours;
    for (const auto& [key, n] : add) {
      hours[{key.first == kOddMinute ? kOddMinute : FloorDiv(key.first, 60), key.second}] += n;
    }
    return Upsert("counts", chunk, add) && Upsert("hours", chunk, hours);
  }
  bool Upsert(const char* table, int64_t chunk,
              const std::map<std::pair<int64_t, int>, int64_t>& add) {
    Stmt up = Prepare("INSERT INTO " + std::string(table) +
                      " VALUES (?, ?, ?, ?) ON CONFLICT DO UPDATE SET n = n + excluded.n");
    if (!up) return false;
    for (const auto& [key, n] : add) {
      sqlite3_reset(up.get());
      sqlite3_bind_int64(up.get(), 1, chunk);
      sqlite3_bind_int64(up.get(), 2, key.first);
      sqlite3_bind_int(up.get(), 3, key.second);
      sqlite3_bind_int64(up.get(), 4, n);
      if (sqlite3_step(up.get()) != SQLITE_DONE) return Fail("add counts");
    }
    return true;
  }

  // Recounts the chunk of id from the store (ids from low up to the mark).
  bool Recount(int64_t chunk) {
    int64_t first = std::max(low, chunk << kChunkBits);
    int64_t last = std::min(mark, ((chunk + 1) << kChunkBits) - 1);
    std::string c = std::to_string(chunk);
    if (!Exec("DELETE FROM counts WHERE chunk = " + c + "; DELETE FROM hours WHERE chunk = " + c)) {
      return false;
    }
    return first > last || CountRows(first, last);
  }

  // Checks the index against the store inside the current write transaction: resets it when
  // it belongs to another store or ids went back, and drops the counts of rows removed from the
  // bottom. *changed tells whether anything was written.
  bool Reconcile(bool* changed) {
    bool matches = false;
    int64_t minId = 0, maxId = 0;
    if (!ReadState(&matches) || !Int("SELECT min(id) FROM store.logs", 0, &minId) ||
        !Int("SELECT max(id) FROM store.logs", 0, &maxId)) {
      return false;
    }
    *changed = true;
    if (!matches || (maxId != 0 && maxId < mark)) return Reset(std::max<int64_t>(minId - 1, 0));
    if (maxId == 0 || minId > mark) {  // cleared, or every indexed row removed
      if (low > mark) {
        *changed = false;
        return true;
      }
      return Reset(mark);
    }
    // Rows removed from the bottom: the counts of the chunks wholly below the store's lowest
    // row go, and the candidate tables of ranges wholly below it, so that the index stays about
    // the size of the rows the store holds. The chunk of the lowest row keeps its counts until
    // retention has gone past it (readers read that chunk from the store): recounting it at
    // every trim would read it again and again while retention takes it a batch at a time.
    const int64_t lowChunk = low >> kChunkBits, minChunk = minId >> kChunkBits;
    *changed = minChunk > lowChunk;
    if (minChunk <= lowChunk) return true;
    low = minChunk << kChunkBits;
    std::string c = std::to_string(minChunk);
    if (!Exec("DELETE FROM counts WHERE chunk < " + c + "; DELETE FROM hours WHERE chunk < " + c +
              "; DELETE FROM users WHERE id < " + std::to_string(low)) ||
        !DropRangesBelow(minId) || !WriteState()) {
      return false;
    }
    // Rows of the chunk above may have gone out of id order (retention by time).
    int64_t next = minChunk + 1;
    bool intact = true;
    if ((next << kChunkBits) > mark) return true;
    return ChunkIntact(next, &intact) && (intact || Recount(next));
  }

  // Whether the store holds as many rows of chunk (up to the mark) as its counts say; rows
  // removed out of id order (retention by time) make them differ.
  bool ChunkIntact(int64_t chunk, bool* intact) {
    int64_t held = 0, counted = 0;
    if (!Int("SELECT count(*) FROM store.logs WHERE id BETWEEN " +
                 std::to_string(chunk << kChunkBits) + " AND " +
                 std::to_string(std::min(mark, ((chunk + 1) << kChunkBits) - 1)),
             0, &held) ||
        !Int("SELECT sum(n) FROM counts WHERE chunk = " + std::to_string(chunk), 0, &counted)) {
      return false;
    }
    *intact = held == counted;
    return true;
  }

  // Creates the candidate table of a range unless it exists. No row sizes (columnsize=0: no
  // ranking reads them, and keeping them cost a tenth of indexing); FTS5 merges eight segments of
  // a level rather than four and flushes its terms at 16 MiB rather than 1 MiB, which together
  // cut the instructions of indexing by a quarter (each range is merged into one segment once
  // it is no longer written, so the extra segments of the newest range are the only cost).
  bool MakeRangeTable(const std::string& table) {
    int64_t exists = 0;
    if (!Int("SELECT count(*) FROM sqlite_schema WHERE name = '" + table + "'", 0, &exists)) {
      return false;
    }
    return exists != 0 ||
           Exec("CREATE VIRTUAL TABLE " + table +
                " USING fts5(a, b, content='', detail='none', columnsize=0, "
                "tokenize='trigram case_sensitive 1'); INSERT INTO " +
                table + " (" + table + ", rank) VALUES ('automerge', 8); INSERT INTO " + table +
                " (" + table + ", rank) VALUES ('hashsize', 16777216)");
  }

  // Indexes up to limit rows above the mark; *added tells how many.
  bool AddRows(int64_t limit, int64_t* added) {
    *added = 0;
    std::string sql = "SELECT id, time, " + std::string(storeClass->severity) + ", " +
                      storeClass->columns + " FROM store.logs WHERE id > ? ORDER BY id LIMIT ?";
    Stmt rows = Prepare(sql);
    Stmt put, user = Prepare("INSERT INTO users (id, username) VALUES (?, ?)");
    int64_t putRange = -1;
    if (!rows || !user) return false;
    sqlite3_bind_int64(rows.get(), 1, mark);
    sqlite3_bind_int64(rows.get(), 2, limit);
    std::map<int64_t, std::map<std::pair<int64_t, int>, int64_t>> add;  // by chunk
    std::string folded[2];
    int rc;
    while ((rc = sqlite3_step(rows.get())) == SQLITE_ROW) {
      int64_t id = sqlite3_column_int64(rows.get(), 0);
      add[id >> kChunkBits][{MinuteOf(rows.get(), 1), sqlite3_column_int(rows.get(), 2)}]++;
      if (id >> kRangeBits != putRange) {
        putRange = id >> kRangeBits;
        std::string table = TermsTable(putRange);
        if (!MakeRangeTable(table) ||
            !(put = Prepare("INSERT INTO " + table + " (rowid, a, b) VALUES (?, ?, ?)"))) {
          return false;
        }
      }
      sqlite3_reset(put.get());
      sqlite3_bind_int64(put.get(), 1, id);
      for (int i = 0; i < 2; ++i) {
        const char* text = reinterpret_cast<const char*>(sqlite3_column_text(rows.get(), 3 + i));
        int bytes = sqlite3_column_bytes(rows.get(), 3 + i);
        FoldText(text != nullptr ? text : "", text != nullptr ? bytes : 0, &folded[i]);
        sqlite3_bind_text(put.get(), 2 + i, folded[i].data(), static_cast<int>(folded[i].size()),
                          SQLITE_STATIC);
      }
      if (sqlite3_step(put.get()) != SQLITE_DONE) return Fail("add candidates");
      // The user as the store holds it (a text, or NULL), so that it sorts as there.
      sqlite3_reset(user.get());
      sqlite3_bind_int64(user.get(), 1, id);
      sqlite3_bind_value(user.get(), 2, sqlite3_column_value(rows.get(), 3));
      if (sqlite3_step(user.get()) != SQLITE_DONE) return Fail("add users");
      mark = id;
      ++*added;
    }
    if (rc != SQLITE_DONE) return Fail("read rows");
    for (const auto& [chunk, counts] : add) {
      if (!AddCounts(chunk, counts)) return false;
    }
    return (*added == 0 || WriteState()) && MergeFinishedRange();
  }

  // One write transaction: reconcile, then index up to limit rows. *behind: rows still above
  // the mark after it.
  bool Step(int64_t limit, int64_t* added, int64_t* behind) {
    if (!Exec("BEGIN IMMEDIATE")) return false;
    bool changed = false;
    bool ok = Reconcile(&changed) && AddRows(limit, added);
    int64_t maxId = 0;
    ok = ok && Int("SELECT max(id) FROM store.logs", 0, &maxId);
    *behind = std::max<int64_t>(0, maxId - mark);
    if (!ok) {
      std::string keep = error;
      sqlite3_exec(db.get(), "ROLLBACK", nullptr, nullptr, nullptr);
      error = keep;
      return false;
    }
    return Exec("COMMIT");
  }
};

std::string IndexPathOf(const std::string& storePath) { return storePath + ".search-index"; }

namespace {

// True when an error means the sidecar itself is damaged (it is then made anew).
bool Damaged(sqlite3* db) {
  int rc = db != nullptr ? sqlite3_errcode(db) & 0xff : SQLITE_OK;
  return rc == SQLITE_CORRUPT || rc == SQLITE_NOTADB;
}

// Empties the sidecar in place: its tables are dropped in one write transaction (the next
// catch-up makes them anew), so that a process holding it open reads the empty index: deleting
// a database file that others have open lets their connections pair the old file with a new
// log and corrupt it. Only a file that cannot be emptied so (not a database, damaged beyond
// dropping its tables) is deleted.
void EmptySidecar(const std::string& storePath) {
  std::string path = IndexPathOf(storePath);
  sqlite3* raw = nullptr;
  int rc =
      sqlite3_open_v2(path.c_str(), &raw, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
  Db db(raw);
  if (rc == SQLITE_OK) {
    sqlite3_busy_timeout(raw, 5000);
    std::string drops;
    rc = sqlite3_exec(raw, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr);
    if (rc == SQLITE_OK) {
      // Virtual tables first: dropping one drops its shadow tables with it.
      Stmt names;
      sqlite3_stmt* stmt = nullptr;
      rc = sqlite3_prepare_v2(raw,
                              "SELECT name FROM sqlite_schema WHERE type = 'table' AND name NOT "
                              "LIKE 'sqlite_%' ORDER BY sql NOT LIKE 'CREATE VIRTUAL%'",
                              -1, &stmt, nullptr);
      names.reset(stmt);
      while (rc == SQLITE_OK && sqlite3_step(stmt) == SQLITE_ROW) {
        drops += "DROP TABLE IF EXISTS \"" +
                 std::string(reinterpret_cast<const char*>(sqlite3_column_text(stmt, 0))) + "\";";
      }
    }
    // The names' statement is finalized by now: tables can be dropped.
    if (rc == SQLITE_OK) {
      rc = sqlite3_exec(raw, (drops + "COMMIT").c_str(), nullptr, nullptr, nullptr);
    }
  }
  if (rc == SQLITE_OK) return;
  db.reset();
  for (const char* suffix : {"", "-wal", "-shm"}) unlink((path + suffix).c_str());
}

}  // namespace

namespace {

bool CatchUp(const std::string& storePath, int64_t maxRows, int waitMs, int64_t* behind,
             std::string* error) {
  for (int attempt = 0; attempt < 3; ++attempt) {
    IndexReader::State state;
    bool ok = state.Open(storePath, true, waitMs);
    int64_t done = 0;
    *behind = 0;
    while (ok) {
      int64_t added = 0;
      ok = state.Step(std::min(kBatch, std::max<int64_t>(1, maxRows - done)), &added, behind);
      done += added;
      if (!ok || done >= maxRows || ((*behind == 0 || added == 0) && !state.merging)) break;
    }
    // A long catch-up leaves a large write-ahead log: fold it into the file now, not in the
    // middle of a later search.
    if (ok && done >= kBatch) {
      sqlite3_exec(state.db.get(), "PRAGMA wal_checkpoint(TRUNCATE)", nullptr, nullptr, nullptr);
    }
    if (ok) return true;
    if (error != nullptr) *error = state.error;
    if (attempt == 2 || (!state.remake && (attempt > 0 || !Damaged(state.db.get())))) return false;
    state.db.reset();
    EmptySidecar(storePath);  // damaged, or emptied: made anew from the store
  }
  return false;
}

}  // namespace

bool IndexCatchUpSome(const std::string& storePath, int64_t maxRows, int64_t* behind,
                      std::string* error) {
  return CatchUp(storePath, maxRows, 5000, behind, error);
}

bool IndexCatchUp(const std::string& storePath, std::string* error) {
  int64_t behind = 0;
  return IndexCatchUpSome(storePath, INT64_MAX, &behind, error);
}

namespace {

// How long the background indexer watches an index's mark for another indexer at work.
const std::chrono::milliseconds kWatch(300);

// The mark of the index of storePath, -1 when it cannot be read.
int64_t IndexedMark(const std::string& storePath) {
  sqlite3* raw = nullptr;
  int rc = sqlite3_open_v2(IndexPathOf(storePath).c_str(), &raw, SQLITE_OPEN_READONLY, nullptr);
  Db db(raw);
  sqlite3_stmt* stmt = nullptr;
  if (rc != SQLITE_OK ||
      sqlite3_prepare_v2(raw, "SELECT mark FROM state", -1, &stmt, nullptr) != SQLITE_OK) {
    return -1;
  }
  Stmt owned(stmt);
  return sqlite3_step(stmt) == SQLITE_ROW ? sqlite3_column_int64(stmt, 0) : -1;
}

// The process's background indexer: one thread at a time works through the stores asked for.
class BackgroundIndexer {
 public:
  ~BackgroundIndexer() {
    stop_ = true;
    if (thread_.joinable()) thread_.join();
  }
  void Add(const std::string& storePath) {
    std::lock_guard<std::mutex> lock(mutex_);
    pending_.insert(storePath);
    if (running_) return;
    if (thread_.joinable()) thread_.join();
    running_ = true;
    thread_ = std::thread([this] { Run(); });
  }

 private:
  void Run() {
    for (;;) {
      std::string path;
      {
        std::lock_guard<std::mutex> lock(mutex_);
        if (pending_.empty() || stop_) {
          running_ = false;
          return;
        }
        path = *pending_.begin();
        pending_.erase(pending_.begin());
      }
      // Left to another indexer that is at work on it (quor-logd keeps its stores' indexes
      // current): two would take turns at the lock, each waiting out the other.
      int64_t before = IndexedMark(path);
      for (int i = 0; i < 5 && !stop_; ++i) std::this_thread::sleep_for(kWatch / 5);
      if (before >= 0 && IndexedMark(path) != before) continue;
      // Until a few rows behind: under a writer that keeps its index current, the rest is its.
      int64_t behind = kNearlyCurrent + 1;
      std::string error;
      while (!stop_ && behind > kNearlyCurrent && CatchUp(path, kBatch, 5000, &behind, &error)) {
      }
    }
  }
  std::mutex mutex_;
  std::set<std::string> pending_;
  std::thread thread_;
  bool running_ = false;
  std::atomic<bool> stop_{false};
};

BackgroundIndexer& Indexer() {
  static BackgroundIndexer indexer;
  return indexer;
}

}  // namespace

void IndexCatchUpInBackground(const std::string& storePath) { Indexer().Add(storePath); }

std::unique_ptr<IndexReader> IndexReader::Open(const std::string& storePath, int64_t maxBehind) {
  if (access(IndexPathOf(storePath).c_str(), F_OK) != 0) {
    if (access(storePath.c_str(), R_OK) == 0) IndexCatchUpInBackground(storePath);
    return nullptr;
  }
  // A reader never writes the index: the writer that keeps it current holds its lock most of
  // the time, and a search that waited for it or indexed rows itself would answer late. Rows
  // above the mark are read from the store; rows removed from the bottom since the last
  // reconcile are left out by reading the lowest chunks from the store (floor).
  std::unique_ptr<IndexReader> reader(new IndexReader);
  reader->state_.reset(new State);
  State& s = *reader->state_;
  bool matches = false;
  int64_t minId = 0, maxId = 0;
  // One read transaction over both files: the counts and the store's rows agree.
  if (!s.Open(storePath, false, 1000) || !s.Exec("BEGIN") || !s.ReadState(&matches) ||
      !s.Int("SELECT min(id) FROM store.logs", 0, &minId) ||
      !s.Int("SELECT max(id) FROM store.logs", 0, &maxId)) {
    matches = false;
  }
  // Another store, ids that went back, every indexed row removed, or too many rows above the
  // mark (more than maxBehind and than half the store's rows: reading those from the store would
  // cost about what reading the whole log does): the index cannot answer now.
  if (!matches || (maxId != 0 && (maxId < s.mark || minId > s.mark)) ||
      (maxId == 0 && s.low <= s.mark) ||
      maxId - s.mark > std::max(maxBehind, (maxId - minId) / 2)) {
    IndexCatchUpInBackground(storePath);
    return nullptr;
  }
  if ((maxId != 0 && minId > s.low && !reader->SetFloor(minId)) || !s.Ranges(&reader->ranges_)) {
    return nullptr;
  }
  // Left to whoever keeps the index current, unless it falls behind (nobody does).
  if (maxId - s.mark > maxBehind / 4 || (minId >> kChunkBits) > (s.low >> kChunkBits) + 1) {
    IndexCatchUpInBackground(storePath);
  }
  reader->low_ = maxId != 0 ? minId : s.low;
  reader->mark_ = s.mark;
  reader->behind_ = std::max<int64_t>(0, maxId - s.mark);
  reader->span_ = std::max<int64_t>(0, s.mark - reader->low_ + 1);
  return reader;
}

bool IndexReader::SetFloor(int64_t minId) {
  State& s = *state_;
  // The chunk of the lowest row holds counts of rows removed below it; the next one may have
  // lost rows out of id order (retention by time), which its count against the store shows.
  int64_t chunk = minId >> kChunkBits;
  floor_ = std::min(s.mark, ((chunk + 1) << kChunkBits) - 1);
  if (floor_ == s.mark) return true;
  bool intact = true;
  if (!s.ChunkIntact(chunk + 1, &intact)) return false;
  if (!intact) floor_ = std::min(s.mark, floor_ + (int64_t{1} << kChunkBits));
  return true;
}

IndexReader::~IndexReader() {
  if (state_ && state_->db) sqlite3_exec(state_->db.get(), "COMMIT", nullptr, nullptr, nullptr);
}

namespace {

// Adds a row of time t (odd: not an integer) and level to the buckets of q.
// Adds n rows of time t and level to the buckets of q; type is the time's SQLite type. A time
// that is not an integer compares as the scan's statement compares it: NULL meets no bound, a
// text (or blob) meets every "from" and no "to"; either counts in the first bucket. False for a
// real-valued time, which only the scan places.
bool AddRow(const BucketQuery& q, int type, int64_t t, int level, int64_t n,
            std::vector<BucketCounts>* counts) {
  if (level < 1 || level > 3) level = 1;
  if (type == SQLITE_FLOAT) return false;
  if (type != SQLITE_INTEGER) {
    bool met = type == SQLITE_NULL ? !q.hasFrom && !q.hasTo : !q.hasTo;
    if (met) (*counts)[0][level] += n;
    return true;
  }
  if ((q.hasFrom && t < q.from) || (q.hasTo && t > q.to) || t < q.first) return true;
  uint64_t index = (static_cast<uint64_t>(t) - static_cast<uint64_t>(q.first)) / q.width;
  if (index < counts->size()) (*counts)[index][level] += n;
  return true;
}

}  // namespace

namespace {

// Where a unit of time [start, start + seconds) falls for q: the bucket that holds all of it
// inside q's range, or -1 when it straddles a bucket's or the range's edge (or lies at the ends
// of the 64-bit range, where start is not computed): it is then read in smaller units.
int64_t WholeBucket(const BucketQuery& q, int64_t unit, int64_t seconds) {
  if (unit <= INT64_MIN / seconds + 1 || unit >= INT64_MAX / seconds - 1) return -1;
  int64_t start = unit * seconds, end = start + seconds - 1;
  if ((q.hasFrom && start < q.from) || (q.hasTo && end > q.to) || start < q.first) return -1;
  uint64_t a = (static_cast<uint64_t>(start) - static_cast<uint64_t>(q.first)) / q.width;
  uint64_t b = (static_cast<uint64_t>(end) - static_cast<uint64_t>(q.first)) / q.width;
  return a == b ? static_cast<int64_t>(a) : -1;
}

}  // namespace

bool IndexReader::Count(const BucketQuery& q, std::vector<BucketCounts>* counts) {
  State& s = *state_;
  counts->assign(q.buckets, BucketCounts{0, 0, 0, 0});
  // Whole hours inside one bucket and the range come from the hours; the hours at an edge
  // from their minutes; the minutes at an edge from the store's time index.
  // The counts of chunks above the floor, and the rows between the floor and the mark.
  const std::string above = " AND +chunk > " + std::to_string(FloorChunk());
  const std::string between = " AND +id > ?3 AND +id <= ?4";
  Stmt odd =
      s.Prepare("SELECT level, sum(n) FROM hours WHERE hour = ?" + above + " GROUP BY level");
  Stmt hours = s.Prepare("SELECT hour, level, sum(n) FROM hours WHERE hour BETWEEN ? AND ?" +
                         above + " GROUP BY hour, level");
  Stmt minutes = s.Prepare("SELECT minute, level, sum(n) FROM counts WHERE minute BETWEEN ? AND ?" +
                           above + " GROUP BY minute, level");
  std::string severity = s.storeClass->severity;
  Stmt rows = s.Prepare("SELECT time, " + severity +
                        " FROM store.logs WHERE time BETWEEN ?1 AND ?2" + between);
  Stmt tail = s.Prepare("SELECT time, " + severity + " FROM store.logs WHERE id BETWEEN ? AND ?");
  if (!odd || !hours || !minutes || !rows || !tail) return false;
  int rc;
  sqlite3_bind_int64(odd.get(), 1, kOddMinute);
  int64_t odds = 0;
  BucketCounts oddLevels{0, 0, 0, 0};
  while ((rc = sqlite3_step(odd.get())) == SQLITE_ROW) {
    int level = sqlite3_column_int(odd.get(), 0);
    odds += sqlite3_column_int64(odd.get(), 1);
    oddLevels[level >= 1 && level <= 3 ? level : 1] += sqlite3_column_int64(odd.get(), 1);
  }
  if (rc != SQLITE_DONE) return s.Fail("read counts");
  if (odds > 0 && !q.hasFrom && !q.hasTo) {
    for (int level = 1; level <= 3; ++level) (*counts)[0][level] += oddLevels[level];
  } else if (odds > 0) {
    // Rows without an integer time under a bound: read from the time index (NULLs sort first,
    // texts and blobs last); a real-valued time there is left to the scan.
    std::string arm =
        "SELECT time, " + severity + " FROM store.logs WHERE +id > ?1 AND +id <= ?2 AND time ";
    Stmt some = s.Prepare(arm + "IS NULL UNION ALL " + arm + ">= ''");
    if (!some) return false;
    sqlite3_bind_int64(some.get(), 1, floor_);
    sqlite3_bind_int64(some.get(), 2, mark_);
    int64_t found = 0;
    while ((rc = sqlite3_step(some.get())) == SQLITE_ROW) {
      ++found;
      AddRow(q, sqlite3_column_type(some.get(), 0), 0, sqlite3_column_int(some.get(), 1), 1,
             counts);
    }
    if (rc != SQLITE_DONE) return s.Fail("read odd rows");
    if (found != odds) return false;
  }
  // Walks the units of stmt (unit, level, n), adding whole ones and collecting the others.
  auto walk = [&](sqlite3_stmt* stmt, int64_t seconds, std::set<int64_t>* edges) {
    while ((rc = sqlite3_step(stmt)) == SQLITE_ROW) {
      int64_t unit = sqlite3_column_int64(stmt, 0);
      int level = sqlite3_column_int(stmt, 1);
      int64_t bucket = WholeBucket(q, unit, seconds);
      if (bucket < 0) {
        edges->insert(unit);
      } else if (static_cast<size_t>(bucket) < counts->size() && level >= 1 && level <= 3) {
        (*counts)[bucket][level] += sqlite3_column_int64(stmt, 2);
      }
    }
    return rc == SQLITE_DONE || s.Fail("read counts");
  };
  std::set<int64_t> edgeHours, edgeMinutes;
  sqlite3_bind_int64(hours.get(), 1, q.hasFrom ? FloorDiv(q.from, 3600) : INT64_MIN + 1);
  sqlite3_bind_int64(hours.get(), 2, q.hasTo ? FloorDiv(q.to, 3600) : INT64_MAX);
  if (!walk(hours.get(), 3600, &edgeHours)) return false;
  for (int64_t hour : edgeHours) {
    sqlite3_reset(minutes.get());
    sqlite3_bind_int64(minutes.get(), 1, hour * 60);
    sqlite3_bind_int64(minutes.get(), 2, hour * 60 + 59);
    if (!walk(minutes.get(), 60, &edgeMinutes)) return false;
  }
  for (int64_t minute : edgeMinutes) {
    sqlite3_reset(rows.get());
    bool low = minute <= INT64_MIN / 60 + 1, high = minute >= INT64_MAX / 60 - 1;
    sqlite3_bind_int64(rows.get(), 1, low ? INT64_MIN : minute * 60);
    sqlite3_bind_int64(rows.get(), 2, high ? INT64_MAX : (minute + 1) * 60 - 1);
    sqlite3_bind_int64(rows.get(), 3, floor_);
    sqlite3_bind_int64(rows.get(), 4, mark_);
    while ((rc = sqlite3_step(rows.get())) == SQLITE_ROW) {
      if (sqlite3_column_type(rows.get(), 0) != SQLITE_INTEGER) continue;  // counted as odd
      AddRow(q, SQLITE_INTEGER, sqlite3_column_int64(rows.get(), 0),
             sqlite3_column_int(rows.get(), 1), 1, counts);
    }
    if (rc != SQLITE_DONE) return s.Fail("read edge");
  }
  // Rows above the mark and up to the floor, read one by one.
  for (auto [first, last] : {std::pair<int64_t, int64_t>{mark_ + 1, INT64_MAX}, {low_, floor_}}) {
    if (first > last) continue;
    sqlite3_reset(tail.get());
    sqlite3_bind_int64(tail.get(), 1, first);
    sqlite3_bind_int64(tail.get(), 2, last);
    while ((rc = sqlite3_step(tail.get())) == SQLITE_ROW) {
      if (!AddRow(q, sqlite3_column_type(tail.get(), 0), sqlite3_column_int64(tail.get(), 0),
                  sqlite3_column_int(tail.get(), 1), 1, counts)) {
        return false;
      }
    }
    if (rc != SQLITE_DONE) return s.Fail("read tail");
  }
  return true;
}

std::vector<int64_t> IndexReader::GramRows(const std::vector<std::string>& grams) {
  State& s = *state_;
  std::vector<int64_t> rows(grams.size(), 0);  // none: 0
  for (int64_t range : ranges_) {
    std::string vocab = "temp.grams_" + std::to_string(range);
    if (!s.Exec("CREATE VIRTUAL TABLE IF NOT EXISTS " + vocab + " USING fts5vocab(main, " +
                TermsTable(range) + ", 'row')")) {
      return std::vector<int64_t>();
    }
    Stmt doc = s.Prepare("SELECT doc FROM " + vocab + " WHERE term = ?");
    if (!doc) return std::vector<int64_t>();
    for (size_t i = 0; i < grams.size(); ++i) {
      sqlite3_reset(doc.get());
      sqlite3_bind_text(doc.get(), 1, grams[i].data(), static_cast<int>(grams[i].size()),
                        SQLITE_STATIC);
      int rc = sqlite3_step(doc.get());
      if (rc != SQLITE_ROW && rc != SQLITE_DONE) return std::vector<int64_t>();
      if (rc == SQLITE_ROW) rows[i] += sqlite3_column_int64(doc.get(), 0);
    }
  }
  return rows;
}

std::vector<std::string> IndexReader::TermTables() const {
  std::vector<std::string> tables;
  for (auto range = ranges_.rbegin(); range != ranges_.rend(); ++range) {
    tables.push_back(TermsTable(*range));
  }
  return tables;
}

std::string IndexReader::NarrowQuery(const std::vector<std::string>& foldedTerms, size_t kept,
                                     int64_t* fewest) {
  std::vector<std::string> chosen;
  *fewest = INT64_MAX;
  for (const std::string& term : foldedTerms) {
    std::vector<std::string> grams = TrigramsOf({term});
    std::vector<int64_t> rows = GramRows(grams);
    for (int64_t n : rows) *fewest = std::min(*fewest, n);
    if (rows.size() != grams.size()) *fewest = -1;
    if (rows.size() == grams.size() && grams.size() > kept) {
      std::vector<size_t> order(grams.size());
      for (size_t i = 0; i < order.size(); ++i) order[i] = i;
      std::stable_sort(order.begin(), order.end(),
                       [&](size_t a, size_t b) { return rows[a] < rows[b]; });
      for (size_t i = 0; i < kept; ++i) chosen.push_back(grams[order[i]]);
    } else {
      chosen.insert(chosen.end(), grams.begin(), grams.end());
    }
  }
  if (*fewest == INT64_MAX) *fewest = -1;
  return QueryOfGrams(chosen);
}

bool IndexReader::ReadTimesById(int64_t* odd) {
  State& s = *state_;
  times_.clear();
  if (!s.Int("SELECT sum(n) FROM hours WHERE hour = " + std::to_string(kOddMinute), 0, odd)) {
    return false;
  }
  // One seek per end of each chunk's minutes, rather than a read of every count.
  Stmt next = s.Prepare("SELECT min(chunk) FROM counts WHERE chunk > ?");
  Stmt first = s.Prepare("SELECT minute FROM counts WHERE chunk = ?1 AND minute > ?2 ORDER BY " +
                         std::string("minute LIMIT 1"));
  Stmt last = s.Prepare("SELECT minute FROM counts WHERE chunk = ? ORDER BY minute DESC LIMIT 1");
  if (!next || !first || !last) return false;
  const int64_t lowest = INT64_MIN / 60 + 1, highest = INT64_MAX / 60 - 1;
  int64_t chunk = -1;
  for (;;) {
    sqlite3_reset(next.get());
    sqlite3_bind_int64(next.get(), 1, chunk);
    if (sqlite3_step(next.get()) != SQLITE_ROW) return s.Fail("read chunks");
    if (sqlite3_column_type(next.get(), 0) == SQLITE_NULL) break;
    chunk = sqlite3_column_int64(next.get(), 0);
    int64_t minutes[2];
    sqlite3_bind_int64(first.get(), 2, kOddMinute);
    for (sqlite3_stmt* end : {first.get(), last.get()}) {
      sqlite3_reset(end);
      sqlite3_bind_int64(end, 1, chunk);
      int rc = sqlite3_step(end);
      if (rc != SQLITE_ROW && rc != SQLITE_DONE) return s.Fail("read chunk minutes");
      minutes[end == last.get()] = rc == SQLITE_ROW ? sqlite3_column_int64(end, 0) : kOddMinute;
    }
    if (minutes[1] == kOddMinute) continue;  // only rows without an integer time
    // Minutes at the ends of the 64-bit range stand for those ends (INT64_MIN and INT64_MAX
    // are never a chunk's latest and earliest: they tell that no chunk is below or above).
    int64_t earliest = std::min(std::max(minutes[0], lowest), highest);
    int64_t latest = std::min(std::max(minutes[1], lowest), highest);
    times_.push_back({chunk, minutes[0] < lowest ? INT64_MIN : earliest * 60,
                      minutes[1] > highest ? INT64_MAX : latest * 60 + 59});
  }
  for (size_t i = 1; i < times_.size(); ++i) {
    times_[i].latest = std::max(times_[i].latest, times_[i - 1].latest);
  }
  for (size_t i = times_.size(); i-- > 1;) {
    times_[i - 1].earliest = std::min(times_[i - 1].earliest, times_[i].earliest);
  }
  return true;
}

int64_t IndexReader::LatestBelow(int64_t id) const {
  // The last chunk at or below id's.
  auto after = std::upper_bound(times_.begin(), times_.end(), id >> kChunkBits,
                                [](int64_t c, const ChunkTimes& t) { return c < t.chunk; });
  return after == times_.begin() ? INT64_MIN : (after - 1)->latest;
}

int64_t IndexReader::EarliestAbove(int64_t id) const {
  // The first chunk at or above id's.
  auto at = std::lower_bound(times_.begin(), times_.end(), id >> kChunkBits,
                             [](const ChunkTimes& t, int64_t c) { return t.chunk < c; });
  return at == times_.end() ? INT64_MAX : at->earliest;
}

bool IndexReader::TimeBounds(const bool levels[4], bool* found, int64_t* first, int64_t* last) {
  State& s = *state_;
  *found = false;
  std::string list;
  for (int level = 1; level <= 3; ++level) {
    if (levels[level]) list += (list.empty() ? "" : ",") + std::to_string(level);
  }
  if (list.empty()) return true;
  const std::string in = " AND level IN (" + list + ")";
  const std::string above = " AND +chunk > " + std::to_string(FloorChunk());
  const std::string indexed =
      " AND +id > " + std::to_string(floor_) + " AND +id <= " + std::to_string(mark_);
  const std::string odd = std::to_string(kOddMinute);
  // The rows read from the store: above the mark, and up to the floor.
  std::string rows = "SELECT * FROM store.logs WHERE id > " + std::to_string(mark_);
  if (floor_ >= low_) {
    rows += " UNION ALL SELECT * FROM store.logs WHERE id BETWEEN " + std::to_string(low_) +
            " AND " + std::to_string(floor_);
  }
  const std::string tail =
      "FROM (" + rows + ") WHERE " + s.storeClass->severity + " IN (" + list + ")";
  const std::string timed = " AND typeof(time) = 'integer'";
  // Rows without an integer time take no part in the bounds, unless one is real-valued (the
  // scan's bounds take those): those are left to the scan.
  int64_t odds = 0, plain = 0, tailReals = 0;
  if (!s.Int("SELECT sum(n) FROM hours WHERE hour = " + odd + above, 0, &odds) ||
      (odds > 0 &&
       !s.Int("SELECT (SELECT count(*) FROM store.logs WHERE time IS NULL" + indexed +
                  ") + (SELECT count(*) FROM store.logs WHERE time >= ''" + indexed + ")",
              0, &plain)) ||
      !s.Int("SELECT count(*) " + tail + " AND typeof(time) = 'real'", 0, &tailReals) ||
      odds != plain || tailReals > 0) {
    return false;
  }
  int64_t low = 0, high = 0;
  bool any = false;
  // The first (last) hour with such rows, its first (last) minute, then the exact second.
  for (bool lowest : {true, false}) {
    const std::string order = lowest ? " ASC LIMIT 1" : " DESC LIMIT 1";
    int64_t hour = 0, minute = 0, exact = 0;
    bool none = false;
    Stmt h = s.Prepare("SELECT hour FROM hours WHERE hour > " + odd + in + above +
                       " ORDER BY hour" + order);
    if (!h) return false;
    int rc = sqlite3_step(h.get());
    if (rc == SQLITE_DONE) none = true;
    if (rc != SQLITE_ROW && rc != SQLITE_DONE) return s.Fail("read hours");
    if (none) break;
    hour = sqlite3_column_int64(h.get(), 0);
    if (!s.Int("SELECT minute FROM counts WHERE minute BETWEEN " + std::to_string(hour * 60) +
                   " AND " + std::to_string(hour * 60 + 59) + in + above + " ORDER BY minute" +
                   order,
               0, &minute)) {
      return false;
    }
    bool bottom = minute <= INT64_MIN / 60 + 1, top = minute >= INT64_MAX / 60 - 1;
    std::string range = std::to_string(bottom ? INT64_MIN : minute * 60) + " AND " +
                        std::to_string(top ? INT64_MAX : (minute + 1) * 60 - 1);
    if (!s.Int(std::string("SELECT ") + (lowest ? "min" : "max") +
                   "(time) FROM store.logs WHERE time BETWEEN " + range + indexed + " AND " +
                   s.storeClass->severity + " IN (" + list + ")",
               0, &exact)) {
      return false;
    }
    (lowest ? low : high) = exact;
    any = true;
  }
  int64_t tailCount = 0, tailLow = 0, tailHigh = 0;
  if (!s.Int("SELECT count(*) " + tail + timed, 0, &tailCount)) return false;
  if (tailCount > 0) {
    if (!s.Int("SELECT min(time) " + tail + timed, 0, &tailLow) ||
        !s.Int("SELECT max(time) " + tail + timed, 0, &tailHigh)) {
      return false;
    }
    low = any ? std::min(low, tailLow) : tailLow;
    high = any ? std::max(high, tailHigh) : tailHigh;
    any = true;
  }
  *first = low;
  *last = high;
  *found = any;
  return true;
}

int64_t IndexReader::FloorChunk() const { return floor_ >= low_ ? floor_ >> kChunkBits : -1; }

int64_t StoreIdentity(const std::string& storePath) { return FileIdentity(storePath); }

std::string IndexStateSql(const std::string& schema, const std::string& storePath) {
  return "SELECT (SELECT min(id) FROM main.logs), (SELECT max(id) FROM main.logs), mark, low, "
         "version = " +
         std::to_string(kVersion) + " AND store = " + std::to_string(FileIdentity(storePath)) +
         " FROM " + schema + ".state";
}

std::string ChunkRowsSql(const std::string& schema, int64_t first, int64_t last) {
  // The hours' table: the same rows as the minutes', a sixtieth as many entries.
  return "SELECT chunk, sum(n) FROM " + schema + ".hours WHERE chunk BETWEEN " +
         std::to_string(first) + " AND " + std::to_string(last) + " GROUP BY chunk";
}

std::vector<std::string> TrigramsOf(const std::vector<std::string>& foldedTerms) {
  std::vector<std::string> grams;
  for (const std::string& term : foldedTerms) {
    // The term's characters (UTF-8 sequences), then each run of three.
    std::vector<size_t> starts;
    for (size_t i = 0; i < term.size(); ++i) {
      if ((static_cast<unsigned char>(term[i]) & 0xC0) != 0x80) starts.push_back(i);
    }
    starts.push_back(term.size());
    for (size_t i = 0; i + 3 < starts.size(); ++i) {
      grams.push_back(term.substr(starts[i], starts[i + 3] - starts[i]));
    }
  }
  return grams;
}

std::string QueryOfGrams(const std::vector<std::string>& grams) {
  std::string query;
  for (const std::string& gram : grams) {
    std::string quoted = "\"";
    for (char c : gram) quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
    query += (query.empty() ? "" : " AND ") + quoted + "\"";
  }
  return query;
}

std::string CandidateQuery(const std::vector<std::string>& foldedTerms) {
  return QueryOfGrams(TrigramsOf(foldedTerms));
}
