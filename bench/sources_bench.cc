// The list method on a demo appliance root with a 1,000,000-row system log (and connection and
// network-backup logs for the merged case), each beside the bare SQLite client running the
// statements the list call runs (bench/sql_timer.c) on the same SQLite and on Debian's; and the
// plain-text source on a backup log of at least 500 MB beside "tail -n 15000 FILE | grep -i
// KEYWORD | sort". Times are in milliseconds; scripts/bench.sh runs each benchmark in its own
// process.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "api/fetch_logs.h"
#include "api/methods.h"
#include "bench/bare_sql.h"
#include "bench/bench_roots.h"
#include "platform/logdb.h"
#include "platform/webapi.h"
#include "sources/log_sources.h"
#include "sources/sql_query.h"
#include "tools/lib/log_demo.h"
#include "tools/lib/root_layout.h"

extern char** environ;

namespace {

const int64_t kSystemRows = 1000000;
const int64_t kPlainBytes = 500LL << 20;
const char kSystemKeyword[] = "timed out";
const char kPlainKeyword[] = "failed";
const char kReadyStamp[] = "/.sources-bench-ready-v1";

const std::string& Root() { return SourcesBenchRoot(); }

std::string Db(const char* file) { return Root() + "/var/log/quorlog/" + file; }

const int64_t kHoleLogSize = 2LL << 30;
const int64_t kHoleSize = 256LL << 20;

// The backup-server log made over into a 2 GiB sparse file: the lines of the copy log (about
// 5 MB) with a 256 MB hole of NULs before their last 100 lines, the rest of the size a hole
// before them. A list reads the same 15000 lines from it as from the copy log.
void MakeHoleLog() {
  std::string path = Root() + "/var/log/quorbackup_server.log";
  struct stat st;
  if (stat(path.c_str(), &st) == 0 && st.st_size == kHoleLogSize) return;
  std::string lines;
  FILE* copy = fopen((Root() + "/var/log/quorcopy.log").c_str(), "r");
  char buffer[1 << 16];
  size_t n;
  while (copy != nullptr && (n = fread(buffer, 1, sizeof buffer, copy)) > 0)
    lines.append(buffer, n);
  if (copy != nullptr) fclose(copy);
  size_t cut = lines.size();
  for (int i = 0; i < 101 && cut > 0; ++i) cut = lines.rfind('\n', cut - 1);
  std::string head = lines.substr(0, cut + 1), tail = lines.substr(cut + 1);
  int64_t tailAt = kHoleLogSize - static_cast<int64_t>(tail.size());
  int64_t headAt = tailAt - kHoleSize - static_cast<int64_t>(head.size());
  int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  bool ok = fd >= 0 && pwrite(fd, head.data(), head.size(), headAt) == (ssize_t)head.size() &&
            pwrite(fd, tail.data(), tail.size(), tailAt) == (ssize_t)tail.size();
  if (fd >= 0) close(fd);
  if (!ok) {
    fprintf(stderr, "cannot write %s\n", path.c_str());
    exit(1);
  }
}

// The list call's search for params, as its handler fills it.
LogSearch ListSearch(const char* types, const char* keyword) {
  LogSearch search;
  search.logtype = types;
  search.sort = "time";
  search.limit = 100;
  search.keyword = keyword;
  search.date_from = search.date_to = "0";
  return search;
}

// The statements the list call runs for search over the databases of types: the attaches, the
// paged select and the count over the ordered select. With like, the keyword condition is
// given as LIKE '%keyword%', the scan's own speed for an ASCII keyword.
std::vector<std::string> ListStatements(const LogSearch& search,
                                        std::initializer_list<const char*> types, bool like) {
  static const struct {
    const char* type;
    const char* file;
    const char* display;
  } kStores[] = {{"system", ".QUORSYSDB", "System"},
                 {"connection", ".QUORCONNDB", "Connection"},
                 {"netbkplog", ".QUORNETBKPDB", "Network Backup"}};
  std::string filter = BuildFilterClause(search, "msg");
  if (like && !search.keyword.empty()) {
    std::string pattern = GenSQLRegexp(search.keyword, "msg");
    filter.replace(filter.find(pattern), pattern.size(),
                   "(msg LIKE '%" + EscapeSqlString(search.keyword) + "%')");
  }
  std::vector<std::string> statements;
  std::string select;
  for (const char* type : types) {
    for (const auto& s : kStores) {
      if (std::string(type) != s.type) continue;
      if (select.empty()) {
        select = std::string(" SELECT *, '") + s.type + "' as orginalLogType, '" + s.display +
                 "' as logtype FROM logs " + filter;
      } else {
        statements.push_back("ATTACH \"" + Db(s.file) + "\" as " + s.type);
        select += std::string(" UNION ALL SELECT *, '") + s.type + "' as orginalLogType, '" +
                  s.display + "' as logtype FROM " + s.type + ".logs " + filter;
      }
    }
  }
  select += OrderBy(search.sort, search.ascending);
  statements.push_back(select + " LIMIT " + std::to_string(search.limit));
  statements.push_back("SELECT count(*) AS count_result FROM (" + select + ") as tempQuery");
  return statements;
}

// A whole list call as the server makes it: parameters read, dispatcher, source, answer object.
void RunList(benchmark::State& state, const Json::Value& params) {
  Root();
  QUOR::APIRequest request(params, "admin", "en");
  for (auto _ : state) {
    QUOR::APIResponse response;
    ListMethod(&request, &response);
    if (!response.IsSuccess() || response.GetData()["total"].asInt() <= 0) {
      state.SkipWithError("the list call failed");
    }
    benchmark::DoNotOptimize(response.GetData());
  }
}

void RunBare(benchmark::State& state, BareSqlite which, const LogSearch& search,
             std::initializer_list<const char*> types, bool like) {
  std::vector<std::string> statements = ListStatements(search, types, like);
  for (auto _ : state) {
    BareSqlResult result = RunBareSql(which, Db(".QUORSYSDB"), 5, statements);
    if (!result.ok) {
      state.SkipWithError("the bare client failed or is missing");
      break;
    }
    state.SetIterationTime(result.msPerRound / 1000.0);
  }
}

Json::Value Params(const char* types, const char* keyword) {
  Json::Value params(Json::objectValue);
  params["logtype"] = types;
  if (keyword[0] != '\0') params["keyword"] = keyword;
  return params;
}

#define LIST_CASE(name, types, keyword, ...)                                           \
  void List##name(benchmark::State& s) { RunList(s, Params(types, keyword)); }         \
  void Bare##name(benchmark::State& s) {                                               \
    RunBare(s, BareSqlite::kProject, ListSearch(types, keyword), {__VA_ARGS__}, true); \
  }                                                                                    \
  void Debian##name(benchmark::State& s) {                                             \
    RunBare(s, BareSqlite::kDebian, ListSearch(types, keyword), {__VA_ARGS__}, true);  \
  }

