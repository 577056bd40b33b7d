// The bound on downloads running at once.
#include "server/http/download_slots.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/root.h"

std::string DownloadSlotsFolder() { return QuorResolvePath("/var/lib/quor-webapi/downloads"); }

std::string ServerSlotPrefix() { return "slot"; }

std::string UserSlotPrefix(const std::string& user) {
  static const char kHex[] = "0123456789abcdef";
  std::string prefix = "user-";
  for (unsigned char c : user) {
    prefix += kHex[c >> 4];
    prefix += kHex[c & 15];
  }
  return prefix;
}

DownloadSlot::~DownloadSlot() { Release(); }

bool DownloadSlot::Take(const std::string& folder, const std::string& prefix, int count,
                        std::string* error) {
  if (mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) {
    *error = "cannot create " + folder + ": " + strerror(errno);
    return false;
  }
  for (int i = 0; i < count; ++i) {
    std::string path = folder + "/" + prefix + "-" + std::to_string(i);
    int fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0) {
      *error = "cannot open " + path + ": " + strerror(errno);
      return false;
    }
    if (flock(fd, LOCK_EX | LOCK_NB) == 0) {
      fd_ = fd;
      return true;
    }
    close(fd);
  }
  error->clear();
  return false;
}

void DownloadSlot::Release() {
  if (fd_ >= 0) close(fd_);
  fd_ = -1;
}
