// The plain-text backup-log source and the reverse line reader, on real files.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <stdlib.h>

#include <filesystem>

#include "platform/logfiles.h"
#include "sources/log_sources.h"
#include "tests/support/source_search.h"
#include "tests/support/temp_root.h"
#include "tools/lib/root_layout.h"

namespace {

std::vector<std::string> ReadBack(const std::string& path, int maxLines, int* rc) {
  FILE* file = fopen(path.c_str(), "r");
  EXPECT_NE(nullptr, file) << path;
  char** lines = nullptr;
  int count = 0;
  *rc = readfileinreverse(file, &lines, &count, maxLines);
  std::vector<std::string> out;
  for (int i = 0; i < count; ++i) {
    out.push_back(lines[i]);
    free(lines[i]);
  }
  free(lines);
  fclose(file);
  return out;
}

std::vector<Json::Value> Fetch(const LogSearch& search) {
  std::vector<PlainLine> lines;
  FetchPlainLogs(search, &lines);
  std::vector<Json::Value> records;
  for (PlainLine& line : lines) records.push_back(std::move(line.record));
  return records;
}

using V = std::vector<std::string>;

}  // namespace

TEST(ReverseReader, LastLinesNewestFirst) {
  TempRoot root;
  int rc = 0;
  std::string path = root.At("/tmp/f");
  ASSERT_TRUE(WriteTextFile(path, "one\ntwo\r\n\nfour\n"));
  EXPECT_EQ((V{"four", "", "two", "one"}), ReadBack(path, 100, &rc));
  EXPECT_EQ(4, rc);
  EXPECT_EQ((V{"four", ""}), ReadBack(path, 2, &rc));
  ASSERT_TRUE(WriteTextFile(path, "no line end"));
  EXPECT_EQ((V{"no line end"}), ReadBack(path, 100, &rc));
  ASSERT_TRUE(WriteTextFile(path, ""));
  EXPECT_EQ(V{}, ReadBack(path, 100, &rc));
  EXPECT_EQ(0, rc);
  // Lines longer than a read block, and lines that straddle block boundaries.
  std::string big(3 << 20, 'x');
  std::string content = "first\n" + big + "\n";
  for (int i = 0; i < 50000; ++i) content += "line " + std::to_string(i) + "\n";
  ASSERT_TRUE(WriteTextFile(path, content));
  V all = ReadBack(path, 100000, &rc);
  ASSERT_EQ(50002u, all.size());
  EXPECT_EQ("line 49999", all[0]);
  EXPECT_EQ("line 0", all[49999]);
  EXPECT_EQ(big.substr(0, 64 * 1024), all[50000]);  // cut to its first 64 KiB
  EXPECT_EQ("first", all[50001]);
  // A directory opens but is not a regular file.
  ASSERT_TRUE(std::filesystem::create_directories(root.At("/tmp/dir")));
  ReadBack(root.At("/tmp/dir"), 10, &rc);
  EXPECT_EQ(-1, rc);
}

// Regions without line ends cost their bytes once, holes of sparse files are stepped over, and
// lines on either side keep their texts: a long line keeps its first 64 KiB, where its fields are.
TEST(ReverseReader, NulRegionsHolesAndOverlongLines) {
  TempRoot root;
  int rc = 0;
  std::string path = root.At("/tmp/f");
  std::string nuls(40 << 20, '\0');
  ASSERT_TRUE(WriteTextFile(path, "early\nhead" + nuls + "tail\nlast\n"));
  V lines = ReadBack(path, 100, &rc);
  ASSERT_EQ(3u, lines.size());
  EXPECT_EQ("last", lines[0]);
  EXPECT_EQ("head", lines[1]);  // the NULs end the C text of the cut line
  EXPECT_EQ("early", lines[2]);

  // 3 GiB of hole between two regions of lines: read in no time, and nothing between them.
  {
    FILE* file = fopen(path.c_str(), "w");
    ASSERT_NE(nullptr, file);
    fputs("before 1\nbefore 2\nstart-of-hole", file);
    ASSERT_EQ(0, fseeko(file, 3LL << 30, SEEK_CUR));
    fputs("end-of-hole\nafter 1\nafter 2\n", file);
    fclose(file);
  }
  lines = ReadBack(path, 100, &rc);
  EXPECT_EQ((V{"after 2", "after 1", "start-of-hole", "before 2", "before 1"}), lines);
  EXPECT_EQ(2u, ReadBack(path, 2, &rc).size());
  // A file that is all hole is one empty-looking line.
  ASSERT_EQ(0, truncate(path.c_str(), 0));
  ASSERT_EQ(0, truncate(path.c_str(), 2LL << 30));
  EXPECT_EQ(V{""}, ReadBack(path, 100, &rc));
}

