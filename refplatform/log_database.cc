// The log-database layer over SQLite's C API: connections, statements read row by row, escaping.
#include <sqlite3.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "log_database_wait.h"
#include "platform/logdb.h"
#include "platform/root.h"
#include "sql_contains.h"

// A connection remembers its last failure so QUORDBErrorGet can tell it after the call returned.
struct QuorDbConnection {
  sqlite3* db = nullptr;
  std::string lastError;
};

// A prepared statement that has already been stepped once, so that execution errors surface in
// QUORDBExecute/QUORDBSelectLimit rather than at the first fetch. Rows are read lazily: a
// select over every row of a large log never holds more than one row in memory.
struct QuorDbResult {
  sqlite3_stmt* stmt = nullptr;
  bool pending = false;  // a stepped row not yet handed out by QUORDBFetchRow
  bool current = false;  // a row is current (fetched and not yet passed)
  QUORDBROW row = -1;
};

namespace {

// Log writers hold the database for short transactions; readers wait rather than fail.
constexpr int kBusyTimeoutMs = 5000;

// ATTACH would create a missing file; the layer never creates databases, so refuse to attach
// anything that is not an existing regular file.
int RefuseMissingAttach(void*, int action, const char* file, const char*, const char*,
                        const char*) {
  if (action != SQLITE_ATTACH || file == nullptr) return SQLITE_OK;
  if (file[0] == '\0' || strcmp(file, ":memory:") == 0) return SQLITE_DENY;
  struct stat st;
  return stat(file, &st) == 0 && S_ISREG(st.st_mode) ? SQLITE_OK : SQLITE_DENY;
}

void SetError(PQUORDB conn, const std::string& message) {
  if (conn != nullptr) conn->lastError = message;
}

void SetSqliteError(PQUORDB conn) {
  if (conn != nullptr) conn->lastError = sqlite3_errmsg(conn->db);
}

bool OnlyBlanks(const char* text) {
  for (; text != nullptr && *text != '\0'; ++text) {
    if (strchr(" \t\r\n;", *text) == nullptr) return false;
  }
  return true;
}

// Prepares the one statement of sql and steps it once. On success *result owns the statement.
int RunStatement(PQUORDB conn, const std::string& sql, PQUORDBRESULT* result) {
  sqlite3_stmt* stmt = nullptr;
  const char* tail = nullptr;
  if (sqlite3_prepare_v2(conn->db, sql.c_str(), -1, &stmt, &tail) != SQLITE_OK) {
    SetSqliteError(conn);
    return -1;
  }
  if (stmt == nullptr) {
    SetError(conn, "no statement");
    return -1;
  }
  if (!OnlyBlanks(tail)) {
    sqlite3_finalize(stmt);
    SetError(conn, "a statement that returns rows must stand alone");
    return -1;
  }
  int rc = sqlite3_step(stmt);
  if (rc != SQLITE_ROW && rc != SQLITE_DONE) {
    SetSqliteError(conn);
    sqlite3_finalize(stmt);
    return -1;
  }
  QuorDbResult* r = new QuorDbResult;
  r->stmt = stmt;
  r->pending = rc == SQLITE_ROW;
  *result = r;
  return 0;
}

// Runs every statement of sql, discarding rows.
int RunScript(PQUORDB conn, const std::string& sql) {
  const char* next = sql.c_str();
  while (next != nullptr && *next != '\0') {
    sqlite3_stmt* stmt = nullptr;
    if (sqlite3_prepare_v2(conn->db, next, -1, &stmt, &next) != SQLITE_OK) {
      SetSqliteError(conn);
      return -1;
    }
    if (stmt == nullptr) break;  // only blanks or comments were left
    int rc;
    while ((rc = sqlite3_step(stmt)) == SQLITE_ROW) {
    }
    if (rc != SQLITE_DONE) {
      SetSqliteError(conn);
      sqlite3_finalize(stmt);
      return -1;
    }
    sqlite3_finalize(stmt);
  }
  return 0;
}

}  // namespace

PQUORDB QUORDBConnect(const char*, const char*, const char*, const char* path) {
  return LogDbConnect(path, kBusyTimeoutMs);
}

