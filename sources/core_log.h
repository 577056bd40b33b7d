// The core's system-log lines: "<module name>:<line> <message>", named after the module whose
// call is running, so that an operator's report leads to the module and to the code.
#pragma once

#include "platform/systemlog.h"

// A module's log: the name its lines carry. Each module installs its own for the length of each
// of its calls (LogScope); the core writes every line through the one installed.
struct ModuleLog {
  const char* name;
};

// Installs log for the calling thread until destroyed, then restores the one before. Scopes
// nest; the module starts no thread, so a call's lines all run under its scope.
class LogScope {
 public:
  explicit LogScope(const ModuleLog& log);
  ~LogScope();
  LogScope(const LogScope&) = delete;
  LogScope& operator=(const LogScope&) = delete;

 private:
  const ModuleLog* previous_;
};

// The log installed on this thread; "QUOR.LogCore" outside every module call.
const ModuleLog& CurrentLog();

// The line is where the message is written, so an operator's report leads to the code.
#define LOG_ERROR_HERE(format, ...) \
  SLIBCSysLog(LOG_ERR, "%s:%d " format, CurrentLog().name, __LINE__, ##__VA_ARGS__)
#define LOG_DEBUG_HERE(format, ...) \
  SLIBCSysLog(LOG_DEBUG, "%s:%d " format, CurrentLog().name, __LINE__, ##__VA_ARGS__)
// The few lines whose numbers operators' tools already search for keep those numbers wherever
// the code moves.
#define LOG_ERROR_AT(line, format, ...) \
  SLIBCSysLog(LOG_ERR, "%s:%d " format, CurrentLog().name, line, ##__VA_ARGS__)
