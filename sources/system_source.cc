// The system, connection and network-backup logs: one merged select over their databases.
#include "sources/core_log.h"
#include "sources/log_classes.h"
#include "sources/log_sources.h"
#include "sources/record_fields.h"
#include "sources/sql_query.h"

int FetchSystemLogs(const LogSearch& search, PSLIBSZLIST typeList, RecordSink* sink,
                    LevelCounts* counts) {
  const LogClassInfo& info = ClassInfo(LogClass::kSystem);
  MergedSelect merged(BuildFilterClause(search, info.listPatternColumn));
  if (!CheckSortField(search.sort, info.columns)) return -1;
  bool connected = merged.AddTypes(typeList, [&](const char* name, std::string* path) {
    bool found = info.storePath(name, path);
    if (!found) LOG_ERROR_HERE("unsupported log type %s", name);
    return found;
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
  std::unique_ptr<RowDecoder> decoder = info.decoder(result.get());
  LogRecord record;
  int sent = 0;
  QUORDBROW row;
  while (QUORDBFetchRow(result.get(), &row) == 0) {
    if (decoder->Time(row) == nullptr) continue;
    int level = decoder->Level(row);
    if (!LevelKept(search, level)) continue;
    record.Clear();
    decoder->Decode(row, CountLevel(level, counts), &record);
    sink->Add(record);
    ++sent;
  }
  result.reset();
  return sink->WantsTotal() ? CountRows(merged.connection(), sql) : sent;
}
