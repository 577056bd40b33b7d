// One log entry on its way from an input (journal, syslog receiver, server) to the writer,
// and the interface through which inputs hand entries over.
#pragma once

#include <cstdint>
#include <string>

namespace logd {

// The store an entry is written to.
enum class Store { kSystem, kConnection };

struct LogEntry {
  Store store = Store::kSystem;
  int64_t time = 0;  // seconds since the epoch
  int level = 1;     // 1 information, 2 warning, 3 error
  std::string user;
  std::string message;
};

// Where inputs put entries; implemented by the writer's bounded queue. Both calls are safe
// from any thread.
class EntrySink {
 public:
  virtual ~EntrySink() = default;
  // Waits while the queue is full (an input that can make its sender wait, such as a TCP
  // connection, uses this). Returns false once the sink is closed; the entry is then dropped.
  virtual bool Push(LogEntry entry) = 0;
  // Never waits: returns false when the queue is full or closed, and the caller counts the
  // entry as dropped (UDP).
  virtual bool TryPush(LogEntry entry) = 0;
};

}  // namespace logd
