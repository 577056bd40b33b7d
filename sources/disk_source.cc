// The disk log: storage-manager events about drives, decoded for display.
#include <stdlib.h>
#include <string.h>

#include "api/module_log.h"
#include "catalogue/text_helpers.h"
#include "platform/disk.h"
#include "platform/logfiles.h"
#include "platform/root.h"
#include "sources/log_sources.h"
#include "sources/record_fields.h"
#include "sources/sql_query.h"

namespace {

namespace Disk = QUOR::SDS::STORAGE_MANAGER::Disk;

const char kDiskDatabase[] = "/var/log/quorlog/.QUORDISKDB";
const char kInfoFile[] = "/etc.defaults/quorinfo.conf";
const char kModelKey[] = "upnpmodelname";
const char* const kSortColumns[] = {"level",     "time", "model", "serial",
                                    "container", "slot", "msg",   nullptr};

// The stored message codes whose display texts contain keyword, as conditions on msg joined by
// a bare "OR"; the empty text when none matches.
std::string MessageCondition(const std::string& keyword) {
  PSLIBSZLIST codes = SLIBCSzListAlloc(512);
  if (codes == nullptr) {
    LOG_ERROR_AT(29, "Failed to allocation list");
    return std::string();
  }
  std::string group;
  if (Disk::DiskLogKeywordTranform(keyword.c_str(), &codes) > 0 && codes->nItem > 0) {
    for (int i = 0; i < codes->nItem; ++i) {
      if (i > 0) group += "OR";
      group += GenSQLRegexp(SLIBCSzListGet(codes, i), "msg");
    }
  }
  SLIBCSzListFree(codes);
  return group;
}

// The keyword clause. The joints after the first are a bare "OR": the statement parses the
// same, and the text is kept as clients and logs have always shown it.
std::string KeywordClause(const std::string& keyword) {
  if (keyword.empty()) return " WHERE 1=1";
  char slot[32] = "";
  std::string slotKeyword = keyword;
  if (Disk::DiskSlotReverseConverter(keyword.c_str(), slot, sizeof slot) > 0) slotKeyword = slot;
  std::string group = MessageCondition(keyword);
  return " WHERE (" + GenSQLRegexp(keyword, "model") + " OR " + GenSQLRegexp(keyword, "serial") +
         "OR" + GenSQLRegexp(keyword, "container") + "OR" + GenSQLRegexp(slotKeyword, "slot") +
         (group.empty() ? "" : "OR" + group) + "OR" + GenSQLRegexp(keyword, "info") + ")";
}

std::string OrDash(const char* text) { return text != nullptr && text[0] != '\0' ? text : "-"; }

}  // namespace

int FetchDiskLogs(const LogSearch& search, std::vector<Json::Value>* records, LevelCounts* counts) {
  std::string clause = KeywordClause(search.keyword) + " AND SHOW = 1" + DateBounds(search);
  if (!CheckSortField(search.sort, kSortColumns)) return -1;
  std::string sql = " SELECT * FROM logs " + clause;
  std::string path = QuorResolvePath(kDiskDatabase);
  if (!SLIBCFileExist(path.c_str())) {
    LOG_DEBUG_AT(66, "%s is not exist. (%s is not enable?)", path.c_str(), search.logtype.c_str());
    return 0;
  }
  PQUORDB conn = QUORDBConnect(0, 0, 0, path.c_str());
  if (conn == nullptr) {
    LOG_ERROR_AT(71, "Failed to connect to %s database", search.logtype.c_str());
    return -1;
  }
  // The newest events by the drive's own clock come first; the requested field only orders
  // events of equal logtime.
  sql += " ORDER BY logtime DESC, " + search.sort + (search.ascending ? " ASC" : " DESC");
  PQUORDBRESULT result = nullptr;
  if (SelectPage(conn, sql, search, &result) < 0) {
    QUORDBClose(conn);
    return -1;
  }
  char model[64] = "";
  if (SLIBCFileGetKeyValue(kInfoFile, kModelKey, model, sizeof model, 0) < 1) {
    LOG_DEBUG_AT(84, "Failed to get value of %s in %s", kModelKey, kInfoFile);
    model[0] = '\0';
  }
  size_t modelLength = strlen(model);
  // A row without container decodes its slot as the previous row did: the flag carries over.
  bool inThisUnit = false;
  char text[1024];
  QUORDBROW row;
  while (QUORDBFetchRow(result, &row) == 0) {
    memset(text, 0, sizeof text);
    int level = LevelNumber(QUORDBFetchField(result, row, "level"));
    if (!LevelKept(search, level)) continue;
    Json::Value record(Json::objectValue);
    // Counted before the time check: a row without time is counted but not shown.
    record["level"] = CountLevel(level, counts);
    const char* time = QUORDBFetchField(result, row, "time");
    if (time == nullptr) continue;
    const char* logtime = QUORDBFetchField(result, row, "logtime");
    long long seconds = strtoll(time, nullptr, 10);
    if (logtime != nullptr && strtoll(logtime, nullptr, 10) < seconds) {
      seconds = strtoll(logtime, nullptr, 10);
    }
    record["time"] = QUORLogConvertTime1(static_cast<time_t>(seconds));
    const char* container = QUORDBFetchField(result, row, "container");
    record["model"] = OrDash(QUORDBFetchField(result, row, "model"));
    record["serial"] = OrDash(QUORDBFetchField(result, row, "serial"));
    record["container"] = OrDash(container);
    if (container != nullptr) {
      inThisUnit = modelLength > 0 && strncmp(container, model, modelLength) == 0;
    }
    const char* slot = QUORDBFetchField(result, row, "slot");
    const char* devicePath = QUORDBFetchField(result, row, "path");
    if (Disk::DiskSlotConverter(devicePath, slot, inThisUnit, text, sizeof text) < 0) {
      LOG_ERROR_AT(117, "Failed to convert slot %s of %s", LogText(slot), LogText(devicePath));
    }
    record["slot"] = OrDash(text);
    memset(text, 0, sizeof text);
    const char* msg = QUORDBFetchField(result, row, "msg");
    if (Disk::DiskLogConverter(msg, QUORDBFetchField(result, row, "info"), text, sizeof text) < 0) {
      LOG_ERROR_AT(123, "Failed to convert disk log message %s", LogText(msg));
    }
    record["msg"] = OrDash(text);
    records->push_back(std::move(record));
  }
  QUORDBFreeResult(result);
  int total = CountRows(conn, sql);
  QUORDBClose(conn);
  return total;
}
