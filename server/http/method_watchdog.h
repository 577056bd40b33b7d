// The limit on one method call in a worker. A method that runs past it cannot be stopped from
// inside (it may hold locks, or wait on a query that never ends), so the worker answers the
// client 503 and ends itself; the master replaces it. The worker's other connections close
// with it: their clients see the connection end and may retry. The limit is watched by a
// thread of the worker, which sends the 503 through the client writer (never from a signal
// handler) and then ends the process.
#pragma once

#include <stdint.h>

class MethodWatchdog {
 public:
  // Arms the limit for the call about to run for the client on socketFd.
  MethodWatchdog(int socketFd, int64_t limitMs);
  // Disarms it.
  ~MethodWatchdog();
  MethodWatchdog(const MethodWatchdog&) = delete;
  MethodWatchdog& operator=(const MethodWatchdog&) = delete;

  // From here on the client has been sent part of an answer: a 503 would corrupt it, so the
  // limit only ends the worker.
  static void AnswerStarted();
};
