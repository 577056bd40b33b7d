// File existence and key-value configuration files.
#include <string.h>
#include <sys/stat.h>

#include <fstream>
#include <string>

#include "key_value_file.h"
#include "platform/root.h"
#include "platform/slibc.h"

int SLIBCFileExist(const char* path) {
  if (path == nullptr) return 0;
  struct stat st;
  return stat(QuorResolvePath(path).c_str(), &st) == 0 && S_ISREG(st.st_mode) ? 1 : 0;
}

int SLIBCFileGetKeyValue(const char* path, const char* key, char* value, size_t size, int) {
  if (path == nullptr || key == nullptr || value == nullptr || size == 0) return -1;
  std::string found;
  int rc = ReadKeyValue(QuorResolvePath(path), key, &found);
  if (rc <= 0) return rc;
  size_t n = found.size() < size - 1 ? found.size() : size - 1;
  memcpy(value, found.data(), n);
  value[n] = '\0';
  return static_cast<int>(found.size()) + 1;
}
