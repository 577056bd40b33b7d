// The journal follower: sd-journal entries to rows, each with its entry's cursor.
#include "logd/journal_follower.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "logd/writer.h"
#include "platform/systemlog.h"

namespace logd {

namespace {

// sd-journal hands out at most this many bytes of a field: a message longer than a row takes
// is read only as far as needed, and one that reaches the limit is known to be cut.
constexpr size_t kFieldLimit = kMaxMessageBytes + 64;

bool TakeField(std::string_view data, std::string_view name, std::string* value) {
  if (data.size() < name.size() + 1 || data.compare(0, name.size(), name) != 0 ||
      data[name.size()] != '=') {
    return false;
  }
  value->assign(data.substr(name.size() + 1));
  return true;
}

}  // namespace

JournalFollower::JournalFollower(EntrySink* sink, std::string directory)
    : sink_(sink), directory_(std::move(directory)) {}

JournalFollower::~JournalFollower() {
  Stop();
  if (journal_ != nullptr) sd_journal_close(journal_);
}

bool JournalFollower::Open(const std::string& systemCursor, const std::string& connectionCursor,
                           std::string* error) {
  int r = directory_.empty() ? sd_journal_open(&journal_, SD_JOURNAL_LOCAL_ONLY)
                             : sd_journal_open_directory(&journal_, directory_.c_str(), 0);
  if (r < 0) {
    journal_ = nullptr;
    *error = "cannot open the journal" + (directory_.empty() ? "" : " in " + directory_) + ": " +
             strerror(-r);
    return false;
  }
  sd_journal_set_data_threshold(journal_, kFieldLimit);
  CursorOrder system = ParseCursor(systemCursor);
  CursorOrder connection = ParseCursor(connectionCursor);
  for (const std::string* cursor : {&systemCursor, &connectionCursor}) {
    if (!cursor->empty() && !ParseCursor(*cursor).valid) {
      SLIBCSysLog(LOG_WARNING, "quor-logd: ignoring a saved journal position that is no cursor: %s",
                  cursor->c_str());
    }
  }
  if (!system.valid) system = connection;
  if (!connection.valid) connection = system;
  skipUntil_[0] = system;
  skipUntil_[1] = connection;
  if (!system.valid) {
    r = sd_journal_seek_head(journal_);
  } else {
    bool connectionOlder = IsAfter(system, connection);
    previous_ = connectionOlder ? connection : system;
    const std::string& start =
        connectionOlder || systemCursor.empty() ? connectionCursor : systemCursor;
    r = sd_journal_seek_cursor(journal_, start.c_str());
    seeking_ = true;
  }
  if (r < 0) {
    *error = std::string("cannot seek in the journal: ") + strerror(-r);
    return false;
  }
  return true;
}

void JournalFollower::Start() {
  thread_ = std::thread([this] { Run(); });
}

void JournalFollower::Stop() {
  stop_ = true;
  if (thread_.joinable()) thread_.join();
}

void JournalFollower::Run() {
  bool complained = false;
  while (!stop_) {
    int r = sd_journal_next(journal_);
    if (r > 0) {
      if (!HandleEntry()) return;
      continue;
    }
    if (r < 0 && !complained) {
      SLIBCSysLog(LOG_ERR, "quor-logd: reading the journal failed: %s", strerror(-r));
      complained = true;
    }
    // Rotation and vacuuming show as an invalidation: the reader keeps its place (a cursor
    // position, not a file offset) and reads on; deleted unread entries show as a gap in the
    // numbering of the next entry read.
    r = sd_journal_wait(journal_, 200000);
    if (r == SD_JOURNAL_INVALIDATE) counters_.invalidated++;
  }
}

bool JournalFollower::Push(LogEntry entry) { return sink_->Push(std::move(entry)); }

bool JournalFollower::ReadFields(JournalFields* fields) {
  std::string comm, pid, uid, priority, syslogPid;
  const void* data = nullptr;
  size_t length = 0;
  SD_JOURNAL_FOREACH_DATA(journal_, data, length) {
    std::string_view field(static_cast<const char*>(data), length);
    if (TakeField(field, "MESSAGE", &fields->message)) {
      fields->messageCut = length >= kFieldLimit;
    } else if (!TakeField(field, "SYSLOG_IDENTIFIER", &fields->identifier) &&
               !TakeField(field, "_COMM", &comm) && !TakeField(field, "SYSLOG_PID", &syslogPid) &&
               !TakeField(field, "_PID", &pid) && !TakeField(field, "_UID", &uid)) {
      TakeField(field, "PRIORITY", &priority);
    }
  }
  if (fields->identifier.empty()) fields->identifier = comm;
  fields->pid = syslogPid.empty() ? pid : syslogPid;
  if (!uid.empty()) fields->uid = strtoll(uid.c_str(), nullptr, 10);
  if (priority.size() == 1 && priority[0] >= '0' && priority[0] <= '7') {
    fields->priority = priority[0] - '0';
  }
  uint64_t usec = 0;
  if (sd_journal_get_realtime_usec(journal_, &usec) < 0) return false;
  fields->realtimeUsec = static_cast<int64_t>(usec);
  return true;
}

bool JournalFollower::HandleEntry() {
  char* raw = nullptr;
  if (sd_journal_get_cursor(journal_, &raw) < 0) return true;
  std::unique_ptr<char, decltype(&free)> owned(raw, free);
  std::string cursor = raw;
  CursorOrder order = ParseCursor(cursor);
  counters_.entries++;
  bool firstAfterSeek = seeking_;
  seeking_ = false;

  bool want[2];
  unsigned stores = 0;
  for (int s = 0; s < 2; ++s) {
    want[s] = !skipUntil_[s].valid || IsAfter(order, skipUntil_[s]);
    if (want[s]) {
      skipUntil_[s].valid = false;
      stores |= StoreBit(static_cast<Store>(s));
    }
  }
  std::vector<LogEntry> rows;
  if (previous_.valid && IsAfter(order, previous_) && want[0]) {
    int64_t lost = EntriesBetween(previous_, order);
    std::string between =
        LocalTimeText(previous_.realtimeUsec) + " and " + LocalTimeText(order.realtimeUsec);
    if (lost > 0) {
      counters_.lost += static_cast<uint64_t>(lost);
      rows.push_back(OwnEntry(2, std::to_string(lost) + " journal entries between " + between +
                                     " were deleted from the journal before they were read."));
    } else if (lost < 0 && firstAfterSeek) {
      rows.push_back(OwnEntry(2, "The saved journal position was not found; entries between " +
                                     between + " may have been deleted before they were read."));
    }
  }
  if (!previous_.valid || IsAfter(order, previous_)) previous_ = order;
  if (stores == 0) return true;

  JournalFields fields;
  if (!ReadFields(&fields)) return true;
  if (want[0]) rows.push_back(SystemRow(fields, &accounts_));
  LogEntry connection;
  if (want[1] && ConnectionRow(fields, &connection)) rows.push_back(std::move(connection));
  if (rows.empty()) return true;
  for (LogEntry& row : rows) row.positionInput = kJournalInput;
  rows.back().position = cursor;
  rows.back().positionStores = stores;
  for (LogEntry& row : rows) {
    if (!Push(std::move(row))) return false;
  }
  return true;
}

}  // namespace logd
