// quor-logd's journal follower on journal files made by systemd-journal-remote: the rows it
// writes, following, rotation, vacuumed files, restarts and kill -9, exactly once.
#include <gtest/gtest.h>
#include <pwd.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <set>

#include "index/search_index.h"
#include "platform/logdb.h"
#include "tests/support/logd_harness.h"
#include "tests/support/run_process.h"
#include "tests/support/temp_root.h"

extern char** environ;

namespace {

// Every row "app[4242]: entry N" of the system store is there once: returns the number of
// distinct entries and fails the test on a repeated one.
int64_t DistinctEntries() {
  std::vector<std::string> rows = QueryRows(
      SystemStore(), "SELECT count(*), count(DISTINCT msg) FROM logs WHERE msg LIKE 'app[%'");
  EXPECT_EQ(1u, rows.size());
  if (rows.size() != 1) return -1;
  size_t bar = rows[0].find('|');
  EXPECT_EQ(rows[0].substr(0, bar), rows[0].substr(bar + 1)) << "an entry was written twice";
  return std::stoll(rows[0].substr(bar + 1));
}

// The cursors of the journal's entries, oldest first.
std::vector<std::string> Cursors(const std::string& dir) {
  ProcessResult result = RunProcess({"/usr/bin/journalctl", "-D", dir, "-o", "export"});
  std::vector<std::string> cursors;
  size_t at = 0;
  while ((at = result.out.find("__CURSOR=", at)) != std::string::npos) {
    size_t end = result.out.find('\n', at);
    cursors.push_back(result.out.substr(at + 9, end - at - 9));
    at = end;
  }
  return cursors;
}

void SetPosition(const std::string& store, const std::string& cursor) {
  MakeDatabase(store, "UPDATE logd_position SET position = '" + cursor + "'");
}

}  // namespace

TEST(LogdJournal, MapsEntriesToSystemAndConnectionRows) {
  TempRoot root;
  JournalDir journal(root.At("/journal"));
  std::string binary("raw\0\xff bytes", 11);
  std::string longText(70000, 'x');
  struct passwd* account = getpwuid(1000);
  std::string user1000 = account != nullptr ? account->pw_name : "1000";
  ASSERT_EQ("", journal.Append({
                    {"Accepted password for alice from 192.168.1.23 port 52211 ssh2", "sshd"},
                    {"Failed password for invalid user bob from 10.0.0.8 port 22 ssh2", "sshd", 5},
                    {"Connection closed by 10.0.0.8 port 22 [preauth]", "sshd"},
                    {"Disconnected from user alice 192.168.1.23 port 52211", "sshd"},
                    {"backup finished", "cron", 4, 1000},
                    {"disk failed", "kernel", 2},
                    {binary, "app"},
                    {longText, "app", 7},
                }));
  LogdUnderTest logd(journal.path());
  ASSERT_TRUE(logd.Start());
  ASSERT_TRUE(WaitUntil([] { return CountRows(SystemStore()) == 8; }));
  ASSERT_TRUE(WaitUntil([] { return CountRows(ConnectionStore()) == 3; }));
  logd.Stop();

  std::vector<std::string> system =
      QueryRows(SystemStore(), "SELECT level, username, substr(msg, 1, 80), length(msg) FROM logs");
  ASSERT_EQ(8u, system.size());
  EXPECT_EQ(
      "info|SYSTEM|sshd[4242]: Accepted password for alice from 192.168.1.23 port 52211 "
      "ssh2|73",
      system[0]);
  EXPECT_EQ("warning|" + user1000 + "|cron[4242]: backup finished|27", system[4]);
  EXPECT_EQ("err|SYSTEM|kernel[4242]: disk failed|25", system[5]);
  EXPECT_EQ("info|SYSTEM|app[4242]: [binary] raw\\x00\\xFF bytes|37", system[6]);
  EXPECT_EQ("info|SYSTEM|app[4242]: " + std::string(69, 'x') + "|65547", system[7]);
  EXPECT_EQ(1, CountRows(SystemStore(), "msg LIKE '% [cut]'"));
  // Bytes that can never start a character are escaped too, not passed on.
  EXPECT_EQ("[binary] \\xFD\\xBE\\xAF", logd::MessageText("\xfd\xbe\xaf", false));

  std::vector<std::string> connection =
      QueryRows(ConnectionStore(), "SELECT level, username, msg FROM logs");
  ASSERT_EQ(3u, connection.size());
  EXPECT_EQ("info|alice|User [alice] signed in from [192.168.1.23] via [SSH].", connection[0]);
  EXPECT_EQ("warning|bob|User [bob] failed to sign in from [10.0.0.8] via [SSH]: wrong password.",
            connection[1]);
  EXPECT_EQ("info|alice|User [alice] signed out.", connection[2]);
  // Time is the entry's realtime in seconds.
  EXPECT_EQ(1, CountRows(SystemStore(), "abs(time - strftime('%s','now')) < 600 AND id = 1"));
}

