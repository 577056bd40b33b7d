// One log store (an SQLite file with the table "logs") held open for writing by the writer.
#pragma once

#include <sqlite3.h>
#include <sys/types.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "logd/log_entry.h"

namespace logd {

struct SqliteCloser {
  void operator()(sqlite3* db) const { sqlite3_close_v2(db); }
};
struct StatementFinalizer {
  void operator()(sqlite3_stmt* stmt) const { sqlite3_finalize(stmt); }
};
using SqliteHandle = std::unique_ptr<sqlite3, SqliteCloser>;
using Statement = std::unique_ptr<sqlite3_stmt, StatementFinalizer>;

// The writer's connection to one store. Every method returns an SQLite result code (SQLITE_OK
// on success) and, on failure, leaves no transaction open and sets error(). Not thread-safe:
// only the writer thread uses it.
class StoreFile {
 public:
  explicit StoreFile(std::string realPath);

  // Opens the store, creating it (folders, schema, QUOR_NEW_STORE_PRAGMAS) when it is missing,
  // turning an older store to the write-ahead log, and adding the table "logd_position" (where
  // each input's position is kept; the modules never read it).
  int Open();
  void Close();
  bool IsOpen() const { return db_ != nullptr; }
  // True when the file at the path is not the one held open: deleted, or replaced by another.
  bool Replaced() const;

  // The position saved for input, or "" when there is none.
  std::string Position(const std::string& input);

  // Inserts rows and saves positions (input -> position) in one transaction.
  int Write(const std::vector<const LogEntry*>& rows,
            const std::map<std::string, std::string>& positions);

  // Rows in "logs", kept by counting what this connection adds and removes; recounted when
  // another connection (the module's clear) changed the store.
  int64_t RowCount();
  // Bytes of the file's pages in use (free pages not counted).
  int64_t UsedBytes();
  // The oldest time in "logs", or -1 when no row has one.
  int64_t OldestTime();
  // Deletes the up to limit rows of smallest id (one transaction); *deleted tells how many.
  int DeleteOldest(int64_t limit, int64_t* deleted);
  // Deletes up to limit of the oldest rows whose time is before cutoff (one transaction).
  int DeleteOlderThan(int64_t cutoff, int64_t limit, int64_t* deleted);
  // Gives up to pages free pages back to the file system (one transaction).
  int Vacuum(int64_t pages);
  int64_t FreePages();
  // Bytes of the file's pages, free ones included.
  int64_t FileBytes();
  int64_t PageSize();
  // A TRUNCATE checkpoint: copies the whole log into the file (so that a vacuumed file shrinks)
  // and waits up to waitMs (default: the store's busy timeout) for every reader to leave the
  // log; then the log file is cut to nothing and the next commit starts it over. SQLITE_BUSY
  // when readers were still in it (what could be copied is copied). The writer's own commits
  // never checkpoint (that is left to a connection of its own, see CheckpointStore), so that no
  // commit waits for the file to be synced.
  // REQUIRES: no transaction open.
  int RestartLog(int waitMs = -1);
  // Pages in the write-ahead log after this connection's last commit.
  int64_t WalFrames() const { return walFrames_; }

  // How long the last transaction of Write, DeleteOldest, DeleteOlderThan or Vacuum held the
  // store's write lock (from its BEGIN to the end of its COMMIT), and how long it waited for
  // the lock first, in microseconds.
  int64_t lastTransactionUs() const { return lastTransactionUs_; }
  int64_t lastLockWaitUs() const { return lastLockWaitUs_; }
  // The CPU time the writer's thread spent in that transaction.
  int64_t lastTransactionCpuUs() const { return lastTransactionCpuUs_; }

  const std::string& path() const { return path_; }
  const std::string& error() const { return error_; }

 private:
  int Fail(int rc);
  int Exec(const char* sql);
  int Prepare(const char* sql, Statement* stmt);
  int PrepareInserts();
  bool Changed();  // another connection committed since we last looked
  int64_t QueryInt(const char* sql, int64_t fallback);
  // Runs body in one write transaction, timed; body returns an SQLite code.
  template <typename Body>
  int Transaction(Body body);
  static int OnWalCommit(void* self, sqlite3* db, const char* name, int frames);

  std::string path_;
  std::string error_;
  SqliteHandle db_;
  // INSERTs of these many rows each; a batch goes in by the largest that its rest fills.
  static constexpr int kInsertGroups = 5;
  static constexpr int kInsertGroupSizes[kInsertGroups] = {1, 4, 16, 64, 256};
  Statement inserts_[kInsertGroups];
  Statement savePosition_;
  dev_t device_ = 0;
  ino_t inode_ = 0;
  int64_t rows_ = -1;  // -1: not counted yet
  int64_t dataVersion_ = -1;
  int64_t walFrames_ = 0;
  int64_t pageSize_ = 0;
  int64_t lastTransactionUs_ = 0;
  int64_t lastLockWaitUs_ = 0;
  int64_t lastTransactionCpuUs_ = 0;
};

// One PASSIVE checkpoint of the store at realPath on a connection of its own: copies the
// write-ahead log into the file while the writer goes on writing. With truncate, a TRUNCATE
// checkpoint that waits for no one: when the writer and every reader are out of the log, the
// log file is also cut to nothing (else SQLITE_BUSY). Returns the SQLite code; *framesLeft
// (when given) tells how many pages of the log were not copied.
int CheckpointStore(const std::string& realPath, bool truncate = false,
                    int64_t* framesLeft = nullptr);

}  // namespace logd
