// Directories of the platform's own log files.
#include "log_dir.h"

#include <errno.h>
#include <sys/stat.h>

bool MakeParentDirs(const std::string& filePath) {
  size_t slash = filePath.find('/', 1);
  while (slash != std::string::npos) {
    std::string dir = filePath.substr(0, slash);
    if (mkdir(dir.c_str(), 0755) != 0 && errno != EEXIST) return false;
    slash = filePath.find('/', slash + 1);
  }
  return true;
}
