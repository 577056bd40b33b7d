// The connection log's rows from the platform's own services: one INSERT through the
// log-database layer, with a short wait for a busy store.
#include "platform/connection_log.h"

#include <stdlib.h>
#include <time.h>

#include <memory>
#include <string>

#include "log_database_wait.h"
#include "platform/logdb.h"
#include "platform/systemlog.h"

namespace {

const char kConnectionLog[] = "/var/log/quorlog/.QUORCONNDB";
// How long a row waits for another writer of the store.
const int kBusyWaitMs = 250;

// text escaped for SQL, or empty when memory ran out (*ok then false).
std::string Escaped(const char* text, bool* ok) {
  std::unique_ptr<char, decltype(&free)> escaped(QUORDBEscapeStrAllocEX2(0, text ? text : ""),
                                                 &free);
  if (escaped == nullptr) *ok = false;
  return escaped != nullptr ? escaped.get() : "";
}

}  // namespace

bool QuorConnectionLogAdd(const char* level, const char* user, const char* message) {
  QuorDbHandle db(LogDbConnect(kConnectionLog, kBusyWaitMs));
  if (db == nullptr) {
    SLIBCSysLog(LOG_ERR, "connection log: cannot write to %s (missing, busy or damaged); lost: %s",
                kConnectionLog, message);
    return false;
  }
  bool ok = true;
  std::string sql = "INSERT INTO logs (time, level, username, msg) VALUES (" +
                    std::to_string(static_cast<long long>(time(nullptr))) + ", '" +
                    Escaped(level, &ok) + "', '" + Escaped(user, &ok) + "', '" +
                    Escaped(message, &ok) + "')";
  if (!ok || QUORDBExecute(db.get(), sql.c_str(), nullptr) == -1) {
    SLIBCSysLog(LOG_ERR, "connection log: cannot write to %s (%s); lost: %s", kConnectionLog,
                ok ? QUORDBErrorGet(db.get()) : "out of memory", message);
    return false;
  }
  return true;
}
