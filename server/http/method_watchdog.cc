// The limit on one method call in a worker, watched by a thread of its own.
#include "server/http/method_watchdog.h"

#include <stdio.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "server/http/client_writer.h"

namespace {

const char kTooLong[] =
    "HTTP/1.1 503 Service Unavailable\r\n"
    "Content-Type: text/plain; charset=utf-8\r\n"
    "Cache-Control: no-store\r\n"
    "Connection: close\r\n"
    "Content-Length: 43\r\n\r\n"
    "The request took too long and was stopped.\n";

// How long the 503 may wait for a client that does not read before the worker ends anyway.
const int64_t kTooLongStallMs = 1000;

using Clock = std::chrono::steady_clock;

// The watch of this process: one call at a time is armed. The thread starts with the first
// call and lives as long as the worker; it holds no lock while it waits, so a download process
// forked meanwhile inherits nothing locked.
struct Watch {
  std::mutex mutex;
  std::condition_variable changed;
  bool armed = false;
  int fd = -1;
  Clock::time_point deadline;
  std::atomic<bool> answerStarted{false};
  bool threadStarted = false;

  void Run() {
    std::unique_lock<std::mutex> lock(mutex);
    for (;;) {
      changed.wait(lock, [&] { return armed; });
      if (changed.wait_until(lock, deadline, [&] { return !armed; })) continue;
      // The call ran past its limit.
      if (fd >= 0 && !answerStarted) {
        ClientWriter(fd).SendAll(kTooLong, sizeof kTooLong - 1, kTooLongStallMs);
      }
      fputs("quor-webapi: a method ran past its time limit; worker ends\n", stderr);
      fflush(stderr);
      _exit(3);
    }
  }
};

Watch& TheWatch() {
  static Watch* watch = new Watch;  // never destroyed: its thread may outlive static teardown
  return *watch;
}

}  // namespace

MethodWatchdog::MethodWatchdog(int socketFd, int64_t limitMs) {
  Watch& watch = TheWatch();
  std::lock_guard<std::mutex> lock(watch.mutex);
  if (!watch.threadStarted) {
    std::thread(&Watch::Run, &watch).detach();
    watch.threadStarted = true;
  }
  watch.fd = socketFd;
  watch.answerStarted = false;
  watch.deadline = Clock::now() + std::chrono::milliseconds(limitMs);
  watch.armed = true;
  watch.changed.notify_all();
}

MethodWatchdog::~MethodWatchdog() {
  Watch& watch = TheWatch();
  std::lock_guard<std::mutex> lock(watch.mutex);
  watch.armed = false;
  watch.fd = -1;
  watch.changed.notify_all();
}

void MethodWatchdog::AnswerStarted() { TheWatch().answerStarted = true; }
