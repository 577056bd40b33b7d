// Test-only fault switch of the log-database layer.
#include "log_database_faults.h"

#include <atomic>
#include <mutex>

namespace {

std::atomic<bool> gArmed{false};  // keeps the common, unarmed path free of locking
std::mutex gMutex;
std::string gPrefix;
DbFault gFault = DbFault::kNone;

}  // namespace

void ArmDbFault(const std::string& sqlPrefix, DbFault fault) {
  std::lock_guard<std::mutex> lock(gMutex);
  gPrefix = sqlPrefix;
  gFault = fault;
  gArmed = fault != DbFault::kNone;
}

DbFault TakeDbFault(const std::string& sql) {
  if (!gArmed) return DbFault::kNone;
  std::lock_guard<std::mutex> lock(gMutex);
  if (gFault == DbFault::kNone || sql.compare(0, gPrefix.size(), gPrefix) != 0) {
    return DbFault::kNone;
  }
  DbFault fault = gFault;
  gFault = DbFault::kNone;
  gArmed = false;
  return fault;
}
