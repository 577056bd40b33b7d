// QUOR.LogCenter.Search on the 1,000,000-row system log, each call beside the plain statements
// that answer the same question, run by the bare SQLite client (bench/sql_timer.c) on the same
// SQLite. Times in milliseconds; scripts/bench.sh runs each benchmark in its own process.
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "bench/bare_sql.h"
#include "bench/bench_roots.h"
#include "platform/webapi.h"
#include "search/position_methods.h"
#include "search/search_methods.h"

namespace {

std::string SystemDb() { return SourcesBenchRoot() + "/var/log/quorlog/.QUORSYSDB"; }

Json::Value CallSearch(void (*method)(QUOR::APIRequest*, QUOR::APIResponse*),
                       const Json::Value& params) {
  QUOR::APIRequest request(params, "admin", "en");
  QUOR::APIResponse response;
  method(&request, &response);
  return response.IsSuccess() ? response.GetData() : Json::Value();
}

// With fresh, every call has filters of its own (a "from" before every row that differs each
// time), so no call finds its counts kept from an earlier one: the cost of a first search.
void RunSearch(benchmark::State& state, void (*method)(QUOR::APIRequest*, QUOR::APIResponse*),
               Json::Value params, bool fresh = false) {
  SourcesBenchRoot();
  int64_t call = 0;
  for (auto _ : state) {
    if (fresh) params["from"] = static_cast<Json::Int64>(-++call);
    Json::Value data = CallSearch(method, params);
    if (data.isNull()) state.SkipWithError("the search failed");
    benchmark::DoNotOptimize(data);
  }
}

void RunBare(benchmark::State& state, const std::vector<std::string>& statements) {
  SourcesBenchRoot();
  for (auto _ : state) {
    BareSqlResult result = RunBareSql(BareSqlite::kProject, SystemDb(), 3, statements);
    if (!result.ok) {
      state.SkipWithError("the bare client failed or is missing");
      break;
    }
    state.SetIterationTime(result.msPerRound / 1000.0);
  }
}

Json::Value Params(std::initializer_list<std::pair<const char*, const char*>> pairs) {
  Json::Value params(Json::objectValue);
  for (const auto& p : pairs) params[p.first] = p.second;
  return params;
}

// Errors only: the page and every level's count.
void SearchErrors(benchmark::State& s) {
  RunSearch(s, QueryMethod, Params({{"level", "err"}}), true);
}
// The next page of the same search.
void SearchErrorsAgain(benchmark::State& s) {
  Json::Value params = Params({{"level", "err"}});
  params["offset"] = 50;
  RunSearch(s, QueryMethod, params);
}
void BareErrors(benchmark::State& s) {
  RunBare(s, {"SELECT * FROM logs WHERE level = 'err' ORDER BY time DESC LIMIT 50",
              "SELECT level, count(*) FROM logs GROUP BY level"});
}

void BareErrorsPage(benchmark::State& s) {
  RunBare(s, {"SELECT * FROM logs WHERE level = 'err' ORDER BY time DESC LIMIT 50 OFFSET 50"});
}

// The timeline of the whole log in 60 buckets, beside one GROUP BY over the same buckets.
void SearchHistogram(benchmark::State& s) { RunSearch(s, HistogramMethod, Params({})); }
void BareHistogram(benchmark::State& s) {
  SourcesBenchRoot();
  Json::Value layout = CallSearch(HistogramMethod, Params({}));
  std::string from = std::to_string(layout["from"].asInt64());
  std::string width = std::to_string(layout["bucket"].asInt64());
  RunBare(s, {"SELECT " + from + " + (time - " + from + ") / " + width + " * " + width +
              " AS start, level, count(*) FROM logs GROUP BY start, level"});
}

// A page sorted by a text column, beside the same ORDER BY ... LIMIT; Fresh is a first search.
#define SORT_CASE(name, key, column, order, ORDER)                                           \
  void SearchSort##name(benchmark::State& s) {                                               \
    RunSearch(s, QueryMethod, Params({{"sort", key}, {"order", order}}));                    \
  }                                                                                          \
  void SearchSortFresh##name(benchmark::State& s) {                                          \
    RunSearch(s, QueryMethod, Params({{"sort", key}, {"order", order}}), true);              \
  }                                                                                          \
  void BareSort##name(benchmark::State& s) {                                                 \
    RunBare(s, {"SELECT * FROM logs ORDER BY " column " " ORDER ", id " ORDER " LIMIT 50"}); \
  }                                                                                          \
  void BareSortCounted##name(benchmark::State& s) {                                          \
    RunBare(s, {"SELECT * FROM logs ORDER BY " column " " ORDER ", id " ORDER " LIMIT 50",   \
                "SELECT level, count(*) FROM logs GROUP BY level"});                         \
  }

