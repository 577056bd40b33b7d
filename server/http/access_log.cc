// The access log.
#include "server/http/access_log.h"

#include <stdio.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

namespace {

// A field as one word: blanks and control characters (client-chosen texts) become '_'.
std::string Word(const std::string& text) {
  std::string word = text.empty() ? "-" : text.substr(0, 200);
  for (char& c : word) {
    if (static_cast<unsigned char>(c) <= ' ' || c == 0x7f) c = '_';
  }
  return word;
}

}  // namespace

void WriteAccessLine(const std::string& client, const std::string& user, const std::string& what,
                     unsigned status, int64_t bytes, double durationMs) {
  timeval now;
  gettimeofday(&now, nullptr);
  tm utc;
  gmtime_r(&now.tv_sec, &utc);
  char stamp[32];
  strftime(stamp, sizeof stamp, "%Y-%m-%dT%H:%M:%S", &utc);
  std::string size = bytes >= 0 ? std::to_string(bytes) : "-";
  char line[1024];
  int length = snprintf(line, sizeof line, "%s.%03ldZ %s %s %s %u %s %.1fms\n", stamp,
                        static_cast<long>(now.tv_usec / 1000), Word(client).c_str(),
                        Word(user).c_str(), Word(what).c_str(), status, size.c_str(), durationMs);
  if (length < 0) return;
  if (length >= static_cast<int>(sizeof line)) {
    length = sizeof line - 1;
    line[length - 1] = '\n';
  }
  ssize_t ignored = write(2, line, length);
  (void)ignored;
}
