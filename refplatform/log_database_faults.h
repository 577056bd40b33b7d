// Test-only fault switch of the log-database layer: failures that real files cannot produce
// (a count query that errs or yields nothing, memory that runs out mid-read) are armed here for the next matching statement.
#pragma once

#include <string>

enum class DbFault {
  kNone,
  kFail,       // the statement fails as if SQLite had refused it
  kNoRows,     // the statement runs but yields no row
  kNoColumns,  // the statement's rows have no readable column
  kThrowOnSecondRow,  // fetching the second row throws std::bad_alloc, as memory running out
                      // in the middle of a read would
};

// Arms fault for the next statement whose text starts with sqlPrefix (one shot). kNone disarms.
void ArmDbFault(const std::string& sqlPrefix, DbFault fault);

// The fault armed for sql, disarming it; kNone when none matches. Used by the layer itself.
DbFault TakeDbFault(const std::string& sql);
