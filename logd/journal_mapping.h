// How a journal entry becomes rows: the system-log row of every entry, and the connection-log
// row of sshd's sign-ins, failed sign-ins and sign-outs.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <string>

#include "logd/log_entry.h"

namespace logd {

// The fields of one journal entry that the rows use.
struct JournalFields {
  int64_t realtimeUsec = 0;
  std::string message;      // MESSAGE, possibly binary or longer than a row takes
  bool messageCut = false;  // the journal handed out only the start of MESSAGE
  std::string identifier;   // SYSLOG_IDENTIFIER, else _COMM
  std::string pid;          // SYSLOG_PID, else _PID
  int priority = 6;         // PRIORITY; information when missing
  int64_t uid = -1;         // _UID; -1 when missing
};

// The longest message a row takes, in bytes.
constexpr size_t kMaxMessageBytes = 64 * 1024;

// MESSAGE as row text: valid UTF-8 kept as it is; any other byte written as "\xNN" and the
// text then starts with "[binary] "; longer than kMaxMessageBytes (or cut by the journal) it
// is cut at a character boundary and ends with " [cut]", the whole within kMaxMessageBytes.
std::string MessageText(const std::string& message, bool alreadyCut);

// Names of accounts by user id, looked up once each (at most a few thousand kept).
class AccountNames {
 public:
  // The account of a user process (user ids 1000 to 65533): its name, or the number when the
  // id has no account; kSystemUser for the system's own processes and when uid is -1.
  const std::string& Of(int64_t uid);

 private:
  std::map<int64_t, std::string> names_;
  std::string system_ = kSystemUser;
};

// The system-log row: time (seconds of the realtime stamp), level (PRIORITY 0-3 error,
// 4 warning, 5-7 information), user, and "IDENTIFIER[PID]: MESSAGE" ("IDENTIFIER: MESSAGE"
// without a pid, "unknown" without an identifier).
LogEntry SystemRow(const JournalFields& fields, AccountNames* accounts);

// The connection-log row of an sshd entry, in the connection log's phrasing:
//   "Accepted <method> for USER from ADDR ..."  -> "User [USER] signed in from [ADDR] via [SSH]."
//   "Failed <method> for [invalid user ]USER from ADDR ..."
//       -> "User [USER] failed to sign in from [ADDR] via [SSH]: wrong password." (warning)
//   "Disconnected from user USER ADDR ..."       -> "User [USER] signed out."
// Returns false for every other entry.
bool ConnectionRow(const JournalFields& fields, LogEntry* row);

// The parts of a journal cursor that order entries ("s=seqnum id;i=seqnum;...;t=realtime").
struct CursorOrder {
  std::string seqnumId;
  uint64_t seqnum = 0;
  uint64_t realtimeUsec = 0;
  bool valid = false;
};
CursorOrder ParseCursor(const std::string& cursor);
// True when entry a comes after entry b: by seqnum within one seqnum id (one journal's
// numbering), by realtime across ids.
bool IsAfter(const CursorOrder& a, const CursorOrder& b);
// The number of entries missing between b and a (a after b), or -1 when their numberings
// differ and the count cannot be known.
int64_t EntriesBetween(const CursorOrder& b, const CursorOrder& a);

// "YYYY-MM-DD HH:MM:SS" of a realtime stamp in local time.
std::string LocalTimeText(uint64_t realtimeUsec);

}  // namespace logd
