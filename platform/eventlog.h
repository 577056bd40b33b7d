// The platform's event log (rows of the system log database) and activity log.
#pragma once

#include <string>

// Everything declared below is the platform's exported surface.
#pragma GCC visibility push(default)

// Writes one event row to the system log database "/var/log/quorlog/.QUORSYSDB" (created with
// its schema when missing): time now, level "info", user "SYSTEM", and the localized message of
// the event code filled with the text arguments that follow (exactly four const char*).
// category and facility are passed through by callers (2 and 1 for log events).
// Returns 0, or -1 when the code is unknown or the row cannot be written.
int QUORLogSet1(int category, int facility, unsigned int code, ...);

// The activity log "/var/log/quorlog/activity.jsonl": one JSON object a line.
class Logger {
 public:
  // Records that user cleared the log type. Appends never interleave between processes.
  // Returns 0, or -1 when the line cannot be written.
  int LogAddLogClear(const std::string& logType, const std::string& user);
};

#pragma GCC visibility pop