TEST(PlainSource, ParsesLinesAndFilters) {
  TempRoot root;
  root.Write("/var/log/quorbackup.log",
             "info\t2024/03/01 10:00:00\tadmin:\tBackup task [Daily] started\n"
             "err\t2024/03/02 10:00:00\tadmin:\tBackup task [Daily] failed\twith tabs\n"
             "warning\t2024/03/03 10:00:00\tx\tDestination almost full\n"
             "notice\t2024/03/04 10:00:00\tSYSTEM:\t\n"
             "err\t2024/03/05 10:00:00\n"
             "no tabs at all\n"
             "\n"
             "info\t2024/03/06 10:00:00\tbackupd:\tVersion 2024/03/06 rotated\n");
  SysLogCapture log;
  std::vector<Json::Value> records = Fetch(SourceSearch("bkplog"));
  // Newest line first, as the file is read from its end.
  EXPECT_EQ((V{"2024/03/06 10:00:00", "2024/03/04 10:00:00", "2024/03/03 10:00:00",
               "2024/03/02 10:00:00", "2024/03/01 10:00:00"}),
            RecordValues(records, "time"));
  EXPECT_EQ((V{"backupd", "SYSTEM", "", "admin", "admin"}), RecordValues(records, "who"));
  EXPECT_EQ((V{"Version 2024/03/06 rotated", "", "Destination almost full",
               "Backup task [Daily] failed\twith tabs", "Backup task [Daily] started"}),
            RecordValues(records, "descr"));
  EXPECT_EQ((V{"info", "info", "warn", "err", "info"}), RecordValues(records, "level"));
  EXPECT_EQ("Local Backup", records[0]["logtype"].asString());
  EXPECT_EQ("bkplog", records[0]["orginalLogType"].asString());
  EXPECT_EQ(6u, records[0].size());
  EXPECT_TRUE(log.Has(LOG_DEBUG, "Bad Log formate szUser: err\t2024/03/05 10:00:00")) << log.Dump();
  EXPECT_TRUE(log.Has(LOG_DEBUG, "Bad Log formate szTime: no tabs at all")) << log.Dump();
  EXPECT_TRUE(log.Has(LOG_DEBUG, "Bad Log format szLevel: ")) << log.Dump();
  EXPECT_EQ(3u, log.lines().size()) << log.Dump();

  LogSearch search = SourceSearch("bkplog");
  search.keyword = "DAILY";
  EXPECT_EQ((V{"2024/03/02 10:00:00", "2024/03/01 10:00:00"}), RecordValues(Fetch(search), "time"));
  search.keyword = "syst";  // the user field
  EXPECT_EQ((V{"2024/03/04 10:00:00"}), RecordValues(Fetch(search), "time"));
  search.keyword = "10:00";  // only in the time field
  EXPECT_EQ(V{}, RecordValues(Fetch(search), "time"));
  search.keyword = "";
  search.level = "1,2";
  EXPECT_EQ((V{"info", "info", "warn", "info"}), RecordValues(Fetch(search), "level"));
  search.level = "3";
  EXPECT_EQ((V{"err"}), RecordValues(Fetch(search), "level"));

  // Date bounds are inclusive at both ends.
  ScopedTimeZone zone("UTC");
  search.level = "";
  search.date_from = "1709287200";  // 2024/03/01 10:00:00 UTC
  search.date_to = "1709460000";    // 2024/03/03 10:00:00 UTC
  EXPECT_EQ((V{"2024/03/03 10:00:00", "2024/03/02 10:00:00", "2024/03/01 10:00:00"}),
            RecordValues(Fetch(search), "time"));
  search.date_from = "1709287201";
  search.date_to = "0";
  EXPECT_EQ(4u, Fetch(search).size());
}

