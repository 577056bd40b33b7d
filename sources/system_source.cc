// The system, connection and network-backup logs: one merged select over their databases.
#include <stdlib.h>
#include <string.h>

#include "api/module_log.h"
#include "catalogue/log_types.h"
#include "catalogue/text_helpers.h"
#include "platform/logfiles.h"
#include "platform/root.h"
#include "sources/log_sources.h"
#include "sources/record_fields.h"
#include "sources/sql_query.h"

namespace {

const char* const kSortColumns[] = {"time", "level", "username", "msg", nullptr};

// The database of a system-class log type (exact name), resolved under the appliance root;
// the empty text for any other name.
std::string DatabasePath(const char* name) {
  const char* file = IsInList(name, kDatabaseLogTypes) ? LogDatabaseFile(name) : nullptr;
  return file != nullptr ? QuorResolvePath(file) : std::string();
}

}  // namespace

int FetchSystemLogs(const LogSearch& search, PSLIBSZLIST typeList, RecordSink* sink,
                    LevelCounts* counts) {
  MergedSelect merged(BuildFilterClause(search, "msg"));
  if (!CheckSortField(search.sort, kSortColumns)) return -1;
  bool connected = merged.AddTypes(typeList, [](const char* name, std::string* path) {
    *path = DatabasePath(name);
    if (path->empty()) LOG_ERROR_HERE("unsupported log type %s", name);
    return !path->empty();
  });
  if (!connected) return -1;
  if (merged.connection() == nullptr) {
    LOG_ERROR_HERE("Failed to connect to %s database", search.logtype.c_str());
    return -1;
  }
  std::string& sql = merged.sql();
  sql += OrderBy(search.sort, search.ascending);
  QuorDbRows result;
  if (SelectPage(merged.connection(), sql, search, &result) < 0) return -1;
  RowColumns columns(result.get(),
                     {"time", "level", "username", "msg", "orginalLogType", "logtype"});
  LogRecord record;
  TimeTexts times;
  int sent = 0;
  QUORDBROW row;
  while (QUORDBFetchRow(result.get(), &row) == 0) {
    const char* time = columns.Field(row, 0);
    if (time == nullptr) continue;
    int level = LevelNumber(columns.Field(row, 1));
    if (!LevelKept(search, level)) continue;
    record.Clear();
    times.Convert(ReadInteger(time), &record.Set("time"));
    record.Point("level", CountLevel(level, counts));
    record.Point("who", columns.Field(row, 2));
    record.Point("descr", columns.Field(row, 3));
    record.Point("orginalLogType", columns.Field(row, 4));
    record.Point("logtype", columns.Field(row, 5));
    sink->Add(record);
    ++sent;
  }
  result.reset();
  return sink->WantsTotal() ? CountRows(merged.connection(), sql) : sent;
}

int FetchSystemLogs(const LogSearch& search, PSLIBSZLIST typeList,
                    std::vector<Json::Value>* records, LevelCounts* counts) {
  JsonRecordList sink(records);
  return FetchSystemLogs(search, typeList, &sink, counts);
}
