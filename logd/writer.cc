// The writer thread: the one owner of the stores, fed by the queue.
#include "logd/writer.h"

#include <fcntl.h>
#include <pthread.h>
#include <sqlite3.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <utility>

#include "index/search_index.h"
#include "platform/systemlog.h"

namespace logd {

namespace {

const char* const kStoreNames[kStoreCount] = {"system", "connection"};
// Room kept on the stores' file system for deleting rows when it is full.
constexpr off_t kReserveBytes = 1 << 20;

// Transactions that hold a store for longer are counted (WriterStats::longTransactions).
constexpr int64_t kLongTransactionUs = 25000;
// Rows the search index may fall behind while the queue is full (searches read the rows above
// its mark from the store).
constexpr int64_t kIndexLagWhileBusy = 5000;
// Rows of the smallest search index step.
constexpr int64_t kSmallestIndexStep = 10000;
// How long the search index waits after the file system was found full.
constexpr int64_t kIndexPauseMs = 60000;
// How many stall sizes the write-ahead log grows to during a burst (see KeepLogShort).
constexpr int64_t kBurstStalls = 4;

int64_t NowMs() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

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
    chunk_[s] = std::min<int64_t>(1000, options_.chunkRows);
    indexStep_[s] = std::min<int64_t>(20000, options_.indexStepRows);
    vacuum_[s] = std::min<int64_t>(64, options_.vacuumPages);
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
  for (int s = 0; s < kStoreCount; ++s) {
    checkpointer_[s] = std::make_unique<BackgroundTask>("logd-checkpoint", [this, s] {
      CheckpointStore(options_.paths[s], truncateLog_[s].exchange(false));
      stats_.checkpoints++;
      return false;
    });
    indexer_[s] = std::make_unique<BackgroundTask>(
        "logd-index",
        [this, s, complained = false]() mutable { return IndexStep(s, &complained); });
    indexer_[s]->Request();  // an index left behind (or missing) catches up from the start
    nextWalWait_[s] = options_.walStallPages;
  }
  thread_ = std::thread([this] {
    pthread_setname_np(pthread_self(), "logd-writer");  // for top -H and the benchmarks
    Run();
  });
}

void Writer::Join() {
  if (thread_.joinable()) thread_.join();
  for (auto& task : indexer_) task.reset();
  for (auto& task : checkpointer_) task.reset();
}

std::string Writer::LastIndexError() const {
  std::lock_guard<std::mutex> lock(errorMutex_);
  return lastIndexError_;
}

void Writer::WaitForIndex() {
  for (int s = 0; s < kStoreCount; ++s) {
    if (!indexer_[s] || !options_.index) continue;
    do {
      indexBehind_[s] = -1;
      indexer_[s]->RequestAndWait();
    } while (indexBehind_[s] != 0);
  }
}

bool Writer::IndexStep(int s, bool* complained) {
  const std::string& path = options_.paths[s];
  if (!options_.index) return false;
  if (NowMs() < indexPausedUntilMs_.load()) {
    indexBehind_[s] = 0;  // nothing to wait for: it resumes after the pause, on a commit
    return false;
  }
  // The store comes first: while the writer is behind (more than a batch waits in the queue),
  // index steps wait, so that a burst gets both cores; the commits after it ask again. A
  // steady stream that keeps the queue full still gets a step a second, and every step while
  // the index is further behind than searches read from the store, so that they keep using it.
  auto start = std::chrono::steady_clock::now();
  if (Behind() && lastIndexLag_[s] <= kIndexLagWhileBusy &&
      start - lastIndexStep_[s] < std::chrono::seconds(1)) {
    indexBehind_[s] = 0;
    return false;
  }
  lastIndexStep_[s] = start;
  int64_t behind = 0;
  std::string error;
  bool indexed = IndexCatchUpSome(path, indexStep_[s], &behind, &error);
  auto took = std::chrono::steady_clock::now() - start;
  indexBehind_[s] = indexed ? behind : 0;
  lastIndexLag_[s] = indexed ? behind : 0;
  if (indexed) {
    indexFailed_[s] = false;
    *complained = false;
    // Steps sized by time: a step is a reader of the store and holds the index's lock, which
    // the search module's own catch-up waits for; the rows it covers cost a time that varies
    // with the machine's load.
    if (took > options_.indexStepTarget) {
      indexStep_[s] = std::max<int64_t>(indexStep_[s] / 2, kSmallestIndexStep);
    } else if (took < options_.indexStepTarget / 2 && behind > 0) {
      indexStep_[s] =
          std::min<int64_t>(indexStep_[s] + indexStep_[s] / 4 + 1, options_.indexStepRows);
    }
    return behind > 0;  // the next step, after whatever else is asked
  }
  // Another indexer (the search module's catch-up) held the index for the whole wait: it
  // brings the index on meanwhile, so this step is tried again at once, not counted as failed.
  if (error.find("database is locked") != std::string::npos) {
    stats_.indexLockWaits++;
    return true;
  }
  stats_.indexFailures++;
  indexFailed_[s] = true;
  {
    std::lock_guard<std::mutex> lock(errorMutex_);
    lastIndexError_ = path + ": " + error;
  }
  if (!*complained) {  // once until it works again
    SLIBCSysLog(LOG_WARNING, "quor-logd: cannot bring the search index of %s up to date: %s",
                path.c_str(), error.c_str());
    *complained = true;
  }
  return false;
}

namespace {

void KeepLongest(std::atomic<int64_t>* longest, int64_t value) {
  if (value > longest->load()) *longest = value;
}

}  // namespace

void Writer::Timed(int s, bool trim) {
  const StoreFile& store = *stores_[s];
  stats_.transactions++;
  if (store.lastTransactionUs() > kLongTransactionUs) stats_.longTransactions++;
  KeepLongest(trim ? &stats_.longestTrimUs : &stats_.longestWriteUs, store.lastTransactionUs());
  KeepLongest(&stats_.longestCpuUs, store.lastTransactionCpuUs());
  KeepLongest(&stats_.longestLockWaitUs, store.lastLockWaitUs());
}

void Writer::Adapt(int s, int64_t* step, int64_t limit) {
  int64_t took = stores_[s]->lastTransactionUs();
  int64_t target = options_.trimTarget.count();
  if (took > target) {
    *step = std::max<int64_t>(*step / 2, 16);
  } else if (took < target / 2) {
    *step = std::min<int64_t>(*step + *step / 4 + 1, limit);
  }
}

// A reader keeps the log from starting over while it reads from it; as readers come and go,
// one is nearly always in a busy log. So once the log is long the writer stops, outside any
// transaction, and waits a while for the readers in it to leave (a RESTART checkpoint: readers
// that start meanwhile read the file alone); its next commit starts the log over. When they do
// not leave in time, the log grows another walStallPages before the next wait: a reader that
// stays (a long search, an index step) costs the writer one short wait per stall size, and the
// log grows by what is written meanwhile. Only at the limit, a quarter of the file system's
// free room, does the writer wait until the readers have left.
// On a file system with little room left, the log is kept within half the reserve: pages in
// the log that are new to the file need that much room again when they are copied into it, and
// a full file system can only be recovered from when the reserve covers them.
void Writer::KeepLogShort(int s) {
  StoreFile& store = *stores_[s];
  int64_t frames = store.WalFrames();
  if (frames == walPages_[s]) return;  // nothing committed since the last look
  walPages_[s] = frames;
  KeepLongest(&stats_.mostWalPages, frames);
  int64_t page = store.PageSize();
  int64_t stall = options_.walStallPages;
  int64_t free = FreeBytes(store.path());
  int64_t limit = options_.walLimitPages > 0 ? options_.walLimitPages
                  : free >= 0                ? free / 4 / page
                                             : INT64_MAX;
  if (free >= 0 && free < 2 * stall * page) {
    stall = limit = std::min<int64_t>(stall, kReserveBytes / 2 / page);
  }
  limit = std::max(limit, stall);
  if (frames < stall) nextWalWait_[s] = stall;
  int64_t waitAt = std::min(nextWalWait_[s], limit);
  // During a burst (the writer behind) the log grows to kBurstStalls stall sizes before the
  // writer stops for its readers: a wait stops every input, and the reader it waits for is
  // mostly the store's own index step, which runs below the writer's priority.
  if (Behind()) waitAt = std::min(std::max(waitAt, kBurstStalls * stall), limit);
  if (frames < waitAt) {
    if (frames >= options_.checkpointPages) checkpointer_[s]->Request();
    return;
  }
  stats_.walWaits++;
  auto start = std::chrono::steady_clock::now();
  int rc = store.RestartLog(static_cast<int>(options_.walWait.count()));
  while (rc == SQLITE_BUSY && frames >= limit && !queue_->closed()) rc = store.RestartLog(1000);
  KeepLongest(&stats_.longestWalWaitUs, std::chrono::duration_cast<std::chrono::microseconds>(
                                            std::chrono::steady_clock::now() - start)
                                            .count());
  if (rc == SQLITE_OK) stats_.walRestarts++;
  nextWalWait_[s] = rc == SQLITE_OK ? stall : frames + stall;
}

bool Writer::Behind() const { return queue_->size() > options_.batchRows && !queue_->closed(); }

// After a commit to store: a checkpoint and an index step are asked for on the store's own
// threads; a long log makes the writer wait for its readers (KeepLogShort).
void Writer::AfterCommit(int s) {
  idleCheckpointed_[s] = false;
  KeepLogShort(s);
  indexer_[s]->Request();
  const StoreLimits& limits = options_.limits[s];
  if (limits.maxRows > 0) {
    KeepLongest(&stats_.mostRowsOverCap, stores_[s]->RowCount() - limits.maxRows);
  }
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
    for (int s = 0; s < kStoreCount; ++s) {
      Retain(s);
      // When idle, what is left in the log goes into the file, once.
      if (batch.empty() && stores_[s]->WalFrames() > 0 && !idleCheckpointed_[s]) {
        truncateLog_[s] = true;  // commits never cut the log file back (store_file.cc)
        checkpointer_[s]->Request();
        idleCheckpointed_[s] = true;
      } else if (batch.empty() && indexFailed_[s]) {
        indexer_[s]->Request();  // a failed index step is tried again once a second
      }
    }
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
    int rc = EnsureOpen(s) ? store.Write(rows, positions) : SQLITE_CANTOPEN;
    if (rc == SQLITE_OK) {
      Timed(s, false);
      stats_.rowsWritten += rows.size();
      AfterCommit(s);
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
  indexPausedUntilMs_ = NowMs() + kIndexPauseMs;
  struct Relay {
    Writer* writer;
    ~Relay() { writer->LayReserve(); }
  } relay{this};
  for (int k = 0; k < kStoreCount; ++k) {
    int s = (failed + k) % kStoreCount;
    StoreFile& store = *stores_[s];
    if (!EnsureOpen(s)) continue;
    store.RestartLog();
    int64_t deleted = 0;
    for (int64_t chunk = options_.chunkRows; chunk >= 10 && deleted == 0; chunk /= 4) {
      if (store.DeleteOldest(chunk, &deleted) == SQLITE_OK) Timed(s, true);
    }
    if (deleted == 0) continue;
    // Small vacuum steps, each checkpointed, so that the log never needs much room.
    while (store.FreePages() > 0 && store.Vacuum(64) == SQLITE_OK) {
      Timed(s, true);
      store.RestartLog();
    }
    store.RestartLog();
    stats_.rowsFreedForSpace += deleted;
    Note(2, "The file system is full: removed the " + std::to_string(deleted) +
                " oldest rows of the " + kStoreNames[s] + " log to make room.");
    return true;
  }
  return false;
}

int64_t Writer::Excess(int s, const char** why) {
  StoreFile& store = *stores_[s];
  const StoreLimits& limits = options_.limits[s];
  int64_t rows = store.RowCount();
  if (rows <= 0) return 0;
  if (limits.maxRows > 0 && rows > limits.maxRows) {
    *why = "rows";
    return rows - limits.maxRows;
  }
  int64_t used = limits.maxBytes > 0 || limits.keepFreeBytes > 0 ? store.UsedBytes() : 0;
  int64_t rowBytes = std::max<int64_t>(used / rows, 1);
  if (limits.maxBytes > 0 && used > limits.maxBytes) {
    *why = "bytes";
    return (used - limits.maxBytes) / rowBytes + 1;
  }
  if (limits.keepFreeBytes > 0) {
    int64_t free = FreeBytes(store.path());
    int64_t pending = store.FreePages() * store.PageSize();
    if (free >= 0 && free + pending < limits.keepFreeBytes) {
      *why = "free";
      return (limits.keepFreeBytes - free - pending) / rowBytes + 1;
    }
  }
  return 0;
}

// Pages freed by retention are left to the next batches, which fill them, up to a slack: a
// vacuum step would move the newest pages from the end of the file into them, writing them
// twice and scattering the rows readers read first. The slack is the larger of 4 MiB and a
// 64th of the file, at most a 16th of a byte limit, and none while the file system has less
// room than the store is to keep free (the pages then go back to it).
int64_t Writer::VacuumSlack(int s) {
  StoreFile& store = *stores_[s];
  const StoreLimits& limits = options_.limits[s];
  int64_t page = store.PageSize();
  int64_t slack = std::max<int64_t>(options_.vacuumSlackBytes, store.FileBytes() / 64) / page;
  if (limits.maxBytes > 0) slack = std::min(slack, limits.maxBytes / 16 / page);
  if (limits.keepFreeBytes > 0) {
    int64_t free = FreeBytes(store.path());
    if (free >= 0 && free < limits.keepFreeBytes) slack = 0;
  }
  return slack;
}

// Brings the store back within its limits, a chunk per transaction, each chunk sized so that
// its transaction stays near trimTarget; then gives back the free pages beyond the slack
// (VacuumSlack) in vacuum steps sized the same way. A pass runs at most a few chunks and steps,
// so that batches go on between passes; a batch adds at most batchRows rows, so the store stays
// within a limit plus one batch while trimming keeps up.
void Writer::Retain(int s) {
  constexpr int kChunksPerPass = 8;
  StoreFile& store = *stores_[s];
  const StoreLimits& limits = options_.limits[s];
  if (!EnsureOpen(s)) return;
  int64_t retired = 0;
  for (int pass = 0; pass < kChunksPerPass; ++pass) {
    const char* why = nullptr;
    int64_t excess = Excess(s, &why);
    int64_t deleted = 0;
    int rc = SQLITE_OK;
    if (excess > 0) {
      rc = store.DeleteOldest(std::min(excess, chunk_[s]), &deleted);
    } else if (limits.maxDays > 0 && std::chrono::steady_clock::now() >= nextAgeCheck_[s]) {
      int64_t cutoff = time(nullptr) - limits.maxDays * 86400;
      int64_t oldest = store.OldestTime();
      if (oldest >= 0 && oldest < cutoff) {
        rc = store.DeleteOlderThan(cutoff, chunk_[s], &deleted);
      }
      // Aged rows go a chunk at a time while there are any, else the check waits a while.
      if (deleted < chunk_[s]) {
        nextAgeCheck_[s] = std::chrono::steady_clock::now() + std::chrono::seconds(10);
      }
    }
    if (rc != SQLITE_OK || deleted == 0) break;
    Timed(s, true);
    Adapt(s, &chunk_[s], options_.chunkRows);
    retired += deleted;
  }
  stats_.rowsRetired += retired;
  bool vacuumed = false;
  for (int pass = 0; pass < kChunksPerPass; ++pass) {
    int64_t spare = store.FreePages() - VacuumSlack(s);
    if (spare <= 0 || store.Vacuum(std::min(spare, vacuum_[s])) != SQLITE_OK) break;
    vacuumed = true;
    Timed(s, true);
    Adapt(s, &vacuum_[s], options_.vacuumPages);
  }
  // The file shrinks once the log is copied into it: when idle, after these commits too.
  if (retired > 0 || vacuumed) idleCheckpointed_[s] = false;
  if (retired > 0) indexer_[s]->Request();
  KeepLogShort(s);
}

}  // namespace logd
