// Hooks through which a test harness makes the platform fail where real files and real memory
// cannot be made to (a statement that errs or yields nothing, memory that runs out mid-read).
// The platform only consults them; the switches that arm a fault live with the tests, so the
// library that ships holds no fault state of its own.
#pragma once

enum class DbFault {
  kNone,
  kFail,              // the statement fails as if SQLite had refused it
  kNoRows,            // the statement runs but yields no row
  kNoColumns,         // the statement's rows have no readable column
  kThrowOnSecondRow,  // fetching the second row throws std::bad_alloc, as memory running out
                      // in the middle of a read would
};

struct PlatformFaultHooks {
  // The fault for the statement about to run (kNone for none).
  DbFault (*takeDbFault)(const char* sql);
  // True when this string-list allocation is to fail.
  bool (*takeListAllocFault)();
};

#pragma GCC visibility push(default)
// Installs hooks (nullptr removes them); they must outlive their installation.
void QuorSetFaultHooks(const PlatformFaultHooks* hooks);
#pragma GCC visibility pop

// What the platform itself calls: the installed hook's answer, or no fault.
DbFault TakeDbFault(const char* sql);
bool TakeListAllocFault();