TEST(LogdJournal, FollowsRotationAndVacuumAndRestartsExactlyOnce) {
  TempRoot root;
  // A small file system makes journal-remote rotate its file every few thousand entries.
  TmpfsMount tmpfs(root.At("/journal"), 16 << 20);
  if (!tmpfs.mounted()) GTEST_SKIP() << "cannot mount a tmpfs here";
  JournalDir journal(root.At("/journal"));
  ASSERT_EQ("", journal.AppendNumbered(0, 100));
  {
    LogdUnderTest logd(journal.path());
    ASSERT_TRUE(logd.Start());
    ASSERT_TRUE(WaitUntil([] { return CountRows(SystemStore()) == 100; }));
    // Appended while following, across several rotations.
    ASSERT_EQ("", journal.AppendNumbered(100, 9000));
    ASSERT_TRUE(WaitUntil([] { return CountRows(SystemStore()) == 9100; }));
    EXPECT_GT(logd.follower().counters().invalidated.load(), 0u);
  }
  EXPECT_EQ(9100, DistinctEntries());
  size_t filesBefore = 0;
  for (auto& f : std::filesystem::directory_iterator(journal.path()))
    filesBefore += f.is_regular_file();
  EXPECT_GT(filesBefore, 2u);

  // While the daemon is down, more entries arrive and journald-style vacuuming deletes a whole
  // archived file of them before they are read.
  ASSERT_EQ("", journal.AppendNumbered(9100, 9000));
  std::string newest;
  for (auto& f : std::filesystem::directory_iterator(journal.path())) {
    std::string name = f.path().filename().string();
    if (name.find('@') != std::string::npos && name > newest) newest = name;
  }
  std::vector<std::string> before = Cursors(journal.path());
  ASSERT_TRUE(std::filesystem::remove(journal.path() + "/" + newest));
  int64_t lost = static_cast<int64_t>(before.size() - Cursors(journal.path()).size());
  ASSERT_GT(lost, 0);
  {
    LogdUnderTest logd(journal.path());
    ASSERT_TRUE(logd.Start());
    ASSERT_TRUE(WaitUntil([&] { return DistinctEntries() == 18100 - lost; }));
    EXPECT_EQ(static_cast<uint64_t>(lost), logd.follower().counters().lost.load());
  }
  EXPECT_EQ(1, CountRows(SystemStore(), "msg LIKE 'quor-logd[%]: " + std::to_string(lost) +
                                            " journal entries between % and % were deleted from "
                                            "the journal before they were read.'"));
}

TEST(LogdJournal, StoreBehindCatchesUpAlone) {
  TempRoot root;
  JournalDir journal(root.At("/journal"));
  std::vector<ExportEntry> entries(10);
  for (int i = 0; i < 10; ++i) entries[i].message = "entry " + std::to_string(i);
  entries[3] = {"Accepted publickey for carol from 10.0.0.3 port 1 ssh2", "sshd"};
  entries[7] = {"Accepted publickey for dave from 10.0.0.7 port 1 ssh2", "sshd"};
  ASSERT_EQ("", journal.Append(entries));
  {
    LogdUnderTest logd(journal.path());
    ASSERT_TRUE(logd.Start());
    ASSERT_TRUE(WaitUntil([] { return CountRows(ConnectionStore()) == 2; }));
  }
  // As after a crash between the two stores' commits: the connection store is at entry 5.
  MakeDatabase(ConnectionStore(), "DELETE FROM logs WHERE msg LIKE '%dave%'");
  SetPosition(ConnectionStore(), Cursors(journal.path())[5]);
  {
    LogdUnderTest logd(journal.path());
    ASSERT_TRUE(logd.Start());
    ASSERT_TRUE(WaitUntil([] { return CountRows(ConnectionStore()) == 2; }));
    ASSERT_EQ("", journal.AppendNumbered(10, 1));
    ASSERT_TRUE(WaitUntil([] { return CountRows(SystemStore()) == 11; }));
  }
  EXPECT_EQ(1, CountRows(ConnectionStore(), "msg LIKE 'User [dave] signed in%'"));
  EXPECT_EQ(11, CountRows(SystemStore()));
  EXPECT_EQ(QueryRows(SystemStore(), "SELECT position FROM logd_position"),
            QueryRows(ConnectionStore(), "SELECT position FROM logd_position"));
}

