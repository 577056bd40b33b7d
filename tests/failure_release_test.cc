// Requests that fail in the middle of a read, and rows that cannot be decoded: nothing is held
// afterwards (another process can write and clear at once), and an unreadable row is shown with
// what can be read instead of failing the log.
#include <dirent.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include "api/fetch_logs.h"
#include "api/methods.h"
#include "tests/support/platform_faults.h"
#include "tests/support/source_search.h"
#include "tests/support/stdout_capture.h"
#include "tests/support/temp_root.h"
#include "tools/lib/log_schemas.h"

namespace {

int OpenDescriptors() {
  int count = 0;
  DIR* dir = opendir("/proc/self/fd");
  while (dir != nullptr && readdir(dir) != nullptr) ++count;
  if (dir != nullptr) closedir(dir);
  return count;
}

// Inserts one row into the database from another process that does not wait for locks:
// true when the write went through at once.
bool WriterInAnotherProcessSucceeds(const std::string& path, const char* insert) {
  pid_t child = fork();
  if (child == 0) {
    sqlite3* db = nullptr;
    int rc = sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr);
    if (rc == SQLITE_OK) rc = sqlite3_exec(db, insert, nullptr, nullptr, nullptr);
    sqlite3_close(db);
    _exit(rc == SQLITE_OK ? 0 : 1);
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

long Rows(const std::string& path, const std::string& where) {
  std::vector<std::string> rows = QueryRows(path, "SELECT count(*) FROM logs WHERE " + where);
  return rows.empty() ? -1 : std::stol(rows[0]);
}

void Call(void (*method)(QUOR::APIRequest*, QUOR::APIResponse*), const Json::Value& params) {
  QUOR::APIRequest request(params, "admin", "en");
  QUOR::APIResponse response;
  StdoutCapture capture;
  method(&request, &response);
  capture.Text();
}

}  // namespace

TEST(FailureRelease, MemoryRunningOutMidReadLeavesNoDatabaseHeld) {
  TempRoot root;
  SysLogCapture log;
  struct Case {
    const char* logtype;
    const char* file;
    const char* schema;
    const char* insert;
    const char* inserted;  // the condition that finds the inserted rows
  } cases[] = {
      {"system", ".QUORSYSDB", QUOR_SYSTEM_LOG_SCHEMA,
       "INSERT INTO logs (time, level, msg) VALUES (1, 'err', 'one'), (2, 'info', 'two'), "
       "(3, 'warning', 'three');",
       "msg = 'one'"},
      {"smbxfer", ".SMBXFERDB", QUOR_TRANSFER_LOG_SCHEMA,
       "INSERT INTO logs (time, username, filename) VALUES (1, 'a', 'f1'), (2, 'b', 'f2'), "
       "(3, 'c', 'f3');",
       "filename = 'f1'"},
      {"disk", ".QUORDISKDB", QUOR_DISK_LOG_SCHEMA,
       "INSERT INTO logs (level, time, logtime, msg, SHOW) VALUES ('err', 1, 1, 'x', 1), "
       "('err', 2, 2, 'y', 1), ('err', 3, 3, 'z', 1);",
       "msg = 'x'"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.logtype);
    std::string path = root.At(std::string("/var/log/quorlog/") + c.file);
    MakeDatabase(path, std::string(c.schema) + c.insert);
    Json::Value params(Json::objectValue);
    params["logtype"] = c.logtype;
    params["category"] = "native";
    for (auto method : {ListMethod, ExportMethod}) {
      int descriptors = OpenDescriptors();
      log.Clear();
      ArmDbFault(" SELECT", DbFault::kThrowOnFirstRow);
      Call(method, params);
      EXPECT_TRUE(log.Has(LOG_ERR, "failed: std::bad_alloc")) << log.Dump();
      EXPECT_EQ(descriptors, OpenDescriptors());
      EXPECT_TRUE(WriterInAnotherProcessSucceeds(path, c.insert));
    }
    EXPECT_EQ(3, Rows(path, c.inserted));
    Call(ClearMethod, params);
    EXPECT_EQ(0, Rows(path, c.inserted));
  }
}

TEST(FailureRelease, UnreadableDiskRowsShowWhatCanBeRead) {
  TempRoot root;
  std::string nested(2000, '[');
  nested += std::string(2000, ']');
  MakeDatabase(root.At("/var/log/quorlog/.QUORDISKDB"),
               std::string(QUOR_DISK_LOG_SCHEMA) +
                   "INSERT INTO logs (level, time, logtime, model, msg, info, SHOW) VALUES "
                   "('err', 5, 5, 'deep', 'drive_crashed', '{\"a\":" +
                   nested +
                   "}', 1),"
                   "('err', 4, 4, 'broken', 'drive_crashed', '{\"slot\":', 1),"
                   "('err', 3, 3, 'huge', 'drive_crashed', '{\"slot\":18446744073709551615}', 1),"
                   "('err', 'soon', 2, 'text-time', 'drive_crashed', '{}', 1),"
                   "('err', 1, 1, CAST(x'C328FF' AS TEXT), 'drive_crashed', '{}', 1);");
  std::vector<Json::Value> records;
  LevelCounts counts;
  LogSearch search = SourceSearch("disk");
  int total = FetchLogs(&search, &records, &counts);
  ASSERT_EQ(5, total);
  ASSERT_EQ(5u, records.size());
  for (const Json::Value& record : records) {
    EXPECT_NE("", record["msg"].asString()) << record.toStyledString();
    EXPECT_NE("", record["time"].asString()) << record.toStyledString();
  }
  EXPECT_EQ("deep", records[0]["model"].asString());
  EXPECT_EQ("\xC3(\xFF", records[4]["model"].asString());
  EXPECT_EQ(5, counts.error);
}
