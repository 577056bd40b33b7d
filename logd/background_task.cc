// A task run on a thread of its own when asked, with requests coalesced.
#include "logd/background_task.h"

#include <utility>

namespace logd {

BackgroundTask::BackgroundTask(std::function<bool()> task) : task_(std::move(task)) {
  thread_ = std::thread([this] { Run(); });
}

BackgroundTask::~BackgroundTask() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    stopping_ = true;
  }
  wake_.notify_all();
  thread_.join();
}

void BackgroundTask::Request() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (pending_) return;
    pending_ = true;
  }
  wake_.notify_one();
}

void BackgroundTask::RequestAndWait() {
  std::unique_lock<std::mutex> lock(mutex_);
  // A run already under way may have missed what the caller wrote: wait for the next one.
  uint64_t want = started_ + 1;
  pending_ = true;
  wake_.notify_one();
  done_.wait(lock, [&] { return finished_ >= want || stopping_; });
}

uint64_t BackgroundTask::runs() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return finished_;
}

bool BackgroundTask::pending() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return pending_;
}

void BackgroundTask::Run() {
  std::unique_lock<std::mutex> lock(mutex_);
  for (;;) {
    wake_.wait(lock, [&] { return pending_ || stopping_; });
    if (stopping_) break;
    pending_ = false;
    ++started_;
    lock.unlock();
    bool again = task_();
    lock.lock();
    if (again) pending_ = true;
    ++finished_;
    done_.notify_all();
  }
  done_.notify_all();
}

}  // namespace logd