TEST(LogdJournal, StoreClearedOrReplacedWhileRunningKeepsWhatCameAfter) {
  TempRoot root;
  JournalDir journal(root.At("/journal"));
  ASSERT_EQ("", journal.AppendNumbered(0, 100));
  LogdUnderTest logd(journal.path());
  ASSERT_TRUE(logd.Start());
  ASSERT_TRUE(WaitUntil([] { return CountRows(SystemStore()) == 100; }));

  // The module's clear, through the platform library.
  QuorDbHandle db(QUORDBConnect(nullptr, nullptr, nullptr, "/var/log/quorlog/.QUORSYSDB"));
  ASSERT_TRUE(db);
  ASSERT_EQ(0, QUORDBExecute(db.get(), "DELETE FROM logs", nullptr));
  db.reset();
  ASSERT_EQ("", journal.AppendNumbered(100, 50));
  ASSERT_TRUE(WaitUntil([] { return CountRows(SystemStore()) == 50; }));

  // Replaced by another file, then deleted outright.
  std::string fresh = root.At("/fresh.db");
  MakeDatabase(fresh,
               "CREATE TABLE logs (id INTEGER PRIMARY KEY AUTOINCREMENT, time INTEGER, "
               "level TEXT, username TEXT, msg TEXT)");
  // A store in write-ahead-log mode is replaced together with its -wal and -shm files.
  std::filesystem::rename(fresh, SystemStore());
  std::filesystem::remove(SystemStore() + "-wal");
  std::filesystem::remove(SystemStore() + "-shm");
  ASSERT_EQ("", journal.AppendNumbered(150, 30));
  ASSERT_TRUE(WaitUntil([] { return CountRows(SystemStore()) == 30; }));
  std::filesystem::remove(SystemStore());
  ASSERT_EQ("", journal.AppendNumbered(180, 20));
  ASSERT_TRUE(WaitUntil([] { return CountRows(SystemStore()) == 20; }));
  logd.Stop();
  EXPECT_EQ(1, CountRows(SystemStore(), "msg = 'app[4242]: entry 180'"));
  EXPECT_EQ(1u, QueryRows(SystemStore(), "SELECT position FROM logd_position").size());
}

TEST(LogdJournal, KillNineBetweenBatchesNeitherLosesNorRepeats) {
  TempRoot root;
  JournalDir journal(root.At("/journal"));
  ASSERT_EQ("", journal.AppendNumbered(0, 60000));
  std::string daemon = QUOR_BUILD_DIR "/bin/quor-logd";
  std::vector<std::string> args = {daemon, "--root", root.path(), "--journal-dir", journal.path()};
  std::vector<char*> argv;
  for (std::string& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  for (int round = 0; round < 3; ++round) {
    pid_t pid = 0;
    ASSERT_EQ(0, posix_spawn(&pid, daemon.c_str(), nullptr, nullptr, argv.data(), environ));
    int64_t at = CountRows(SystemStore());
    WaitUntil([&] { return CountRows(SystemStore()) > at + 2000 || at >= 60000; });
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
  }
  LogdUnderTest logd(journal.path());
  ASSERT_TRUE(logd.Start());
  ASSERT_TRUE(WaitUntil([] { return CountRows(SystemStore()) >= 60000; }));
  logd.Stop();
  EXPECT_EQ(60000, DistinctEntries());
  EXPECT_EQ(60000, CountRows(SystemStore()));
}

TEST(LogdJournal, KeepsTheSearchIndexCurrent) {
  TempRoot root;
  JournalDir journal(root.At("/journal"));
  ASSERT_EQ("", journal.AppendNumbered(0, 5000));
  logd::LogdConfig config;
  config.system = {3000, 0, 0, 0};  // retention removes the first 2,000 again
  LogdUnderTest logd(journal.path(), config, 500);
  ASSERT_TRUE(logd.Start());
  ASSERT_TRUE(WaitUntil([] { return CountRows(SystemStore(), "msg = 'app[4242]: entry 4999'"); }));
  ASSERT_TRUE(WaitUntil([] { return CountRows(SystemStore()) == 3000; }));
  // More rows while following: the index follows too.
  ASSERT_EQ("", journal.AppendNumbered(5000, 10));
  ASSERT_EQ("", journal.Append({{"a quokka was seen"}}));
  ASSERT_TRUE(WaitUntil([] { return CountRows(SystemStore(), "msg LIKE '%quokka%'") == 1; }));
  logd.writer().WaitForIndex();

  // The index answers for every row of the store: its mark is the newest row, it spans exactly
  // the rows left after retention, and its text table finds a row that came last.
  std::unique_ptr<IndexReader> index = IndexReader::Open(SystemStore(), 0);
  ASSERT_TRUE(index);
  EXPECT_EQ(QueryRows(SystemStore(), "SELECT max(id) FROM logs")[0], std::to_string(index->mark()));
  EXPECT_EQ(CountRows(SystemStore()), index->span());
  int64_t fewest = 0;
  EXPECT_NE("", index->NarrowQuery({"quokka"}, 2, &fewest));
  EXPECT_EQ(1, fewest);
  EXPECT_EQ(0u, logd.writer().stats().indexFailures.load());
  index.reset();
  logd.Stop();

  // An index lost while the daemon was down is made again on start, with nothing new to write.
  for (const char* suffix : {"", "-wal", "-shm"}) {
    std::filesystem::remove(IndexPathOf(SystemStore()) + suffix);
  }
  LogdUnderTest again(journal.path(), config, 500);
  ASSERT_TRUE(again.Start());
  std::string newest = QueryRows(SystemStore(), "SELECT max(id) FROM logs")[0];
  EXPECT_TRUE(WaitUntil([&] {
    std::vector<std::string> mark = QueryRows(IndexPathOf(SystemStore()), "SELECT mark FROM state");
    return mark.size() == 1 && mark[0] == newest;
  }));
}
