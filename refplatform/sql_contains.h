// The SQL function behind GenSQLRegexp conditions (internal to the reference platform).
#pragma once

#include <sqlite3.h>

// The name under which the function is registered: NAME(text, keyword) is 1 when text contains
// keyword ignoring letter case (both upper-cased by SLIBCUnicodeUTF8StrUpper, full Unicode case
// mapping), 0 otherwise, and 0 when either is NULL or empty, the same answer ContainsKeyword
// gives in the module.
#define QUOR_CONTAINS_FUNCTION "quor_contains"
// The same with both texts case-folded (SLIBCUnicodeUTF8StrFold) instead of upper-cased.
#define QUOR_FOLDED_CONTAINS_FUNCTION "quor_folded_contains"

// Registers both functions on db. Returns SQLITE_OK or SQLite's error code.
int RegisterContainsFunction(sqlite3* db);
