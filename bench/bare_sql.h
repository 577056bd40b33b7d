// The references of the benchmarks: the same statements run by the bare SQLite client
// (bench/sql_timer.c) in a process of its own, on the project's SQLite or on Debian's.
#pragma once

#include <string>
#include <vector>

enum class BareSqlite { kProject, kDebian };

struct BareSqlResult {
  bool ok = false;
  double msPerRound = 0;  // as the client measured it: no process start-up included
  long rowsPerRound = 0;
};

// Runs the client on db for rounds rounds of statements (each round on a new connection); with
// csv, the last statement's rows are written as CSV to /dev/null. Fails (ok false) when the
// client is missing (Debian's is built only where Debian's SQLite is installed) or fails.
BareSqlResult RunBareSql(BareSqlite which, const std::string& db, int rounds,
                         const std::vector<std::string>& statements, bool csv = false);
