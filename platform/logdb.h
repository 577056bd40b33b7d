// The log-database layer: SQLite log databases, each with a table "logs".
#pragma once

#include <memory>
#include <string>

// Everything declared below is the platform's exported surface.
#pragma GCC visibility push(default)

typedef struct QuorDbConnection* PQUORDB;    // one open database (and what is attached to it)
typedef struct QuorDbResult* PQUORDBRESULT;  // the rows of one statement, read in order
typedef int QUORDBROW;                       // the current row of a result

// Opens an existing database file (resolved under the appliance root); never creates one.
// host, user and password are reserved (pass 0). Waits for a writer's lock up to several
// seconds. Every connection knows the SQL functions that GenSQLRegexp conditions use.
// Returns null on failure.
PQUORDB QUORDBConnect(const char* host, const char* user, const char* password, const char* path);

// Runs one statement. With result non-null the rows are handed out through *result (to be
// released with QUORDBFreeResult); with result null they are discarded. Returns 0, or -1 on
// failure (QUORDBErrorGet tells why).
int QUORDBExecute(PQUORDB conn, const char* sql, PQUORDBRESULT* result);

// Runs a select with paging over the whole statement (compound selects included): at most
// limit rows (0: every row) after skipping offset rows. Returns 0, or -1 on failure.
int QUORDBSelectLimit(PQUORDB conn, const char* sql, int limit, int offset, PQUORDBRESULT* result);

// Advances to the next row. Returns 0, or -1 when no row is left or reading failed.
int QUORDBFetchRow(PQUORDBRESULT result, QUORDBROW* row);

// The text of the named column of the current row; null when the column does not exist or
// holds NULL. Valid until the next fetch or the release of the result.
const char* QUORDBFetchField(PQUORDBRESULT result, QUORDBROW row, const char* column);

// The position of the named column in result's rows (letter case ignored), or -1 when there is
// none. Rows of one result share their columns, so a reader looks a column up once.
int QUORDBColumnIndex(PQUORDBRESULT result, const char* column);

// The text of the column at index of the current row; null when the index is out of range or
// the column holds NULL. Valid until the next fetch or the release of the result.
const char* QUORDBFetchFieldAt(PQUORDBRESULT result, QUORDBROW row, int index);

void QUORDBFreeResult(PQUORDBRESULT result);  // null is ignored
void QUORDBClose(PQUORDB conn);               // null is ignored

// The message of the connection's last failure ("" when none; never null).
const char* QUORDBErrorGet(PQUORDB conn);

// text escaped for use inside single quotes in SQL (every ' doubled), in memory the caller
// releases with free(). Safe for any byte string. Returns null on failure. dbType is reserved.
char* QUORDBEscapeStrAllocEX2(int dbType, const char* text);

// One self-contained, parenthesized SQL condition that holds when column contains keyword as
// literal text, ignoring letter case with full Unicode case mapping (the rule of the platform's
// SLIBCUnicodeUTF8StrUpper). Any keyword is safe: quotes, '%', '_', '*', brackets, non-ASCII.
std::string GenSQLRegexp(const std::string& keyword, const std::string& column);

// The same condition under Unicode default caseless matching: column and keyword are compared
// by their full case folding (SLIBCUnicodeUTF8StrFold), so "STRAẞE" finds "Straße" and
// "strasse", and "kelvin" finds the Kelvin sign. What the search module's terms use.
std::string GenSQLFoldedContains(const std::string& keyword, const std::string& column);

// Owners of a connection and of a result: released on every path, exceptions included. A
// result must be released before its connection, so declare the connection first.
struct QuorDbCloser {
  void operator()(PQUORDB conn) const { QUORDBClose(conn); }
};
struct QuorDbResultFreer {
  void operator()(PQUORDBRESULT result) const { QUORDBFreeResult(result); }
};
using QuorDbHandle = std::unique_ptr<QuorDbConnection, QuorDbCloser>;
using QuorDbRows = std::unique_ptr<QuorDbResult, QuorDbResultFreer>;

#pragma GCC visibility pop
