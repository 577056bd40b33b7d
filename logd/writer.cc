// The writer thread: the one owner of the stores, fed by the queue.
#include "logd/writer.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <utility>

#include "platform/systemlog.h"

namespace logd {

namespace {

const char* const kStoreNames[kStoreCount] = {"system", "connection"};
// Room kept on the stores' file system for deleting rows when it is full.
constexpr off_t kReserveBytes = 1 << 20;

bool IsSpaceError(int rc) { return (rc & 0xff) == SQLITE_FULL || (rc & 0xff) == SQLITE_IOERR; }

int64_t FreeBytes(const std::string& path) {
  struct statvfs fs;
  std::string dir = std::filesystem::path(path).parent_path().string();
  if (statvfs(dir.c_str(), &fs) != 0) return -1;
  return static_cast<int64_t>(fs.f_bavail) * static_cast<int64_t>(fs.f_frsize);
}

}  // namespace

LogEntry OwnEntry(int level, const std::string& text) {
  LogEntry entry;
  entry.store = Store::kSystem;
  entry.time = time(nullptr);
  entry.level = level;
  entry.user = kSystemUser;
  entry.message = "quor-logd[" + std::to_string(getpid()) + "]: " + text;
  return entry;
}

Writer::Writer(EntryQueue* queue, WriterOptions options)
    : queue_(queue), options_(std::move(options)) {
  for (int s = 0; s < kStoreCount; ++s) {
    stores_[s] = std::make_unique<StoreFile>(options_.paths[s]);
  }
}

Writer::~Writer() {
  queue_->Close();
  Join();
}

bool Writer::Open(std::string* error) {
  for (auto& store : stores_) {
    if (store->Open() != SQLITE_OK) {
      *error = store->error();
      return false;
    }
  }
  LayReserve();
  return true;
}

std::string Writer::ReservePath() const {
  return std::filesystem::path(options_.paths[0]).parent_path().string() + "/.quor-logd.reserve";
}

void Writer::LayReserve() {
  std::string path = ReservePath();
  int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  if (fd < 0) return;
  if (posix_fallocate(fd, 0, kReserveBytes) != 0) unlink(path.c_str());
  close(fd);
}

std::string Writer::Position(Store store, const std::string& input) {
  return stores_[static_cast<int>(store)]->Position(input);
}

void Writer::Start() {
  thread_ = std::thread([this] { Run(); });
}

void Writer::Join() {
  if (thread_.joinable()) thread_.join();
}

template <typename Call>
int Writer::Timed(Call call) {
  auto start = std::chrono::steady_clock::now();
  int rc = call();
  int64_t us = std::chrono::duration_cast<std::chrono::microseconds>(
                   std::chrono::steady_clock::now() - start)
                   .count();
  if (us > stats_.longestTransactionUs.load()) stats_.longestTransactionUs = us;
  return rc;
}

void Writer::Note(int level, const std::string& text) {
  SLIBCSysLog(level >= 3   ? LOG_ERR
              : level == 2 ? LOG_WARNING
                           : LOG_INFO,
              "quor-logd: %s", text.c_str());
  notes_.push_back(OwnEntry(level, text));
}

void Writer::Run() {
  std::vector<LogEntry> batch;
  while (queue_->PopBatch(options_.batchRows, options_.linger, std::chrono::seconds(1), &batch)) {
    if (!batch.empty() || !notes_.empty()) WriteBatch(batch);
    for (int s = 0; s < kStoreCount; ++s) Retain(s);
  }
  if (!notes_.empty()) WriteBatch({});
}

void Writer::WriteBatch(const std::vector<LogEntry>& batch) {
  std::vector<const LogEntry*> rows[kStoreCount];
  std::map<std::string, std::string> positions[kStoreCount];
  std::vector<LogEntry> notes;
  notes.swap(notes_);
  for (const LogEntry& note : notes) rows[0].push_back(&note);
  for (const LogEntry& entry : batch) {
    if (!entry.message.empty() || !entry.user.empty()) {
      rows[static_cast<int>(entry.store)].push_back(&entry);
    }
    if (entry.position.empty()) continue;
    for (int s = 0; s < kStoreCount; ++s) {
      if (entry.positionStores & StoreBit(static_cast<Store>(s))) {
        positions[s][entry.positionInput] = entry.position;
      }
    }
  }
  // The system store first: after a crash between the two commits, the connection store is
  // the one behind, and its input resumes from there without repeating system rows.
  for (int s = 0; s < kStoreCount; ++s) {
    if (!rows[s].empty() || !positions[s].empty()) WriteStore(s, rows[s], positions[s]);
  }
  stats_.batches++;
}

bool Writer::EnsureOpen(int s) {
  StoreFile& store = *stores_[s];
  if (store.IsOpen() && !store.Replaced()) return true;
  bool wasOpen = store.IsOpen();
  if (store.Open() != SQLITE_OK) return false;
  if (wasOpen) {
    // Said only in the system log: a row about the store would land in the new store.
    SLIBCSysLog(LOG_WARNING,
                "quor-logd: the %s log store was deleted or replaced; writing on "
                "in %s",
                kStoreNames[s], store.path().c_str());
  }
  return true;
}

void Writer::WriteStore(int s, const std::vector<const LogEntry*>& rows,
                        const std::map<std::string, std::string>& positions) {
  StoreFile& store = *stores_[s];
  bool complained = false;
  for (;;) {
    int rc = EnsureOpen(s) ? Timed([&] { return store.Write(rows, positions); }) : SQLITE_CANTOPEN;
    if (rc == SQLITE_OK) {
      stats_.rowsWritten += rows.size();
      return;
    }
    if (IsSpaceError(rc) && MakeRoom(s)) continue;
    if (!complained) {
      SLIBCSysLog(LOG_ERR, "quor-logd: cannot write %zu rows to the %s log: %s; trying again",
                  rows.size(), kStoreNames[s], store.error().c_str());
      complained = true;
    }
    // On a store that cannot be written, the queue fills and inputs wait; once the daemon is
    // asked to stop, entries that carry positions are read again on the next start.
    if (queue_->closed()) return;
    std::this_thread::sleep_for(std::chrono::seconds(1));
  }
}

// Deletes the oldest rows of the failed store, or of the other one when the failed store
// holds no rows, and gives the pages back. On a full file system the delete itself needs room
// in the write-ahead log: a truncating checkpoint first gives the log's space back, and the
// chunk shrinks until a delete fits. Returns false when nothing could be freed.
bool Writer::MakeRoom(int failed) {
  // The reserve gives a delete room to start from; it is laid again once rows are gone.
  unlink(ReservePath().c_str());
  struct Relay {
    Writer* writer;
    ~Relay() { writer->LayReserve(); }
  } relay{this};
  for (int k = 0; k < kStoreCount; ++k) {
    int s = (failed + k) % kStoreCount;
    StoreFile& store = *stores_[s];
    if (!EnsureOpen(s)) continue;
    store.Checkpoint(true);
    int64_t deleted = 0;
    for (int64_t chunk = options_.chunkRows; chunk >= 10 && deleted == 0; chunk /= 4) {
      Timed([&] { return store.DeleteOldest(chunk, &deleted); });
    }
    if (deleted == 0) continue;
    // Small vacuum steps, each checkpointed, so that the log never needs much room.
    while (store.FreePages() > 0 && Timed([&] { return store.Vacuum(64); }) == SQLITE_OK) {
      store.Checkpoint(true);
    }
    store.Checkpoint(true);
    stats_.rowsFreedForSpace += deleted;
    Note(2, "The file system is full: removed the " + std::to_string(deleted) +
                " oldest rows of the " + kStoreNames[s] + " log to make room.");
    return true;
  }
  return false;
}

// One step towards the store's limits: at most one chunk deleted and one vacuum step.
void Writer::Retain(int s) {
  StoreFile& store = *stores_[s];
  const StoreLimits& limits = options_.limits[s];
  if (!EnsureOpen(s)) return;
  int64_t rows = store.RowCount();
  if (rows <= 0) return;
  int64_t excess = 0;
  const char* why = nullptr;
  if (limits.maxRows > 0 && rows > limits.maxRows) {
    excess = rows - limits.maxRows;
    why = "rows";
  }
  int64_t used = limits.maxBytes > 0 || limits.keepFreeBytes > 0 ? store.UsedBytes() : 0;
  int64_t rowBytes = std::max<int64_t>(used / rows, 1);
  if (why == nullptr && limits.maxBytes > 0 && used > limits.maxBytes) {
    excess = (used - limits.maxBytes) / rowBytes + 1;
    why = "bytes";
  }
  if (why == nullptr && limits.keepFreeBytes > 0) {
    int64_t free = FreeBytes(store.path());
    int64_t pending = store.FreePages() * store.PageSize();
    if (free >= 0 && free + pending < limits.keepFreeBytes) {
      excess = (limits.keepFreeBytes - free - pending) / rowBytes + 1;
      why = "free";
    }
  }
  int64_t deleted = 0;
  if (why != nullptr) {
    Timed([&] { return store.DeleteOldest(std::min(excess, options_.chunkRows), &deleted); });
  } else if (limits.maxDays > 0 && std::chrono::steady_clock::now() >= nextAgeCheck_[s]) {
    int64_t cutoff = time(nullptr) - limits.maxDays * 86400;
    int64_t oldest = store.OldestTime();
    if (oldest >= 0 && oldest < cutoff) {
      Timed([&] { return store.DeleteOlderThan(cutoff, options_.chunkRows, &deleted); });
    }
    // Aged rows go a chunk per pass while there are any, else the check waits a while.
    if (deleted < options_.chunkRows) {
      nextAgeCheck_[s] = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    }
  }
  stats_.rowsRetired += deleted;
  if (store.FreePages() > 0) Timed([&] { return store.Vacuum(options_.vacuumPages); });
}

}  // namespace logd
