// The disk log: storage-manager events about drives, decoded for display.
#include <stdlib.h>
#include <string.h>

#include "platform/disk.h"
#include "platform/logfiles.h"
#include "sources/core_log.h"
#include "sources/log_classes.h"
#include "sources/log_sources.h"
#include "sources/record_fields.h"
#include "sources/sql_query.h"

namespace {

namespace Disk = QUOR::SDS::STORAGE_MANAGER::Disk;

// The stored message codes whose display texts contain keyword, as conditions on msg joined by
// a bare "OR"; the empty text when none matches.
std::string MessageCondition(const std::string& keyword,
                             std::string (*contains)(const std::string&, const std::string&)) {
  SzList codes(SLIBCSzListAlloc(512));
  if (codes == nullptr) {
    LOG_ERROR_HERE("Failed to allocation list");
    return std::string();
  }
  std::string group;
  int found = Disk::DiskLogKeywordTranform(keyword.c_str(), SzListSlot(&codes));
  if (found > 0 && codes->nItem > 0) {
    for (int i = 0; i < codes->nItem; ++i) {
      if (i > 0) group += "OR";
      group += contains(SLIBCSzListGet(codes.get(), i), "msg");
    }
  }
  return group;
}

}  // namespace

std::string DiskKeywordCondition(const std::string& keyword,
                                 std::string (*contains)(const std::string&, const std::string&)) {
  char slot[32] = "";
  std::string slotKeyword = keyword;
  if (Disk::DiskSlotReverseConverter(keyword.c_str(), slot, sizeof slot) > 0) slotKeyword = slot;
  std::string group = MessageCondition(keyword, contains);
  return "(" + contains(keyword, "model") + " OR " + contains(keyword, "serial") + "OR" +
         contains(keyword, "container") + "OR" + contains(slotKeyword, "slot") +
         (group.empty() ? "" : "OR" + group) + "OR" + contains(keyword, "info") + ")";
}

int FetchDiskLogs(const LogSearch& search, RecordSink* sink, LevelCounts* counts) {
  const LogClassInfo& info = ClassInfo(LogClass::kDisk);
  std::string keyword =
      search.keyword.empty() ? " WHERE 1=1" : " WHERE " + DiskKeywordCondition(search.keyword);
  std::string clause = keyword + " AND SHOW = 1" + DateBounds(search);
  if (!CheckSortField(search.sort, info.columns)) return -1;
  std::string sql = " SELECT * FROM logs " + clause;
  std::string path;
  info.storePath(search.logtype.c_str(), &path);
  if (!SLIBCFileExist(path.c_str())) {
    LOG_DEBUG_HERE("%s is not exist. (%s is not enable?)", path.c_str(), search.logtype.c_str());
    return 0;
  }
  QuorDbHandle conn(QUORDBConnect(0, 0, 0, path.c_str()));
  if (conn == nullptr) {
    LOG_ERROR_HERE("Failed to connect to %s database", search.logtype.c_str());
    return -1;
  }
  // The newest events by the drive's own clock come first; the requested field only orders
  // events of equal logtime.
  sql += " ORDER BY logtime DESC, " + search.sort + (search.ascending ? " ASC" : " DESC");
  QuorDbRows result;
  if (SelectPage(conn.get(), sql, search, &result) < 0) return -1;
  std::unique_ptr<RowDecoder> decoder = info.decoder(result.get());
  LogRecord record;
  int sent = 0;
  QUORDBROW row;
  while (QUORDBFetchRow(result.get(), &row) == 0) {
    int level = decoder->Level(row);
    if (!LevelKept(search, level)) continue;
    record.Clear();
    // Counted before the time check: a row without time is counted but not shown.
    const char* levelWord = CountLevel(level, counts);
    if (decoder->Time(row) == nullptr) continue;
    decoder->Decode(row, levelWord, &record);
    sink->Add(record);
    ++sent;
  }
  result.reset();
  return sink->WantsTotal() ? CountRows(conn.get(), sql) : sent;
}
