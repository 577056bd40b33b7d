// The activity log: who did what, one JSON object a line.
#include <errno.h>
#include <fcntl.h>
#include <json/writer.h>
#include <sys/file.h>
#include <time.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "platform/eventlog.h"
#include "platform/root.h"

namespace {

const char kActivityLog[] = "/var/log/quorlog/activity.jsonl";

// Appends line with one write(2) on an O_APPEND descriptor, under an exclusive lock, so lines
// of concurrent writers (threads or processes) never interleave or tear.
int AppendLine(const std::string& line) {
  std::string path = QuorResolvePath(kActivityLog);
  std::error_code failed;
  std::filesystem::create_directories(std::filesystem::path(path).parent_path(), failed);
  if (failed) return -1;
  int fd = open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
  if (fd < 0) return -1;
  int rc = -1;
  if (flock(fd, LOCK_EX) == 0) {
    ssize_t written;
    do {
      written = write(fd, line.data(), line.size());
    } while (written < 0 && errno == EINTR);
    if (written == static_cast<ssize_t>(line.size())) rc = 0;
    flock(fd, LOCK_UN);
  }
  close(fd);
  return rc;
}

}  // namespace

int Logger::LogAddLogClear(const std::string& logType, const std::string& user) {
  try {
    Json::Value entry(Json::objectValue);
    entry["time"] = static_cast<Json::Int64>(time(nullptr));
    entry["user"] = user;
    entry["action"] = "clear";
    entry["logtype"] = logType;
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    builder["emitUTF8"] = true;
    return AppendLine(Json::writeString(builder, entry) + "\n");
  } catch (...) {
    return -1;  // out of memory: the entry is lost, the caller goes on
  }
}
