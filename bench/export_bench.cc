// Export of a million system-log rows as CSV and as HTML through the export method, beside the
// bare SQLite client writing the same rows as CSV (bench/sql_timer.c). Each benchmark reports rows
// per second and the peak resident memory of the process that did the work; run each in its own
// process (see scripts/bench.sh) so that one's peak does not hide another's.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sqlite3.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "api/fetch_logs.h"
#include "api/methods.h"
#include "bench/bare_sql.h"
#include "tools/lib/root_layout.h"

namespace {

const int kRows = 1000000;

// An appliance root with a system log of kRows rows, made once and kept between runs in
// QUOR_BENCH_ROOT (a fresh temporary directory when unset).
std::string BenchRoot() {
  static const std::string root = [] {
    const char* given = getenv("QUOR_BENCH_ROOT");
    std::string dir;
    if (given != nullptr && given[0] != '\0') {
      dir = given;
    } else {
      char pattern[] = "/tmp/quor-bench-XXXXXX";
      dir = mkdtemp(pattern) != nullptr ? pattern : "/tmp";
    }
    std::string error;
    if (!MakeParentDirectories(dir + "/var/log/quorlog/", &error) ||
        !InstallTexts(dir, QUOR_SOURCE_DIR "/texts", &error)) {
      fprintf(stderr, "cannot lay out %s: %s\n", dir.c_str(), error.c_str());
      exit(1);
    }
    setenv("QUOR_ROOT", dir.c_str(), 1);
    return dir;
  }();
  return root;
}

std::string SystemDb() { return BenchRoot() + "/var/log/quorlog/.QUORSYSDB"; }

// Rows a week apart by the second, levels mixed, messages of a realistic length with the odd
// character that HTML escapes or CSV quotes.
void MakeSystemLog() {
  std::string path = SystemDb();
  sqlite3* db = nullptr;
  if (sqlite3_open(path.c_str(), &db) != SQLITE_OK) exit(1);
  sqlite3_stmt* count = nullptr;
  sqlite3_prepare_v2(db, "SELECT count(*) FROM logs", -1, &count, nullptr);
  bool ready = count != nullptr && sqlite3_step(count) == SQLITE_ROW &&
               sqlite3_column_int64(count, 0) == kRows;
  sqlite3_finalize(count);
  if (!ready) {
    sqlite3_exec(db,
                 "DROP TABLE IF EXISTS logs;"
                 "CREATE TABLE logs (id INTEGER PRIMARY KEY AUTOINCREMENT, time INTEGER, level "
                 "TEXT, username TEXT, msg TEXT); CREATE INDEX logs_time ON logs (time);"
                 "BEGIN;",
                 nullptr, nullptr, nullptr);
    sqlite3_stmt* insert = nullptr;
    sqlite3_prepare_v2(db, "INSERT INTO logs (time, level, username, msg) VALUES (?, ?, ?, ?)", -1,
                       &insert, nullptr);
    const char* levels[] = {"info", "info", "info", "warning", "err"};
    for (int i = 0; i < kRows; ++i) {
      char user[32];
      char msg[160];
      snprintf(user, sizeof user, "user%d", i % 37);
      snprintf(msg, sizeof msg,
               i % 10 == 0 ? "User [%s] failed to sign in from 10.0.%d.%d via \"ssh\", <blocked>"
                           : "User [%s] signed in from 10.0.%d.%d via web",
               user, (i / 256) % 256, i % 256);
      sqlite3_bind_int64(insert, 1, 1700000000 + i);
      sqlite3_bind_text(insert, 2, levels[i % 5], -1, SQLITE_STATIC);
      sqlite3_bind_text(insert, 3, user, -1, SQLITE_TRANSIENT);
      sqlite3_bind_text(insert, 4, msg, -1, SQLITE_TRANSIENT);
      sqlite3_step(insert);
      sqlite3_reset(insert);
    }
    sqlite3_finalize(insert);
    sqlite3_exec(db, "COMMIT;", nullptr, nullptr, nullptr);
  }
  sqlite3_close(db);
}

// Standard output goes to /dev/null while it lives.
class DiscardStdout {
 public:
  DiscardStdout() {
    fflush(stdout);
    saved_ = dup(1);
    int null = open("/dev/null", O_WRONLY);
    dup2(null, 1);
    close(null);
  }
  ~DiscardStdout() {
    fflush(stdout);
    dup2(saved_, 1);
    close(saved_);
  }

 private:
  int saved_;
};

double PeakMegabytes(int who) {
  struct rusage usage;
  getrusage(who, &usage);
  return usage.ru_maxrss / 1024.0;
}

void Report(benchmark::State& state, double peakMegabytes) {
  state.counters["rows_per_s"] = benchmark::Counter(static_cast<double>(kRows) * state.iterations(),
                                                    benchmark::Counter::kIsRate);
  state.counters["peak_MB"] = peakMegabytes;
}

void Export(benchmark::State& state, const char* format) {
  MakeSystemLog();
  Json::Value params(Json::objectValue);
  params["logtype"] = "system";
  params["format"] = format;
  for (auto _ : state) {
    QUOR::APIRequest request(params, "admin", "en");
    QUOR::APIResponse response;
    DiscardStdout discard;
    ExportMethod(&request, &response);
  }
  Report(state, PeakMegabytes(RUSAGE_SELF));
}

void BM_ExportCsv(benchmark::State& state) { Export(state, "csv"); }
void BM_ExportHtml(benchmark::State& state) { Export(state, "html"); }

// The bare SQLite client writing the rows of the export's own statement, as the sqlite3 shell's
// -csv mode does, to /dev/null: the speed of reading the rows and writing them out with
// nothing in between.
void BM_BareCsv(benchmark::State& state) {
  MakeSystemLog();
  const std::string select =
      " SELECT *, 'system' as orginalLogType, 'System' as logtype FROM logs  WHERE 1=1 ORDER BY "
      "time DESC";
  for (auto _ : state) {
    BareSqlResult result = RunBareSql(BareSqlite::kProject, SystemDb(), 1, {select}, true);
    if (!result.ok || result.rowsPerRound != kRows) {
      state.SkipWithError("the bare client failed");
      break;
    }
    state.SetIterationTime(result.msPerRound / 1000.0);
  }
  Report(state, PeakMegabytes(RUSAGE_CHILDREN));
}

}  // namespace

BENCHMARK(BM_ExportCsv)->Unit(benchmark::kMillisecond)->Iterations(2)->UseRealTime();
BENCHMARK(BM_ExportHtml)->Unit(benchmark::kMillisecond)->Iterations(2)->UseRealTime();
BENCHMARK(BM_BareCsv)->Unit(benchmark::kMillisecond)->Iterations(2)->UseManualTime();

BENCHMARK_MAIN();
