// quor-logdemo: lays out a complete appliance root with realistic logs.
//   quor-logdemo --root DIR [--rows N] [--seed S] [--texts DIR] [--end EPOCH]
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <chrono>
#include <string>

#include "tools/lib/log_demo.h"

#ifndef QUOR_SOURCE_DIR
#define QUOR_SOURCE_DIR "."
#endif

namespace {

int Usage(const char* message) {
  if (message != nullptr) fprintf(stderr, "quor-logdemo: %s\n", message);
  fprintf(stderr,
          "usage: quor-logdemo --root DIR [--rows N] [--seed S] [--texts DIR] [--end EPOCH]\n"
          "  --rows   rows of the system log (default 20000); the other logs are sized from it\n"
          "  --seed   the same seed (and end) gives the same root (default 1)\n"
          "  --texts  the texts folder to install (default %s/texts)\n"
          "  --end    newest log time in epoch seconds (default: today's midnight, UTC)\n",
          QUOR_SOURCE_DIR);
  return 2;
}

// A non-negative decimal number that fits in a long long.
bool ParseNumber(const char* text, long long* value) {
  if (text == nullptr || *text == '\0') return false;
  char* end = nullptr;
  errno = 0;
  long long v = strtoll(text, &end, 10);
  if (errno != 0 || *end != '\0' || v < 0) return false;
  *value = v;
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  DemoOptions options;
  options.textsDir = QUOR_SOURCE_DIR "/texts";
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    if (arg == "--help" || arg == "-h") {
      Usage(nullptr);
      return 0;
    }
    if (i + 1 >= argc) return Usage(("missing value after " + arg).c_str());
    const char* value = argv[++i];
    long long number = 0;
    if (arg == "--root") {
      options.root = value;
    } else if (arg == "--texts") {
      options.textsDir = value;
    } else if (arg == "--rows" && ParseNumber(value, &number)) {
      options.rows = number;
    } else if (arg == "--seed" && ParseNumber(value, &number)) {
      options.seed = static_cast<uint64_t>(number);
    } else if (arg == "--end" && ParseNumber(value, &number)) {
      options.end = static_cast<time_t>(number);
    } else {
      return Usage(("bad option or value: " + arg + " " + value).c_str());
    }
  }
  if (options.root.empty()) return Usage("--root is required");
  auto start = std::chrono::steady_clock::now();
  std::string error;
  if (!BuildDemoRoot(options, &error)) {
    fprintf(stderr, "quor-logdemo: %s\n", error.c_str());
    return 1;
  }
  double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  printf("Appliance root %s ready (%lld system log rows, seed %llu) in %.1f s.\n",
         options.root.c_str(), static_cast<long long>(options.rows),
         static_cast<unsigned long long>(options.seed), seconds);
  return 0;
}
