// A task run on a thread of its own when asked, with requests coalesced.
#include "logd/background_task.h"

#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace logd {

namespace {

// How much lower than the thread that starts it an upkeep thread runs (in nice steps). At 10
// steps a thread has about a tenth of the weight (110 against 1024): on a core both want, the
// writer's transaction runs nearly undisturbed, while upkeep still has the cores whenever the
// writer and the inputs wait (an idle writer leaves the whole machine to the index).
constexpr int kUpkeepNiceSteps = 10;

// Lowers the calling thread alone: on Linux a nice value belongs to a thread, and PRIO_PROCESS
// with a thread id reads and sets that thread's. Best effort: when refused, the upkeep runs at
// the writer's priority, as correct, only competing with it for the core.
void LowerThisThread() {
  id_t self = static_cast<id_t>(gettid());
  errno = 0;
  int nice = getpriority(PRIO_PROCESS, self);
  if (errno != 0) return;
  setpriority(PRIO_PROCESS, self, std::min(nice + kUpkeepNiceSteps, 19));
}

}  // namespace

BackgroundTask::BackgroundTask(const char* name, std::function<bool()> task)
    : task_(std::move(task)) {
  thread_ = std::thread([this, name] { Run(name); });
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

void BackgroundTask::Run(const char* name) {
  pthread_setname_np(pthread_self(), name);
  LowerThisThread();
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
