// quor-logd's configuration file: retention per store and the queue's size.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "logd/syslog/receiver_config.h"

namespace logd {

// What a store may hold; 0 turns a limit off.
struct StoreLimits {
  int64_t maxRows = 0;
  int64_t maxBytes = 0;       // pages in use, not counting pages already freed
  int64_t maxDays = 0;        // rows older than this many days (by their time) go
  int64_t keepFreeBytes = 0;  // oldest rows go while the file system has less free space
};

struct LogdConfig {
  StoreLimits system{1000000, 512ll << 20, 365, 256ll << 20};
  StoreLimits connection{500000, 256ll << 20, 365, 256ll << 20};
  size_t queueEntries = 100000;
  size_t queueBytes = 64u << 20;
  syslog::SyslogConfig syslog;  // the "syslog_..." keys (logd/syslog/receiver_config.h)
};

// The configuration file's place under the appliance root.
constexpr char kConfigPath[] = "/etc/quor-logd.conf";

// Reads key=value lines ("#" starts a comment; sizes take a K, M or G suffix) over the
// defaults. A missing file leaves the defaults. Returns false with *error naming the file and
// line of an unknown key or a bad value; *config is then unchanged.
bool LoadConfig(const std::string& realPath, LogdConfig* config, std::string* error);

}  // namespace logd
