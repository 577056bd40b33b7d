// The clear method: empties the log databases a request names, recording an event and an
// activity entry for each.
#include <string>

#include "api/methods.h"
#include "api/module_log.h"
#include "catalogue/log_types.h"
#include "catalogue/type_lists.h"
#include "platform/config.h"
#include "platform/eventlog.h"
#include "platform/logdb.h"
#include "platform/logfiles.h"
#include "platform/stringbundle.h"
#include "sources/log_classes.h"

namespace {

// The platform event of a cleared log; its message names the log's display name.
const unsigned int kLogClearedEvent = 0x11801E12;

struct ServiceSwitch {
  const char* logType;  // compared exactly, letter case included
  const char* keys[2];  // the service is on when any key is "yes" (null: unused)
};

// Logs of optional services are only cleared while their service is on; every other log type
// is always on.
const ServiceSwitch kServiceSwitches[] = {
    {"bkplog", {"usbbkp", nullptr}},
    {"copylog", {"usbcopy", "sdcopy"}},
    {"netbkplog", {"netbkp", nullptr}},
};

bool ServiceIsOn(const std::string& logType) {
  for (const ServiceSwitch& service : kServiceSwitches) {
    if (logType != service.logType) continue;
    QuorConf conf;
    for (const char* key : service.keys) {
      if (key != nullptr && conf.Def(key, "no") == "yes") return true;
    }
    return false;
  }
  return true;
}

// Only database-backed logs can be emptied; plain-text backup logs belong to their services.
bool IsClearable(const char* logType) {
  return IsDbLogType(logType) || IsXferLogType(logType) || IsDiskLogType(logType);
}

// The database of a catalogue name (exact spelling); the empty text, which no connect opens,
// for any other spelling.
std::string DatabasePath(const std::string& logType) {
  std::string path;
  if (FindLogTypeEntry(logType) != nullptr) StorePathOf(logType.c_str(), &path);
  return path;
}

// Empties the type's database and records the platform event. Failures are logged only: the
// request goes on with the next type.
void EmptyDatabase(const std::string& logType) {
  StringBundle bundle("log");
  const LogTypeEntry* entry = FindLogTypeEntry(logType);
  std::string displayName = entry != nullptr ? bundle.Text(entry->textKey, "") : "";
  QuorDbHandle db(QUORDBConnect(0, 0, 0, DatabasePath(logType).c_str()));
  if (db == nullptr) {
    LOG_ERROR_HERE("Failed to connect to database");
    return;
  }
  if (QUORDBExecute(db.get(), "DELETE FROM logs", nullptr) == -1) {
    LOG_ERROR_HERE("Failed to exec database command. (%s)", QUORDBErrorGet(db.get()));
  } else {
    QUORLogSet1(2, 1, kLogClearedEvent, displayName.c_str(), "", "", "");
  }
}

}  // namespace

void ClearMethod(QUOR::APIRequest* request, QUOR::APIResponse* response) {
  LogScope scope(kSyslogClientLog);
  try {
    std::string user = request->GetLoginUserName();
    std::string logTypes =
        MapCategoriesToLogTypes(QUOR::WebAPIUtil::ToText(request->GetParam("logtype", "system")));
    PSLIBSZLIST items = nullptr;
    if (SplitLogTypes(logTypes, &items) < 0) {
      LOG_ERROR_HERE("Split log type failed.");
      SLIBCSysLog(LOG_ERR, "Fail to clear logs (%s)", logTypes.c_str());
      response->SetError(5001, Json::Value());
      return;
    }
    SzList list(items);
    Logger activity;
    for (int i = 0; i < list->nItem; ++i) {
      const char* logType = SLIBCSzListGet(list.get(), i);
      if (logType == nullptr || logType[0] == '\0') continue;
      if (!ServiceIsOn(logType) || !IsClearable(logType)) continue;
      EmptyDatabase(logType);
      activity.LogAddLogClear(logType, user);
    }
    response->SetSuccess(Json::Value());
  } catch (const std::exception& e) {
    // Only memory exhaustion gets here; the call then stays unanswered.
    LOG_ERROR_HERE("clear failed: %s", e.what());
  }
}
