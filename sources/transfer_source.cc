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

// A byte count in the largest unit of 1024 it exceeds; each boundary stays in the smaller unit,
// so 1024 bytes read "1024 Bytes".
std::string FileSizeText(const char* column) {
  long long n = strtoll(column, nullptr, 10);
  char text[32];
  if (n <= 1024) {
    snprintf(text, sizeof text, "%lld Bytes", n);
  } else if (n <= 1048576) {
    snprintf(text, sizeof text, "%.2f KB", n / 1024.0);
  } else if (n <= 1073741824) {
    snprintf(text, sizeof text, "%.2f MB", n / 1024.0 / 1024.0);
  } else {
    snprintf(text, sizeof text, "%.2f GB", n / 1024.0 / 1024.0 / 1024.0);
  }
  return text;
}

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
    times.Convert(strtoll(time, nullptr, 10), &record.Set("time"));
    columns.Copy(row, 1, &record.Set("ip"));
    columns.Copy(row, 2, &record.Set("username"));
    columns.Copy(row, 3, &record.Set("cmd"));
    const char* size = columns.Field(row, 4);
    record.Set("filesize", FileSizeText(size != nullptr ? size : ""));
    columns.Copy(row, 5, &record.Set("descr"));
    columns.Copy(row, 6, &record.Set("orginalLogType"));
    columns.Copy(row, 7, &record.Set("logtype"));
    const char* isdir = columns.Field(row, 8);
    record.Set("isdir", isdir != nullptr && strcmp(isdir, "1") == 0 ? "true" : "false");
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
