// The file-transfer logs: one merged select over the transfer databases of the request.
#include "sources/log_classes.h"
#include "sources/log_sources.h"
#include "sources/record_fields.h"
#include "sources/sql_query.h"

int FetchTransferLogs(const LogSearch& search, PSLIBSZLIST typeList, RecordSink* sink) {
  const LogClassInfo& info = ClassInfo(LogClass::kTransfer);
  MergedSelect merged(BuildFilterClause(search, info.listPatternColumn));
  // Records show the column filename under "descr", so clients sort by "descr".
  std::string sort = search.sort == "descr" ? "filename" : search.sort;
  if (!CheckSortField(sort, info.columns)) return -1;
  // A transfer type without a database path still gets its arm's "not exist" message.
  bool connected = merged.AddTypes(typeList, [&](const char* name, std::string* path) {
    info.storePath(name, path);
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
  std::unique_ptr<RowDecoder> decoder = info.decoder(result.get());
  LogRecord record;
  int sent = 0;
  QUORDBROW row;
  while (QUORDBFetchRow(result.get(), &row) == 0) {
    if (decoder->Time(row) == nullptr) continue;
    record.Clear();
    decoder->Decode(row, nullptr, &record);
    sink->Add(record);
    ++sent;
  }
  result.reset();
  return sink->WantsTotal() ? CountRows(merged.connection(), sql) : sent;
}
