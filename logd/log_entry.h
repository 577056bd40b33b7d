// One log entry on its way from an input (journal, syslog receiver, server) to the writer,
// and the interface through which inputs hand entries over.
#pragma once

#include <cstdint>
#include <string>

namespace logd {

// The account that rows of the system's own services carry in the stores.
constexpr char kSystemUser[] = "SYSTEM";

// The store an entry is written to.
enum class Store { kSystem, kConnection };

struct LogEntry {
  Store store = Store::kSystem;
  int64_t time = 0;  // seconds since the epoch
  int level = 1;     // 1 information, 2 warning, 3 error
  std::string user;
  std::string message;
  // Where the input stands once this entry is written (a journal cursor), or empty for inputs
  // that keep no position. The writer commits it in the same transaction as the rows, to each
  // store whose bit (1 << Store) is set in positionStores, under the name positionInput; so a
  // restart resumes after the last entry written, never before or after it. An entry with
  // positionInput set and position empty belongs to the next entry of that input: the two are
  // written in the same transaction.
  std::string position;
  std::string positionInput;
  unsigned positionStores = 0;
};

// The bit of a store in LogEntry::positionStores.
inline unsigned StoreBit(Store store) { return 1u << static_cast<unsigned>(store); }

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
