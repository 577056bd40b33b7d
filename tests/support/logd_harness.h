// Test fixtures for quor-logd: journal files made by systemd-journal-remote, the daemon's
// parts run in-process, small tmpfs mounts, and waiting for rows.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "logd/config.h"
#include "logd/entry_queue.h"
#include "logd/journal_follower.h"
#include "logd/writer.h"

// One journal entry in the journal's export format.
struct ExportEntry {
  std::string message;
  std::string identifier = "app";
  int priority = 6;
  int64_t uid = 0;
  int64_t realtimeUsec = 0;  // 0: now plus the entry's index in microseconds
};

// A folder of journal files written by systemd-journal-remote from export-format input.
class JournalDir {
 public:
  explicit JournalDir(std::string path);
  const std::string& path() const { return path_; }
  // Appends entries to file (created when missing; journal-remote rotates it when full).
  // Returns journal-remote's error text, "" on success.
  std::string Append(const std::vector<ExportEntry>& entries,
                     const std::string& file = "a.journal");
  // Appends count entries "entry <first>" .. "entry <first+count-1>".
  std::string AppendNumbered(int first, int count, const std::string& file = "a.journal");

 private:
  std::string path_;
  int64_t next_ = 0;
};

// The daemon's parts (queue, writer, journal follower) on the current root's stores.
class LogdUnderTest {
 public:
  explicit LogdUnderTest(const std::string& journalDir, logd::LogdConfig config = {},
                         size_t batchRows = 1000);
  ~LogdUnderTest();
  // Opens the stores and the journal and starts both threads; false with a test failure.
  bool Start();
  void Stop();
  logd::EntryQueue& queue() { return *queue_; }
  logd::Writer& writer() { return *writer_; }
  logd::JournalFollower& follower() { return *follower_; }

 private:
  std::string journalDir_;
  logd::WriterOptions options_;
  logd::LogdConfig config_;
  std::unique_ptr<logd::EntryQueue> queue_;
  std::unique_ptr<logd::Writer> writer_;
  std::unique_ptr<logd::JournalFollower> follower_;
};

// A tmpfs of size bytes mounted at path while it lives (mounted() false where mounting is not
// allowed: tests then skip).
class TmpfsMount {
 public:
  TmpfsMount(std::string path, int64_t size);
  ~TmpfsMount();
  bool mounted() const { return mounted_; }

 private:
  std::string path_;
  bool mounted_ = false;
};

// Polls condition every 20 ms for up to seconds; true once it holds.
bool WaitUntil(const std::function<bool()>& condition, int seconds = 20);

// count(*) of "logs" in the store at the real path with an optional condition; -1 on failure.
int64_t CountRows(const std::string& realPath, const std::string& where = "");

// The stores' real paths under the current root.
std::string SystemStore();
std::string ConnectionStore();
