// Test fixtures for quor-logd.
#include "tests/support/logd_harness.h"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <time.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "platform/root.h"
#include "tests/support/run_process.h"
#include "tests/support/temp_root.h"

JournalDir::JournalDir(std::string path) : path_(std::move(path)) {
  mkdir(path_.c_str(), 0755);
  next_ = static_cast<int64_t>(time(nullptr)) * 1000000;
}

std::string JournalDir::Append(const std::vector<ExportEntry>& entries, const std::string& file) {
  std::string text;
  for (const ExportEntry& e : entries) {
    int64_t usec = e.realtimeUsec != 0 ? e.realtimeUsec : next_++;
    text += "__REALTIME_TIMESTAMP=" + std::to_string(usec) +
            "\n__MONOTONIC_TIMESTAMP=" + std::to_string(usec / 1000) +
            "\n_BOOT_ID=0123456789abcdef0123456789abcdef\n";
    text += "SYSLOG_IDENTIFIER=" + e.identifier +
            "\n_PID=4242\nPRIORITY=" + std::to_string(e.priority) +
            "\n_UID=" + std::to_string(e.uid) + "\n";
    if (e.message.find('\n') == std::string::npos && e.message.find('\0') == std::string::npos) {
      text += "MESSAGE=" + e.message + "\n\n";
    } else {  // binary field: name, newline, 64-bit little-endian length, data
      text += "MESSAGE\n";
      uint64_t size = e.message.size();
      for (int i = 0; i < 8; ++i) text += static_cast<char>((size >> (8 * i)) & 0xff);
      text += e.message + "\n\n";
    }
  }
  ProcessResult result = RunProcess(
      {"/lib/systemd/systemd-journal-remote", "--output=" + path_ + "/" + file, "-"}, text);
  return result.status == 0 ? "" : "journal-remote failed: " + result.err;
}

std::string JournalDir::AppendNumbered(int first, int count, const std::string& file) {
  std::vector<ExportEntry> entries;
  for (int i = first; i < first + count; ++i) {
    ExportEntry e;
    e.message = "entry " + std::to_string(i);
    entries.push_back(e);
  }
  return Append(entries, file);
}

LogdUnderTest::LogdUnderTest(const std::string& journalDir, logd::LogdConfig config,
                             size_t batchRows)
    : journalDir_(journalDir), config_(config) {
  options_.paths[0] = SystemStore();
  options_.paths[1] = ConnectionStore();
  options_.limits[0] = config.system;
  options_.limits[1] = config.connection;
  options_.batchRows = batchRows;
}

LogdUnderTest::~LogdUnderTest() { Stop(); }

bool LogdUnderTest::Start() {
  queue_ = std::make_unique<logd::EntryQueue>(config_.queueEntries, config_.queueBytes);
  writer_ = std::make_unique<logd::Writer>(queue_.get(), options_);
  follower_ = std::make_unique<logd::JournalFollower>(queue_.get(), journalDir_);
  std::string error;
  if (!writer_->Open(&error) ||
      !follower_->Open(writer_->Position(logd::Store::kSystem, logd::kJournalInput),
                       writer_->Position(logd::Store::kConnection, logd::kJournalInput), &error)) {
    ADD_FAILURE() << error;
    return false;
  }
  writer_->Start();
  follower_->Start();
  return true;
}

void LogdUnderTest::Stop() {
  if (follower_) follower_->Stop();
  if (queue_) queue_->Close();
  if (writer_) writer_->Join();
  follower_.reset();
  writer_.reset();
  queue_.reset();
}

TmpfsMount::TmpfsMount(std::string path, int64_t size) : path_(std::move(path)) {
  std::error_code failed;
  std::filesystem::create_directories(path_, failed);
  std::string options = "size=" + std::to_string(size);
  mounted_ = mount("tmpfs", path_.c_str(), "tmpfs", 0, options.c_str()) == 0;
}

TmpfsMount::~TmpfsMount() {
  if (mounted_) umount2(path_.c_str(), MNT_DETACH);
}

bool WaitUntil(const std::function<bool()>& condition, int seconds) {
  auto until = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > until) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return true;
}

int64_t CountRows(const std::string& realPath, const std::string& where) {
  std::vector<std::string> rows =
      QueryRows(realPath, "SELECT count(*) FROM logs" + (where.empty() ? "" : " WHERE " + where));
  return rows.size() == 1 ? std::stoll(rows[0]) : -1;
}

std::string SystemStore() { return QuorResolvePath("/var/log/quorlog/.QUORSYSDB"); }
std::string ConnectionStore() { return QuorResolvePath("/var/log/quorlog/.QUORCONNDB"); }
