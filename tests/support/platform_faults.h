// Fault switches for tests: failures that real files cannot produce, armed one shot at a time
// through the platform's fault hooks.
#pragma once

#include <string>

#include "refplatform/fault_hooks.h"

// Arms fault for the next statement whose text starts with sqlPrefix (one shot). kNone disarms.
void ArmDbFault(const std::string& sqlPrefix, DbFault fault);

// Makes the n-th SLIBCSzListAlloc from now (1: the next one) fail as if memory ran out; the
// others succeed. One shot; 0 disarms.
void ArmStringListAllocFault(int n);
