#include "tests/support/platform_faults.h"

#include <atomic>
#include <mutex>

namespace {

std::mutex gMutex;
std::string gPrefix;
DbFault gFault = DbFault::kNone;
std::atomic<int> gAllocCountdown{0};

DbFault TakeArmedDbFault(const char* sql) {
  std::lock_guard<std::mutex> lock(gMutex);
  if (gFault == DbFault::kNone || std::string(sql).compare(0, gPrefix.size(), gPrefix) != 0) {
    return DbFault::kNone;
  }
  DbFault fault = gFault;
  gFault = DbFault::kNone;
  return fault;
}

bool TakeArmedAllocFault() {
  int left = gAllocCountdown.load();
  while (left > 0) {
    if (gAllocCountdown.compare_exchange_weak(left, left - 1)) return left == 1;
  }
  return false;
}

const PlatformFaultHooks kHooks = {TakeArmedDbFault, TakeArmedAllocFault};

void InstallHooks() { QuorSetFaultHooks(&kHooks); }

}  // namespace

void ArmDbFault(const std::string& sqlPrefix, DbFault fault) {
  InstallHooks();
  std::lock_guard<std::mutex> lock(gMutex);
  gPrefix = sqlPrefix;
  gFault = fault;
}

void ArmStringListAllocFault(int n) {
  InstallHooks();
  gAllocCountdown.store(n > 0 ? n : 0);
}
