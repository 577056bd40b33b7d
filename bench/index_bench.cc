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

#include "api/methods.h"
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
enum Method { kQuery, kHistogram, kPage, kCount };  // kPage: query with counts=false

struct Case {
  const char* name;
  Method method;
  const char* q;
  const char* level;
  const char* sort;
  int offset;  // -1: the last page
};

const Case kCases[] = {
    {"FirstPage", kQuery, "", "", "time", 0},
    {"OneLevel", kQuery, "", "err", "time", 0},
    {"NextPage", kQuery, "", "", "time", 50},
    {"LastPage", kQuery, "", "", "time", -1},
    {"SortUser", kQuery, "", "", "who", 0},
    {"SortMessage", kQuery, "", "", "descr", 0},
    {"CommonTerm", kQuery, "package", "", "time", 0},
    {"TwoTerms", kQuery, "package stopped", "", "time", 0},
    {"Phrase", kQuery, "\"storage pool\"", "", "time", 0},
    {"RareTerms", kQuery, "degraded zoë", "", "time", 0},
    {"NoMatch", kQuery, "xylophone", "", "time", 0},
    {"Timeline", kHistogram, "", "", "time", 0},
    {"TimelineTerm", kHistogram, "package", "", "time", 0},
    {"TimelineRareTerm", kHistogram, "degraded zoë", "", "time", 0},
    // A term search's page without its counts, and the counts alone.
    {"CommonTermPageOnly", kPage, "package", "", "time", 0},
    {"TwoTermsPageOnly", kPage, "package stopped", "", "time", 0},
    {"PhrasePageOnly", kPage, "\"storage pool\"", "", "time", 0},
    {"RareTermsPageOnly", kPage, "degraded zoë", "", "time", 0},
    {"CommonTermCountOnly", kCount, "package", "", "time", 0},
    {"TwoTermsCountOnly", kCount, "package stopped", "", "time", 0},
    {"PhraseCountOnly", kCount, "\"storage pool\"", "", "time", 0},
    {"RareTermsCountOnly", kCount, "degraded zoë", "", "time", 0},
};

Json::Value ParamsOf(const Case& c, int64_t call) {
  Json::Value params(Json::objectValue);
  if (c.q[0] != '\0') params["q"] = c.q;
  if (c.level[0] != '\0') params["level"] = c.level;
  params["sort"] = c.sort;
  params["from"] = static_cast<Json::Int64>(-call);
  if (c.offset >= 0) params["offset"] = c.offset;
  if (c.method == kPage) params["counts"] = false;
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
    auto method = c.method == kHistogram ? HistogramMethod
                  : c.method == kCount   ? CountMethod
                                         : QueryMethod;
    Json::Value answer = Call(method, params);
    if (answer.isNull()) state.SkipWithError("the search failed");
    total = c.method == kHistogram ? answer["counts"].size()
            : c.method == kPage    ? answer["items"].size()
                                   : answer["total"].asInt64();
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

// Clearing the log, the index included: the module's clear method (its statement through the
// platform's connection), then the catch-up that empties the index. It runs on a copy of the
// root's store and index in a root of its own (QUOR_BENCH_CLEAR_ROOT, which scripts/bench.sh
// lays out beside the other), so the large log stays for the next run.
void BM_ClearLog(benchmark::State& state) {
  const std::string store = Store();
  IndexCatchUp(store);
  const char* given = getenv("QUOR_BENCH_CLEAR_ROOT");
  if (given == nullptr) {
    state.SkipWithError("QUOR_BENCH_CLEAR_ROOT is not set");
    return;
  }
  const std::string root = given, copy = root + "/var/log/quorlog/.QUORSYSDB";
  setenv("QUOR_ROOT", root.c_str(), 1);
  for (auto _ : state) {
    state.PauseTiming();
    const std::string from = getenv("QUOR_BENCH_ROOT");
    std::string command = "mkdir -p '" + root + "/var/log/quorlog' && cp -r '" + from + "'/etc* '" +
                          from + "'/usr '" + root + "'/ && cp '" + store + "' '" + copy +
                          "' && cp '" + IndexPathOf(store) + "' '" + IndexPathOf(copy) +
                          "' && sync";
    if (system(command.c_str()) != 0) state.SkipWithError("the copy failed");
    state.ResumeTiming();
    auto start = std::chrono::steady_clock::now();
    Json::Value params(Json::objectValue);
    params["logtype"] = "system";
    QUOR::APIRequest request(params, "admin", "en");
    QUOR::APIResponse response;
    ClearMethod(&request, &response);
    auto cleared = std::chrono::steady_clock::now();
    if (!response.IsSuccess()) state.SkipWithError("the clear failed");
    if (!IndexCatchUp(copy)) state.SkipWithError("the index did not follow");
    auto end = std::chrono::steady_clock::now();
    int64_t left = Call(QueryMethod, Json::Value(Json::objectValue))["total"].asInt64();
    if (left > 1) state.SkipWithError("rows are left after the clear");  // its own event
    state.counters["store_ms"] = std::chrono::duration<double, std::milli>(cleared - start).count();
    state.counters["index_ms"] = std::chrono::duration<double, std::milli>(end - cleared).count();
    // The reference: the same statement on a fresh copy by Debian's sqlite3 shell, whose
    // library overwrites every freed page (secure_delete on by default).
    state.PauseTiming();
    command = "cp '" + store + "' '" + copy + "' && sync";
    if (system(command.c_str()) != 0) state.SkipWithError("the copy failed");
    auto shell = std::chrono::steady_clock::now();
    command = "sqlite3 '" + copy + "' 'DELETE FROM logs;'";
    if (system(command.c_str()) != 0) state.SkipWithError("the shell's clear failed");
    state.counters["shell_ms"] =
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - shell).count();
    state.ResumeTiming();
  }
  setenv("QUOR_ROOT", getenv("QUOR_BENCH_ROOT"), 1);
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
    // A page without counts and a count alone stand beside the scan's full query.
    if (c.method == kPage || c.method == kCount) continue;
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
