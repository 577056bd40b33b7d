// The file-transfer logs: one merged select over the transfer databases of the request.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "platform/logfiles.h"
#include "sources/log_sources.h"
#include "sources/record_fields.h"
#include "sources/sql_query.h"
#include "sources/transfer_rows.h"

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
  TransferRowDecoder decoder(result.get());
  LogRecord record;
  int sent = 0;
  QUORDBROW row;
  while (QUORDBFetchRow(result.get(), &row) == 0) {
    const char* time = decoder.Field(row, TransferRowDecoder::kTime);
    if (time == nullptr) continue;
    record.Clear();
    decoder.Decode(row, ReadInteger(time), &record);
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
