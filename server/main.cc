// quor-webapi: the platform's web-API server and its command-line companions.
#include <stdio.h>
#include <stdlib.h>

#include "server/commands.h"

const char kUsage[] =
    "usage: quor-webapi call [--root DIR] [--modules DIR] [--user NAME] [--lang LANG]\n"
    "                        [--log-stderr] API VERSION METHOD [NAME=VALUE ...]\n"
    "       quor-webapi serve --root DIR [--listen 127.0.0.1:8080] [--workers N]\n"
    "                         [--modules DIR] [--ui DIR] [--trust-proxy] [--secure-cookie]\n"
    "                         [--log-stderr] [--method-limit SECONDS] [--max-downloads N]\n"
    "                         [--max-downloads-per-user N] [--download-method API.METHOD]...\n"
    "                         [--host-name NAME[,NAME...]]...\n"
    "       quor-webapi adduser --root DIR NAME [--admin] [--lang en|de]   (password on stdin)\n";

int UsageError(const char* command, const std::string& message) {
  fprintf(stderr, "quor-webapi %s: %s\n%s", command, message.c_str(), kUsage);
  return kExitUsage;
}

void UseRoot(const std::string& dir) {
  // Absolute, so that a worker or a method that changes directory still finds it.
  char* absolute = realpath(dir.c_str(), nullptr);
  setenv("QUOR_ROOT", absolute != nullptr ? absolute : dir.c_str(), 1);
  free(absolute);
}

int main(int argc, char** argv) {
  if (argc < 2) {
    fputs(kUsage, stderr);
    return kExitUsage;
  }
  std::string command = argv[1];
  Args args(argv + 2, argv + argc);
  if (command == "call") return CallCommand(args);
  if (command == "serve") return ServeCommand(args);
  if (command == "adduser") return AddUserCommand(args);
  if (command == "--help" || command == "-h" || command == "help") {
    fputs(kUsage, stdout);
    return kExitOk;
  }
  fprintf(stderr, "quor-webapi: unknown command '%s'\n%s", command.c_str(), kUsage);
  return kExitUsage;
}
