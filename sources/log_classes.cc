// The table of log classes.
#include "sources/log_classes.h"

#include <string.h>

#include "catalogue/log_levels.h"
#include "catalogue/log_types.h"
#include "catalogue/type_lists.h"
#include "platform/logfiles.h"
#include "platform/root.h"
#include "sources/disk_rows.h"
#include "sources/system_rows.h"
#include "sources/transfer_rows.h"

namespace {

// Record key, select column, search order, accepted as the list's sort field.
const LogColumn kSystemColumns[] = {
    {"time", "time", "time", true},
    {"level", "level", "severity", true},
    {"who", "username", "username", true},
    {"descr", "msg", "msg", true},
    {"orginalLogType", "orginalLogType", "orginalLogType", false},
    {"logtype", "logtype", "logtype", false},
    {nullptr, nullptr, nullptr, false},
};
const LogColumn kTransferColumns[] = {
    {"time", "time", "time", true},
    {"ip", "ip", "ip", true},
    {"username", "username", "username", true},
    {"cmd", "cmd", "cmd", true},
    {"filesize", "filesize", "CAST(filesize AS INTEGER)", true},
    {"descr", "filename", "filename", true},
    {"orginalLogType", "orginalLogType", "orginalLogType", false},
    {"logtype", "logtype", "logtype", true},
    {"isdir", "isdir", "isdir", true},
    {nullptr, nullptr, nullptr, false},
};
const LogColumn kDiskColumns[] = {
    {"level", "level", "severity", true},
    {"time", "time", "time", true},
    {"model", "model", "model", true},
    {"serial", "serial", "serial", true},
    {"container", "container", "container", true},
    {"slot", "slot", "slot", true},
    {"msg", "msg", "msg", true},
    {nullptr, nullptr, nullptr, false},
};
// Lines of a plain-text log: sorted in memory by their keys.
const LogColumn kPlainColumns[] = {
    {"time", "time", nullptr, false},
    {"level", "level", nullptr, false},
    {"who", "user", nullptr, false},
    {"descr", "message", nullptr, false},
    {"orginalLogType", nullptr, nullptr, false},
    {"logtype", nullptr, nullptr, false},
    {nullptr, nullptr, nullptr, false},
};

const char* const kSystemSearched[] = {"username", "msg", nullptr};
const char* const kTransferSearched[] = {"username", "filename", nullptr};
const char* const kDiskSearched[] = {"model", "serial", "container", "slot",
                                     "msg",   "info",   nullptr};
const char* const kPlainSearched[] = {"message", "user", nullptr};

// The level number of a row from its stored level text, as LevelNumber reads it.
const std::string& StoredSeverity() {
  static const std::string expression = [] {
    std::string sql = "(CASE level";
    for (int number = 3; number >= 2; --number) {
      sql +=
          std::string(" WHEN '") + LogLevelOf(number).stored + "' THEN " + std::to_string(number);
    }
    return sql + " ELSE 1 END)";
  }();
  return expression;
}

bool SystemStore(const char* type, std::string* path) {
  const char* file = IsInList(type, kDatabaseLogTypes) ? LogDatabaseFile(type) : nullptr;
  *path = file != nullptr ? QuorResolvePath(file) : std::string();
  return !path->empty();
}

bool TransferStore(const char* type, std::string* path) {
  *path = XferlogDBPathGet(type);
  return !path->empty();
}

// The one disk database, whatever the spelling of the type.
bool DiskStore(const char*, std::string* path) {
  *path = QuorResolvePath(LogDatabaseFile("disk"));
  return true;
}

bool PlainStore(const char* type, std::string* path) {
  const LogTypeEntry* entry = type != nullptr ? FindLogTypeEntry(type) : nullptr;
  char buffer[4096];
  if (entry == nullptr || QUORLogFilePathGet(entry->id, buffer, sizeof buffer) != 0) return false;
  *path = buffer;
  return true;
}

// The term in any searched column. Search terms compare by full case folding.
std::string AnyColumnHolds(const LogClassInfo& info, const std::string& term) {
  std::string condition;
  for (const char* const* column = info.searchedColumns; *column != nullptr; ++column) {
    if (!condition.empty()) condition += " OR ";
    condition += GenSQLFoldedContains(term, *column);
  }
  return "(" + condition + ")";
}

std::string DiskTerm(const LogClassInfo&, const std::string& term) {
  return DiskKeywordCondition(term, GenSQLFoldedContains);
}

template <class Decoder>
std::unique_ptr<RowDecoder> Make(PQUORDBRESULT result) {
  return std::make_unique<Decoder>(result);
}

}  // namespace

const LogClassInfo kLogClasses[kLogClassCount] = {
    {LogClass::kTransfer, "transfer", kTransferLogTypes, IsXferLogType, true, kTransferColumns,
     kTransferSearched, "filename", "1", TransferStore, AnyColumnHolds, Make<TransferRowDecoder>},
    {LogClass::kSystem, "system", kDatabaseLogTypes, IsDbLogType, true, kSystemColumns,
     kSystemSearched, "msg", StoredSeverity().c_str(), SystemStore, AnyColumnHolds,
     Make<SystemRowDecoder>},
    {LogClass::kPlain, "plain", kPlainLogTypes, IsPlainLogType, false, kPlainColumns,
     kPlainSearched, nullptr, nullptr, PlainStore, nullptr, nullptr},
    {LogClass::kDisk, "disk", kDiskLogTypes, IsDiskLogType, false, kDiskColumns, kDiskSearched,
     nullptr, StoredSeverity().c_str(), DiskStore, DiskTerm, Make<DiskRowDecoder>},
};

const LogClassInfo& ClassInfo(LogClass id) {
  for (const LogClassInfo& info : kLogClasses) {
    if (info.id == id) return info;
  }
  return kLogClasses[1];
}

const LogClassInfo* ClassOfTypes(PSLIBSZLIST list) {
  for (const LogClassInfo& info : kLogClasses) {
    if (AllLogTypesAre(info.isMember, list)) return &info;
  }
  return nullptr;
}

const LogClassInfo* ClassOfType(const char* type) {
  for (const LogClassInfo& info : kLogClasses) {
    if (info.isMember(type)) return &info;
  }
  return nullptr;
}

const LogColumn* FindColumn(const LogClassInfo& info, const std::string& key) {
  for (const LogColumn* column = info.columns; column->key != nullptr; ++column) {
    if (key == column->key) return column;
  }
  return nullptr;
}

bool StorePathOf(const char* type, std::string* path) {
  const LogClassInfo* info = ClassOfType(type);
  return info != nullptr && info->storePath(type, path);
}
