// Test fixtures: temporary appliance roots, system-log capture, SQLite files.
#include "tests/support/temp_root.h"

#include <sqlite3.h>
#include <stdlib.h>
#include <time.h>

#include <chrono>
#include <mutex>
#include <thread>

#include "platform/systemlog.h"
#include "tools/lib/root_layout.h"

TempRoot::TempRoot() {
  char pattern[] = "/tmp/quor-root-XXXXXX";
  const char* made = mkdtemp(pattern);
  if (made == nullptr) ADD_FAILURE() << "mkdtemp failed";
  path_ = made != nullptr ? made : "/nonexistent";
  std::string error;
  if (!InstallTexts(path_, QUOR_SOURCE_DIR "/texts", &error)) ADD_FAILURE() << error;
  setenv("QUOR_ROOT", path_.c_str(), 1);
}

TempRoot::~TempRoot() {
  unsetenv("QUOR_ROOT");
  std::string command = "rm -rf '" + path_ + "'";
  if (system(command.c_str()) != 0) ADD_FAILURE() << "cannot remove " << path_;
}

void TempRoot::Write(const std::string& fixedPath, const std::string& content) const {
  ASSERT_TRUE(WriteTextFile(At(fixedPath), content)) << fixedPath;
}

SysLogCapture::SysLogCapture() { SLIBCSysLogSetSink(&SysLogCapture::Sink, this); }
SysLogCapture::~SysLogCapture() { SLIBCSysLogSetSink(nullptr, nullptr); }

void SysLogCapture::Sink(int priority, const char* line, void* self) {
  static_cast<SysLogCapture*>(self)->lines_.emplace_back(priority, line);
}

bool SysLogCapture::Has(int priority, const std::string& text) const {
  for (const auto& line : lines_) {
    if (line.first == priority && line.second.find(text) != std::string::npos) return true;
  }
  return false;
}

std::string SysLogCapture::Dump() const {
  std::string all;
  for (const auto& line : lines_) all += std::to_string(line.first) + " " + line.second + "\n";
  return all;
}

void MakeDatabase(const std::string& realPath, const std::string& sql) {
  std::string folderError;
  ASSERT_TRUE(MakeParentDirectories(realPath, &folderError)) << folderError;
  sqlite3* db = nullptr;
  ASSERT_EQ(SQLITE_OK, sqlite3_open(realPath.c_str(), &db));
  sqlite3_busy_timeout(db, 5000);  // as every writer waits for readers (a background indexer)
  char* error = nullptr;
  int rc = sqlite3_exec(db, sql.c_str(), nullptr, nullptr, &error);
  std::string message = error != nullptr ? error : "";
  sqlite3_free(error);
  sqlite3_close(db);
  ASSERT_EQ(SQLITE_OK, rc) << message;
}

void SleepMs(int ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }

std::vector<std::string> QueryRows(const std::string& realPath, const std::string& sql) {
  std::vector<std::string> rows;
  sqlite3* db = nullptr;
  sqlite3_stmt* stmt = nullptr;
  if (sqlite3_open_v2(realPath.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK &&
      sqlite3_prepare_v2(db, sql.c_str(), -1, &stmt, nullptr) == SQLITE_OK) {
    while (sqlite3_step(stmt) == SQLITE_ROW) {
      std::string row;
      for (int i = 0; i < sqlite3_column_count(stmt); ++i) {
        const unsigned char* text = sqlite3_column_text(stmt, i);
        row += (i ? "|" : "") + std::string(text ? reinterpret_cast<const char*>(text) : "NULL");
      }
      rows.push_back(row);
    }
  }
  sqlite3_finalize(stmt);
  sqlite3_close(db);
  return rows;
}

ScopedTimeZone::ScopedTimeZone(const char* zone) {
  const char* current = getenv("TZ");
  had_ = current != nullptr;
  saved_ = had_ ? current : "";
  Set(zone);
}

ScopedTimeZone::~ScopedTimeZone() {
  if (had_) {
    setenv("TZ", saved_.c_str(), 1);
  } else {
    unsetenv("TZ");
  }
  tzset();
}

void ScopedTimeZone::Set(const char* zone) {
  setenv("TZ", zone, 1);
  tzset();
}
