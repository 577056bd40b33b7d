// The system, connection and network-backup source on real databases in a temporary root.
#include <gtest/gtest.h>

#include "platform/logfiles.h"
#include "sources/log_sources.h"
#include "tests/support/platform_faults.h"
#include "tests/support/source_search.h"
#include "tests/support/temp_root.h"
#include "tools/lib/log_schemas.h"

namespace {

const char kSysDb[] = "/var/log/quorlog/.QUORSYSDB";
const char kConnDb[] = "/var/log/quorlog/.QUORCONNDB";
const char kNetDb[] = "/var/log/quorlog/.QUORNETBKPDB";

void MakeSystemDb(const TempRoot& root, const char* file, const std::string& values) {
  MakeDatabase(root.At(file),
               std::string(QUOR_SYSTEM_LOG_SCHEMA) +
                   (values.empty()
                        ? ""
                        : "INSERT INTO logs (time, level, username, msg) VALUES " + values + ";"));
}

struct Result {
  int total;
  std::vector<Json::Value> records;
  LevelCounts counts;
};

Result Fetch(const LogSearch& search) {
  PSLIBSZLIST list = TypeListOf(search.logtype);
  Result r;
  JsonRecordList sink(&r.records);
  r.total = FetchSystemLogs(search, list, &sink, &r.counts);
  SLIBCSzListFree(list);
  return r;
}

using V = std::vector<std::string>;

}  // namespace

TEST(SystemSource, MergesDatabasesIntoOneOrderedPage) {
  TempRoot root;
  MakeSystemDb(root, kSysDb, "(10,'info','admin','boot'),(30,'err','admin','disk failed')");
  MakeSystemDb(root, kConnDb, "(20,'warning','guest','login failed'),(40,'info','bob','login')");
  MakeSystemDb(root, kNetDb, "(50,'info','svc','backup done')");
  Result r = Fetch(SourceSearch("system,connection,netbkplog"));
  EXPECT_EQ(5, r.total);
  EXPECT_EQ((V{"backup done", "login", "disk failed", "login failed", "boot"}),
            RecordValues(r.records, "descr"));
  EXPECT_EQ((V{"netbkplog", "connection", "system", "connection", "system"}),
            RecordValues(r.records, "orginalLogType"));
  EXPECT_EQ((V{"Network Backup", "Connection", "System", "Connection", "System"}),
            RecordValues(r.records, "logtype"));
  EXPECT_EQ((V{"info", "info", "err", "warn", "info"}), RecordValues(r.records, "level"));
  EXPECT_EQ(QUORLogConvertTime1(50), r.records[0]["time"].asString());
  EXPECT_EQ("svc", r.records[0]["who"].asString());
  EXPECT_EQ(6u, r.records[0].size());
  EXPECT_EQ(3, r.counts.info);
  EXPECT_EQ(1, r.counts.warn);
  EXPECT_EQ(1, r.counts.error);

  LogSearch page = SourceSearch("system,connection");
  page.ascending = true;
  page.offset = 1;
  page.limit = 2;
  r = Fetch(page);
  EXPECT_EQ(4, r.total);
  EXPECT_EQ((V{"login failed", "disk failed"}), RecordValues(r.records, "descr"));

  page.sort = "username";
  page.offset = 0;
  page.limit = 0;
  EXPECT_EQ((V{"admin", "admin", "bob", "guest"}), RecordValues(Fetch(page).records, "who"));
}

TEST(SystemSource, SelectTextAndMissingDatabases) {
  TempRoot root;
  MakeSystemDb(root, kConnDb, "(20,'info','guest','hello')");
  SysLogCapture log;
  // A missing first database makes the next one the main database.
  Result r = Fetch(SourceSearch("system,connection"));
  EXPECT_EQ(1, r.total);
  EXPECT_EQ((V{"connection"}), RecordValues(r.records, "orginalLogType"));
  EXPECT_TRUE(log.Has(LOG_DEBUG, root.At(kSysDb) + " is not exist. (system is not enable?)"))
      << log.Dump();

  MakeSystemDb(root, kSysDb, "");
  log.Clear();
  ArmDbFault(" SELECT", DbFault::kFail);
  EXPECT_EQ(-1, Fetch(SourceSearch("system,connection")).total);
  EXPECT_TRUE(log.Has(
      LOG_ERR,
      "Failed to select system,connection from database. [ SELECT *, 'system' as "
      "orginalLogType, 'System' as logtype FROM logs  WHERE 1=1 UNION ALL SELECT *, "
      "'connection' as orginalLogType, 'Connection' as logtype FROM connection.logs  WHERE 1=1 "
      "ORDER BY time DESC]"))
      << log.Dump();

  // Every database missing: the whole type text is named.
  log.Clear();
  EXPECT_EQ(-1, Fetch(SourceSearch("netbkplog")).total);
  EXPECT_TRUE(log.Has(LOG_ERR, "Failed to connect to netbkplog database")) << log.Dump();
  log.Clear();
  LogSearch none = SourceSearch("");
  EXPECT_EQ(-1, Fetch(none).total);
  EXPECT_TRUE(log.Has(LOG_ERR, "Failed to connect to  database")) << log.Dump();

  // A name that passes the class test but has no database.
  log.Clear();
  EXPECT_EQ(-1, Fetch(SourceSearch("System")).total);
  EXPECT_TRUE(log.Has(LOG_ERR, "unsupported log type System")) << log.Dump();
  EXPECT_TRUE(log.Has(LOG_ERR, "Failed to connect to System database")) << log.Dump();
  log.Clear();
  r = Fetch(SourceSearch("System,connection"));
  EXPECT_EQ(1, r.total);
  EXPECT_TRUE(log.Has(LOG_ERR, "unsupported log type System")) << log.Dump();
}

