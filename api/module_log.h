// The module's system-log lines: "<source name>:<line> <message>".
#pragma once

#include "platform/systemlog.h"

#define QUOR_LOG_SOURCE "QUOR.Core.SyslogClient.Log"

// The line is where the message is written, so an operator's report leads to the code.
#define LOG_ERROR_HERE(format, ...) \
  SLIBCSysLog(LOG_ERR, "%s:%d " format, QUOR_LOG_SOURCE, __LINE__, ##__VA_ARGS__)
#define LOG_DEBUG_HERE(format, ...) \
  SLIBCSysLog(LOG_DEBUG, "%s:%d " format, QUOR_LOG_SOURCE, __LINE__, ##__VA_ARGS__)
// The few lines whose numbers operators' tools already search for keep those numbers wherever
// the code moves.
#define LOG_ERROR_AT(line, format, ...) \
  SLIBCSysLog(LOG_ERR, "%s:%d " format, QUOR_LOG_SOURCE, line, ##__VA_ARGS__)
