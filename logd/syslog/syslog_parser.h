// Parsing one received syslog message (a UDP datagram or one TCP frame) into a system-log
// entry: RFC 5424, RFC 3164 with the deviations devices send, and anything else kept whole.
#pragma once

#include <cstdint>
#include <string_view>

#include "logd/log_entry.h"
#include "logd/syslog/syslog_time.h"

namespace logd::syslog {

enum class SyslogFormat { kRfc5424, kRfc3164, kUnknown };

struct ParseContext {
  std::string_view sender;  // the sender's address: the host of a message that names none
  int64_t now = 0;          // receive time, seconds since the epoch
  const TimeZoneSetting* zone = nullptr;  // for timestamps without an offset; null: UTC
};

// Fills |entry| (system store, user "SYSTEM") from |raw| and returns the format found. Never
// fails: input that fits neither format becomes the message "SENDER RAW" at level information
// and receive time. The message reads "HOST APP[PROCID]: MSG" (parts a message lacks are left
// out with their punctuation); RFC 5424 structured data and MSGID stay in the text before MSG.
// Invalid UTF-8 is replaced, and the message is cut to 64 KiB and marked, also when |cut| says
// the transport already cut |raw|.
SyslogFormat ParseSyslogMessage(std::string_view raw, bool cut, const ParseContext& context,
                                LogEntry* entry);

// The entry's level for a syslog severity: 0-3 error (3), 4 warning (2), 5-7 information (1).
int LevelOfSeverity(int severity);

}  // namespace logd::syslog
