#include "server/error_report.h"

#include <stdarg.h>
#include <stdio.h>

void ReportError(const char* format, ...) {
  char line[4096];
  va_list args;
  va_start(args, format);
  int length = vsnprintf(line, sizeof line, format, args);
  va_end(args);
  if (length < 0) return;
  fprintf(stderr, "quor-webapi: %s\n", line);
  fflush(stderr);
}
