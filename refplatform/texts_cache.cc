// The parsed localized-text files of the process, shared by every bundle.
#include "texts_cache.h"

#include <sys/stat.h>

#include <map>
#include <mutex>

namespace {

// What tells one version of a file from another.
struct FileIdentity {
  bool exists = false;
  dev_t device = 0;
  ino_t inode = 0;
  off_t size = 0;
  long long modified = 0;  // nanoseconds

  bool operator==(const FileIdentity& o) const {
    return exists == o.exists && device == o.device && inode == o.inode && size == o.size &&
           modified == o.modified;
  }
};

FileIdentity IdentityOf(const std::string& fileName) {
  FileIdentity id;
  struct stat st;
  if (stat(fileName.c_str(), &st) != 0) return id;
  id.exists = true;
  id.device = st.st_dev;
  id.inode = st.st_ino;
  id.size = st.st_size;
  id.modified = st.st_mtim.tv_sec * 1000000000LL + st.st_mtim.tv_nsec;
  return id;
}

struct CachedFile {
  FileIdentity identity;
  std::shared_ptr<const TextSections> sections;
};

std::mutex gMutex;
std::map<std::string, CachedFile>& Files() {
  static auto* files = new std::map<std::string, CachedFile>;  // lives until the process ends
  return *files;
}

}  // namespace

std::shared_ptr<const TextSections> CachedTextsFile(const std::string& fileName) {
  FileIdentity identity = IdentityOf(fileName);
  {
    std::lock_guard<std::mutex> lock(gMutex);
    auto it = Files().find(fileName);
    if (it != Files().end() && it->second.identity == identity) return it->second.sections;
  }
  // Parsed outside the lock; two threads may both parse a changed file, and either result is
  // the file's.
  auto sections = std::make_shared<TextSections>();
  if (identity.exists) ReadTextsFile(fileName, sections.get());
  std::lock_guard<std::mutex> lock(gMutex);
  CachedFile& entry = Files()[fileName];
  entry.identity = identity;
  entry.sections = sections;
  return sections;
}
