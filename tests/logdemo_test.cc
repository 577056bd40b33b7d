// quor-logdemo's appliance root: complete, realistic, reproducible, and readable by every source.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "sources/log_sources.h"
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

  std::vector<Json::Value> records;
  LevelCounts counts;
  PSLIBSZLIST list = TypeListOf("system,connection,netbkplog");
  int total = FetchSystemLogs(SourceSearch("system,connection,netbkplog"), list, &records, &counts);
  SLIBCSzListFree(list);
  EXPECT_EQ(2000 + 500 + 100, total);
  EXPECT_EQ(total - 9, static_cast<int>(records.size()));  // three rows per store lack time
  EXPECT_GT(counts.info, counts.warn);
  EXPECT_GT(counts.warn, 0);
  EXPECT_GT(counts.error, 0);

  records.clear();
  list = TypeListOf("ftpxfer,kyrfmxfer,webdavxfer,smbxfer,afpxfer,tftpxfer");
  EXPECT_GT(FetchTransferLogs(SourceSearch("filexfer"), list, &records), 0);
  SLIBCSzListFree(list);

  records.clear();
  counts = LevelCounts();
  int disks = FetchDiskLogs(SourceSearch("disk"), &records, &counts);
  EXPECT_GT(disks, 30);
  EXPECT_LT(disks, 40);  // some of the 40 rows are hidden (SHOW 0)
  for (const Json::Value& r : records) EXPECT_NE("-", r["msg"].asString());

  for (const char* type : {"bkplog", "copylog", "bkpserverlog"}) {
    records.clear();
    FetchPlainLogs(SourceSearch(type), &records);
    EXPECT_GE(records.size(), 100u) << type;
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
