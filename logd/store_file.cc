// One log store held open for writing by the writer: creation, batches, positions, deletion.
#include "logd/store_file.h"

#include <sys/stat.h>
#include <time.h>

#include <chrono>
#include <filesystem>
#include <utility>

#include "tools/lib/log_schemas.h"

namespace logd {

namespace {

// The module's clear and readers' checkpoints hold the store briefly; wait rather than fail.
constexpr int kBusyTimeoutMs = 5000;
// No journal_size_limit: with one, the first commit after the log starts over cuts the log file
// back, and on a log that had grown to hundreds of MiB that truncation (freeing its cached pages,
// waiting for those being written out) held the store for tens of milliseconds. The file is cut
// to nothing outside any transaction instead: by the writer's waits for readers (RestartLog)
// and by the checkpoint asked for when the writer is idle (CheckpointStore).
constexpr const char* kWriterPragmas = "PRAGMA synchronous=NORMAL; PRAGMA wal_autocheckpoint=0;";

// CPU time of the calling thread: a transaction's own work, apart from the time the thread
// waited for a core on a busy machine.
int64_t ThreadCpuUs() {
  struct timespec now;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000000 + now.tv_nsec / 1000;
}

// "INSERT INTO logs (...) VALUES (?, ?, ?, ?), ..." for rows rows.
std::string InsertSql(int rows) {
  std::string sql = "INSERT INTO logs (time, level, username, msg) VALUES (?, ?, ?, ?)";
  for (int i = 1; i < rows; ++i) sql += ", (?, ?, ?, ?)";
  return sql;
}

int64_t MicrosecondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() -
                                                               start)
      .count();
}
// A store made before stores were made for a live writer cannot shrink; small ones are rebuilt
// once, large ones are left as they are (rebuilding would hold the store for too long).
constexpr int64_t kRebuildLimitBytes = 64 << 20;

}  // namespace

StoreFile::StoreFile(std::string realPath) : path_(std::move(realPath)) {}

int StoreFile::Fail(int rc) {
  error_ = path_ + ": " + (db_ ? sqlite3_errmsg(db_.get()) : sqlite3_errstr(rc));
  if (db_ && !sqlite3_get_autocommit(db_.get())) {
    sqlite3_exec(db_.get(), "ROLLBACK", nullptr, nullptr, nullptr);
  }
  return rc;
}

int StoreFile::Exec(const char* sql) {
  int rc = sqlite3_exec(db_.get(), sql, nullptr, nullptr, nullptr);
  return rc == SQLITE_OK ? rc : Fail(rc);
}

int StoreFile::Prepare(const char* sql, Statement* stmt) {
  sqlite3_stmt* raw = nullptr;
  int rc = sqlite3_prepare_v3(db_.get(), sql, -1, SQLITE_PREPARE_PERSISTENT, &raw, nullptr);
  stmt->reset(raw);
  return rc == SQLITE_OK ? rc : Fail(rc);
}

int64_t StoreFile::QueryInt(const char* sql, int64_t fallback) {
  Statement stmt;
  if (Prepare(sql, &stmt) != SQLITE_OK) return fallback;
  int rc = sqlite3_step(stmt.get());
  if (rc == SQLITE_ROW && sqlite3_column_type(stmt.get(), 0) != SQLITE_NULL) {
    return sqlite3_column_int64(stmt.get(), 0);
  }
  if (rc != SQLITE_ROW && rc != SQLITE_DONE) Fail(rc);
  return fallback;
}

