// quor-webapi serve: not available yet.
#include <stdio.h>

#include "server/commands.h"

int ServeCommand(const Args&) {
  fputs("quor-webapi serve: not available yet\n", stderr);
  return kExitUsage;
}
