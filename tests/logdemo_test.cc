// quor-logdemo's appliance root: complete, realistic, reproducible, and readable by every source.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "api/fetch_logs.h"
#include "tests/support/source_search.h"
#include "tests/support/temp_root.h"
#include "tools/lib/log_demo.h"

namespace {

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream content;
  content << in.rdbuf();
  return content.str();
}

const time_t kEnd = 1735689600;  // 2025-01-01

bool Build(const std::string& root, uint64_t seed, std::string* error) {
  DemoOptions options;
  options.root = root;
  options.textsDir = QUOR_SOURCE_DIR "/texts";
  options.rows = 2000;
  options.seed = seed;
  options.end = kEnd;
  return BuildDemoRoot(options, error);
}

}  // namespace

TEST(LogDemo, LaysOutEveryStoreReadableBySources) {
  TempRoot root;
  std::string error;
  ASSERT_TRUE(Build(root.path(), 5, &error)) << error;
  EXPECT_NE(std::string::npos,
            ReadFile(root.At("/etc.defaults/quorinfo.conf")).find("upnpmodelname=\"QS-920+\""));
  EXPECT_NE(std::string::npos, ReadFile(root.At("/etc/quor.conf")).find("language=\"en\""));

  // Every store through the one road the methods take.
  std::vector<Json::Value> records;
  LevelCounts counts;
  auto fetch = [&](const char* types) {
    records.clear();
    counts = LevelCounts();
    LogSearch search = SourceSearch(types);
    return FetchLogs(&search, &records, &counts);
  };
  int total = fetch("system,connection,netbkplog");
  EXPECT_EQ(2000 + 500 + 100, total);
  EXPECT_EQ(total - 9, static_cast<int>(records.size()));  // three rows per store lack time
  EXPECT_GT(counts.info, counts.warn);
  EXPECT_GT(counts.warn, 0);
  EXPECT_GT(counts.error, 0);
  EXPECT_GT(fetch("filexfer"), 0);
  int disks = fetch("disk");
  EXPECT_GT(disks, 30);
  EXPECT_LT(disks, 40);  // some of the 40 rows are hidden (SHOW 0)
  for (const Json::Value& r : records) EXPECT_NE("-", r["msg"].asString());
  for (const char* type : {"bkplog", "copylog", "bkpserverlog"}) {
    EXPECT_GE(fetch(type), 100) << type;
  }
}

TEST(LogDemo, SameSeedSameRoot) {
  TempRoot a, b, c;
  std::string error;
  ASSERT_TRUE(Build(a.path(), 9, &error)) << error;
  ASSERT_TRUE(Build(b.path(), 9, &error)) << error;
  ASSERT_TRUE(Build(c.path(), 10, &error)) << error;
  for (const char* file : {"/var/log/quorlog/.QUORSYSDB", "/var/log/quorlog/.QUORDISKDB",
                           "/var/log/quorlog/.TFTPXFERDB", "/var/log/quorbackup.log"}) {
    EXPECT_EQ(ReadFile(a.At(file)), ReadFile(b.At(file))) << file;
    EXPECT_NE(ReadFile(a.At(file)), ReadFile(c.At(file))) << file;
  }
}
