// The clear method on real temporary roots: service switches, what is emptied, the event row,
// the activity entries, missing and broken databases, and the refused request.
#include <json/reader.h>

#include <fstream>

#include "api/methods.h"
#include "tests/support/platform_faults.h"
#include "tests/support/temp_root.h"
#include "tools/lib/log_schemas.h"

namespace {

const char* const kDatabases[] = {".QUORSYSDB", ".QUORCONNDB",  ".QUORNETBKPDB", ".QUORDISKDB",
                                  ".FTPXFERDB", ".KYRFMXFERDB", ".WEBDAVXFERDB", ".SMBXFERDB",
                                  ".AFPXFERDB", ".TFTPXFERDB"};

// An appliance whose every log database holds rows (two old system rows).
class ClearTest : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const char* name : kDatabases) {
      std::string file = name;
      bool transfer = file.find("XFERDB") != std::string::npos;
      std::string schema = transfer                ? QUOR_TRANSFER_LOG_SCHEMA
                           : file == ".QUORDISKDB" ? QUOR_DISK_LOG_SCHEMA
                                                   : QUOR_SYSTEM_LOG_SCHEMA;
      std::string rows = transfer ? "INSERT INTO logs (time, username) VALUES (1, 'u'), (2, 'v');"
                                  : "INSERT INTO logs (time, msg) VALUES (1, 'old'), (2, 'older');";
      MakeDatabase(Db(name), schema + rows);
    }
  }

  std::string Db(const std::string& name) const { return root_.At("/var/log/quorlog/" + name); }

  QUOR::APIResponse Clear(const Json::Value& params, const std::string& user = "admin") {
    QUOR::APIRequest request(params, user, "en");
    QUOR::APIResponse response;
    ClearMethod(&request, &response);
    return response;
  }
  QUOR::APIResponse Clear(const char* logtype) {
    Json::Value params(Json::objectValue);
    params["category"] = "native";
    params["logtype"] = logtype;
    return Clear(params);
  }

  long Count(const std::string& name, const std::string& where = "1") const {
    std::vector<std::string> rows = QueryRows(Db(name), "SELECT count(*) FROM logs WHERE " + where);
    return rows.empty() ? -1 : std::stol(rows[0]);
  }

  // The system database's event messages, oldest first.
  std::vector<std::string> Events() const {
    return QueryRows(Db(".QUORSYSDB"),
                     "SELECT level, username, msg FROM logs WHERE username = 'SYSTEM' ORDER BY id");
  }

  // The activity log as "user cleared logtype" lines.
  std::vector<std::string> Activity() const {
    std::vector<std::string> entries;
    std::ifstream in(root_.At("/var/log/quorlog/activity.jsonl"));
    std::string line;
    Json::CharReaderBuilder builder;
    std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    while (std::getline(in, line)) {
      Json::Value entry;
      EXPECT_TRUE(reader->parse(line.data(), line.data() + line.size(), &entry, nullptr)) << line;
      EXPECT_EQ("clear", entry["action"].asString());
      entries.push_back(entry["user"].asString() + " cleared " + entry["logtype"].asString());
    }
    return entries;
  }

  TempRoot root_;
  SysLogCapture log_;
};

}  // namespace

TEST_F(ClearTest, DefaultClearsTheSystemLogWithOneEventAndOneActivityEntry) {
  Json::Value params(Json::objectValue);
  params["category"] = "native";
  QUOR::APIResponse response = Clear(params, "alice");
  EXPECT_TRUE(response.IsSuccess());
  EXPECT_TRUE(response.GetData().isNull());
  EXPECT_EQ(0, Count(".QUORSYSDB", "username IS NOT 'SYSTEM'"));
  EXPECT_EQ((std::vector<std::string>{"info|SYSTEM|System logs were cleared."}), Events());
  EXPECT_EQ((std::vector<std::string>{"alice cleared system"}), Activity());
  EXPECT_EQ(2, Count(".QUORCONNDB"));
  EXPECT_TRUE(log_.lines().empty()) << log_.Dump();
}

TEST_F(ClearTest, ServiceSwitchesDecideTheOptionalLogs) {
  // Off by default: nothing happens for the network-backup log.
  EXPECT_TRUE(Clear("netbkplog").IsSuccess());
  EXPECT_EQ(2, Count(".QUORNETBKPDB"));
  EXPECT_TRUE(Activity().empty());

  root_.Write("/etc/quor.conf", "netbkp=\"YES\"\n");  // the value compares exactly
  EXPECT_TRUE(Clear("netbkplog").IsSuccess());
  EXPECT_EQ(2, Count(".QUORNETBKPDB"));

  root_.Write("/etc/quor.conf", "netbkp=\"yes\"\nusbbkp=\"yes\"\nsdcopy=\"yes\"\n");
  EXPECT_TRUE(Clear("netbkplog").IsSuccess());
  EXPECT_EQ(0, Count(".QUORNETBKPDB"));
  EXPECT_EQ((std::vector<std::string>{"info|SYSTEM|Network Backup logs were cleared."}), Events());
  EXPECT_EQ((std::vector<std::string>{"admin cleared netbkplog"}), Activity());

  // Plain-text logs pass their switch ("copylog" by "sdcopy" alone) and are still never cleared.
  for (const char* type : {"bkplog", "copylog", "backup", "usbcopy"}) {
    EXPECT_TRUE(Clear(type).IsSuccess()) << type;
  }
  EXPECT_EQ(1u, Activity().size());
  EXPECT_EQ(1u, Events().size());

  // "backup,disk": the backup log is passed over, the disk log emptied.
  EXPECT_TRUE(Clear("backup,disk").IsSuccess());
  EXPECT_EQ(0, Count(".QUORDISKDB"));
  EXPECT_EQ((std::vector<std::string>{"admin cleared netbkplog", "admin cleared disk"}),
            Activity());
  EXPECT_EQ("info|SYSTEM|Disk logs were cleared.", Events().back());
  EXPECT_TRUE(log_.lines().empty()) << log_.Dump();
}

