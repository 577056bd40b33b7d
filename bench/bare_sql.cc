// The references of the benchmarks: the bare SQLite client in a process of its own.
#include "bench/bare_sql.h"

#include <fcntl.h>
#include <spawn.h>
#include <stdio.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

BareSqlResult RunBareSql(BareSqlite which, const std::string& db, int rounds,
                         const std::vector<std::string>& statements, bool csv) {
  BareSqlResult result;
  std::string program = std::string(QUOR_BUILD_DIR "/bin/") +
                        (which == BareSqlite::kProject ? "sql_timer" : "sql_timer_debian");
  if (access(program.c_str(), X_OK) != 0) return result;
  std::vector<std::string> args = {program};
  if (csv) args.push_back("--csv");
  args.push_back(db);
  args.push_back(std::to_string(rounds));
  args.insert(args.end(), statements.begin(), statements.end());
  std::vector<char*> argv;
  for (std::string& a : args) argv.push_back(&a[0]);
  argv.push_back(nullptr);

  int report[2];
  if (pipe(report) != 0) return result;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, report[1], 2);
  posix_spawn_file_actions_addclose(&actions, report[0]);
  pid_t pid = -1;
  int rc = posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(report[1]);
  std::string text;
  char buffer[512];
  ssize_t n;
  while (rc == 0 && (n = read(report[0], buffer, sizeof buffer)) > 0) text.append(buffer, n);
  close(report[0]);
  int status = 0;
  if (rc != 0 || waitpid(pid, &status, 0) != pid || !WIFEXITED(status) ||
      WEXITSTATUS(status) != 0) {
    fprintf(stderr, "%s failed: %s\n", program.c_str(), text.c_str());
    return result;
  }
  result.ok = sscanf(text.c_str(), "ms_per_round=%lf rows_per_round=%ld", &result.msPerRound,
                     &result.rowsPerRound) == 2;
  return result;
}
