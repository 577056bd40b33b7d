// The access log: one line per request on standard error.
#pragma once

#include <stdint.h>

#include <string>

// Writes "TIME CLIENT USER WHAT STATUS BYTES DURATIONms" (UTC time in ISO 8601, "-" for an
// unknown byte count) as one write, so lines of concurrent workers never interleave.
void WriteAccessLine(const std::string& client, const std::string& user, const std::string& what,
                     unsigned status, int64_t bytes, double durationMs);