// Only the stored columns sort the list (record keys, computed columns and anything else are
// refused), and the sort is checked before any file is looked at.
TEST(SystemSource, SortIsCheckedBeforeAnyFile) {
  TempRoot root;
  SysLogCapture log;
  const char* const refused[] = {
      "time; DROP TABLE logs", "descr", "", "id", "TIME", "msg ", "who", "logtype"};
  for (const char* sort : refused) {
    LogSearch search = SourceSearch("system");
    search.sort = sort;
    EXPECT_EQ(-1, Fetch(search).total) << sort;
  }
  EXPECT_EQ(std::size(refused), log.lines().size()) << log.Dump();
  EXPECT_TRUE(log.Has(LOG_ERR, "Bad sort field.")) << log.Dump();
  EXPECT_FALSE(log.Has(LOG_DEBUG, "is not exist")) << log.Dump();
}

TEST(SystemSource, LevelFilterAppliesToThePageOnly) {
  TempRoot root;
  MakeSystemDb(root, kSysDb,
               "(1,'err','a','e1'),(2,'info','a','i1'),(3,'warning','a','w1'),"
               "(4,'err','a','e2'),(5,'notice','a','n1'),(6,'','a','x1'),(7,NULL,'a','x2'),"
               "(NULL,'err','a','no time')");
  LogSearch search = SourceSearch("system");
  search.limit = 4;  // the page: times 7, 6, 5, 4 (the row without time sorts last)
  search.level = "3";
  Result r = Fetch(search);
  EXPECT_EQ(8, r.total);
  EXPECT_EQ((V{"e2"}), RecordValues(r.records, "descr"));
  EXPECT_EQ(1, r.counts.error);
  EXPECT_EQ(0, r.counts.info);

  search.limit = 0;
  search.level = "1,2";
  r = Fetch(search);
  EXPECT_EQ((V{"x2", "x1", "n1", "w1", "i1"}), RecordValues(r.records, "descr"));
  EXPECT_EQ((V{"info", "info", "info", "warn", "info"}), RecordValues(r.records, "level"));
  EXPECT_EQ(4, r.counts.info);
  EXPECT_EQ(1, r.counts.warn);

  // A row without time is dropped silently, also from the counters.
  search.level = "";
  SysLogCapture log;
  r = Fetch(search);
  EXPECT_EQ(7u, r.records.size());
  EXPECT_EQ(8, r.total);
  EXPECT_EQ(2, r.counts.error);
  EXPECT_TRUE(log.lines().empty()) << log.Dump();
}

TEST(SystemSource, KeywordAndDates) {
  TempRoot root;
  MakeSystemDb(root, kSysDb,
               "(100,'info','Admin','Volume CREATED'),(200,'info','guest','it''s 50% done'),"
               "(300,'info','ADMINISTRATOR','quota'),(400,'info','x','Straße gesperrt')");
  LogSearch search = SourceSearch("system");
  search.ascending = true;
  search.keyword = "created";
  EXPECT_EQ((V{"Volume CREATED"}), RecordValues(Fetch(search).records, "descr"));
  // User names match case-sensitively (GLOB), messages ignoring case.
  search.keyword = "ADMIN";
  EXPECT_EQ((V{"quota"}), RecordValues(Fetch(search).records, "descr"));
  search.keyword = "it's 50%";
  EXPECT_EQ((V{"it's 50% done"}), RecordValues(Fetch(search).records, "descr"));
  search.keyword = "STRASSE";
  EXPECT_EQ((V{"Straße gesperrt"}), RecordValues(Fetch(search).records, "descr"));
  search.keyword = "_";
  EXPECT_EQ(0, Fetch(search).total);
  search.keyword = "";
  search.date_from = "200";
  search.date_to = "300";
  Result r = Fetch(search);
  EXPECT_EQ(2, r.total);
  EXPECT_EQ((V{"it's 50% done", "quota"}), RecordValues(r.records, "descr"));
}

TEST(SystemSource, FailuresReportAndKeepWhatWasAppended) {
  TempRoot root;
  MakeSystemDb(root, kSysDb, "(1,'err','a','one')");
  root.Write(kConnDb, std::string(2048, 'x'));  // not a database
  SysLogCapture log;
  Result r = Fetch(SourceSearch("system,connection"));
  EXPECT_EQ(1, r.total);
  EXPECT_TRUE(log.Has(LOG_ERR, "Failed to attach connection database")) << log.Dump();
  log.Clear();
  EXPECT_EQ(-1, Fetch(SourceSearch("connection,system")).total);
  EXPECT_TRUE(log.Has(LOG_ERR, "Failed to connect to connection database")) << log.Dump();

  struct Case {
    DbFault fault;
    const char* message;
  } cases[] = {{DbFault::kFail, "SELECT error: injected failure\n"},
               {DbFault::kNoRows, "Failed to fetch row"},
               {DbFault::kNoColumns, "Failed to fetch field"}};
  for (const Case& c : cases) {
    log.Clear();
    ArmDbFault("SELECT count(*)", c.fault);
    r = Fetch(SourceSearch("system"));
    EXPECT_EQ(-1, r.total);
    EXPECT_EQ(1u, r.records.size());
    EXPECT_EQ(1, r.counts.error);
    EXPECT_TRUE(log.Has(LOG_ERR, c.message)) << log.Dump();
  }
}
