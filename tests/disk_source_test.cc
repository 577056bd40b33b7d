// The disk source and the storage manager's decoders, on a real disk database.
#include <gtest/gtest.h>

#include <string.h>

#include "platform/disk.h"
#include "platform/disk_codes.h"
#include "platform/logdb.h"
#include "platform/logfiles.h"
#include "sources/log_classes.h"
#include "sources/log_sources.h"
#include "tests/support/platform_faults.h"
#include "tests/support/source_search.h"
#include "tests/support/temp_root.h"
#include "tools/lib/log_schemas.h"

namespace {

namespace Disk = QUOR::SDS::STORAGE_MANAGER::Disk;

const char kDiskDb[] = "/var/log/quorlog/.QUORDISKDB";

void MakeDiskDb(const TempRoot& root, const std::string& values) {
  MakeDatabase(root.At(kDiskDb),
               std::string(QUOR_DISK_LOG_SCHEMA) +
                   "INSERT INTO logs (level, time, logtime, model, serial, container, slot, "
                   "path, msg, info, SHOW) VALUES " +
                   values + ";");
}

struct Result {
  int total;
  std::vector<Json::Value> records;
  LevelCounts counts;
};

Result Fetch(const LogSearch& search) {
  Result r;
  JsonRecordList sink(&r.records);
  r.total = FetchDiskLogs(search, &sink, &r.counts);
  return r;
}

std::string Message(const char* code, const char* info) {
  char buffer[1024];
  int rc = Disk::DiskLogConverter(code, info, buffer, sizeof buffer);
  return std::to_string(rc) + " " + buffer;
}

std::string Slot(const char* path, const char* slot, bool inThisUnit) {
  char buffer[1024];
  int rc = Disk::DiskSlotConverter(path, slot, inThisUnit, buffer, sizeof buffer);
  return std::to_string(rc) + " " + buffer;
}

std::string Reverse(const char* keyword) {
  char buffer[32] = "";
  return Disk::DiskSlotReverseConverter(keyword, buffer, sizeof buffer) > 0 ? buffer : "<none>";
}

std::vector<std::string> Codes(const char* keyword) {
  PSLIBSZLIST list = SLIBCSzListAlloc(4);
  std::vector<std::string> codes;
  if (Disk::DiskLogKeywordTranform(keyword, &list) > 0) {
    for (int i = 0; i < list->nItem; ++i) codes.push_back(SLIBCSzListGet(list, i));
  }
  SLIBCSzListFree(list);
  return codes;
}

using V = std::vector<std::string>;

}  // namespace

TEST(DiskDecoders, EventTableAndMessages) {
  TempRoot root;
  int codes = 0;
  for (const DiskEventCode* a = kDiskEventCodes; a->code != nullptr; ++a, ++codes) {
    // Every event has a template, and no code contains another (containment conditions).
    EXPECT_EQ(0, Disk::DiskLogConverter(a->code, "{}", std::vector<char>(1024).data(), 1024))
        << a->code;
    for (const DiskEventCode* b = kDiskEventCodes; b->code != nullptr; ++b) {
      if (a == b) continue;
      EXPECT_EQ(nullptr, strstr(a->code, b->code)) << a->code << " " << b->code;
    }
  }
  EXPECT_GE(codes, 15);
  EXPECT_EQ("0 The drive temperature (58 °C) reached the threshold of 55 °C.",
            Message("temperature_over_threshold", "{\"temperature\":58,\"threshold\":\"55\"}"));
  EXPECT_EQ("0 Bad sectors grew from - to 12.", Message("bad_sector_increased", "{\"to\":12}"));
  EXPECT_EQ("0 The S.M.A.R.T. - test failed.", Message("smart_test_failed", "not json"));
  EXPECT_EQ("0 The drive was removed.", Message("drive_removed", nullptr));
  EXPECT_EQ("-1 no_such_event", Message("no_such_event", "{}"));
  EXPECT_EQ("-1 ", Message(nullptr, "{}"));
  char small[8];
  EXPECT_EQ(0, Disk::DiskLogConverter("drive_removed", "", small, sizeof small));
  EXPECT_STREQ("The dri", small);

  EXPECT_EQ((V{"bad_sector_increased"}), Codes("BAD SECTORS"));
  EXPECT_EQ((V{"smart_test_passed", "smart_test_failed", "smart_test_aborted"}),
            Codes("s.m.a.r.t."));
  EXPECT_EQ((V{"temperature_over_threshold", "temperature_back_to_normal"}), Codes("temperature"));
  EXPECT_EQ(V{}, Codes("{count}"));  // placeholders are not text
  EXPECT_EQ(V{}, Codes("zebra"));
}

