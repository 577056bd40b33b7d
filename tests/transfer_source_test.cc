// The file-transfer source on real transfer databases in a temporary root.
#include <gtest/gtest.h>

#include "platform/logfiles.h"
#include "sources/log_sources.h"
#include "tests/support/platform_faults.h"
#include "tests/support/source_search.h"
#include "tests/support/temp_root.h"
#include "tools/lib/log_schemas.h"

namespace {

void MakeTransferDb(const char* type, const std::string& values) {
  MakeDatabase(XferlogDBPathGet(type),
               std::string(QUOR_TRANSFER_LOG_SCHEMA) +
                   (values.empty() ? ""
                                   : "INSERT INTO logs (time, ip, username, cmd, filesize, "
                                     "filename, isdir) VALUES " +
                                         values + ";"));
}

struct Result {
  int total;
  std::vector<Json::Value> records;
};

Result Fetch(const LogSearch& search) {
  PSLIBSZLIST list = TypeListOf(search.logtype == "filexfer"
                                    ? "ftpxfer,kyrfmxfer,webdavxfer,smbxfer,afpxfer,tftpxfer"
                                    : search.logtype);
  Result r;
  JsonRecordList sink(&r.records);
  r.total = FetchTransferLogs(search, list, &sink);
  SLIBCSzListFree(list);
  return r;
}

using V = std::vector<std::string>;

}  // namespace

TEST(TransferSource, MergesPresentDatabasesAndFormatsRecords) {
  TempRoot root;
  MakeTransferDb("ftpxfer",
                 "(10,'10.0.0.1','anna','upload',0,'/a/0.txt',0),"
                 "(30,'10.0.0.1','anna','upload',1024,'/a/1024.txt',NULL),"
                 "(50,'10.0.0.2','bob','download',1025,'/a/1025.bin','0'),"
                 "(70,'10.0.0.2','bob','mkdir',1048576,'/a/Dir',1),"
                 "(NULL,'10.0.0.9','x','upload',1,'no time',0)");
  MakeTransferDb("smbxfer",
                 "(20,'fe80::1','Chloé','write',1048577,'/b/Ünïcode, \"q\".doc',0),"
                 "(40,'fe80::1','chloe','write',1073741824,'/b/1g.iso',0),"
                 "(60,'fe80::2','dan','write',1073741825,'/b/big.iso',0),"
                 "(80,'fe80::2','dan','delete',-5,'/b/neg',0)");
  SysLogCapture log;
  Result r = Fetch(SourceSearch("filexfer"));
  EXPECT_EQ(9, r.total);
  EXPECT_EQ(8u, r.records.size());
  EXPECT_EQ((V{"-5 Bytes", "1024.00 KB", "1.00 GB", "1.00 KB", "1024.00 MB", "1024 Bytes",
               "1.00 MB", "0 Bytes"}),
            RecordValues(r.records, "filesize"));
  EXPECT_EQ(
      (V{"smbxfer", "ftpxfer", "smbxfer", "ftpxfer", "smbxfer", "ftpxfer", "smbxfer", "ftpxfer"}),
      RecordValues(r.records, "orginalLogType"));
  EXPECT_EQ((V{"false", "true", "false", "false", "false", "false", "false", "false"}),
            RecordValues(r.records, "isdir"));
  const Json::Value& first = r.records[0];
  EXPECT_EQ(QUORLogConvertTime1(80), first["time"].asString());
  EXPECT_EQ("fe80::2", first["ip"].asString());
  EXPECT_EQ("dan", first["username"].asString());
  EXPECT_EQ("delete", first["cmd"].asString());
  EXPECT_EQ("/b/neg", first["descr"].asString());
  EXPECT_EQ("SMB", first["logtype"].asString());
  EXPECT_FALSE(first.isMember("level"));
  EXPECT_EQ(9u, first.size());
  // The four missing databases are skipped quietly (debug).
  int missing = 0;
  for (const auto& line : log.lines()) missing += line.first == LOG_DEBUG;
  EXPECT_EQ(4, missing) << log.Dump();
  EXPECT_TRUE(
      log.Has(LOG_DEBUG, XferlogDBPathGet("afpxfer") + " is not exist. (afpxfer is not enable?)"))
      << log.Dump();

  // The select text: one plain arm, the attached ones by alias, a stable second key.
  log.Clear();
  ArmDbFault(" SELECT", DbFault::kFail);
  EXPECT_EQ(-1, Fetch(SourceSearch("filexfer")).total);
  EXPECT_TRUE(log.Has(LOG_ERR,
                      "Failed to select filexfer from database. [ SELECT *, 'ftpxfer' as "
                      "orginalLogType, 'FTP' as logtype FROM logs  WHERE 1=1 UNION ALL SELECT "
                      "*, 'smbxfer' as orginalLogType, 'SMB' as logtype FROM smbxfer.logs  WHERE "
                      "1=1 ORDER BY time DESC ,id DESC]"))
      << log.Dump();
}

TEST(TransferSource, SortKeywordAndEmptyResults) {
  TempRoot root;
  SysLogCapture log;
  // No database, or no type at all: an empty, successful result.
  EXPECT_EQ(0, Fetch(SourceSearch("filexfer")).total);
  EXPECT_EQ(0, Fetch(SourceSearch("")).total);
  EXPECT_FALSE(log.Has(LOG_ERR, "")) << log.Dump();

  MakeTransferDb("webdavxfer",
                 "(1,'ip','Anna','put',5,'/x/Report.PDF',0),(2,'ip','anna','put',5,'b.txt',0),"
                 "(3,'ip','zed','put',5,'a.txt',0),(3,'ip','zed','put',5,'c [1].txt',0)");
  LogSearch search = SourceSearch("webdavxfer");
  search.sort = "descr";
  search.ascending = true;
  EXPECT_EQ((V{"/x/Report.PDF", "a.txt", "b.txt", "c [1].txt"}),
            RecordValues(Fetch(search).records, "descr"));
  // Equal sort values keep row-id order in the sort direction.
  search.sort = "time";
  search.ascending = false;
  EXPECT_EQ((V{"c [1].txt", "a.txt", "b.txt", "/x/Report.PDF"}),
            RecordValues(Fetch(search).records, "descr"));
  search.sort = "level";
  log.Clear();
  EXPECT_EQ(-1, Fetch(search).total);
  EXPECT_TRUE(log.Has(LOG_ERR, "Bad sort field.")) << log.Dump();

  search.sort = "time";
  search.keyword = "report.pdf";  // file name, ignoring case
  EXPECT_EQ((V{"/x/Report.PDF"}), RecordValues(Fetch(search).records, "descr"));
  search.keyword = "Ann";  // user name, case-sensitive
  EXPECT_EQ((V{"/x/Report.PDF"}), RecordValues(Fetch(search).records, "descr"));
  search.keyword = "[1]";
  EXPECT_EQ((V{"c [1].txt"}), RecordValues(Fetch(search).records, "descr"));
  search.keyword = "";
  search.limit = 1;
  search.offset = 1;
  Result r = Fetch(search);
  EXPECT_EQ(4, r.total);
  EXPECT_EQ((V{"a.txt"}), RecordValues(r.records, "descr"));
}
