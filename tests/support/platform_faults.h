// Faults that real files and real memory cannot produce (a statement that errs or yields
// nothing, memory that runs out mid-read, a list that cannot be allocated), made on the tests'
// side: the test binary defines the platform operations that the code under test calls, and
// each forwards to the platform library's own unless a fault is armed. The shipped library
// holds no fault switch.
#pragma once

#include <string>

enum class DbFault {
  kNone,
  kFail,             // the statement fails as if SQLite had refused it ("injected failure")
  kNoRows,           // the statement runs but yields no row
  kNoColumns,        // the statement's rows have no readable column
  kThrowOnFirstRow,  // fetching a row throws std::bad_alloc, as memory running out mid-read
};

// Arms fault for the next statement whose text starts with sqlPrefix (one shot). kNone disarms.
void ArmDbFault(const std::string& sqlPrefix, DbFault fault);

// Makes the n-th SLIBCSzListAlloc from now (1: the next one) fail as if memory ran out; the
// others succeed. One shot; 0 disarms.
void ArmStringListAllocFault(int n);
