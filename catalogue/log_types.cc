// The log-type catalogue and its class lists.
#include "catalogue/log_types.h"

#include <string.h>
#include <strings.h>

// Ids repeat across rows (7 and 15) and "connection" names ".QUORSYSDB" as its store: both are
// kept as the rest of the platform knows them; database paths come from LogDatabaseFile.
const LogTypeEntry kLogTypes[kLogTypeCount + 1] = {
    {1, "system", ".QUORSYSDB", "syslog", "log_link_system"},
    {3, "connection", ".QUORSYSDB", "connectlog", "log_link_connection"},
    {5, "bkplog", "quorbackup.log", "TesseraLog", "log_link_backup"},
    {6, "copylog", "quorcopy.log", "copylog", "log_link_copy"},
    {7, "netbkplog", ".QUORNETBKPDB", "netbkplog", "log_link_netbkp"},
    {15, "bkpserverlog", "quorbackup_server.log", "bkpserverlog", "log_link_backup_server"},
    {15, "disk", ".QUORDISKDB", "disklog", "disk_related"},
    {7, "ftpxfer", ".FTPXFERDB", "ftpxferlog", "log_ftp_xfer"},
    {8, "kyrfmxfer", ".KYRFMXFERDB", "kyrfmxferlog", "log_filebrowser_xfer"},
    {10, "webdavxfer", ".WEBDAVXFERDB", "webdavxferlog", "log_webdav_xfer"},
    {11, "smbxfer", ".SMBXFERDB", "smbxferlog", "log_smb_xfer"},
    {13, "afpxfer", ".AFPXFERDB", "afpxferlog", "log_afp_xfer"},
    {12, "tftpxfer", ".TFTPXFERDB", "tftpxferlog", "log_tftp_xfer"},
    {0, nullptr, nullptr, nullptr, nullptr},
};

const char* const kTransferLogTypes[] = {"ftpxfer", "kyrfmxfer", "webdavxfer", "smbxfer",
                                         "afpxfer", "tftpxfer",  nullptr};
const char* const kDatabaseLogTypes[] = {"system", "connection", "netbkplog", nullptr};
const char* const kDiskLogTypes[] = {"disk", nullptr};
const char* const kPlainLogTypes[] = {"bkplog", "copylog", "bkpserverlog", nullptr};

const LogTypeEntry* FindLogTypeEntry(const std::string& name) {
  for (const LogTypeEntry* row = kLogTypes; row->name != nullptr; ++row) {
    if (name == row->name) return row;
  }
  return nullptr;
}

bool IsInList(const char* name, const char* const* list) {
  if (name == nullptr || list == nullptr) return false;
  for (; *list != nullptr; ++list) {
    if (strcasecmp(name, *list) == 0) return true;
  }
  return false;
}

const char* LogDatabaseFile(const char* name) {
  static const struct {
    const char* name;
    const char* path;
  } kDatabases[] = {
      {"system", "/var/log/quorlog/.QUORSYSDB"},
      {"connection", "/var/log/quorlog/.QUORCONNDB"},
      {"netbkplog", "/var/log/quorlog/.QUORNETBKPDB"},
      {"disk", "/var/log/quorlog/.QUORDISKDB"},
  };
  for (const auto& db : kDatabases) {
    if (name != nullptr && strcmp(name, db.name) == 0) return db.path;
  }
  return nullptr;
}

bool IsDbLogType(const char* name) { return IsInList(name, kDatabaseLogTypes); }
bool IsXferLogType(const char* name) { return IsInList(name, kTransferLogTypes); }
bool IsDiskLogType(const char* name) { return IsInList(name, kDiskLogTypes); }
bool IsPlainLogType(const char* name) { return IsInList(name, kPlainLogTypes); }

std::string GetLogTypeTextKey(const std::string& name) {
  for (int i = 0; i < kLogTypeCount; ++i) {
    if (name == kLogTypes[i].name) {
      return IsXferLogType(kLogTypes[i].name) ? "log_xfer" : kLogTypes[i].textKey;
    }
  }
  return "log_link_system";
}
