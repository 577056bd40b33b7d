// Platform events: one row per event in the system log database.
#include <sqlite3.h>
#include <stdarg.h>
#include <stdio.h>
#include <time.h>

#include <filesystem>
#include <string>

#include "platform/eventlog.h"
#include "platform/root.h"
#include "platform/stringbundle.h"

namespace {

const char kSystemDb[] = "/var/log/quorlog/.QUORSYSDB";
const char kInsert[] =
    "INSERT INTO logs (time, level, username, msg) VALUES (?, 'info', 'SYSTEM', ?)";
// The schema every writer of the system log uses; made only when the table is missing, so a
// database laid out by another writer keeps its own indexes.
const char kSchema[] =
    "CREATE TABLE IF NOT EXISTS logs (id INTEGER PRIMARY KEY AUTOINCREMENT, time INTEGER, "
    "level TEXT, username TEXT, msg TEXT);"
    "CREATE INDEX IF NOT EXISTS logs_time ON logs(time);";
const int kBusyTimeoutMs = 5000;

// The event's message template from the section "events" of the platform's texts (in the
// appliance's language), keyed by the code as "0x%08X". Empty when the code is unknown.
std::string EventTemplate(unsigned int code) {
  char key[16];
  snprintf(key, sizeof key, "0x%08X", code);
  StringBundle events("events");
  return events.Text(key, "");
}

// Replaces {1}..{4} by the arguments; other text is copied unchanged, so arguments can never
// act as format directives.
std::string FillTemplate(const std::string& text, const char* const args[4]) {
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '{' && i + 2 < text.size() && text[i + 1] >= '1' && text[i + 1] <= '4' &&
        text[i + 2] == '}') {
      const char* arg = args[text[i + 1] - '1'];
      if (arg != nullptr) out += arg;
      i += 2;
    } else {
      out += text[i];
    }
  }
  return out;
}

sqlite3_stmt* PrepareInsert(sqlite3* db) {
  sqlite3_stmt* stmt = nullptr;
  if (sqlite3_prepare_v2(db, kInsert, -1, &stmt, nullptr) == SQLITE_OK) return stmt;
  sqlite3_finalize(stmt);
  if (sqlite3_exec(db, kSchema, nullptr, nullptr, nullptr) != SQLITE_OK) return nullptr;
  stmt = nullptr;
  if (sqlite3_prepare_v2(db, kInsert, -1, &stmt, nullptr) == SQLITE_OK) return stmt;
  sqlite3_finalize(stmt);
  return nullptr;
}

int InsertEvent(const std::string& message) {
  std::string path = QuorResolvePath(kSystemDb);
  std::error_code failed;
  std::filesystem::create_directories(std::filesystem::path(path).parent_path(), failed);
  if (failed) return -1;
  sqlite3* db = nullptr;
  if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr) !=
      SQLITE_OK) {
    sqlite3_close(db);
    return -1;
  }
  sqlite3_busy_timeout(db, kBusyTimeoutMs);
  int rc = -1;
  if (sqlite3_stmt* stmt = PrepareInsert(db)) {
    sqlite3_bind_int64(stmt, 1, static_cast<sqlite3_int64>(time(nullptr)));
    sqlite3_bind_text(stmt, 2, message.data(), static_cast<int>(message.size()), SQLITE_STATIC);
    if (sqlite3_step(stmt) == SQLITE_DONE) rc = 0;
    sqlite3_finalize(stmt);
  }
  sqlite3_close(db);
  return rc;
}

}  // namespace

int QUORLogSet1(int, int, unsigned int code, ...) {
  const char* args[4];
  va_list list;
  va_start(list, code);
  for (const char*& arg : args) arg = va_arg(list, const char*);
  va_end(list);
  try {
    std::string text = EventTemplate(code);
    if (text.empty()) return -1;
    return InsertEvent(FillTemplate(text, args));
  } catch (...) {
    return -1;  // out of memory: the event is lost, the caller goes on
  }
}
