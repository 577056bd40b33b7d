// Where the modules' system-log lines go.
#include "server/module_log_output.h"

#include <stdio.h>
#include <sys/stat.h>

#include "platform/systemlog.h"
#include "server/error_report.h"

namespace {

const char* PriorityName(int priority) {
  switch (priority & LOG_PRIMASK) {
    case LOG_EMERG:
      return "emerg";
    case LOG_ALERT:
      return "alert";
    case LOG_CRIT:
      return "crit";
    case LOG_ERR:
      return "err";
    case LOG_WARNING:
      return "warning";
    case LOG_NOTICE:
      return "notice";
    case LOG_INFO:
      return "info";
    default:
      return "debug";
  }
}

void ToStandardError(int priority, const char* line, void*) {
  // One write per line, so that lines of several processes do not interleave.
  ReportError("syslog %s: %s", PriorityName(priority), line);
  fflush(stderr);
}

}  // namespace

void RouteModuleLog(bool force) {
  struct stat st;
  bool hasSyslog = stat("/dev/log", &st) == 0 && S_ISSOCK(st.st_mode);
  if (force || !hasSyslog) SLIBCSysLogSetSink(ToStandardError, nullptr);
}
