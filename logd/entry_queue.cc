// The bounded queue between the inputs and the writer thread.
#include "logd/entry_queue.h"

#include <utility>

namespace logd {

EntryQueue::EntryQueue(size_t maxEntries, size_t maxBytes)
    : maxEntries_(maxEntries > 0 ? maxEntries : 1), maxBytes_(maxBytes) {}

size_t EntryQueue::SizeOf(const LogEntry& entry) {
  return sizeof(LogEntry) + entry.user.size() + entry.message.size() + entry.position.size();
}

bool EntryQueue::BelongsToNext(const LogEntry& entry) {
  return entry.position.empty() && !entry.positionInput.empty();
}

bool EntryQueue::HasRoom(const LogEntry& entry) const {
  if (entries_.empty()) return true;
  return entries_.size() < maxEntries_ && bytes_ + SizeOf(entry) <= maxBytes_;
}

void EntryQueue::Take(LogEntry entry) {
  bytes_ += SizeOf(entry);
  entries_.push_back(std::move(entry));
  if (entries_.size() == 1 || entries_.size() % 256 == 0) notEmpty_.notify_one();
}

bool EntryQueue::Push(LogEntry entry) {
  std::unique_lock<std::mutex> lock(mutex_);
  notFull_.wait(lock, [&] { return closed_ || HasRoom(entry); });
  if (closed_) {
    ++refused_;
    return false;
  }
  Take(std::move(entry));
  return true;
}

bool EntryQueue::TryPush(LogEntry entry) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (closed_ || !HasRoom(entry)) {
    ++refused_;
    return false;
  }
  Take(std::move(entry));
  return true;
}

bool EntryQueue::PopBatch(size_t maxEntries, std::chrono::milliseconds linger,
                          std::chrono::milliseconds wake, std::vector<LogEntry>* batch) {
  batch->clear();
  std::unique_lock<std::mutex> lock(mutex_);
  if (!notEmpty_.wait_for(lock, wake, [&] { return closed_ || !entries_.empty(); })) return true;
  if (entries_.empty()) return !closed_;
  // Linger for more only while the queue is short of a full batch and still open.
  auto until = std::chrono::steady_clock::now() + linger;
  while (!closed_ && entries_.size() < maxEntries &&
         notEmpty_.wait_until(lock, until) != std::cv_status::timeout) {
  }
  size_t n = entries_.size() < maxEntries ? entries_.size() : maxEntries;
  batch->reserve(n);
  for (size_t i = 0; i < n || (!batch->empty() && BelongsToNext(batch->back())); ++i) {
    // The input pushes the rest of a group right after its first part.
    notEmpty_.wait(lock, [&] { return closed_ || !entries_.empty(); });
    if (entries_.empty()) break;
    bytes_ -= SizeOf(entries_.front());
    batch->push_back(std::move(entries_.front()));
    entries_.pop_front();
  }
  notFull_.notify_all();
  return true;
}

void EntryQueue::Close() {
  std::lock_guard<std::mutex> lock(mutex_);
  closed_ = true;
  notEmpty_.notify_all();
  notFull_.notify_all();
}

bool EntryQueue::closed() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return closed_;
}

uint64_t EntryQueue::refused() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return refused_;
}

size_t EntryQueue::size() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return entries_.size();
}

}  // namespace logd
