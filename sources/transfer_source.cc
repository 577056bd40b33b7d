// The file-transfer logs: one merged select over the transfer databases of the request.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "platform/logfiles.h"
#include "sources/log_sources.h"
#include "sources/record_fields.h"
#include "sources/sql_query.h"

namespace {

const char* const kSortColumns[] = {"time",     "ip",    "username", "cmd",  "filesize",
                                    "filename", "isdir", "logtype",  nullptr};

}  // namespace

int FetchTransferLogs(const LogSearch& search, PSLIBSZLIST typeList, RecordSink* sink) {
  MergedSelect merged(BuildFilterClause(search, "filename"));
  // Records show the column filename under "descr", so clients sort by "descr".
  std::string sort = search.sort == "descr" ? "filename" : search.sort;
  if (!CheckSortField(sort, kSortColumns)) return -1;
  bool connected = merged.AddTypes(typeList, [](const char* name, std::string* path) {
    *path = XferlogDBPathGet(name);
    return true;
  });
  if (!connected) return -1;
  // No transfer database yet: an empty result, not a failure.
  if (merged.connection() == nullptr) return 0;
  std::string& sql = merged.sql();
  // Rows of equal sort value keep a stable order by row id.
  sql += OrderBy(sort, search.ascending) + " ,id" + (search.ascending ? " ASC" : " DESC");
  QuorDbRows result;
  if (SelectPage(merged.connection(), sql, search, &result) < 0) return -1;
  RowColumns columns(result.get(), {"time", "ip", "username", "cmd", "filesize", "filename",
                                    "orginalLogType", "logtype", "isdir"});
  LogRecord record;
  TimeTexts times;
  int sent = 0;
  QUORDBROW row;
  while (QUORDBFetchRow(result.get(), &row) == 0) {
    const char* time = columns.Field(row, 0);
    if (time == nullptr) continue;
    record.Clear();
    times.Convert(ReadInteger(time), &record.Set("time"));
    record.Point("ip", columns.Field(row, 1));
    record.Point("username", columns.Field(row, 2));
    record.Point("cmd", columns.Field(row, 3));
    const char* size = columns.Field(row, 4);
    record.Set("filesize", FileSizeText(size != nullptr ? size : ""));
    record.Point("descr", columns.Field(row, 5));
    record.Point("orginalLogType", columns.Field(row, 6));
    record.Point("logtype", columns.Field(row, 7));
    const char* isdir = columns.Field(row, 8);
    record.Point("isdir", isdir != nullptr && strcmp(isdir, "1") == 0 ? "true" : "false");
    sink->Add(record);
    ++sent;
  }
  result.reset();
  return sink->WantsTotal() ? CountRows(merged.connection(), sql) : sent;
}

int FetchTransferLogs(const LogSearch& search, PSLIBSZLIST typeList,
                      std::vector<Json::Value>* records) {
  JsonRecordList sink(records);
  return FetchTransferLogs(search, typeList, &sink);
}