TEST(DiskDecoders, SlotsBothWaysAndInGerman) {
  TempRoot root;
  EXPECT_EQ("0 Drive 3", Slot("/dev/sata3", "3", true));
  EXPECT_EQ("0 Expansion Unit 1, Drive 12", Slot("/dev/eunit1/sata12", "1-12", false));
  EXPECT_EQ("0 Expansion Unit 2, Drive 4", Slot("/dev/eunit2/sata4", "4", false));
  EXPECT_EQ("-1 4", Slot("/dev/sata4", "4", false));
  EXPECT_EQ("-1 bay?", Slot("/dev/sata4", "bay?", true));
  EXPECT_EQ("-1 ", Slot("/dev/sata4", nullptr, true));
  EXPECT_EQ("3", Reverse("drive 3"));
  EXPECT_EQ("1-12", Reverse(" Expansion unit 1, DRIVE 12 "));
  EXPECT_EQ("<none>", Reverse("Drive"));
  EXPECT_EQ("<none>", Reverse("Drive 3x"));
  EXPECT_EQ("<none>", Reverse("temperature"));

  TempRoot german;
  german.Write("/etc/quor.conf", "language=\"de\"\n");
  EXPECT_EQ("0 Erweiterungseinheit 1, Laufwerk 2", Slot("/dev/eunit1/sata2", "1-2", false));
  EXPECT_EQ("2", Reverse("laufwerk 2"));
  EXPECT_EQ("<none>", Reverse("Drive 2"));
  EXPECT_EQ("0 Das Laufwerk wurde entfernt.", Message("drive_removed", "{}"));
  EXPECT_EQ((V{"drive_removed"}), Codes("ENTFERNT"));
}

TEST(DiskSource, QueryTextVisibilityAndMissingDatabase) {
  TempRoot root;
  SysLogCapture log;
  Result r = Fetch(SourceSearch("disk"));
  EXPECT_EQ(0, r.total);
  EXPECT_TRUE(r.records.empty());
  EXPECT_TRUE(log.Has(LOG_DEBUG, root.At(kDiskDb) + " is not exist. (disk is not enable?)"))
      << log.Dump();

  MakeDiskDb(root,
             "('info',100,100,'WD','S1','QS-920','1','/dev/sata1','drive_inserted','{}',1),"
             "('err',200,200,'WD','S1','QS-920','1','/dev/sata1','drive_crashed','{}',0)");
  r = Fetch(SourceSearch("disk"));
  EXPECT_EQ(1, r.total);
  EXPECT_EQ((V{QUORLogConvertTime1(100)}), RecordValues(r.records, "time"));

  log.Clear();
  LogSearch search = SourceSearch("disk");
  search.date_from = "50";
  ArmDbFault(" SELECT", DbFault::kFail);
  EXPECT_EQ(-1, Fetch(search).total);
  EXPECT_TRUE(log.Has(LOG_ERR,
                      "Failed to select disk from database. [ SELECT * FROM logs  WHERE 1=1 AND "
                      "SHOW = 1 AND time >= '50' ORDER BY logtime DESC, time DESC]"))
      << log.Dump();

  log.Clear();
  search.keyword = "x'y";
  ArmDbFault(" SELECT", DbFault::kFail);
  EXPECT_EQ(-1, Fetch(search).total);
  std::string expected = " WHERE (" + GenSQLRegexp("x'y", "model") + " OR " +
                         GenSQLRegexp("x'y", "serial") + "OR" + GenSQLRegexp("x'y", "container") +
                         "OR" + GenSQLRegexp("x'y", "slot") + "OR" + GenSQLRegexp("x'y", "info") +
                         ") AND SHOW = 1";
  EXPECT_TRUE(log.Has(LOG_ERR, expected)) << log.Dump();
  EXPECT_FALSE(log.Has(LOG_ERR, "GLOB")) << log.Dump();

  for (const char* sort : {"", "logtime", "descr"}) {
    log.Clear();
    search.sort = sort;
    EXPECT_EQ(-1, Fetch(search).total);
    EXPECT_TRUE(log.Has(LOG_ERR, "Bad sort field.")) << log.Dump();
    EXPECT_EQ(1u, log.lines().size()) << log.Dump();
  }
}

