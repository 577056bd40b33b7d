// quor-logd's queue and writer on real stores: retention by rows, bytes and age, a full file
// system, the module's clear during writing, and WAL stores read by the platform library.
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <thread>

#include "platform/logdb.h"
#include "tests/support/logd_harness.h"
#include "tests/support/temp_root.h"
#include "tools/lib/log_demo.h"

namespace {

logd::LogEntry Numbered(int64_t i, size_t padding = 0, int64_t time = 0) {
  logd::LogEntry entry;
  entry.time = time != 0 ? time : ::time(nullptr);
  entry.user = "SYSTEM";
  entry.message = "row " + std::to_string(i) + std::string(padding, '.');
  return entry;
}

// A writer on the current root's stores with the given system-store limits.
struct WriterUnderTest {
  explicit WriterUnderTest(logd::StoreLimits limits, size_t queueEntries = 100000)
      : WriterUnderTest(Options(limits), queueEntries) {}
  WriterUnderTest(logd::WriterOptions options, size_t queueEntries)
      : queue(queueEntries, 64 << 20), writer(&queue, std::move(options)) {
    std::string error;
    EXPECT_TRUE(writer.Open(&error)) << error;
    writer.Start();
  }
  ~WriterUnderTest() { Finish(); }
  void Finish() {
    queue.Close();
    writer.Join();
  }
  static logd::WriterOptions Options(logd::StoreLimits limits) {
    logd::WriterOptions options;
    options.paths[0] = SystemStore();
    options.paths[1] = ConnectionStore();
    options.limits[0] = limits;
    return options;
  }
  logd::EntryQueue queue;
  logd::Writer writer;
};

int64_t FileBytes(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0 ? st.st_size : -1;
}

}  // namespace

TEST(LogdWriter, QueueWaitsRefusesAndKeepsGroupsTogether) {
  logd::EntryQueue queue(3, 1 << 20);
  EXPECT_TRUE(queue.TryPush(Numbered(1)));
  logd::LogEntry first = Numbered(2);
  first.positionInput = "journal";  // belongs with the next entry
  EXPECT_TRUE(queue.TryPush(first));
  logd::LogEntry second = Numbered(3);
  second.positionInput = "journal";
  second.position = "c3";
  EXPECT_TRUE(queue.TryPush(second));
  EXPECT_FALSE(queue.TryPush(Numbered(4)));
  EXPECT_EQ(1u, queue.refused());
  std::atomic<bool> pushed{false};
  std::thread waiter([&] { pushed = queue.Push(Numbered(5)); });
  std::vector<logd::LogEntry> batch;
  ASSERT_TRUE(queue.PopBatch(2, std::chrono::milliseconds(0), std::chrono::seconds(1), &batch));
  EXPECT_EQ(3u, batch.size());  // a batch of 2 would have split the group
  waiter.join();
  EXPECT_TRUE(pushed);
  queue.Close();
  EXPECT_FALSE(queue.Push(Numbered(6)));
  ASSERT_TRUE(queue.PopBatch(10, std::chrono::milliseconds(0), std::chrono::seconds(1), &batch));
  EXPECT_EQ(1u, batch.size());
  EXPECT_FALSE(queue.PopBatch(10, std::chrono::milliseconds(0), std::chrono::seconds(1), &batch));
}

// The nice values of this process's threads by thread name.
static std::multimap<std::string, int> NiceByThread() {
  std::multimap<std::string, int> nice;
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    std::string name, stat;
    std::getline(std::ifstream(task.path() / "comm"), name);
    std::getline(std::ifstream(task.path() / "stat"), stat);
    std::istringstream fields(stat.substr(stat.rfind(')') + 2));  // from field 3 on
    std::string field;
    for (int i = 3; i <= 19 && fields >> field; ++i) {
    }
    nice.emplace(name, std::stoi(field));  // field 19
  }
  return nice;
}

