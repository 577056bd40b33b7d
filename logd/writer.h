// The writer thread: the one owner of the stores, fed by the queue.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "logd/config.h"
#include "logd/entry_queue.h"
#include "logd/store_file.h"

namespace logd {

constexpr int kStoreCount = 2;  // Store::kSystem, Store::kConnection

struct WriterOptions {
  std::string paths[kStoreCount];  // real paths of the system and connection stores
  StoreLimits limits[kStoreCount];
  size_t batchRows = 1000;               // rows of one write transaction at most
  std::chrono::milliseconds linger{50};  // how long a batch waits to fill
  int64_t chunkRows = 10000;             // rows of one retention transaction at most
  int vacuumPages = 512;                 // pages given back by one vacuum step at most
};

// Counters readable from any thread while the writer runs.
struct WriterStats {
  std::atomic<uint64_t> rowsWritten{0};
  std::atomic<uint64_t> batches{0};
  std::atomic<uint64_t> rowsRetired{0};        // deleted by a retention limit
  std::atomic<uint64_t> rowsFreedForSpace{0};  // deleted because the file system was full
  std::atomic<int64_t> longestTransactionUs{0};
};

// Takes batches from the queue and writes them, one transaction per store and batch, with the
// positions the entries carry; between batches it keeps each store within its limits, one
// chunk at a time. A store deleted or replaced while running is made again; a store emptied
// by the module's clear keeps everything written after the clear. A write that fails for
// lack of space deletes the oldest rows and tries again; a write that cannot succeed is tried
// again every second (the queue then fills and inputs wait), so nothing taken from the queue
// is dropped while the writer runs. Beside the stores it keeps ".quor-logd.reserve", 1 MiB
// given up to let a delete run on a full file system.
class Writer {
 public:
  Writer(EntryQueue* queue, WriterOptions options);
  ~Writer();  // closes the queue and joins the thread

  // Opens (creating when missing) both stores. Returns false with *error set.
  bool Open(std::string* error);
  // The position that input saved in store, "" when none. REQUIRES: Open, before Start.
  std::string Position(Store store, const std::string& input);
  void Start();
  // Returns once the queue is closed and every entry taken from it is written (or the stores
  // failed for good).
  void Join();

  const WriterStats& stats() const { return stats_; }

 private:
  void Run();
  void WriteBatch(const std::vector<LogEntry>& batch);
  void WriteStore(int store, const std::vector<const LogEntry*>& rows,
                  const std::map<std::string, std::string>& positions);
  bool EnsureOpen(int store);
  bool MakeRoom(int failedStore);
  // A file of some room beside the stores, given up when the file system is full.
  std::string ReservePath() const;
  void LayReserve();
  void Retain(int store);
  void Note(int level, const std::string& text);
  template <typename Call>
  int Timed(Call call);

  EntryQueue* queue_;
  WriterOptions options_;
  std::unique_ptr<StoreFile> stores_[kStoreCount];
  std::vector<LogEntry> notes_;  // the writer's own rows for the system store
  std::thread thread_;
  WriterStats stats_;
  std::chrono::steady_clock::time_point nextAgeCheck_[kStoreCount];
};

// "quor-logd[PID]: text", the daemon's own rows.
LogEntry OwnEntry(int level, const std::string& text);

}  // namespace logd