TEST(DiskSource, DecodesRowsWithTimeAndContainerRules) {
  TempRoot root;
  root.Write("/etc.defaults/quorinfo.conf", "upnpmodelname=\"QS-920\"\n");
  MakeDiskDb(root,
             // level, time, logtime, model, serial, container, slot, path, msg, info, SHOW
             "('warning',1000,900,'WD40','S1','QS-920+','3','/dev/sata3',"
             "'temperature_over_threshold','{\"temperature\":58,\"threshold\":55}',1),"
             "('info',800,800,'','S2',NULL,'4','/dev/sata4','drive_inserted',NULL,1),"
             "('err',700,NULL,NULL,NULL,'QX517-1','2','/dev/eunit1/sata2','weird_code','{}',1),"
             "('info',600,650,'HGST','S4',NULL,'5','/dev/sata5',NULL,'{}',1),"
             "('err',NULL,500,'HGST','S5','QS-920','6','/dev/sata6','drive_crashed','{}',1)");
  SysLogCapture log;
  Result r = Fetch(SourceSearch("disk"));
  EXPECT_EQ(5, r.total);
  ASSERT_EQ(4u, r.records.size());
  // Ordered by logtime first (NULL last), shown with the earlier of time and logtime.
  EXPECT_EQ((V{QUORLogConvertTime1(900), QUORLogConvertTime1(800), QUORLogConvertTime1(600),
               QUORLogConvertTime1(700)}),
            RecordValues(r.records, "time"));
  EXPECT_EQ((V{"WD40", "-", "HGST", "-"}), RecordValues(r.records, "model"));
  EXPECT_EQ((V{"QS-920+", "-", "-", "QX517-1"}), RecordValues(r.records, "container"));
  // The second and third rows have no container and decode with the first row's flag (in this
  // unit); the fourth is in an expansion unit.
  EXPECT_EQ((V{"Drive 3", "Drive 4", "Drive 5", "Expansion Unit 1, Drive 2"}),
            RecordValues(r.records, "slot"));
  EXPECT_EQ((V{"The drive temperature (58 °C) reached the threshold of 55 °C.",
               "The drive was inserted.", "-", "weird_code"}),
            RecordValues(r.records, "msg"));
  EXPECT_EQ((V{"warn", "info", "info", "err"}), RecordValues(r.records, "level"));
  EXPECT_EQ(7u, r.records[0].size());
  EXPECT_FALSE(r.records[0].isMember("logtype"));
  // The row without time is counted but not shown.
  EXPECT_EQ(2, r.counts.error);
  EXPECT_EQ(1, r.counts.warn);
  EXPECT_EQ(2, r.counts.info);
  EXPECT_TRUE(log.Has(LOG_ERR, "Failed to convert disk log message weird_code")) << log.Dump();
  EXPECT_TRUE(log.Has(LOG_ERR, "Failed to convert disk log message (null)")) << log.Dump();

  // Level filter on the page; the total ignores it.
  LogSearch search = SourceSearch("disk");
  search.level = "3";
  r = Fetch(search);
  EXPECT_EQ(5, r.total);
  EXPECT_EQ((V{"weird_code"}), RecordValues(r.records, "msg"));
  EXPECT_EQ(2, r.counts.error);
  EXPECT_EQ(0, r.counts.info);

  // Without the model name nothing is in this unit: the flag stays false and bare slots of
  // internal paths cannot be placed.
  root.Write("/etc.defaults/quorinfo.conf", "other=1\n");
  log.Clear();
  r = Fetch(SourceSearch("disk"));
  EXPECT_EQ((V{"3", "4", "5", "Expansion Unit 1, Drive 2"}), RecordValues(r.records, "slot"));
  EXPECT_TRUE(
      log.Has(LOG_DEBUG, "Failed to get value of upnpmodelname in /etc.defaults/quorinfo.conf"))
      << log.Dump();
  EXPECT_TRUE(log.Has(LOG_ERR, "Failed to convert slot 3 of /dev/sata3")) << log.Dump();
}

TEST(DiskSource, KeywordSearchesColumnsSlotsMessagesAndInfo) {
  TempRoot root;
  root.Write("/etc.defaults/quorinfo.conf", "upnpmodelname=QS-920\n");
  MakeDiskDb(root,
             "('info',100,100,'WDC WD40EFRX','WD-111','QS-920','3','/dev/sata3','drive_inserted',"
             "'{}',1),"
             "('warning',200,200,'ST4000','ZC-222','QX517-1','1-3','/dev/eunit1/sata3',"
             "'temperature_over_threshold','{\"temperature\":61,\"threshold\":55}',1),"
             "('err',300,300,'ST4000','ZC-333','QS-920','7','/dev/sata7','bad_sector_increased',"
             "'{\"from\":1,\"to\":40}',1),"
             "('err',400,400,'ST4000','ZC-444','QS-920','8','/dev/sata8','drive_crashed','{}',0)");
  LogSearch search = SourceSearch("disk");
  auto serials = [&](const char* keyword) {
    search.keyword = keyword;
    SysLogCapture log;
    Result r = Fetch(search);
    EXPECT_LE(0, r.total) << log.Dump();
    return RecordValues(r.records, "serial");
  };
  EXPECT_EQ((V{"WD-111"}), serials("wdc"));
  EXPECT_EQ((V{"ZC-333", "ZC-222"}), serials("zc-"));
  EXPECT_EQ((V{"ZC-222"}), serials("qx517"));
  EXPECT_EQ((V{"ZC-222"}), serials("Expansion Unit 1, Drive 3"));
  EXPECT_EQ((V{"ZC-222", "WD-111"}), serials("Drive 3"));
  EXPECT_EQ((V{"ZC-333"}), serials("bad SECTORS"));
  EXPECT_EQ((V{"ZC-222"}), serials("threshold"));
  EXPECT_EQ((V{"ZC-222"}), serials("61"));
  EXPECT_EQ(V{}, serials("crashed"));  // hidden row
  EXPECT_EQ(V{}, serials("it's [odd] 100%_*"));
  // The statement keeps its text: every joint after the first is a bare "OR", also between the
  // conditions of several event codes.
  ASSERT_GE(Codes("drive").size(), 2u);
  std::string condition = DiskKeywordCondition("drive");
  size_t spaced = 0;
  for (size_t at = condition.find(" OR "); at != std::string::npos;
       at = condition.find(" OR ", at + 1)) {
    ++spaced;
  }
  EXPECT_EQ(1u, spaced) << condition;
}
