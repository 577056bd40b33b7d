// Realistic log stores for a demo appliance root, for tests and for benchmarks. The content is a
// function of the seed and the end time only: the same arguments give the same files.
#pragma once

#include <stdint.h>
#include <time.h>

#include <string>

struct DemoOptions {
  std::string root;      // the appliance root to lay out (created when missing)
  std::string textsDir;  // the source tree's texts/ folder
  int64_t rows = 20000;  // rows of the system log; the other stores are sized from it
  uint64_t seed = 1;
  time_t end = 0;  // newest log time; 0: today's midnight (UTC)
};

// Lays out a complete appliance root: the texts, "/etc.defaults/quorinfo.conf",
// "/etc/quor.conf" and the stores of all thirteen log types with content spread over the
// months before options.end. Existing stores are replaced. Returns false with *error set.
bool BuildDemoRoot(const DemoOptions& options, std::string* error);

// The pieces, on real paths, for callers that need one store (benchmarks, tests). Each replaces
// the file. kind is "system", "connection" or "netbkplog" for WriteSystemLog.
bool WriteSystemLog(const std::string& path, const char* kind, int64_t rows, uint64_t seed,
                    time_t end, std::string* error);
bool WriteTransferLog(const std::string& path, int64_t rows, uint64_t seed, time_t end,
                      std::string* error);
bool WriteDiskLog(const std::string& path, const std::string& model, int64_t rows, uint64_t seed,
                  time_t end, std::string* error);
// A plain-text backup log of at least minBytes (and at least minLines lines), oldest line first.
bool WritePlainLog(const std::string& path, const char* kind, int64_t minLines, int64_t minBytes,
                   uint64_t seed, time_t end, std::string* error);

// The model name the demo root's quorinfo.conf gives.
extern const char kDemoModelName[];
