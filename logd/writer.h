// The writer thread: the one owner of the stores, fed by the queue.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "logd/background_task.h"
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
  int64_t vacuumPages = 512;             // pages given back by one vacuum step at most
  int64_t vacuumSlackBytes = 4 << 20;    // free pages left for the next batches (see Retain)
  // Retention chunks and vacuum steps are sized, from how long the last ones took, so that
  // each transaction holds the store for about this long.
  std::chrono::microseconds trimTarget{8000};
  // A background checkpoint is asked for once the write-ahead log holds this many pages. A
  // reader in the log keeps it from starting over; once it holds walStallPages, and again each
  // walStallPages further, the writer waits up to walWait for the readers in it to leave (a
  // RESTART checkpoint), so that it starts over while readers come and go and grows while one
  // stays. At walLimitPages (0: a quarter of the file system's free room) the writer waits
  // for as long as that takes.
  int64_t checkpointPages = 1000;
  int64_t walStallPages = 16384;
  int64_t walLimitPages = 0;
  std::chrono::milliseconds walWait{250};
  bool index = true;  // keep each store's search index current after commits
  // Index steps are sized, from how long the last one took, to about indexStepTarget each, and
  // cover indexStepRows rows at most.
  int64_t indexStepRows = 20000;
  std::chrono::milliseconds indexStepTarget{250};
};

// Counters readable from any thread while the writer runs.
struct WriterStats {
  std::atomic<uint64_t> rowsWritten{0};
  std::atomic<uint64_t> batches{0};
  std::atomic<uint64_t> rowsRetired{0};        // deleted by a retention limit
  std::atomic<uint64_t> rowsFreedForSpace{0};  // deleted because the file system was full
  std::atomic<int64_t> longestWriteUs{0};      // a batch's transaction
  std::atomic<int64_t> longestTrimUs{0};       // a retention chunk or vacuum step
  std::atomic<int64_t> longestCpuUs{0};        // CPU time of the writer's thread in one of them
  std::atomic<uint64_t> transactions{0};       // batches, retention chunks, vacuum steps
  std::atomic<uint64_t> longTransactions{0};   // of them, those over 25 ms
  std::atomic<int64_t> longestLockWaitUs{0};   // waiting for a store's write lock
  std::atomic<int64_t> mostRowsOverCap{0};     // rows above a store's row limit after a commit
  std::atomic<uint64_t> walWaits{0};           // times the writer waited for readers to leave
  std::atomic<uint64_t> walRestarts{0};        // of them, those after which the log started over
  std::atomic<int64_t> longestWalWaitUs{0};
  std::atomic<int64_t> mostWalPages{0};     // the longest the write-ahead log grew
  std::atomic<uint64_t> indexFailures{0};   // index steps that failed
  std::atomic<uint64_t> indexLockWaits{0};  // index steps that found the index locked
  std::atomic<uint64_t> checkpoints{0};     // background checkpoints run
};

// Takes batches from the queue and writes them, one transaction per store and batch, with the
// positions the entries carry; between batches it keeps each store within its limits, one
// chunk at a time. A store deleted or replaced while running is made again; a store emptied
// by the module's clear keeps everything written after the clear. A write that fails for
// lack of space deletes the oldest rows and tries again; a write that cannot succeed is tried
// again every second (the queue then fills and inputs wait), so nothing taken from the queue
// is dropped while the writer runs. Beside the stores it keeps ".quor-logd.reserve", 1 MiB
// given up to let a delete run on a full file system.
// Beside the writer thread, each store has two threads that never hold up a batch: one copies
// the write-ahead log into the file after commits (commits never do), the other brings the
// store's search index a step nearer to the newest row (the index is a database of its own),
// and goes on in steps while the index is behind.
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
  // Waits until the search index of every store has caught up with what was written so far
  // (or failed: stats().indexFailures). REQUIRES: Start.
  void WaitForIndex();

  const WriterStats& stats() const { return stats_; }
  // What the last failed index step said ("" when none failed).
  std::string LastIndexError() const;

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
  // The rows by which store is over a limit now (0: within all), and which limit.
  int64_t Excess(int store, const char** why);
  void Note(int level, const std::string& text);
  // Records how long store's last transaction took (trim: a retention one).
  void Timed(int store, bool trim);
  // Free pages of store that are left for the next batches to fill.
  int64_t VacuumSlack(int store);
  // Resizes a retention step from how long the last one took.
  void Adapt(int store, int64_t* step, int64_t limit);
  void AfterCommit(int store);
  // Waits for the readers of a long log to leave it (see WriterOptions::walStallPages).
  void KeepLogShort(int store);
  // Whether the writer is behind its inputs: more than a batch waits in the queue.
  bool Behind() const;
  // One step of store's search index. True when the index is still behind.
  bool IndexStep(int store, bool* complained);

  EntryQueue* queue_;
  WriterOptions options_;
  std::unique_ptr<StoreFile> stores_[kStoreCount];
  std::vector<LogEntry> notes_;  // the writer's own rows for the system store
  std::thread thread_;
  WriterStats stats_;
  std::chrono::steady_clock::time_point nextAgeCheck_[kStoreCount];
  int64_t chunk_[kStoreCount];      // rows of the next retention chunk
  int64_t vacuum_[kStoreCount];     // pages of the next vacuum step
  int64_t indexStep_[kStoreCount];  // rows of the next index step (its thread only)
  std::chrono::steady_clock::time_point lastIndexStep_[kStoreCount];  // its start (same)
  int64_t lastIndexLag_[kStoreCount] = {};  // rows behind after the last step (same)
  std::unique_ptr<BackgroundTask> checkpointer_[kStoreCount];
  std::unique_ptr<BackgroundTask> indexer_[kStoreCount];
  // Writer thread only: pages in the log after the last commit, and the size at which the
  // writer next waits for readers to leave it.
  int64_t walPages_[kStoreCount] = {};
  int64_t nextWalWait_[kStoreCount] = {};
  std::atomic<int64_t> indexBehind_[kStoreCount] = {};  // after the last index step; -1 unknown
  std::atomic<bool> indexFailed_[kStoreCount] = {};     // the last index step failed
  mutable std::mutex errorMutex_;
  std::string lastIndexError_;
  bool idleCheckpointed_[kStoreCount] = {};          // since the last commit (writer thread only)
  std::atomic<bool> truncateLog_[kStoreCount] = {};  // the next checkpoint also cuts the log file
  // Until then the index waits: the file system was full, and the stores come first (the
  // search module reads rows above the index's mark from the store itself).
  std::atomic<int64_t> indexPausedUntilMs_{0};
};

// "quor-logd[PID]: text", the daemon's own rows.
LogEntry OwnEntry(int level, const std::string& text);

}  // namespace logd