// A batch goes in by INSERTs of several sizes: every row lands whole and in order, whatever
// the groups it is cut into (341 = 256 + 64 + 16 + 4 + 1).
TEST(LogdWriter, BatchesOfAnySizeLandWholeAndInOrder) {
  TempRoot root;
  logd::StoreFile store(SystemStore());
  ASSERT_EQ(SQLITE_OK, store.Open()) << store.error();
  std::vector<logd::LogEntry> entries;
  for (int i = 0; i < 341 + 1000 + 7; ++i) {
    logd::LogEntry entry = Numbered(i, 0, 1700000000 + i);
    entry.level = 1 + i % 3;
    entry.user = "u" + std::to_string(i);
    entries.push_back(entry);
  }
  size_t next = 0;
  for (size_t size : {341, 1, 1000, 6}) {
    std::vector<const logd::LogEntry*> rows;
    for (size_t i = 0; i < size; ++i) rows.push_back(&entries[next++]);
    ASSERT_EQ(SQLITE_OK, store.Write(rows, {{"test", std::to_string(next)}})) << store.error();
  }
  std::vector<std::string> got =
      QueryRows(SystemStore(), "SELECT time, level, username, msg FROM logs ORDER BY id");
  ASSERT_EQ(entries.size(), got.size());
  const char* levels[] = {"", "info", "warning", "err"};
  for (size_t i = 0; i < got.size(); ++i) {
    const logd::LogEntry& e = entries[i];
    ASSERT_EQ(std::to_string(e.time) + "|" + levels[e.level] + "|" + e.user + "|" + e.message,
              got[i]);
  }
  EXPECT_EQ(std::to_string(entries.size()), store.Position("test"));
}

// The upkeep threads (a store's search index and checkpoint) run below the writer's priority,
// so that on a busy machine a transaction is not held off the core by them; the writer and the
// rest of the process keep theirs. The index still catches up.
TEST(LogdWriter, UpkeepRunsBelowTheWriter) {
  TempRoot root;
  WriterUnderTest w({0, 0, 0, 0});
  for (int i = 0; i < 2000; ++i) ASSERT_TRUE(w.queue.Push(Numbered(i)));
  ASSERT_TRUE(WaitUntil([] { return CountRows(SystemStore()) == 2000; }));
  w.writer.WaitForIndex();
  EXPECT_EQ(0u, w.writer.stats().indexFailures.load()) << w.writer.LastIndexError();
  std::multimap<std::string, int> nice = NiceByThread();
  EXPECT_EQ(2u, nice.count("logd-index"));  // one per store
  EXPECT_EQ(2u, nice.count("logd-checkpoint"));
  ASSERT_EQ(1u, nice.count("logd-writer"));
  int own = getpriority(PRIO_PROCESS, 0);  // this thread's
  EXPECT_EQ(own, nice.find("logd-writer")->second);
  for (const char* upkeep : {"logd-index", "logd-checkpoint"}) {
    auto [from, to] = nice.equal_range(upkeep);
    for (auto it = from; it != to; ++it) EXPECT_GT(it->second, own) << upkeep;
  }
}

TEST(LogdWriter, RetentionByRowsBytesAndAge) {
  TempRoot root;
  {
    WriterUnderTest w({5000, 0, 0, 0});
    for (int i = 0; i < 30000; ++i) ASSERT_TRUE(w.queue.Push(Numbered(i)));
    ASSERT_TRUE(WaitUntil([] { return CountRows(SystemStore()) == 5000; }));
  }
  EXPECT_EQ(1, CountRows(SystemStore(), "msg = 'row 29999'"));
  EXPECT_EQ(0, CountRows(SystemStore(), "msg = 'row 24999'"));

  {
    WriterUnderTest w({0, 2 << 20, 0, 0});
    for (int i = 0; i < 20000; ++i) ASSERT_TRUE(w.queue.Push(Numbered(i, 500)));
    // Cap plus at most one chunk while it works, and the file gives the space back.
    ASSERT_TRUE(WaitUntil([] { return FileBytes(SystemStore()) < (3 << 20); }));
  }
  EXPECT_LT(CountRows(SystemStore()), 5000);
  EXPECT_EQ(1, CountRows(SystemStore(), "msg LIKE 'row 19999.%'"));

  // A lowered row limit: the pages freed beyond the few MiB kept for new rows go back.
  {
    WriterUnderTest w({0, 0, 0, 0});
    for (int i = 0; i < 20000; ++i) ASSERT_TRUE(w.queue.Push(Numbered(i, 500)));
  }
  ASSERT_GT(FileBytes(SystemStore()), 10 << 20);
  {
    WriterUnderTest w({1000, 0, 0, 0});
    ASSERT_TRUE(w.queue.Push(Numbered(20000)));
    ASSERT_TRUE(WaitUntil([] { return FileBytes(SystemStore()) < (6 << 20); }));
  }

  {
    WriterUnderTest w({0, 0, 2, 0});
    int64_t now = time(nullptr);
    for (int i = 0; i < 100; ++i) ASSERT_TRUE(w.queue.Push(Numbered(i, 0, now - 3 * 86400)));
    for (int i = 100; i < 150; ++i) ASSERT_TRUE(w.queue.Push(Numbered(i, 0, now - 86400)));
    ASSERT_TRUE(WaitUntil([&] {
      return CountRows(SystemStore(), "time < " + std::to_string(now - 2 * 86400)) == 0;
    }));
  }
  EXPECT_EQ(50, CountRows(SystemStore(), "msg LIKE 'row 1__'"));
}

