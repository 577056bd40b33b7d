// SQL assembly shared by the database log sources.
#include "sources/sql_query.h"

#include <stdlib.h>

#include <climits>
#include <cstdint>

#include "catalogue/log_types.h"
#include "platform/slibc.h"
#include "platform/stringbundle.h"
#include "sources/core_log.h"

std::string EscapeSqlString(const std::string& text) {
  char* escaped = QUORDBEscapeStrAllocEX2(0, text.c_str());
  if (escaped == nullptr) return std::string();
  std::string copy = escaped;
  free(escaped);
  return copy;
}

std::string DateBounds(const LogSearch& search) {
  std::string bounds;
  std::string from = EscapeSqlString(search.date_from);
  std::string to = EscapeSqlString(search.date_to);
  if (!from.empty() && from != "0") bounds += " AND time >= '" + from + "'";
  if (!to.empty() && to != "0") bounds += " AND time <= '" + to + "'";
  return bounds;
}

std::string BuildFilterClause(const LogSearch& search, const char* patternColumn) {
  std::string clause;
  if (search.keyword.empty()) {
    clause = " WHERE 1=1";
  } else {
    // The user name is matched with GLOB, case-sensitive; GLOB's own wildcards in the keyword
    // keep their meaning there, as clients have always seen.
    clause = " WHERE ((username GLOB '*" + EscapeSqlString(search.keyword) + "*') OR " +
             GenSQLRegexp(search.keyword, patternColumn) + ")";
  }
  return clause + DateBounds(search);
}

bool CheckSortField(const std::string& sort, const LogColumn* columns) {
  for (; columns->key != nullptr; ++columns) {
    if (columns->listSorts && sort == columns->column) return true;
  }
  LOG_ERROR_HERE("Bad sort field.");
  return false;
}

MergedSelect::ArmResult MergedSelect::AddArm(const std::string& typeName,
                                             const std::string& displayName,
                                             const std::string& path) {
  if (!SLIBCFileExist(path.c_str())) {
    LOG_DEBUG_HERE("%s is not exist. (%s is not enable?)", path.c_str(), typeName.c_str());
    return kSkipped;
  }
  // The display name is localized text: escaped so that a quote in a translation cannot break
  // the statement.
  std::string display = EscapeSqlString(displayName);
  if (conn_ == nullptr) {
    conn_.reset(QUORDBConnect(0, 0, 0, path.c_str()));
    if (conn_ == nullptr) {
      LOG_ERROR_HERE("Failed to connect to %s database", typeName.c_str());
      return kConnectFailed;
    }
    sql_ += " SELECT *, '" + typeName + "' as orginalLogType, '" + display +
            "' as logtype FROM logs " + filter_;
    return kAdded;
  }
  std::string attach = "ATTACH \"" + path + "\" as " + typeName;
  if (QUORDBExecute(conn_.get(), attach.c_str(), nullptr) < 0) {
    LOG_ERROR_HERE("Failed to attach %s database", typeName.c_str());
    return kAttachFailed;
  }
  sql_ += " UNION ALL SELECT *, '" + typeName + "' as orginalLogType, '" + display +
          "' as logtype FROM " + typeName + ".logs " + filter_;
  return kAdded;
}

bool MergedSelect::AddTypes(
    PSLIBSZLIST typeList,
    const std::function<bool(const char* type, std::string* path)>& databaseOf, bool strict,
    std::string* failed) {
  StringBundle texts("log");
  int types = typeList != nullptr ? typeList->nItem : 0;
  for (int i = 0; i < types; ++i) {
    const char* name = SLIBCSzListGet(typeList, i);
    if (name == nullptr) continue;
    const LogTypeEntry* entry = FindLogTypeEntry(name);
    std::string display = entry != nullptr ? texts.Text(entry->textKey, nullptr) : "";
    std::string path;
    if (!databaseOf(name, &path)) continue;
    ArmResult added = AddArm(name, display, path);
    if (added == kConnectFailed || (strict && added == kAttachFailed)) {
      if (failed != nullptr) *failed = name;
      return false;
    }
  }
  return true;
}

std::string OrderBy(const std::string& sort, bool ascending) {
  return " ORDER BY " + sort + (ascending ? " ASC" : " DESC");
}

int SelectPage(PQUORDB conn, const std::string& sql, const LogSearch& search, QuorDbRows* result) {
  // The layer pages with 32-bit values; larger requests mean "as far as there are rows".
  auto clamp = [](int64_t v) { return static_cast<int>(v > INT_MAX ? INT_MAX : v < 0 ? 0 : v); };
  PQUORDBRESULT rows = nullptr;
  int rc = QUORDBSelectLimit(conn, sql.c_str(), clamp(search.limit), clamp(search.offset), &rows);
  result->reset(rows);
  if (rc < 0) {
    LOG_ERROR_HERE("Failed to select %s from database. [%s]", search.logtype.c_str(), sql.c_str());
    return -1;
  }
  return 0;
}

int CountRows(PQUORDB conn, const std::string& select) {
  std::string count = "SELECT count(*) AS count_result FROM (" + select + ") as tempQuery";
  PQUORDBRESULT rows = nullptr;
  int rc = QUORDBExecute(conn, count.c_str(), &rows);
  QuorDbRows result(rows);
  if (rc < 0) {
    LOG_ERROR_HERE("SELECT error: %s\n", QUORDBErrorGet(conn));
    return -1;
  }
  QUORDBROW row;
  if (QUORDBFetchRow(result.get(), &row) < 0) {
    LOG_ERROR_HERE("Failed to fetch row");
    return -1;
  }
  const char* total = QUORDBFetchField(result.get(), row, "count_result");
  if (total == nullptr) {
    LOG_ERROR_HERE("Failed to fetch field");
    return -1;
  }
  return static_cast<int>(strtoll(total, nullptr, 10));
}
