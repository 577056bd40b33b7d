// System-log output, with a process-wide sink that tools and tests may install.
#include "platform/systemlog.h"

#include <stdarg.h>
#include <stdio.h>

#include <atomic>
#include <mutex>
#include <string>

namespace {

std::mutex gSinkMutex;
SysLogSink gSink = nullptr;
void* gSinkContext = nullptr;

}  // namespace

void SLIBCSysLogSetSink(SysLogSink sink, void* context) {
  std::lock_guard<std::mutex> lock(gSinkMutex);
  gSink = sink;
  gSinkContext = context;
}

void SLIBCSysLog(int priority, const char* format, ...) {
  char small[1024];
  va_list args;
  va_start(args, format);
  int needed = vsnprintf(small, sizeof small, format, args);
  va_end(args);
  if (needed < 0) return;
  std::string line;
  if (static_cast<size_t>(needed) < sizeof small) {
    line.assign(small, needed);
  } else {
    line.resize(needed + 1);
    va_start(args, format);
    vsnprintf(&line[0], line.size(), format, args);
    va_end(args);
    line.resize(needed);
  }
  std::lock_guard<std::mutex> lock(gSinkMutex);
  if (gSink != nullptr) {
    gSink(priority, line.c_str(), gSinkContext);
  } else {
    syslog(LOG_USER | priority, "%s", line.c_str());
  }
}