// Twice the room of a 4 MiB file system written into it: each time it is full the oldest rows go,
// a row says so, and every row written since is there. The search index shares the file system
// and must not take the room the store needs.
TEST(LogdWriter, FullFileSystemDeletesOldestAndKeepsLogging) {
  TempRoot root;
  TmpfsMount tmpfs(root.At("/var/log/quorlog"), 4 << 20);
  if (!tmpfs.mounted()) GTEST_SKIP() << "mounting a tmpfs is not permitted here (needs root)";
  WriterUnderTest w({0, 0, 0, 0});
  for (int i = 0; i < 40000; ++i) {
    ASSERT_TRUE(w.queue.Push(Numbered(i, 200)));
    // Rows carry their number: the newest one in the store is never far behind.
    if (i % 10000 == 9999) {
      ASSERT_TRUE(WaitUntil([i] {
        return CountRows(SystemStore(), "msg LIKE 'row " + std::to_string(i) + ".%'") == 1;
      })) << "logging stalled before row "
          << i;
    }
  }
  w.Finish();
  EXPECT_GT(w.writer.stats().rowsFreedForSpace.load(), 0u);
  std::vector<std::string> rows =
      QueryRows(SystemStore(),
                "SELECT count(*), min(CAST(substr(msg, 5) AS INTEGER)), max(CAST(substr(msg, 5) AS "
                "INTEGER)) FROM logs WHERE msg LIKE 'row %'");
  ASSERT_EQ(1u, rows.size());
  // No gap: the rows kept are the newest ones, each once.
  int64_t count = 0, first = 0, last = 0;
  ASSERT_EQ(3, sscanf(rows[0].c_str(), "%ld|%ld|%ld", &count, &first, &last));
  EXPECT_EQ(39999, last);
  EXPECT_EQ(last - first + 1, count);
  EXPECT_GT(count, 1000);
  EXPECT_GE(CountRows(SystemStore(),
                      "msg LIKE 'quor-logd[%]: The file system is full: removed "
                      "the % oldest rows of the system log to make room.'"),
            2);
}

// A reader that stays in the write-ahead log: the writer goes on past the first stall, waits
// for the reader at the limit, and the log starts over once the reader has left; idle, its
// file is cut back.
TEST(LogdWriter, LogGrowsWhileAReaderStaysAndStartsOverAfter) {
  TempRoot root;
  logd::WriterOptions options = WriterUnderTest::Options({0, 0, 0, 0});
  options.batchRows = 100;
  options.walStallPages = 50;
  options.walLimitPages = 200;
  options.walWait = std::chrono::milliseconds(20);
  options.index = false;
  WriterUnderTest w(options, 100000);
  ASSERT_TRUE(w.queue.Push(Numbered(0)));
  ASSERT_TRUE(WaitUntil([] { return CountRows(SystemStore()) == 1; }));
  sqlite3* reader = nullptr;
  ASSERT_EQ(SQLITE_OK,
            sqlite3_open_v2(SystemStore().c_str(), &reader, SQLITE_OPEN_READONLY, nullptr));
  ASSERT_EQ(SQLITE_OK,
            sqlite3_exec(reader, "BEGIN; SELECT count(*) FROM logs", nullptr, nullptr, nullptr));
  for (int i = 1; i < 4000; ++i) ASSERT_TRUE(w.queue.Push(Numbered(i, 500)));
  ASSERT_TRUE(WaitUntil([&] { return w.writer.stats().mostWalPages >= 200; }));
  EXPECT_LT(CountRows(SystemStore()), 4000);  // held at the limit while the reader stays
  sqlite3_close_v2(reader);                   // ends its read
  ASSERT_TRUE(WaitUntil([] { return CountRows(SystemStore()) == 4000; }));
  EXPECT_GT(w.writer.stats().walRestarts.load(), 0u);
  EXPECT_LT(w.writer.stats().mostWalPages.load(), 200 + 50);  // the limit and one batch
  // Idle, the log file is cut back to nothing (commits never cut it).
  EXPECT_TRUE(WaitUntil([] { return FileBytes(SystemStore() + "-wal") == 0; }));
}

