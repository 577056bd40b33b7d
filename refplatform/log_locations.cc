// Where the platform keeps its logs.
#include <string.h>

#include "platform/logfiles.h"
#include "platform/root.h"

namespace {

const char kLogDatabaseDir[] = "/var/log/quorlog/";

// The transfer services' databases, one per protocol.
struct TransferStore {
  const char* logType;
  const char* file;
};
const TransferStore kTransferStores[] = {
    {"ftpxfer", ".FTPXFERDB"}, {"kyrfmxfer", ".KYRFMXFERDB"}, {"webdavxfer", ".WEBDAVXFERDB"},
    {"smbxfer", ".SMBXFERDB"}, {"afpxfer", ".AFPXFERDB"},     {"tftpxfer", ".TFTPXFERDB"},
    {nullptr, nullptr},
};

// The backup services' plain-text logs by log id.
struct PlainLogFile {
  int id;
  const char* path;
};
const PlainLogFile kPlainLogFiles[] = {
    {5, "/var/log/quorbackup.log"},
    {6, "/var/log/quorcopy.log"},
    {15, "/var/log/quorbackup_server.log"},
    {0, nullptr},
};

}  // namespace

std::string XferlogDBPathGet(const char* logType) {
  if (logType == nullptr) return std::string();
  for (const TransferStore* s = kTransferStores; s->logType != nullptr; ++s) {
    if (strcmp(s->logType, logType) == 0) {
      return QuorResolvePath(std::string(kLogDatabaseDir) + s->file);
    }
  }
  return std::string();
}

int QUORLogFilePathGet(int logId, char* buffer, size_t size) {
  if (buffer == nullptr || size == 0) return -1;
  for (const PlainLogFile* f = kPlainLogFiles; f->path != nullptr; ++f) {
    if (f->id != logId) continue;
    std::string path = QuorResolvePath(f->path);
    if (path.size() >= size) return -1;
    memcpy(buffer, path.c_str(), path.size() + 1);
    return 0;
  }
  return -1;
}
