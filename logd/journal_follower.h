// The journal follower: reads the machine's journal (or a folder of journal files) through
// sd-journal and hands each entry's rows, with the entry's cursor, to the writer.
#pragma once

#include <systemd/sd-journal.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>

#include "logd/journal_mapping.h"
#include "logd/log_entry.h"

namespace logd {

// The name under which the follower's cursor is saved in the stores.
constexpr char kJournalInput[] = "journal";

struct JournalCounters {
  std::atomic<uint64_t> entries{0};      // entries read
  std::atomic<uint64_t> lost{0};         // entries known to have been deleted unread
  std::atomic<uint64_t> invalidated{0};  // times the journal's files changed under the reader
};

// Follows one journal from the positions saved in the stores. Exactly once: every row it hands
// over carries the cursor of its entry (LogEntry::position); rows of one entry are one group.
// On start it goes back to the older of the two stores' cursors and, until it passes a store's
// own cursor, hands that store nothing: after a crash between the two stores' commits, the
// store behind catches up alone. A store with no cursor (new, or replaced) starts where the
// other one is; with no cursor at all the whole journal is read.
// Entries deleted before they were read (journald's vacuuming) are told in a system-log row
// with their number and the times between which they were.
class JournalFollower {
 public:
  // directory empty: the machine's journal (system and users', this machine's only).
  JournalFollower(EntrySink* sink, std::string directory);
  ~JournalFollower();  // stops and joins

  // Opens the journal and seeks. Returns false with *error set.
  bool Open(const std::string& systemCursor, const std::string& connectionCursor,
            std::string* error);
  void Start();
  void Stop();

  const JournalCounters& counters() const { return counters_; }

 private:
  void Run();
  // Hands over the rows of the current entry. Returns false once the sink refuses.
  bool HandleEntry();
  bool ReadFields(JournalFields* fields);
  bool Push(LogEntry entry);

  EntrySink* sink_;
  std::string directory_;
  sd_journal* journal_ = nullptr;
  AccountNames accounts_;
  // Per store (system, connection): the cursor it already holds; empty once passed.
  CursorOrder skipUntil_[2];
  CursorOrder previous_;  // the last entry seen (or the cursor sought), for gap detection
  bool seeking_ = false;  // the next entry is the first after seeking to a saved cursor
  std::atomic<bool> stop_{false};
  std::thread thread_;
  JournalCounters counters_;
};

}  // namespace logd
