// Test fixtures: a temporary appliance root and a capture of the system-log lines.
#pragma once

#include <gtest/gtest.h>
#include <syslog.h>

#include <string>
#include <utility>
#include <vector>

// A fresh appliance root in a temporary directory, with the project's texts installed, made
// the platform's root (QUOR_ROOT) for the test's duration and removed afterwards.
class TempRoot {
 public:
  TempRoot();
  ~TempRoot();
  const std::string& path() const { return path_; }
  // The real path of a fixed platform path under this root.
  std::string At(const std::string& fixedPath) const { return path_ + fixedPath; }
  // Writes a file at a fixed platform path under this root.
  void Write(const std::string& fixedPath, const std::string& content) const;

 private:
  std::string path_;
};

// Sets the process's time zone (TZ) while it lives, and gives the one before back.
class ScopedTimeZone {
 public:
  explicit ScopedTimeZone(const char* zone);
  ~ScopedTimeZone();
  void Set(const char* zone);

 private:
  bool had_;
  std::string saved_;
};

// Captures SLIBCSysLog lines (priority, text) while it lives.
class SysLogCapture {
 public:
  SysLogCapture();
  ~SysLogCapture();
  const std::vector<std::pair<int, std::string>>& lines() const { return lines_; }
  // True when some captured line at priority contains text.
  bool Has(int priority, const std::string& text) const;
  std::string Dump() const;
  void Clear() { lines_.clear(); }

 private:
  static void Sink(int priority, const char* line, void* self);
  std::vector<std::pair<int, std::string>> lines_;
};

// Sleeps for ms milliseconds.
void SleepMs(int ms);

// The rows of a query on a database file, each as its columns' texts joined by "|" (NULL for
// NULL); empty when the file cannot be read.
std::vector<std::string> QueryRows(const std::string& realPath, const std::string& sql);

// A SQLite database file created with the given statements (schema and rows).
void MakeDatabase(const std::string& realPath, const std::string& sql);