TEST_F(ClearTest, TransferGroupAndCategoryWords) {
  EXPECT_TRUE(Clear("filexfer").IsSuccess());
  for (const char* db :
       {".FTPXFERDB", ".KYRFMXFERDB", ".WEBDAVXFERDB", ".SMBXFERDB", ".AFPXFERDB", ".TFTPXFERDB"}) {
    EXPECT_EQ(0, Count(db)) << db;
  }
  EXPECT_EQ((std::vector<std::string>{
                "info|SYSTEM|FTP logs were cleared.", "info|SYSTEM|File Deck logs were cleared.",
                "info|SYSTEM|WebDAV logs were cleared.", "info|SYSTEM|SMB logs were cleared.",
                "info|SYSTEM|AFP logs were cleared.", "info|SYSTEM|TFTP logs were cleared."}),
            Events());
  EXPECT_EQ(6u, Activity().size());
  EXPECT_EQ(2, Count(".QUORSYSDB", "username IS NOT 'SYSTEM'"));

  // Category words map to their types; empty entries are skipped without a word.
  MakeDatabase(Db(".FTPXFERDB"), "INSERT INTO logs (time) VALUES (3);");
  EXPECT_TRUE(Clear("ftp,,connection,").IsSuccess());
  EXPECT_EQ(0, Count(".FTPXFERDB"));
  EXPECT_EQ(0, Count(".QUORCONNDB"));
  EXPECT_EQ("admin cleared connection", Activity().back());
  EXPECT_TRUE(log_.lines().empty()) << log_.Dump();
}

TEST_F(ClearTest, TypesNoClassAcceptsAreSuccessesThatClearNothing) {
  // An empty text maps to "syslog"; "all" and unknown words name no database.
  for (const char* type : {"", "all", "syslog", "filexfer,disks"}) {
    EXPECT_TRUE(Clear(type).IsSuccess()) << type;
  }
  EXPECT_EQ(2, Count(".QUORSYSDB"));
  EXPECT_TRUE(Activity().empty());
  EXPECT_TRUE(Events().empty());
  EXPECT_TRUE(log_.lines().empty()) << log_.Dump();
}

TEST_F(ClearTest, MissingAndBrokenDatabasesAreLoggedAndStillRecorded) {
  ASSERT_EQ(0, unlink(Db(".QUORCONNDB").c_str()));
  MakeDatabase(Db(".QUORDISKDB"), "DROP TABLE logs;");
  // "System" passes the case-blind class test but names no database exactly.
  EXPECT_TRUE(Clear("connection,disk,System,system").IsSuccess());
  EXPECT_TRUE(log_.Has(LOG_ERR, " Failed to connect to database"));
  EXPECT_TRUE(log_.Has(LOG_ERR,
                       " Failed to exec database command. (no such "
                       "table: logs)"))
      << log_.Dump();
  EXPECT_EQ(access(Db(".QUORCONNDB").c_str(), F_OK), -1);  // never created by a clear
  EXPECT_EQ((std::vector<std::string>{"admin cleared connection", "admin cleared disk",
                                      "admin cleared System", "admin cleared system"}),
            Activity());
  EXPECT_EQ((std::vector<std::string>{"info|SYSTEM|System logs were cleared."}), Events());
}

TEST_F(ClearTest, UnsplittableListIsRefusedWith5001) {
  // The list of types cannot be made (memory exhausted): the mapping gets its list, the
  // split does not.
  ArmStringListAllocFault(2);
  QUOR::APIResponse response = Clear("system");
  ArmStringListAllocFault(0);
  EXPECT_TRUE(response.IsAnswered());
  EXPECT_EQ(5001, response.GetErrorCode());
  EXPECT_TRUE(response.GetErrors().isNull());
  EXPECT_TRUE(log_.Has(LOG_ERR, " Split log type failed."));
  bool bare = false;
  for (const auto& line : log_.lines()) bare |= line.second == "Fail to clear logs (system)";
  EXPECT_TRUE(bare) << log_.Dump();
  EXPECT_EQ(2, Count(".QUORSYSDB"));
  EXPECT_TRUE(Activity().empty());
}
