// The bounded queue between the inputs and the writer thread.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <vector>

#include "logd/log_entry.h"

namespace logd {

// Holds at most maxEntries entries and about maxBytes bytes of text (an entry larger than
// maxBytes is still taken when the queue is empty, so that nothing is refused for its size
// alone). When full, Push waits and TryPush refuses; refused entries are counted. Once closed,
// both refuse, and PopBatch hands out what is left until the queue is empty.
class EntryQueue : public EntrySink {
 public:
  EntryQueue(size_t maxEntries, size_t maxBytes);

  bool Push(LogEntry entry) override;
  bool TryPush(LogEntry entry) override;

  // Waits until an entry is there (or wake passes), then gathers entries until maxEntries are
  // taken or linger has passed since the first one. Returns false only when the queue is
  // closed and empty; an empty *batch with true means wake passed with nothing to do. A batch
  // never ends on an entry that belongs to the next one (LogEntry::position).
  bool PopBatch(size_t maxEntries, std::chrono::milliseconds linger, std::chrono::milliseconds wake,
                std::vector<LogEntry>* batch);

  // Refuses new entries from now on and wakes every waiting caller.
  void Close();

  bool closed() const;
  uint64_t refused() const;
  size_t size() const;

 private:
  static size_t SizeOf(const LogEntry& entry);
  static bool BelongsToNext(const LogEntry& entry);
  bool HasRoom(const LogEntry& entry) const;  // REQUIRES: mutex_ held
  void Take(LogEntry entry);                  // REQUIRES: mutex_ held

  const size_t maxEntries_;
  const size_t maxBytes_;
  mutable std::mutex mutex_;
  std::condition_variable notEmpty_;
  std::condition_variable notFull_;
  std::deque<LogEntry> entries_;
  size_t bytes_ = 0;
  bool closed_ = false;
  uint64_t refused_ = 0;
};

}  // namespace logd