PQUORDB LogDbConnect(const char* path, int busyTimeoutMs) {
  if (path == nullptr || path[0] == '\0') return nullptr;
  std::string file = QuorResolvePath(path);
  struct stat st;
  if (stat(file.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return nullptr;
  sqlite3* db = nullptr;
  int rc = sqlite3_open_v2(file.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
  if (rc != SQLITE_OK) {
    sqlite3_close_v2(db);
    db = nullptr;
    rc = sqlite3_open_v2(file.c_str(), &db, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX, nullptr);
  }
  // Reading the schema now turns "not a database" into a failed connect instead of a failure
  // of the first statement.
  if (rc != SQLITE_OK || sqlite3_busy_timeout(db, busyTimeoutMs) != SQLITE_OK ||
      RegisterContainsFunction(db) != SQLITE_OK ||
      sqlite3_set_authorizer(db, RefuseMissingAttach, nullptr) != SQLITE_OK ||
      sqlite3_exec(db, "SELECT count(*) FROM sqlite_schema", nullptr, nullptr, nullptr) !=
          SQLITE_OK) {
    sqlite3_close_v2(db);
    return nullptr;
  }
  PQUORDB conn = new QuorDbConnection;
  conn->db = db;
  return conn;
}

int QUORDBExecute(PQUORDB conn, const char* sql, PQUORDBRESULT* result) {
  if (conn == nullptr || sql == nullptr) return -1;
  if (result == nullptr) return RunScript(conn, sql);
  *result = nullptr;
  return RunStatement(conn, sql, result);
}

int QUORDBSelectLimit(PQUORDB conn, const char* sql, int limit, int offset, PQUORDBRESULT* result) {
  if (conn == nullptr || sql == nullptr || result == nullptr) return -1;
  *result = nullptr;
  if (limit < 0 || offset < 0) {
    SetError(conn, "negative limit or offset");
    return -1;
  }
  // A LIMIT clause at the end of a compound select pages the whole compound.
  std::string paged = sql;
  while (!paged.empty() && strchr(" \t\r\n;", paged.back()) != nullptr) paged.pop_back();
  if (limit > 0 || offset > 0) {
    paged += " LIMIT " + std::to_string(limit > 0 ? limit : -1);
    if (offset > 0) paged += " OFFSET " + std::to_string(offset);
  }
  return RunStatement(conn, paged, result);
}

int QUORDBFetchRow(PQUORDBRESULT result, QUORDBROW* row) {
  if (result == nullptr) return -1;
  if (!result->pending) {
    if (!result->current) return -1;  // ran out earlier
    int rc = sqlite3_step(result->stmt);
    if (rc != SQLITE_ROW) {
      result->current = false;
      return -1;
    }
  }
  result->pending = false;
  result->current = true;
  ++result->row;
  if (row != nullptr) *row = result->row;
  return 0;
}

const char* QUORDBFetchField(PQUORDBRESULT result, QUORDBROW, const char* column) {
  if (result == nullptr || column == nullptr || !result->current) return nullptr;
  return QUORDBFetchFieldAt(result, 0, QUORDBColumnIndex(result, column));
}

int QUORDBColumnIndex(PQUORDBRESULT result, const char* column) {
  if (result == nullptr || column == nullptr) return -1;
  int count = sqlite3_column_count(result->stmt);
  for (int i = 0; i < count; ++i) {
    const char* name = sqlite3_column_name(result->stmt, i);
    if (name != nullptr && strcasecmp(name, column) == 0) return i;
  }
  return -1;
}

const char* QUORDBFetchFieldAt(PQUORDBRESULT result, QUORDBROW, int index) {
  if (result == nullptr || !result->current || index < 0 ||
      index >= sqlite3_column_count(result->stmt)) {
    return nullptr;
  }
  return reinterpret_cast<const char*>(sqlite3_column_text(result->stmt, index));
}

void QUORDBFreeResult(PQUORDBRESULT result) {
  if (result == nullptr) return;
  sqlite3_finalize(result->stmt);
  delete result;
}

void QUORDBClose(PQUORDB conn) {
  if (conn == nullptr) return;
  sqlite3_close_v2(conn->db);
  delete conn;
}

const char* QUORDBErrorGet(PQUORDB conn) {
  if (conn == nullptr) return "no connection";
  return conn->lastError.c_str();
}

char* QUORDBEscapeStrAllocEX2(int, const char* text) {
  if (text == nullptr) return nullptr;
  size_t quotes = 0;
  for (const char* p = text; *p != '\0'; ++p) quotes += *p == '\'';
  size_t length = strlen(text);
  char* escaped = static_cast<char*>(malloc(length + quotes + 1));
  if (escaped == nullptr) return nullptr;
  char* out = escaped;
  for (const char* p = text; *p != '\0'; ++p) {
    *out++ = *p;
    if (*p == '\'') *out++ = '\'';
  }
  *out = '\0';
  return escaped;
}
