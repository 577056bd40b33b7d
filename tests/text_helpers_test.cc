// Keyword containment, level numbers, dates, export file names and record ordering.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <time.h>

#include <algorithm>
#include <regex>

#include "catalogue/text_helpers.h"
#include "sources/log_search.h"
#include "sources/record_fields.h"
#include "tests/support/temp_root.h"

TEST(TextHelpers, KeywordContainmentIgnoresUnicodeCase) {
  EXPECT_TRUE(ContainsKeyword("Disk Full", "full"));
  EXPECT_TRUE(ContainsKeyword("1,2,3", "2"));
  EXPECT_FALSE(ContainsKeyword("1,3", "2"));
  EXPECT_FALSE(ContainsKeyword("abc", ""));
  EXPECT_FALSE(ContainsKeyword("", "a"));
  EXPECT_TRUE(ContainsKeyword("Übertragung fehlgeschlagen", "üBERTRAGUNG"));
  EXPECT_TRUE(ContainsKeyword("Ωmega", "ωMEGA"));
  EXPECT_TRUE(ContainsKeyword("100% done [ok]", "% DONE ["));

  // A text whose upper case needs more bytes than itself is refused and logged.
  SysLogCapture log;
  EXPECT_TRUE(ContainsKeyword("Straße", "STRASSE"));  // same byte length: full mapping works
  EXPECT_TRUE(log.lines().empty());
  EXPECT_FALSE(ContainsKeyword("ŉ", "N"));
  EXPECT_TRUE(log.Has(LOG_ERR, " SLIBCUnicodeUTF8StrUpper failed")) << log.Dump();
  log.Clear();
  // The text converts; the keyword does not.
  EXPECT_FALSE(ContainsKeyword("ʼN", "ŉ"));
  EXPECT_EQ(1u, log.lines().size()) << log.Dump();
  EXPECT_TRUE(log.Has(LOG_ERR, " SLIBCUnicodeUTF8StrUpper failed")) << log.Dump();
}

TEST(TextHelpers, LevelNumbers) {
  EXPECT_EQ(3, LevelNumber("err"));
  EXPECT_EQ(2, LevelNumber("warning"));
  EXPECT_EQ(1, LevelNumber("info"));
  EXPECT_EQ(1, LevelNumber("ERR"));
  EXPECT_EQ(1, LevelNumber("warn"));
  EXPECT_EQ(1, LevelNumber(""));
  EXPECT_EQ(1, LevelNumber(nullptr));
}

TEST(TextHelpers, DatesInLocalTime) {
  ScopedTimeZone zone("Europe/Berlin");
  EXPECT_STREQ("1970-01-01", LogConvertTime(0));
  EXPECT_STREQ("2024-03-05", LogConvertTime(1709618400));  // 2024-03-05 07:00 local
  const char* shared = LogConvertTime(0);
  LogConvertTime(1709618400);
  EXPECT_STREQ("2024-03-05", shared);  // one buffer, overwritten by each call
  zone.Set("America/New_York");
  EXPECT_STREQ("1969-12-31", LogConvertTime(0));
}

TEST(TextHelpers, ExportFileNames) {
  const std::string stamp = "_[0-9]{4}-[0-9]{1,2}-[0-9]{1,2}-[0-9]{1,2}:[0-9]{1,2}:[0-9]{1,2}";
  EXPECT_TRUE(std::regex_match(MakeExportFileName("connection"), std::regex("connectlog" + stamp)));
  EXPECT_TRUE(std::regex_match(MakeExportFileName("bkplog"), std::regex("TesseraLog" + stamp)));
  EXPECT_TRUE(
      std::regex_match(MakeExportFileName("webdavxfer"), std::regex("filexferlog" + stamp)));
  EXPECT_TRUE(std::regex_match(MakeExportFileName("disk"), std::regex("disklog" + stamp)));
  EXPECT_TRUE(std::regex_match(MakeExportFileName("nosuch"), std::regex("syslog" + stamp)));
  EXPECT_TRUE(std::regex_match(MakeExportFileName("System"), std::regex("syslog" + stamp)));
}

TEST(LogCompareOrder, TextOrderInBothDirections) {
  auto record = [](const char* time) {
    Json::Value r(Json::objectValue);
    if (time != nullptr) r["time"] = time;
    return r;
  };
  LogCompare descending("time", false);
  LogCompare ascending("time", true);
  EXPECT_TRUE(descending(record("b"), record("a")));
  EXPECT_TRUE(descending(record("ab"), record("a")));
  EXPECT_FALSE(descending(record("a"), record("a")));
  EXPECT_TRUE(ascending(record("a"), record("b")));
  EXPECT_TRUE(ascending(record("10"), record("9")));
  EXPECT_TRUE(descending(record(""), record(nullptr)) == false);
  EXPECT_TRUE(descending(record("a"), record(nullptr)));  // a missing key reads as ""
  EXPECT_TRUE(ascending(record(nullptr), record("a")));
  EXPECT_TRUE(ascending(record("\x7f"), record("\xc3\xa9")));  // bytes compare unsigned

  std::vector<Json::Value> records = {record("2024/01/02"), record(nullptr), record("2024/01/10"),
                                      record("2023/12/31")};
  std::sort(records.begin(), records.end(), descending);
  EXPECT_EQ("2024/01/10", records[0]["time"].asString());
  EXPECT_EQ("2023/12/31", records[2]["time"].asString());
  EXPECT_FALSE(records[3].isMember("time"));
}

TEST(RecordFields, ReadIntegerReadsAsStrtoll) {
  for (const char* text : {"0", "1700000000", "  \t42abc", "-17", "+5", "", "abc", "12.5",
                           "9223372036854775807", "9223372036854775808", "-9223372036854775808",
                           "-9223372036854775809", "99999999999999999999999", "\n-0", "- 3"}) {
    EXPECT_EQ(strtoll(text, nullptr, 10), ReadInteger(text)) << "'" << text << "'";
  }
}