TEST(PlainSource, TailLimitAndQuietFailures) {
  TempRoot root;
  std::string content;
  for (int i = 0; i < 15100; ++i) {
    char line[128];
    snprintf(line, sizeof line, "info\t2024/01/01 00:%05d\tu:\tmessage %d\n", i, i);
    content += line;
  }
  root.Write("/var/log/quorcopy.log", content);
  std::vector<Json::Value> records = Fetch(SourceSearch("copylog"));
  ASSERT_EQ(15000u, records.size());
  EXPECT_EQ("message 15099", records.front()["descr"].asString());
  EXPECT_EQ("message 100", records.back()["descr"].asString());
  EXPECT_EQ("USB Copy", records.front()["logtype"].asString());

  SysLogCapture log;
  EXPECT_TRUE(Fetch(SourceSearch("bkpserverlog")).empty());  // no file yet
  EXPECT_TRUE(Fetch(SourceSearch("system")).empty());        // a type without a file
  EXPECT_TRUE(Fetch(SourceSearch("nonsense")).empty());
  EXPECT_TRUE(log.lines().empty()) << log.Dump();

  // Paths that are not regular files are missing logs, and a FIFO without a writer does not
  // hold the request.
  ASSERT_TRUE(std::filesystem::create_directories(root.At("/var/log/quorbackup_server.log")));
  EXPECT_TRUE(Fetch(SourceSearch("bkpserverlog")).empty());
  ASSERT_EQ(0, mkfifo(root.At("/var/log/quorcopy.log.fifo").c_str(), 0600));
  ASSERT_EQ(0, rename(root.At("/var/log/quorcopy.log.fifo").c_str(),
                      root.At("/var/log/quorcopy.log").c_str()));
  EXPECT_TRUE(Fetch(SourceSearch("copylog")).empty());
  EXPECT_TRUE(log.lines().empty()) << log.Dump();
}

// Each line's time is read once as epoch seconds in the appliance's zone, also on the days the
// offset changes and for forms other than the exact one.
TEST(PlainSource, TimesAsEpochSecondsAcrossOffsetChanges) {
  TempRoot root;
  ScopedTimeZone zone("Europe/Berlin");
  const char* const times[] = {"2024/10/27 03:30:00", "2024/10/27 01:59:59", "2024/03/31 03:00:00",
                               "2024/03/31 01:59:59", "2024/03/30 23:00:00", "2024/3/1 1:02:03",
                               "2024/13/01 00:00:00"};
  std::string file;
  for (const char* time : times) file = "info\t" + std::string(time) + "\tu:\tm\n" + file;
  root.Write("/var/log/quorbackup.log", file);
  std::vector<PlainLine> lines;
  FetchPlainLogs(SourceSearch("bkplog"), &lines);
  ASSERT_EQ(std::size(times), lines.size());
  for (size_t i = 0; i < lines.size(); ++i) {
    struct tm local = {};
    bool readable = strptime(times[i], "%Y/%m/%d %H:%M:%S", &local) != nullptr;
    local.tm_isdst = -1;
    EXPECT_EQ(readable, lines[i].timed) << times[i];
    EXPECT_EQ(readable ? mktime(&local) : 0, lines[i].seconds) << times[i];
  }
}
