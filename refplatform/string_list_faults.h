// Test-only fault switch of the string lists: an allocation failure that a test cannot cause
// with real input is armed here.
#pragma once

// Makes the n-th SLIBCSzListAlloc from now (1: the next one) fail as if memory ran out; the
// others succeed. One shot; 0 disarms.
void ArmStringListAllocFault(int n);

// True when this allocation is the armed one (disarming it). Used by the list itself.
bool TakeStringListAllocFault();
