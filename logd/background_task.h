// A task run on a thread of its own when asked, with requests coalesced: however often it is
// asked while it runs, it runs once more afterwards, never twice at once. A task that returns
// true asks for another run itself.
// The thread is upkeep that may lag (a checkpoint, a search index step): it runs at a lower
// scheduling priority than the threads that take input and write it, so that on a machine with
// few cores they get the core first, and it takes the time they leave.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>

namespace logd {

class BackgroundTask {
 public:
  // name: the thread's name for top -H and the benchmarks (at most 15 characters).
  BackgroundTask(const char* name, std::function<bool()> task);
  ~BackgroundTask();  // lets a run under way finish, then joins; a pending request is dropped

  // Asks for a run; never waits.
  void Request();
  // Asks for a run and waits until one that started after this call has finished.
  void RequestAndWait();
  // Runs completed so far.
  uint64_t runs() const;
  // Whether a run was asked for and has not started yet.
  bool pending() const;

 private:
  void Run(const char* name);

  std::function<bool()> task_;
  mutable std::mutex mutex_;
  std::condition_variable wake_;
  std::condition_variable done_;
  bool pending_ = false;
  bool stopping_ = false;
  uint64_t started_ = 0;   // runs begun
  uint64_t finished_ = 0;  // runs ended
  std::thread thread_;
};

}  // namespace logd
