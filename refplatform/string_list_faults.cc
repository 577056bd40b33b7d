// Test-only fault switch of the string lists.
#include "string_list_faults.h"

#include <atomic>

namespace {
std::atomic<int> gAllocCountdown{0};
}  // namespace

void ArmStringListAllocFault(int n) { gAllocCountdown.store(n > 0 ? n : 0); }

bool TakeStringListAllocFault() {
  int left = gAllocCountdown.load();
  while (left > 0) {
    if (gAllocCountdown.compare_exchange_weak(left, left - 1)) return left == 1;
  }
  return false;
}
