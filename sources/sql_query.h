// SQL assembly shared by the database log sources: the filter clause, the select arms that merge
// several log databases into one result, the paged select and the count query.
#pragma once

#include <functional>
#include <string>

#include "platform/logdb.h"
#include "platform/slibc.h"
#include "sources/log_classes.h"
#include "sources/log_search.h"

// text escaped for use inside single quotes; the empty text when escaping fails.
std::string EscapeSqlString(const std::string& text);

// " AND time >= 'F'" and " AND time <= 'T'" for the bounds of search that are set (neither empty
// nor "0"), escaped.
std::string DateBounds(const LogSearch& search);

// The complete WHERE clause of the system and transfer sources: " WHERE 1=1" without keyword,
// else the user-name GLOB or the pattern condition on patternColumn; then the date bounds.
std::string BuildFilterClause(const LogSearch& search, const char* patternColumn);

// True when sort is a column of the class that the list accepts as sort field; otherwise logs
// "Bad sort field." and returns false. The sort column is pasted into SQL unquoted: this is its
// guard.
bool CheckSortField(const std::string& sort, const LogColumn* columns);

// One select over the databases of several log types: the first existing database is opened
// as the main one, the others are attached under their log-type name, and each contributes an
// arm "SELECT *, '<type>' as orginalLogType, '<display>' as logtype FROM ..." joined by UNION ALL.
// Owns the connection and closes it when destroyed.
class MergedSelect {
 public:
  enum ArmResult { kAdded, kSkipped, kConnectFailed, kAttachFailed };

  explicit MergedSelect(std::string filter) : filter_(std::move(filter)) {}

  // Adds the arm of typeName, whose database is at path. A missing file (debug message) is
  // kSkipped; a failed connect of the first database is kConnectFailed, a failed attach of a
  // later one kAttachFailed (both logged).
  ArmResult AddArm(const std::string& typeName, const std::string& displayName,
                   const std::string& path);

  // Adds the arm of every type of typeList in list order, with the display name that the "log"
  // texts give the type's catalogue row ("" for a name outside the catalogue) and the database
  // that databaseOf gives (false: the type is skipped, databaseOf has said why). Returns false
  // when the first connect failed. A store that exists but cannot be attached is skipped (the
  // list shows what the others hold), or, with strict, ends the select with false; *failed
  // then names the type that could not be read.
  bool AddTypes(PSLIBSZLIST typeList,
                const std::function<bool(const char* type, std::string* path)>& databaseOf,
                bool strict = false, std::string* failed = nullptr);

  PQUORDB connection() const { return conn_.get(); }
  std::string& sql() { return sql_; }

 private:
  std::string filter_;
  QuorDbHandle conn_;
  std::string sql_;
};

// " ORDER BY <sort> ASC|DESC".
std::string OrderBy(const std::string& sort, bool ascending);

// Runs sql paged by search's limit and offset into *result. Returns 0, or -1 after logging
// "Failed to select" with search.logtype and the SQL.
int SelectPage(PQUORDB conn, const std::string& sql, const LogSearch& search, QuorDbRows* result);

// The number of rows of select (ordering kept, no paging), or -1 (logged) on failure.
int CountRows(PQUORDB conn, const std::string& select);