int StoreFile::Open() {
  Close();
  std::error_code failed;
  std::filesystem::create_directories(std::filesystem::path(path_).parent_path(), failed);
  struct stat st;
  sqlite3* raw = nullptr;
  int rc =
      sqlite3_open_v2(path_.c_str(), &raw,
                      SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
  db_.reset(raw);
  if (rc != SQLITE_OK) {
    Fail(rc);
    db_.reset();
    return rc;
  }
  sqlite3_busy_timeout(db_.get(), kBusyTimeoutMs);
  // A new file (or one left without its table by a crash while it was made) gets the pragmas
  // and the schema in one transaction. The order by user that sorted pages walk is kept by the
  // search index, not by an index of the store that every row written would pay for.
  bool isNew = QueryInt("SELECT count(*) FROM sqlite_schema WHERE name = 'logs'", 0) == 0;
  if (isNew && ((rc = Exec(QUOR_NEW_STORE_PRAGMAS)) != SQLITE_OK ||
                (rc = Exec("BEGIN IMMEDIATE; " QUOR_SYSTEM_LOG_SCHEMA " COMMIT;")) != SQLITE_OK)) {
    db_.reset();
    return rc;
  }
  if (!isNew && QueryInt("PRAGMA auto_vacuum", 0) != 2 &&
      QueryInt("PRAGMA page_count", 0) * QueryInt("PRAGMA page_size", 0) <= kRebuildLimitBytes) {
    Exec("PRAGMA auto_vacuum=INCREMENTAL; VACUUM;");  // best effort: it only lets the file shrink
  }
  if ((rc = Exec("PRAGMA journal_mode=WAL")) != SQLITE_OK || (rc = Exec(kWriterPragmas)) ||
      (rc = Exec("CREATE TABLE IF NOT EXISTS logd_position (input TEXT PRIMARY KEY, "
                 "position TEXT NOT NULL)")) != SQLITE_OK ||
      (rc = PrepareInserts()) != SQLITE_OK ||
      (rc = Prepare("INSERT INTO logd_position (input, position) VALUES (?, ?) ON CONFLICT "
                    "(input) DO UPDATE SET position = excluded.position",
                    &savePosition_)) != SQLITE_OK) {
    Close();
    return rc;
  }
  // Replaces the automatic checkpoint (turned off above) with a count of the log's pages.
  sqlite3_wal_hook(db_.get(), &StoreFile::OnWalCommit, this);
  walFrames_ = 0;
  if (stat(path_.c_str(), &st) == 0) {
    device_ = st.st_dev;
    inode_ = st.st_ino;
  }
  rows_ = -1;
  dataVersion_ = -1;
  pageSize_ = 0;
  return SQLITE_OK;
}

int StoreFile::OnWalCommit(void* self, sqlite3*, const char*, int frames) {
  static_cast<StoreFile*>(self)->walFrames_ = frames;
  return SQLITE_OK;
}

// Rows go in by groups per INSERT statement, the largest of these sizes that the rest of the
// batch fills (a batch of 1,000 rows: 3 x 256, 3 x 64, 2 x 16, 2 x 4). Each execution of a
// statement costs something besides its rows (its cursors opened, the AUTOINCREMENT counter read
// and written back): one execution per 16 rows instead of per row halved the writer's
// instructions per row, and 10 per batch of 1,000 instead of 70 save a further 6%.
int StoreFile::PrepareInserts() {
  for (int g = 0; g < kInsertGroups; ++g) {
    int rc = Prepare(InsertSql(kInsertGroupSizes[g]).c_str(), &inserts_[g]);
    if (rc != SQLITE_OK) return rc;
  }
  return SQLITE_OK;
}

template <typename Body>
int StoreFile::Transaction(Body body) {
  auto start = std::chrono::steady_clock::now();
  int rc = Exec("BEGIN IMMEDIATE");
  lastLockWaitUs_ = MicrosecondsSince(start);
  if (rc != SQLITE_OK) return rc;
  auto locked = std::chrono::steady_clock::now();
  int64_t cpu = ThreadCpuUs();
  if ((rc = body()) != SQLITE_OK) return Fail(rc);
  rc = Exec("COMMIT");
  lastTransactionUs_ = MicrosecondsSince(locked);
  lastTransactionCpuUs_ = ThreadCpuUs() - cpu;
  return rc;
}

void StoreFile::Close() {
  for (Statement& insert : inserts_) insert.reset();
  savePosition_.reset();
  db_.reset();
}

bool StoreFile::Replaced() const {
  struct stat st;
  return stat(path_.c_str(), &st) != 0 || st.st_dev != device_ || st.st_ino != inode_;
}

std::string StoreFile::Position(const std::string& input) {
  Statement stmt;
  if (Prepare("SELECT position FROM logd_position WHERE input = ?", &stmt) != SQLITE_OK) return "";
  sqlite3_bind_text(stmt.get(), 1, input.data(), static_cast<int>(input.size()), SQLITE_STATIC);
  if (sqlite3_step(stmt.get()) != SQLITE_ROW) return "";
  const unsigned char* text = sqlite3_column_text(stmt.get(), 0);
  return text != nullptr ? reinterpret_cast<const char*>(text) : "";
}

namespace {

const char* LevelText(int level) { return level >= 3 ? "err" : level == 2 ? "warning" : "info"; }

void BindText(sqlite3_stmt* stmt, int index, const std::string& text) {
  sqlite3_bind_text(stmt, index, text.data(), static_cast<int>(text.size()), SQLITE_STATIC);
}

int StepOnce(sqlite3_stmt* stmt) {
  int rc = sqlite3_step(stmt);
  sqlite3_reset(stmt);
  return rc == SQLITE_DONE ? SQLITE_OK : rc;
}

}  // namespace

int StoreFile::Write(const std::vector<const LogEntry*>& rows,
                     const std::map<std::string, std::string>& positions) {
  if (!db_) return SQLITE_MISUSE;
  bool changed = Changed();
  int rc = Transaction([&] {
    int step = SQLITE_OK;
    size_t next = 0;
    while (next < rows.size()) {
      int g = kInsertGroups - 1;
      while (kInsertGroupSizes[g] > static_cast<int>(rows.size() - next)) --g;
      sqlite3_stmt* insert = inserts_[g].get();
      for (int i = 0; i < kInsertGroupSizes[g]; ++i) {
        const LogEntry* row = rows[next++];
        sqlite3_bind_int64(insert, 4 * i + 1, row->time);
        sqlite3_bind_text(insert, 4 * i + 2, LevelText(row->level), -1, SQLITE_STATIC);
        BindText(insert, 4 * i + 3, row->user);
        BindText(insert, 4 * i + 4, row->message);
      }
      if ((step = StepOnce(insert)) != SQLITE_OK) return step;
    }
    for (const auto& [input, position] : positions) {
      BindText(savePosition_.get(), 1, input);
      BindText(savePosition_.get(), 2, position);
      if ((step = StepOnce(savePosition_.get())) != SQLITE_OK) return step;
    }
    return step;
  });
  if (rc != SQLITE_OK) return rc;
  if (changed) rows_ = -1;
  if (rows_ >= 0) rows_ += static_cast<int64_t>(rows.size());
  return SQLITE_OK;
}

bool StoreFile::Changed() {
  int64_t version = QueryInt("PRAGMA data_version", -1);
  bool changed = version != dataVersion_;
  dataVersion_ = version;
  return changed;
}

int64_t StoreFile::RowCount() {
  if (Changed()) rows_ = -1;
  if (rows_ < 0) rows_ = QueryInt("SELECT count(*) FROM logs", -1);
  return rows_;
}

int64_t StoreFile::UsedBytes() { return FileBytes() - FreePages() * PageSize(); }

int64_t StoreFile::FreePages() { return QueryInt("PRAGMA freelist_count", 0); }

int64_t StoreFile::FileBytes() { return QueryInt("PRAGMA page_count", 0) * PageSize(); }

int64_t StoreFile::PageSize() {
  if (pageSize_ <= 0) pageSize_ = QueryInt("PRAGMA page_size", 4096);
  return pageSize_;
}

int StoreFile::RestartLog(int waitMs) {
  if (!db_) return SQLITE_MISUSE;
  sqlite3_busy_timeout(db_.get(), waitMs < 0 ? kBusyTimeoutMs : waitMs);
  int rc =
      sqlite3_wal_checkpoint_v2(db_.get(), nullptr, SQLITE_CHECKPOINT_TRUNCATE, nullptr, nullptr);
  sqlite3_busy_timeout(db_.get(), kBusyTimeoutMs);
  return rc;
}

int64_t StoreFile::OldestTime() { return QueryInt("SELECT min(time) FROM logs", -1); }

int StoreFile::DeleteOldest(int64_t limit, int64_t* deleted) {
  *deleted = 0;
  Statement stmt;
  int rc = Prepare("DELETE FROM logs WHERE id IN (SELECT id FROM logs ORDER BY id LIMIT ?)", &stmt);
  if (rc != SQLITE_OK) return rc;
  sqlite3_bind_int64(stmt.get(), 1, limit);
  if ((rc = Transaction([&] { return StepOnce(stmt.get()); })) != SQLITE_OK) return rc;
  *deleted = sqlite3_changes64(db_.get());
  if (rows_ >= 0) rows_ -= *deleted;
  Changed();  // our own change
  return SQLITE_OK;
}

int StoreFile::DeleteOlderThan(int64_t cutoff, int64_t limit, int64_t* deleted) {
  *deleted = 0;
  Statement stmt;
  int rc = Prepare(
      "DELETE FROM logs WHERE id IN (SELECT id FROM logs WHERE time < ? ORDER BY time LIMIT ?)",
      &stmt);
  if (rc != SQLITE_OK) return rc;
  sqlite3_bind_int64(stmt.get(), 1, cutoff);
  sqlite3_bind_int64(stmt.get(), 2, limit);
  if ((rc = Transaction([&] { return StepOnce(stmt.get()); })) != SQLITE_OK) return rc;
  *deleted = sqlite3_changes64(db_.get());
  if (rows_ >= 0) rows_ -= *deleted;
  Changed();
  return SQLITE_OK;
}

int StoreFile::Vacuum(int64_t pages) {
  std::string sql = "PRAGMA incremental_vacuum(" + std::to_string(pages) + ")";
  Statement stmt;
  int rc = Prepare(sql.c_str(), &stmt);
  if (rc != SQLITE_OK) return rc;
  return Transaction([&] {
    int step;
    while ((step = sqlite3_step(stmt.get())) == SQLITE_ROW) {
    }
    return step == SQLITE_DONE ? SQLITE_OK : step;
  });
}

int CheckpointStore(const std::string& realPath, bool truncate, int64_t* framesLeft) {
  sqlite3* raw = nullptr;
  int rc =
      sqlite3_open_v2(realPath.c_str(), &raw, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
  SqliteHandle db(raw);
  if (rc != SQLITE_OK) return rc;
  // A connection learns that the file is in write-ahead-log mode only by reading it; until
  // then a checkpoint does nothing.
  rc = sqlite3_exec(db.get(), "SELECT 1 FROM sqlite_schema LIMIT 1", nullptr, nullptr, nullptr);
  if (rc != SQLITE_OK) return rc;
  int log = 0, copied = 0;
  // No busy handler: a TRUNCATE checkpoint that finds the writer or a reader in the log returns
  // at once, having copied what it could.
  rc = sqlite3_wal_checkpoint_v2(db.get(), nullptr,
                                 truncate ? SQLITE_CHECKPOINT_TRUNCATE : SQLITE_CHECKPOINT_PASSIVE,
                                 &log, &copied);
  if (framesLeft != nullptr) *framesLeft = log > copied ? log - copied : 0;
  return log < 0 && rc == SQLITE_OK ? SQLITE_ERROR : rc;
}

}  // namespace logd