TEST(LogdWriter, ClearDuringWritingLosesNothingThatCameAfter) {
  TempRoot root;
  WriterUnderTest w({0, 0, 0, 0});
  std::atomic<int64_t> pushed{0};
  std::atomic<bool> stop{false};
  std::thread producer([&] {
    for (int64_t i = 0; !stop; ++i) {
      w.queue.Push(Numbered(i));
      pushed = i + 1;
      if (i % 100 == 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  });
  ASSERT_TRUE(WaitUntil([] { return CountRows(SystemStore()) > 3000; }));
  QuorDbHandle db(QUORDBConnect(nullptr, nullptr, nullptr, "/var/log/quorlog/.QUORSYSDB"));
  ASSERT_TRUE(db);
  ASSERT_EQ(0, QUORDBExecute(db.get(), "DELETE FROM logs", nullptr));
  int64_t afterClear = pushed;
  db.reset();
  ASSERT_TRUE(WaitUntil([&] { return pushed > afterClear + 5000; }));
  stop = true;
  producer.join();
  w.Finish();
  int64_t last = pushed;
  // Every row pushed after the clear returned is there, exactly once.
  EXPECT_EQ(last - afterClear, CountRows(SystemStore(), "CAST(substr(msg, 5) AS INTEGER) >= " +
                                                            std::to_string(afterClear)));
  EXPECT_LE(CountRows(SystemStore()), last);
}

TEST(LogdWriter, WalStoresReadFromAReadOnlyRoot) {
  TempRoot root;
  std::string error;
  ASSERT_TRUE(WriteSystemLog(SystemStore(), "system", 500, 1, time(nullptr), &error)) << error;
  {
    WriterUnderTest w({0, 0, 0, 0});
    ASSERT_TRUE(w.queue.Push(Numbered(1)));
  }
  EXPECT_EQ("wal", QueryRows(SystemStore(), "PRAGMA journal_mode")[0]);
  std::string readOnly = root.At("/ro");
  mkdir(readOnly.c_str(), 0755);
  struct Unmount {
    std::string path;
    ~Unmount() { umount2(path.c_str(), MNT_DETACH); }
  } unmount{readOnly};
  if (mount(root.path().c_str(), readOnly.c_str(), nullptr, MS_BIND, nullptr) != 0 ||
      mount(nullptr, readOnly.c_str(), nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr) != 0) {
    GTEST_SKIP() << "cannot make a read-only bind mount here";
  }
  setenv("QUOR_ROOT", readOnly.c_str(), 1);
  {
    QuorDbHandle db(QUORDBConnect(nullptr, nullptr, nullptr, "/var/log/quorlog/.QUORSYSDB"));
    ASSERT_TRUE(db);
    PQUORDBRESULT raw = nullptr;
    EXPECT_EQ(0, QUORDBExecute(db.get(), "SELECT count(*) AS n FROM logs", &raw))
        << QUORDBErrorGet(db.get());
    QuorDbRows rows(raw);
    QUORDBROW row = 0;
    ASSERT_EQ(0, QUORDBFetchRow(rows.get(), &row));
    EXPECT_STREQ("501", QUORDBFetchField(rows.get(), row, "n"));
  }
  setenv("QUOR_ROOT", root.path().c_str(), 1);
}
