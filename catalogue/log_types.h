// The catalogue of the thirteen log types, their four classes, and lookups by name.
#pragma once

#include <cstdint>
#include <string>

struct LogTypeEntry {
  int32_t id;              // log id handed to QUORLogFilePathGet (plain-text logs)
  const char* name;        // log-type name; key of every lookup (exact comparison)
  const char* storeFile;   // database file in "/var/log/quorlog/" or plain-text file name
  const char* exportBase;  // base of an export's file name
  const char* textKey;     // key of the display name in section "log"
};

constexpr int kLogTypeCount = 13;
// The thirteen rows, then a row whose name is null.
extern const LogTypeEntry kLogTypes[kLogTypeCount + 1];

// Class lists, each ended by a null entry.
extern const char* const kTransferLogTypes[];
extern const char* const kDatabaseLogTypes[];
extern const char* const kDiskLogTypes[];
extern const char* const kPlainLogTypes[];

// The row whose name equals name exactly (case-sensitive), or null.
const LogTypeEntry* FindLogTypeEntry(const std::string& name);

// True when name equals an entry of the null-terminated list, ignoring letter case.
bool IsInList(const char* name, const char* const* list);

// Class tests: false for a null name; letter case is ignored (unlike FindLogTypeEntry).
bool IsDbLogType(const char* name);
bool IsXferLogType(const char* name);
bool IsDiskLogType(const char* name);
bool IsPlainLogType(const char* name);

// The fixed path of the database of a system-class or disk log type (exact name), or null for
// any other name (transfer databases come from the platform's XferlogDBPathGet).
const char* LogDatabaseFile(const char* name);

// The key of an export's title: "log_xfer" for a transfer type, else the row's textKey;
// "log_link_system" when no row matches.
std::string GetLogTypeTextKey(const std::string& name);
