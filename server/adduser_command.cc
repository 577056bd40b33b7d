// quor-webapi adduser: not available yet.
#include <stdio.h>

#include "server/commands.h"

int AddUserCommand(const Args&) {
  fputs("quor-webapi adduser: not available yet\n", stderr);
  return kExitUsage;
}
