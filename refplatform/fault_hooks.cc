// The installed fault hooks. One atomic load on every statement and list allocation when
// none are installed.
#include "fault_hooks.h"

#include <atomic>

namespace {
std::atomic<const PlatformFaultHooks*> gHooks{nullptr};
}  // namespace

void QuorSetFaultHooks(const PlatformFaultHooks* hooks) { gHooks.store(hooks); }

DbFault TakeDbFault(const char* sql) {
  const PlatformFaultHooks* hooks = gHooks.load(std::memory_order_acquire);
  return hooks != nullptr && hooks->takeDbFault != nullptr ? hooks->takeDbFault(sql)
                                                           : DbFault::kNone;
}

bool TakeListAllocFault() {
  const PlatformFaultHooks* hooks = gHooks.load(std::memory_order_acquire);
  return hooks != nullptr && hooks->takeListAllocFault != nullptr && hooks->takeListAllocFault();
}
