// The server's one clock for deadlines and durations: monotonic, in milliseconds.
#pragma once

#include <stdint.h>
#include <time.h>

inline int64_t MonotonicMs() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}
