// Output to the system log (syslog(3), facility LOG_USER) with printf-style formatting.
#pragma once

#include <syslog.h>

// Everything declared below is the platform's exported surface.
#pragma GCC visibility push(default)

// Formats the message and sends it to the system log at the given priority (LOG_ERR,
// LOG_DEBUG, ...). Never fails visibly: a message that cannot be formatted is dropped.
void SLIBCSysLog(int priority, const char* format, ...) __attribute__((format(printf, 2, 3)));

// Where formatted lines go instead of syslog(3) while a sink is installed: tools and tests use
// it to capture the lines with their priority. A null sink restores syslog(3). The sink is
// process-wide and may be called from any thread.
typedef void (*SysLogSink)(int priority, const char* line, void* context);
void SLIBCSysLogSetSink(SysLogSink sink, void* context);

#pragma GCC visibility pop