SORT_CASE(UserAsc, "who", "username", "asc", "ASC")
SORT_CASE(UserDesc, "who", "username", "desc", "DESC")
SORT_CASE(MessageAsc, "descr", "msg", "asc", "ASC")
SORT_CASE(MessageDesc, "descr", "msg", "desc", "DESC")

// An entry in the middle of the log with 10 entries before and after it (show in context),
// beside the two index walks that answer it.
void SearchContext(benchmark::State& s) {
  Json::Value params = Params({{"logtype", "system"}});
  params["id"] = 500000;
  RunSearch(s, ContextMethod, params);
}
void BareContext(benchmark::State& s) {
  const char* at = "(SELECT time FROM logs WHERE id = 500000)";
  RunBare(s, {std::string("SELECT * FROM logs WHERE (time, id) < (") + at +
                  ", 500000) ORDER BY time DESC, id DESC LIMIT 11",
              std::string("SELECT * FROM logs WHERE (time, id) > (") + at +
                  ", 500000) ORDER BY time, id LIMIT 11"});
}
// Live mode's poll: the newest id of the store.
void SearchFollow(benchmark::State& s) {
  RunSearch(s, FollowMethod, Params({{"logtype", "system"}}));
}
void BareFollow(benchmark::State& s) { RunBare(s, {"SELECT max(id) FROM logs"}); }

// A user left out (a tenth of the rows), a first search: the page and every level's count.
void SearchExcludeUser(benchmark::State& s) {
  Json::Value params = Params({});
  params["exclude"]["who"].append("admin");
  RunSearch(s, QueryMethod, params, true);
}
void BareExcludeUser(benchmark::State& s) {
  RunBare(s, {"SELECT * FROM logs WHERE username IS NOT 'admin' ORDER BY time DESC LIMIT 50",
              "SELECT level, count(*) FROM logs WHERE username IS NOT 'admin' GROUP BY level"});
}
// Live mode's count of the new rows of a load (the last 100 ids), beside the count by id.
void SearchNewRows(benchmark::State& s) {
  Json::Value params = Params({{"logtype", "system"}, {"level", "err"}});
  params["after"]["system"] = 999900;
  params["through"]["system"] = 1000000;
  params["limit"] = 1;
  RunSearch(s, QueryMethod, params, true);
}
void BareNewRows(benchmark::State& s) {
  RunBare(s, {"SELECT level, count(*) FROM logs WHERE id > 999900 AND id <= 1000000 "
              "GROUP BY level"});
}

}  // namespace

#define SEARCH_BENCHMARK(name) \
  BENCHMARK(name)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
#define BARE_BENCHMARK(name) \
  BENCHMARK(name)->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(3);

SEARCH_BENCHMARK(SearchErrors)
SEARCH_BENCHMARK(SearchErrorsAgain)
BARE_BENCHMARK(BareErrors)
BARE_BENCHMARK(BareErrorsPage)
SEARCH_BENCHMARK(SearchHistogram)
BARE_BENCHMARK(BareHistogram)
SEARCH_BENCHMARK(SearchContext)
BARE_BENCHMARK(BareContext)
SEARCH_BENCHMARK(SearchFollow)
BARE_BENCHMARK(BareFollow)
SEARCH_BENCHMARK(SearchExcludeUser)
BARE_BENCHMARK(BareExcludeUser)
SEARCH_BENCHMARK(SearchNewRows)
BARE_BENCHMARK(BareNewRows)
#define SORT_BENCHMARKS(name)             \
  SEARCH_BENCHMARK(SearchSort##name)      \
  SEARCH_BENCHMARK(SearchSortFresh##name) \
  BARE_BENCHMARK(BareSort##name)          \
  BARE_BENCHMARK(BareSortCounted##name)
SORT_BENCHMARKS(UserAsc)
SORT_BENCHMARKS(UserDesc)
SORT_BENCHMARKS(MessageAsc)
SORT_BENCHMARKS(MessageDesc)
