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
  int Vacuum(int pages);
  int64_t FreePages();
  int64_t PageSize();
  // Copies what the write-ahead log holds into the file, so that a vacuumed file shrinks.
  // truncate also cuts the log file to nothing, giving its space back to the file system.
  void Checkpoint(bool truncate = false);

  const std::string& path() const { return path_; }
  const std::string& error() const { return error_; }

 private:
  int Fail(int rc);
  int Exec(const char* sql);
  int Prepare(const char* sql, Statement* stmt);
  bool Changed();  // another connection committed since we last looked
  int64_t QueryInt(const char* sql, int64_t fallback);

  std::string path_;
  std::string error_;
  SqliteHandle db_;
  Statement insert_;
  Statement savePosition_;
  dev_t device_ = 0;
  ino_t inode_ = 0;
  int64_t rows_ = -1;  // -1: not counted yet
  int64_t dataVersion_ = -1;
};

}  // namespace logd
