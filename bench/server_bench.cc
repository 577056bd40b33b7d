// The list method called in-process (checker, then handler, as the server's dispatch does) on
// a small demo log, the reference that scripts/bench.sh sets beside the same call made through
// the web-API server under wrk.
#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "api/checks.h"
#include "api/methods.h"
#include "bench/bare_sql.h"
#include "platform/webapi.h"
#include "tools/lib/log_demo.h"

namespace {

const int64_t kRows = 5000;
const char kReadyStamp[] = "/.server-bench-ready-v1";

// The demo root, made once and kept in QUOR_BENCH_ROOT (default under /tmp); the server of
// the wrk run serves the same root.
const std::string& Root() {
  static const std::string root = [] {
    const char* given = getenv("QUOR_BENCH_ROOT");
    std::string dir = given != nullptr && given[0] != '\0' ? given : "/tmp/quor-bench-server";
    struct stat st;
    if (stat((dir + kReadyStamp).c_str(), &st) != 0) {
      DemoOptions options;
      options.root = dir;
      options.textsDir = QUOR_SOURCE_DIR "/texts";
      options.rows = kRows;
      std::string error;
      if (!BuildDemoRoot(options, &error)) {
        fprintf(stderr, "server bench: %s\n", error.c_str());
        exit(1);
      }
      FILE* stamp = fopen((dir + kReadyStamp).c_str(), "w");
      if (stamp != nullptr) fclose(stamp);
    }
    setenv("QUOR_ROOT", dir.c_str(), 1);
    return dir;
  }();
  return root;
}

// One page of 50 system-log records, the page's first call.
void BM_ListInProcess(benchmark::State& state) {
  Root();
  Json::Value params(Json::objectValue);
  params["logtype"] = "system";
  params["limit"] = 50;
  params["offset"] = 0;
  int64_t total = 0;
  struct rusage before, after;
  getrusage(RUSAGE_SELF, &before);
  for (auto _ : state) {
    QUOR::APIRequest request(params, "admin", "en");
    QUOR::APIResponse response;
    if (CheckListParams(&request, &response)) ListMethod(&request, &response);
    total = response.GetData()["total"].asInt64();
    benchmark::DoNotOptimize(total);
  }
  state.counters["calls_per_s"] =
      benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
  getrusage(RUSAGE_SELF, &after);
  state.counters["total"] = static_cast<double>(total);
  state.counters["faults_per_call"] =
      static_cast<double>(after.ru_minflt - before.ru_minflt) / state.iterations();
}

// The two statements of that call (the page and the count over the ordered select) run by the
// bare SQLite client on a new connection each round, as each call opens its own.
void BM_ListBareStatements(benchmark::State& state) {
  Root();
  const std::string select =
      " SELECT *, 'system' as orginalLogType, 'System' as logtype FROM logs  WHERE 1=1 ORDER BY "
      "time DESC";
  const std::vector<std::string> statements = {
      select + " LIMIT 50", "SELECT count(*) AS count_result FROM (" + select + ") as tempQuery"};
  for (auto _ : state) {
    BareSqlResult result =
        RunBareSql(BareSqlite::kProject, Root() + "/var/log/quorlog/.QUORSYSDB", 2000, statements);
    if (!result.ok) {
      state.SkipWithError("the bare client failed");
      break;
    }
    state.SetIterationTime(result.msPerRound / 1000.0);
  }
}

}  // namespace

BENCHMARK(BM_ListInProcess)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_ListBareStatements)->Unit(benchmark::kMicrosecond)->UseManualTime()->Iterations(3);
