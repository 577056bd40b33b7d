// The module's system-log lines: "<source name>:<line> <message>".
#pragma once

#include "platform/systemlog.h"

#define QUOR_LOG_SOURCE "QUOR.Core.SyslogClient.Log"

// Failure lines carry a fixed line number that operators search for, so it is spelled out at
// each call rather than taken from __LINE__.
#define LOG_ERROR_AT(line, format, ...) \
  SLIBCSysLog(LOG_ERR, "%s:%d " format, QUOR_LOG_SOURCE, line, ##__VA_ARGS__)
#define LOG_DEBUG_AT(line, format, ...) \
  SLIBCSysLog(LOG_DEBUG, "%s:%d " format, QUOR_LOG_SOURCE, line, ##__VA_ARGS__)
