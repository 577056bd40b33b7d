// The dispatcher on a real appliance root: normalisation, routing, plain-text paging, counters.
#include <gtest/gtest.h>

#include "api/fetch_logs.h"
#include "tests/support/temp_root.h"
#include "tools/lib/log_schemas.h"

namespace {

// A root with a little of every class: system (4 rows), connection (2), ftp (3), disk (2) and a
// backup log file of 5 lines.
class Dispatcher : public ::testing::Test {
 protected:
  void SetUp() override {
    MakeDatabase(root_.At("/var/log/quorlog/.QUORSYSDB"),
                 std::string(QUOR_SYSTEM_LOG_SCHEMA) +
                     "INSERT INTO logs (time, level, username, msg) VALUES "
                     "(1700000100, 'info', 'admin', 'signed in'),"
                     "(1700000200, 'warning', 'admin', 'disk nearly full'),"
                     "(1700000300, 'err', 'SYSTEM', 'fan failed'),"
                     "(1700000400, 'info', 'guest', 'signed out');");
    MakeDatabase(root_.At("/var/log/quorlog/.QUORCONNDB"),
                 std::string(QUOR_SYSTEM_LOG_SCHEMA) +
                     "INSERT INTO logs (time, level, username, msg) VALUES "
                     "(1700000150, 'info', 'anna', 'connected via SMB'),"
                     "(1700000250, 'err', 'bob', 'login refused');");
    MakeDatabase(root_.At("/var/log/quorlog/.FTPXFERDB"),
                 std::string(QUOR_TRANSFER_LOG_SCHEMA) +
                     "INSERT INTO logs (time, ip, username, cmd, filesize, filename, isdir) VALUES "
                     "(1700000100, '10.0.0.5', 'anna', 'upload', 2048, '/share/a.txt', 0),"
                     "(1700000200, '10.0.0.6', 'bob', 'mkdir', 0, '/share/new', 1),"
                     "(1700000300, '10.0.0.5', 'anna', 'download', 10, '/share/b.txt', 0);");
    MakeDatabase(root_.At("/var/log/quorlog/.QUORDISKDB"),
                 std::string(QUOR_DISK_LOG_SCHEMA) +
                     "INSERT INTO logs (level, time, logtime, model, serial, container, slot, "
                     "path, msg, info, SHOW) VALUES "
                     "('warning', 1700000100, 1700000100, 'WD40', 'S1', 'QS-1800', '1', "
                     "'/dev/sda', 'x', '{}', 1),"
                     "('err', 1700000200, 1700000200, 'WD40', 'S2', 'QS-1800', '2', "
                     "'/dev/sdb', 'y', '{}', 1);");
    root_.Write("/var/log/quorbackup.log",
                "info\t2023/11/14 22:15:00\tbackupd:\tjob Daily started\n"
                "err\t2023/11/14 22:16:00\tbackupd:\tjob Daily failed\n"
                "warning\t2023/11/14 22:17:00\tbackupd:\tjob Weekly slow\n"
                "info\t2023/11/14 22:18:00\tbackupd:\tjob Weekly done\n"
                "notice\t2023/11/14 22:19:00\tanna1\tmanual job queued\n");
  }

  int Fetch(LogSearch* search) {
    results_.clear();
    counts_ = LevelCounts();
    return FetchLogs(search, &results_, &counts_);
  }

  static LogSearch Search(const std::string& logtype, int64_t offset = 0, int64_t limit = 100) {
    LogSearch s;
    s.logtype = logtype;
    s.offset = offset;
    s.limit = limit;
    s.sort = "time";
    s.date_from = s.date_to = "0";
    s.level = "info,warning,err";
    return s;
  }

  std::vector<std::string> Column(const char* key) const {
    std::vector<std::string> values;
    for (const Json::Value& r : results_) values.push_back(r[key].asString());
    return values;
  }

  TempRoot root_;
  std::vector<Json::Value> results_;
  LevelCounts counts_;
};

}  // namespace

TEST_F(Dispatcher, RewritesLevelNamesToDigitsKeepingSeparators) {
  struct Case {
    const char* in;
    const char* out;
  } cases[] = {{"warning,info", "2,1"}, {"", "1,2,3"},      {"warn", "1,2,3"},  {"warn,error", ","},
               {"info,warn", "1,"},     {"warn,err", ",3"}, {"err,err", "3,3"}, {"Info", "1,2,3"}};
  for (const Case& c : cases) {
    LogSearch search = Search("system");
    search.level = c.in;
    Fetch(&search);
    EXPECT_EQ(c.out, search.level) << c.in;
  }
}

