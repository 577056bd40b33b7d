// The log sources on a demo appliance root with a 1,000,000-row system log and a plain-text
// backup log of at least 500 MB, each beside a reference run in the same process tree: the
// sqlite3 shell on the same SQL, and "tail -n 15000 FILE | grep -i KEYWORD | sort".
// Times are in milliseconds; scripts/bench.sh runs each benchmark in its own process.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>
#include <string>
#include <vector>

#include "api/methods.h"
#include "platform/logdb.h"
#include "sources/log_sources.h"
#include "sources/sql_query.h"
#include "tools/lib/log_demo.h"
#include "tools/lib/root_layout.h"

extern char** environ;

namespace {

const int64_t kSystemRows = 1000000;
const int64_t kPlainBytes = 500LL << 20;
const int64_t kDeepOffset = 500000;
const char kSystemKeyword[] = "timed out";
const char kPlainKeyword[] = "failed";
const char kReadyStamp[] = "/.sources-bench-ready-v1";

// The demo root, made once and kept between runs in QUOR_BENCH_ROOT (default under /tmp).
const std::string& Root() {
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

std::string Db(const char* file) { return Root() + "/var/log/quorlog/" + file; }

LogSearch Search(const char* types) {
  LogSearch search;
  search.logtype = types;
  search.sort = "time";
  search.limit = 50;
  search.date_from = search.date_to = "0";
  return search;
}

void RunSystem(benchmark::State& state, const LogSearch& search,
               std::initializer_list<const char*> types) {
  Root();
  PSLIBSZLIST list = SLIBCSzListAlloc(8);
  for (const char* type : types) SLIBCSzListPush(&list, type);
  int total = 0;
  for (auto _ : state) {
    std::vector<Json::Value> records;
    LevelCounts counts;
    total = FetchSystemLogs(search, list, &records, &counts);
    if (total < 0 || records.empty()) state.SkipWithError("the source failed");
    benchmark::DoNotOptimize(records.data());
  }
  SLIBCSzListFree(list);
  state.counters["total"] = total;
}

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

// The statements the system source runs for search over the databases of types (paged select,
// then count), for the sqlite3 shell. The keyword condition is given as LIKE, which the shell
// knows and which means the same for an ASCII keyword.
std::string ShellSql(const LogSearch& search, std::initializer_list<const char*> types) {
  static const struct {
    const char* type;
    const char* file;
    const char* display;
  } kStores[] = {{"system", ".QUORSYSDB", "System"},
                 {"connection", ".QUORCONNDB", "Connection"},
                 {"netbkplog", ".QUORNETBKPDB", "Network Backup"}};
  std::string filter = BuildFilterClause(search, "msg");
  if (!search.keyword.empty()) {
    std::string pattern = GenSQLRegexp(search.keyword, "msg");
    filter.replace(filter.find(pattern), pattern.size(),
                   "(msg LIKE '%" + EscapeSqlString(search.keyword) + "%')");
  }
  std::string attach, select;
  for (const char* type : types) {
    for (const auto& s : kStores) {
      if (std::string(type) != s.type) continue;
      if (select.empty()) {
        select = std::string(" SELECT *, '") + s.type + "' as orginalLogType, '" + s.display +
                 "' as logtype FROM logs " + filter;
      } else {
        attach += "ATTACH \"" + Db(s.file) + "\" as " + s.type + ";";
        select += std::string(" UNION ALL SELECT *, '") + s.type + "' as orginalLogType, '" +
                  s.display + "' as logtype FROM " + s.type + ".logs " + filter;
      }
    }
  }
  select += OrderBy(search.sort, search.ascending);
  return attach + select + " LIMIT " + std::to_string(search.limit) + " OFFSET " +
         std::to_string(search.offset) + "; SELECT count(*) AS count_result FROM (" + select +
         ") as tempQuery;";
}

void RunShell(benchmark::State& state, const LogSearch& search,
              std::initializer_list<const char*> types) {
  std::vector<std::string> args = {"sqlite3", Db(".QUORSYSDB"), ShellSql(search, types)};
  for (auto _ : state) {
    if (!RunProcess(args)) state.SkipWithError("sqlite3 failed");
  }
}

LogSearch DeepPage() {
  LogSearch search = Search("system");
  search.offset = kDeepOffset;
  return search;
}

LogSearch Keyword() {
  LogSearch search = Search("system");
  search.keyword = kSystemKeyword;
  return search;
}

void SourcesSystemFirstPage(benchmark::State& s) { RunSystem(s, Search("system"), {"system"}); }
void SourcesSqlite3FirstPage(benchmark::State& s) { RunShell(s, Search("system"), {"system"}); }
void SourcesSystemDeepPage(benchmark::State& s) { RunSystem(s, DeepPage(), {"system"}); }
void SourcesSqlite3DeepPage(benchmark::State& s) { RunShell(s, DeepPage(), {"system"}); }
void SourcesSystemKeyword(benchmark::State& s) { RunSystem(s, Keyword(), {"system"}); }
void SourcesSqlite3Keyword(benchmark::State& s) { RunShell(s, Keyword(), {"system"}); }
void SourcesSystemMerged(benchmark::State& s) {
  RunSystem(s, Search("system,connection,netbkplog"), {"system", "connection", "netbkplog"});
}
void SourcesSqlite3Merged(benchmark::State& s) {
  RunShell(s, Search("system,connection,netbkplog"), {"system", "connection", "netbkplog"});
}

// A whole list call as the server makes it: parameters read, dispatcher, source, answer object.
void RunList(benchmark::State& state, const char* paramsJson) {
  Root();
  QUOR::APIRequest request(QUOR::WebAPIUtil::ParseJson(paramsJson), "admin", "en");
  for (auto _ : state) {
    QUOR::APIResponse response;
    ListMethod(&request, &response);
    if (!response.IsSuccess() || response.GetData()["total"].asInt() <= 0) {
      state.SkipWithError("the list call failed");
    }
    benchmark::DoNotOptimize(response.GetData());
  }
}

// The list method's default page: 100 records of every level.
LogSearch ListPage(LogSearch search) {
  search.limit = 100;
  return search;
}

void SourcesListFirstPage(benchmark::State& s) { RunList(s, "{}"); }
void SourcesSqlite3ListPage(benchmark::State& s) {
  RunShell(s, ListPage(Search("system")), {"system"});
}
void SourcesListKeyword(benchmark::State& s) {
  RunList(s, (std::string(R"({"keyword":")") + kSystemKeyword + "\"}").c_str());
}
void SourcesSqlite3ListKeyword(benchmark::State& s) {
  RunShell(s, ListPage(Keyword()), {"system"});
}

// The plain-text source and the dispatcher's sort of what it returns, as a list call does.
void RunPlain(benchmark::State& state, const char* type) {
  Root();
  LogSearch search = Search(type);
  search.keyword = kPlainKeyword;
  size_t found = 0;
  for (auto _ : state) {
    std::vector<Json::Value> records;
    FetchPlainLogs(search, &records);
    std::sort(records.begin(), records.end(), LogCompare(search.sort, search.ascending));
    found = records.size();
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

void SourcesPlainTail500MB(benchmark::State& s) { RunPlain(s, "bkplog"); }
void SourcesTailGrepSort500MB(benchmark::State& s) {
  RunTailGrepSort(s, "/var/log/quorbackup.log");
}
void SourcesPlainTailSmall(benchmark::State& s) { RunPlain(s, "copylog"); }
void SourcesTailGrepSortSmall(benchmark::State& s) { RunTailGrepSort(s, "/var/log/quorcopy.log"); }

}  // namespace

BENCHMARK(SourcesSystemFirstPage)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK(SourcesSqlite3FirstPage)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK(SourcesSystemDeepPage)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK(SourcesSqlite3DeepPage)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK(SourcesSystemKeyword)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK(SourcesSqlite3Keyword)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK(SourcesSystemMerged)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK(SourcesSqlite3Merged)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK(SourcesListFirstPage)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK(SourcesSqlite3ListPage)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK(SourcesListKeyword)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK(SourcesSqlite3ListKeyword)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK(SourcesPlainTail500MB)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK(SourcesTailGrepSort500MB)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK(SourcesPlainTailSmall)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK(SourcesTailGrepSortSmall)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