LIST_CASE(FirstPage, "system", "", "system")
LIST_CASE(Keyword, "system", kSystemKeyword, "system")
LIST_CASE(Merged, "system,connection,netbkplog", "", "system", "connection", "netbkplog")

// Runs argv with its output discarded and waits for it.
bool RunProcess(const std::vector<std::string>& args) {
  std::vector<char*> argv;
  for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  pid_t pid;
  int rc = posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  int status = 0;
  return rc == 0 && waitpid(pid, &status, 0) == pid && WIFEXITED(status) &&
         WEXITSTATUS(status) == 0;
}

// The plain-text source and the dispatcher's sort of what it returns, as a list call does.
void RunPlain(benchmark::State& state, const char* type) {
  Root();
  LogSearch search = ListSearch(type, "");
  search.limit = 50;
  search.keyword = kPlainKeyword;
  size_t found = 0;
  for (auto _ : state) {
    std::vector<Json::Value> records;
    LevelCounts counts;
    LogSearch call = search;
    found = static_cast<size_t>(FetchLogs(&call, &records, &counts));
    if (found == 0) state.SkipWithError("nothing found");
  }
  state.counters["found"] = found;
}

void RunTailGrepSort(benchmark::State& state, const char* file) {
  std::string command =
      "tail -n 15000 '" + Root() + file + "' | grep -i '" + kPlainKeyword + "' | sort";
  std::vector<std::string> args = {"sh", "-c", command};
  for (auto _ : state) {
    if (!RunProcess(args)) state.SkipWithError("the pipeline failed");
  }
}

// A whole list call on a plain-text log.
void RunPlainList(benchmark::State& state, const char* type) {
  Root();
  MakeHoleLog();
  Json::Value params(Json::objectValue);
  params["logtype"] = type;
  QUOR::APIRequest request(params, "admin", "en");
  for (auto _ : state) {
    QUOR::APIResponse response;
    ListMethod(&request, &response);
    if (response.GetData()["total"].asInt() < 14000) state.SkipWithError("not the whole window");
  }
}

void ListPlainSparse2GB(benchmark::State& s) { RunPlainList(s, "bkpserverlog"); }
void ListPlain5MB(benchmark::State& s) { RunPlainList(s, "copylog"); }
void SourcesPlainTail500MB(benchmark::State& s) { RunPlain(s, "bkplog"); }
void SourcesTailGrepSort500MB(benchmark::State& s) {
  RunTailGrepSort(s, "/var/log/quorbackup.log");
}
void SourcesPlainTailSmall(benchmark::State& s) { RunPlain(s, "copylog"); }
void SourcesTailGrepSortSmall(benchmark::State& s) { RunTailGrepSort(s, "/var/log/quorcopy.log"); }

}  // namespace

// The demo root, made once and kept between runs in QUOR_BENCH_ROOT (default under /tmp).
const std::string& SourcesBenchRoot() {
  static const std::string root = [] {
    const char* given = getenv("QUOR_BENCH_ROOT");
    std::string dir = given != nullptr && given[0] != '\0' ? given : "/tmp/quor-bench-sources";
    struct stat st;
    if (stat((dir + kReadyStamp).c_str(), &st) != 0) {
      fprintf(stderr, "Laying out %s (once)...\n", dir.c_str());
      DemoOptions options;
      options.root = dir;
      options.textsDir = QUOR_SOURCE_DIR "/texts";
      options.rows = kSystemRows;
      options.seed = 1;
      options.end = 1735689600;
      std::string error;
      if (!BuildDemoRoot(options, &error) ||
          !WritePlainLog(dir + "/var/log/quorbackup.log", "bkplog", 0, kPlainBytes, 1, options.end,
                         &error) ||
          !WriteTextFile(dir + kReadyStamp, "")) {
        fprintf(stderr, "cannot lay out %s: %s\n", dir.c_str(), error.c_str());
        exit(1);
      }
    }
    setenv("QUOR_ROOT", dir.c_str(), 1);
    return dir;
  }();
  return root;
}

#define LIST_BENCHMARKS(name)                                                           \
  BENCHMARK(List##name)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);    \
  BENCHMARK(Bare##name)->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(3); \
  BENCHMARK(Debian##name)->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(3);

LIST_BENCHMARKS(FirstPage)
LIST_BENCHMARKS(Keyword)
LIST_BENCHMARKS(Merged)
BENCHMARK(ListPlainSparse2GB)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK(ListPlain5MB)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK(SourcesPlainTail500MB)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK(SourcesTailGrepSort500MB)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK(SourcesPlainTailSmall)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK(SourcesTailGrepSortSmall)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