TEST_F(Dispatcher, RoutesEachClassToItsSource) {
  LogSearch system = Search("system,connection");
  EXPECT_EQ(6, Fetch(&system));
  EXPECT_EQ((std::vector<std::string>{"system", "system", "connection", "system", "connection",
                                      "system"}),
            Column("orginalLogType"));
  EXPECT_EQ(3, counts_.info);
  EXPECT_EQ(1, counts_.warn);
  EXPECT_EQ(2, counts_.error);

  LogSearch ftp = Search("ftp");  // category word
  EXPECT_EQ(3, Fetch(&ftp));
  EXPECT_EQ("ftpxfer", ftp.logtype);
  EXPECT_EQ((std::vector<std::string>{"/share/b.txt", "/share/new", "/share/a.txt"}),
            Column("descr"));
  EXPECT_EQ(0, counts_.info + counts_.warn + counts_.error);  // transfers have no levels

  LogSearch all = Search("filexfer");
  EXPECT_EQ(3, Fetch(&all));

  LogSearch disk = Search("disk");
  EXPECT_EQ(2, Fetch(&disk));
  EXPECT_EQ((std::vector<std::string>{"err", "warn"}), Column("level"));
  EXPECT_EQ(1, counts_.warn);
  EXPECT_EQ(1, counts_.error);

  LogSearch backup = Search("backup");
  EXPECT_EQ(5, Fetch(&backup));
  EXPECT_EQ("bkplog", backup.logtype);  // the category word mapped
  EXPECT_EQ("anna", results_[0]["who"].asString());
}

TEST_F(Dispatcher, MixedUnknownAndDoubledTypes) {
  SysLogCapture log;
  LogSearch mixed = Search("system,ftpxfer");
  EXPECT_EQ(0, Fetch(&mixed));
  LogSearch unknown = Search("all");
  EXPECT_EQ(0, Fetch(&unknown));
  LogSearch empty = Search("");
  EXPECT_EQ(0, Fetch(&empty));
  EXPECT_EQ("syslog", empty.logtype);
  LogSearch group = Search("filexfer,system");  // the group word only counts alone
  EXPECT_EQ(0, Fetch(&group));
  EXPECT_TRUE(results_.empty());
  EXPECT_TRUE(log.lines().empty()) << log.Dump();

  LogSearch plain = Search("bkplog,copylog");
  EXPECT_EQ(-1, Fetch(&plain));
  EXPECT_TRUE(log.Has(LOG_ERR,
                      "QUOR.Core.SyslogClient.Log:1497 only supports one logtype per request for "
                      "plaintext logs"));
  EXPECT_TRUE(log.Has(LOG_ERR, "QUOR.Core.SyslogClient.Log:1511 fetch bkplog,copylog log failed."));
  LogSearch disks = Search("disk,disk");
  EXPECT_EQ(-1, Fetch(&disks));
  EXPECT_TRUE(log.Has(LOG_ERR, ":1505 only supports one logtype per request for disk logs"));
  EXPECT_TRUE(log.Has(LOG_ERR, ":1511 fetch disk,disk log failed."));
  EXPECT_TRUE(results_.empty());

  // Items starting with the digit 0 are skipped, so "0" alone goes to the transfer source.
  LogSearch zero = Search("0");
  EXPECT_EQ(0, Fetch(&zero));
}

TEST_F(Dispatcher, PlainTextPagingAndCounting) {
  LogSearch everything = Search("bkplog", 0, 0);
  EXPECT_EQ(5, Fetch(&everything));
  EXPECT_EQ(
      (std::vector<std::string>{"2023/11/14 22:19:00", "2023/11/14 22:18:00", "2023/11/14 22:17:00",
                                "2023/11/14 22:16:00", "2023/11/14 22:15:00"}),
      Column("time"));
  EXPECT_EQ(3, counts_.info);  // "notice" counts as info
  EXPECT_EQ(1, counts_.warn);
  EXPECT_EQ(1, counts_.error);

  LogSearch page = Search("bkplog", 1, 2);
  EXPECT_EQ(5, Fetch(&page));
  EXPECT_EQ((std::vector<std::string>{"2023/11/14 22:18:00", "2023/11/14 22:17:00"}),
            Column("time"));
  EXPECT_EQ(1, counts_.info);  // only the page is counted
  EXPECT_EQ(1, counts_.warn);

  LogSearch past = Search("bkplog", 5, 10);
  EXPECT_EQ(5, Fetch(&past));
  EXPECT_TRUE(results_.empty());
  EXPECT_EQ(0, counts_.info + counts_.warn + counts_.error);

  LogSearch negative = Search("bkplog", -1, 10);
  EXPECT_EQ(5, Fetch(&negative));
  EXPECT_TRUE(results_.empty());

  LogSearch wrap = Search("bkplog", 2, -1);  // offset + limit wraps below offset
  EXPECT_EQ(5, Fetch(&wrap));
  EXPECT_TRUE(results_.empty());

  LogSearch ascending = Search("bkplog", 0, 2);
  ascending.ascending = true;
  ascending.level = "err,warning";
  EXPECT_EQ(2, Fetch(&ascending));
  EXPECT_EQ((std::vector<std::string>{"err", "warn"}), Column("level"));
}
