// The log-type catalogue, class tests, splitting, category mapping and export keys.
#include <gtest/gtest.h>

#include "catalogue/log_types.h"
#include "catalogue/type_lists.h"
#include "tests/support/temp_root.h"

namespace {

std::vector<std::string> Items(PSLIBSZLIST list) {
  std::vector<std::string> items;
  for (int i = 0; i < list->nItem; ++i) items.push_back(SLIBCSzListGet(list, i));
  return items;
}

std::vector<std::string> Split(const std::string& text) {
  PSLIBSZLIST list = nullptr;
  EXPECT_EQ(0, SplitLogTypes(text, &list));
  std::vector<std::string> items = Items(list);
  SLIBCSzListFree(list);
  return items;
}

}  // namespace

TEST(Catalogue, LookupsAreExactClassTestsIgnoreCase) {
  EXPECT_NE(nullptr, FindLogTypeEntry("tftpxfer"));
  EXPECT_EQ(nullptr, FindLogTypeEntry("System"));
  EXPECT_EQ(nullptr, FindLogTypeEntry(""));
  EXPECT_TRUE(IsDbLogType("System"));
  EXPECT_TRUE(IsXferLogType("SMBXFER"));
  EXPECT_TRUE(IsPlainLogType("bkpserverlog"));
  EXPECT_TRUE(IsDiskLogType("Disk"));
  EXPECT_FALSE(IsDbLogType(nullptr));
  EXPECT_FALSE(IsDbLogType("syslog"));
  EXPECT_FALSE(IsXferLogType("filexfer"));
  EXPECT_FALSE(IsInList("system", nullptr));
}

TEST(Catalogue, SplittingExpandsOnlyTheWholeGroupWord) {
  EXPECT_EQ((std::vector<std::string>{"ftpxfer", "kyrfmxfer", "webdavxfer", "smbxfer", "afpxfer",
                                      "tftpxfer"}),
            Split("filexfer"));
  EXPECT_EQ((std::vector<std::string>{"filexfer", "system"}), Split("filexfer,system"));
  EXPECT_EQ((std::vector<std::string>{"system", "", "System", "system"}),
            Split("system,,System,system"));
  EXPECT_TRUE(Split("").empty());
}

TEST(Catalogue, CategoryMapping) {
  EXPECT_EQ(
      "bkplog,bkpserverlog,copylog,netbkplog,ftpxfer,kyrfmxfer,webdavxfer,smbxfer,afpxfer,"
      "tftpxfer,disk,all,system",
      MapCategoriesToLogTypes(
          "backup,backupserver,usbcopy,netbackup,ftp,filedeck,webdav,cifs,afp,tftp,disk,all,"
          "system"));
  EXPECT_EQ("syslog", MapCategoriesToLogTypes(""));
  // Exact words only; empty items keep their separators.
  EXPECT_EQ("Backup,,connection", MapCategoriesToLogTypes("Backup,,connection"));
  EXPECT_EQ(",", MapCategoriesToLogTypes(","));
}

TEST(Catalogue, FirstTypeAndTitleKey) {
  SysLogCapture log;
  EXPECT_EQ("ftpxfer", GetFirstLogType("filexfer"));
  EXPECT_EQ("copylog", GetFirstLogType("copylog,system"));
  EXPECT_TRUE(log.lines().empty());
  EXPECT_EQ("system", GetFirstLogType(""));
  EXPECT_TRUE(log.Has(LOG_ERR, " Get first logtype failed. log types: .")) << log.Dump();

  EXPECT_EQ("log_xfer", GetLogTypeTextKey("smbxfer"));
  EXPECT_EQ("disk_related", GetLogTypeTextKey("disk"));
  EXPECT_EQ("log_link_backup_server", GetLogTypeTextKey("bkpserverlog"));
  EXPECT_EQ("log_link_system", GetLogTypeTextKey("nosuch"));
  EXPECT_EQ("log_link_system", GetLogTypeTextKey("Disk"));
}

TEST(Catalogue, RoutingSkipsNullAndZeroItems) {
  PSLIBSZLIST list = SLIBCSzListAlloc(1);
  EXPECT_TRUE(AllLogTypesAre(IsXferLogType, list));  // empty list passes every test
  ASSERT_EQ(0, SLIBCSzListPush(&list, "0"));
  ASSERT_EQ(0, SLIBCSzListPush(&list, "0anything"));
  EXPECT_TRUE(AllLogTypesAre(IsDiskLogType, list));
  ASSERT_EQ(0, SLIBCSzListPush(&list, "system"));
  EXPECT_TRUE(AllLogTypesAre(IsDbLogType, list));
  EXPECT_FALSE(AllLogTypesAre(IsXferLogType, list));
  ASSERT_EQ(0, SLIBCSzListPush(&list, ""));  // the empty text is tested, not skipped
  EXPECT_FALSE(AllLogTypesAre(IsDbLogType, list));
  SLIBCSzListFree(list);
}
