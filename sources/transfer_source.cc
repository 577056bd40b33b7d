// The file-transfer logs: one merged select over the transfer databases of the request.
#include <stdio.h>
#include <stdlib.h>

#include "platform/logfiles.h"
#include "sources/log_sources.h"
#include "sources/record_fields.h"
#include "sources/sql_query.h"

namespace {

const char* const kSortColumns[] = {"time",     "ip",    "username", "cmd",  "filesize",
                                    "filename", "isdir", "logtype",  nullptr};

// A byte count in the largest unit of 1024 it exceeds; each boundary stays in the smaller unit,
// so 1024 bytes read "1024 Bytes".
std::string FileSizeText(const std::string& column) {
  long long n = strtoll(column.c_str(), nullptr, 10);
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

int FetchTransferLogs(const LogSearch& search, PSLIBSZLIST typeList,
                      std::vector<Json::Value>* records) {
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
  PQUORDBRESULT result = nullptr;
  if (SelectPage(merged.connection(), sql, search, &result) < 0) return -1;
  QUORDBROW row;
  while (QUORDBFetchRow(result, &row) == 0) {
    const char* time = QUORDBFetchField(result, row, "time");
    if (time == nullptr) continue;
    Json::Value record(Json::objectValue);
    record["time"] = QUORLogConvertTime1(strtoll(time, nullptr, 10));
    record["ip"] = FieldText(result, row, "ip");
    record["username"] = FieldText(result, row, "username");
    record["cmd"] = FieldText(result, row, "cmd");
    record["filesize"] = FileSizeText(FieldText(result, row, "filesize"));
    record["descr"] = FieldText(result, row, "filename");
    record["orginalLogType"] = FieldText(result, row, "orginalLogType");
    record["logtype"] = FieldText(result, row, "logtype");
    record["isdir"] = FieldText(result, row, "isdir") == "1" ? "true" : "false";
    records->push_back(std::move(record));
  }
  QUORDBFreeResult(result);
  return CountRows(merged.connection(), sql);
}
