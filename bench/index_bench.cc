// The search index on a large system log (scripts/bench.sh lays out the root with
// quor-logdemo, 10,000,000 rows by default): building it, its size beside the store, and each
// search the page makes answered with the index beside the same search answered by the scan
// (the index moved aside), in the same run. Times in milliseconds.
#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <string>

#include "index/search_index.h"
#include "platform/webapi.h"
#include "search/search_methods.h"

namespace {

// The store of the root in QUOR_BENCH_ROOT, made the platform's root.
std::string Store() {
  const char* given = getenv("QUOR_BENCH_ROOT");
  std::string root = given != nullptr ? given : "/tmp/quor-bench-index";
  setenv("QUOR_ROOT", root.c_str(), 1);
  return root + "/var/log/quorlog/.QUORSYSDB";
}

int64_t FileBytes(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0 ? static_cast<int64_t>(st.st_size) : 0;
}

Json::Value Call(void (*method)(QUOR::APIRequest*, QUOR::APIResponse*), const Json::Value& params) {
  QUOR::APIRequest request(params, "admin", "en");
  QUOR::APIResponse response;
  method(&request, &response);
  return response.IsSuccess() ? response.GetData() : Json::Value();
}

// The index (made anew): rows indexed per second, and its size beside the store's.
void BM_IndexBuild(benchmark::State& state) {
  const std::string store = Store(), side = IndexPathOf(store);
  for (auto _ : state) {
    for (const char* suffix : {"", "-wal", "-shm"}) unlink((side + suffix).c_str());
    auto start = std::chrono::steady_clock::now();
    std::string error;
    if (!IndexCatchUp(store, &error)) state.SkipWithError(error.c_str());
    double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    state.SetIterationTime(seconds);
    state.counters["rows_per_s"] =
        static_cast<double>(Call(QueryMethod, Json::Value(Json::objectValue))["total"].asInt64()) /
        seconds;
  }
  state.counters["store_MB"] = FileBytes(store) / 1e6;
  state.counters["index_MB"] = (FileBytes(side) + FileBytes(side + "-wal")) / 1e6;
}

// The searches of the page. A "from" before every row that changes with each call keeps the
// level counts from being reused between calls: every call is a first search.
struct Case {
  const char* name;
  bool histogram;
  const char* q;
  const char* level;
  const char* sort;
  int offset;  // -1: the last page
};

const Case kCases[] = {
    {"FirstPage", false, "", "", "time", 0},
    {"OneLevel", false, "", "err", "time", 0},
    {"NextPage", false, "", "", "time", 50},
    {"LastPage", false, "", "", "time", -1},
    {"SortUser", false, "", "", "who", 0},
    {"CommonTerm", false, "package", "", "time", 0},
    {"TwoTerms", false, "package stopped", "", "time", 0},
    {"Phrase", false, "\"storage pool\"", "", "time", 0},
    {"RareTerms", false, "degraded zoë", "", "time", 0},
    {"NoMatch", false, "xylophone", "", "time", 0},
    {"Timeline", true, "", "", "time", 0},
    {"TimelineTerm", true, "package", "", "time", 0},
    {"TimelineRareTerm", true, "degraded zoë", "", "time", 0},
};

Json::Value ParamsOf(const Case& c, int64_t call) {
  Json::Value params(Json::objectValue);
  if (c.q[0] != '\0') params["q"] = c.q;
  if (c.level[0] != '\0') params["level"] = c.level;
  params["sort"] = c.sort;
  params["from"] = static_cast<Json::Int64>(-call);
  if (c.offset >= 0) params["offset"] = c.offset;
  return params;
}

// One case with the index (scanned false) or with the index moved aside.
void RunCase(benchmark::State& state, const Case& c, bool scanned) {
  const std::string store = Store(), side = IndexPathOf(store);
  if (!scanned) IndexCatchUp(store);
  int64_t call = 0;
  int64_t total = 0;
  for (auto _ : state) {
    if (scanned) {
      state.PauseTiming();
      for (const char* suffix : {"", "-wal", "-shm"}) {
        rename((side + suffix).c_str(), (side + suffix + ".away").c_str());
      }
      mkdir(side.c_str(), 0700);
      state.ResumeTiming();
    }
    Json::Value params = ParamsOf(c, ++call);
    if (c.offset < 0) {
      state.PauseTiming();
      Json::Value first = Call(QueryMethod, params);
      params["offset"] = std::max<Json::Int64>(0, first["total"].asInt64() - 50);
      params["from"] = static_cast<Json::Int64>(-++call);
      state.ResumeTiming();
    }
    Json::Value answer = Call(c.histogram ? HistogramMethod : QueryMethod, params);
    if (answer.isNull()) state.SkipWithError("the search failed");
    total = c.histogram ? answer["counts"].size() : answer["total"].asInt64();
    if (scanned) {
      state.PauseTiming();
      rmdir(side.c_str());
      for (const char* suffix : {"", "-wal", "-shm"}) {
        rename((side + suffix + ".away").c_str(), (side + suffix).c_str());
      }
      state.ResumeTiming();
    }
  }
  state.counters["matches"] = static_cast<double>(total);
}

// Clearing the log, the index included: the module's statement, then the catch-up that
// empties the index. Destroys the rows: scripts/bench.sh runs it last and lays out the root
// again next time.
void BM_ClearLog(benchmark::State& state) {
  const std::string store = Store();
  IndexCatchUp(store);
  for (auto _ : state) {
    auto start = std::chrono::steady_clock::now();
    std::string command = "sqlite3 '" + store + "' 'DELETE FROM logs;'";
    if (system(command.c_str()) != 0) state.SkipWithError("the clear failed");
    auto cleared = std::chrono::steady_clock::now();
    if (!IndexCatchUp(store)) state.SkipWithError("the index did not follow");
    auto end = std::chrono::steady_clock::now();
    state.counters["store_ms"] = std::chrono::duration<double, std::milli>(cleared - start).count();
    state.counters["index_ms"] = std::chrono::duration<double, std::milli>(end - cleared).count();
  }
}

int Register() {
  benchmark::RegisterBenchmark("BM_IndexBuild", BM_IndexBuild)
      ->Iterations(1)
      ->UseManualTime()
      ->Unit(benchmark::kMillisecond);
  for (const Case& c : kCases) {
    benchmark::RegisterBenchmark((std::string("BM_Indexed") + c.name).c_str(),
                                 [&c](benchmark::State& s) { RunCase(s, c, false); })
        ->Iterations(5)
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark((std::string("BM_Scanned") + c.name).c_str(),
                                 [&c](benchmark::State& s) { RunCase(s, c, true); })
        ->Iterations(1)
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);
  }
  benchmark::RegisterBenchmark("BM_ClearLog", BM_ClearLog)
      ->Iterations(1)
      ->UseRealTime()
      ->Unit(benchmark::kMillisecond);
  return 0;
}

const int kRegistered = Register();

}  // namespace
