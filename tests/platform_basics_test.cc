// The reference platform's basic operations on a real temporary appliance root.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <time.h>

#include "platform/logfiles.h"
#include "platform/root.h"
#include "platform/slibc.h"
#include "platform/stringbundle.h"
#include "platform/systemlog.h"
#include "platform/webapi.h"
#include "tests/support/temp_root.h"

TEST(PlatformStringList, GrowsPastItsInitialSizeAndKeepsEmptyItems) {
  PSLIBSZLIST list = SLIBCSzListAlloc(2);
  ASSERT_NE(nullptr, list);
  for (int i = 0; i < 1000; ++i) ASSERT_EQ(0, SLIBCSzListPush(&list, std::to_string(i).c_str()));
  EXPECT_STREQ("999", SLIBCSzListGet(list, 999));
  EXPECT_EQ(nullptr, SLIBCSzListGet(list, 1000));
  SLIBCSzListFree(list);

  list = SLIBCSzListAlloc(1);
  EXPECT_EQ(5, SLIBCStrSep(",a,,b,", ",", &list));
  ASSERT_EQ(5, list->nItem);
  EXPECT_STREQ("b", SLIBCSzListGet(list, 3));
  EXPECT_STREQ("", SLIBCSzListGet(list, 4));
  EXPECT_EQ(0, SLIBCStrSep("", ",", &list));  // an empty text adds nothing
  EXPECT_EQ(1, SLIBCStrSep(" x y ", ",", &list));
  EXPECT_STREQ(" x y ", SLIBCSzListGet(list, 5));
  EXPECT_EQ(-1, SLIBCStrSep(nullptr, ",", &list));
  SLIBCSzListFree(list);
  SLIBCSzListFree(nullptr);
}

TEST(PlatformRoot, ResolvesFixedPathsUnderQuorRoot) {
  unsetenv("QUOR_ROOT");
  EXPECT_EQ("/", QuorRoot());
  EXPECT_EQ("/var/log/quorlog/.QUORSYSDB", QuorResolvePath("/var/log/quorlog/.QUORSYSDB"));
  setenv("QUOR_ROOT", "", 1);
  EXPECT_EQ("/etc/quor.conf", QuorResolvePath("/etc/quor.conf"));
  setenv("QUOR_ROOT", "/srv/appliance/", 1);
  EXPECT_EQ("/srv/appliance/etc/quor.conf", QuorResolvePath("/etc/quor.conf"));
  // Resolving a resolved path changes nothing; a sibling with a common prefix is not "under".
  EXPECT_EQ("/srv/appliance/etc/quor.conf", QuorResolvePath("/srv/appliance/etc/quor.conf"));
  EXPECT_EQ("/srv/appliance/srv/appliance2/x", QuorResolvePath("/srv/appliance2/x"));
  unsetenv("QUOR_ROOT");
}

TEST(PlatformFiles, ExistenceAndKeyValuesUnderTheRoot) {
  TempRoot root;
  root.Write("/etc.defaults/quorinfo.conf",
             "# unit facts\nupnpmodelname=\"QS-1800\"\nbare = plain value \nempty=\"\"\n"
             "upnpmodelname_old=\"x\"\nshort=abcdefghij\n");
  EXPECT_EQ(1, SLIBCFileExist("/etc.defaults/quorinfo.conf"));
  EXPECT_EQ(0, SLIBCFileExist("/etc.defaults/missing.conf"));
  EXPECT_EQ(0, SLIBCFileExist("/etc.defaults"));  // a directory is not a file

  char value[64];
  EXPECT_GE(
      SLIBCFileGetKeyValue("/etc.defaults/quorinfo.conf", "upnpmodelname", value, sizeof value, 0),
      1);
  EXPECT_STREQ("QS-1800", value);
  EXPECT_GE(SLIBCFileGetKeyValue("/etc.defaults/quorinfo.conf", "bare", value, sizeof value, 0), 1);
  EXPECT_STREQ("plain value", value);
  EXPECT_EQ(1,
            SLIBCFileGetKeyValue("/etc.defaults/quorinfo.conf", "empty", value, sizeof value, 0));
  EXPECT_STREQ("", value);
  char small[4];
  EXPECT_GE(SLIBCFileGetKeyValue("/etc.defaults/quorinfo.conf", "short", small, sizeof small, 0),
            1);
  EXPECT_STREQ("abc", small);
  EXPECT_EQ(0, SLIBCFileGetKeyValue("/etc.defaults/quorinfo.conf", "upnp", value, sizeof value, 0));
  EXPECT_EQ(
      -1, SLIBCFileGetKeyValue("/etc.defaults/none.conf", "upnpmodelname", value, sizeof value, 0));
}

TEST(PlatformUnicode, FullUpperCaseAndBufferLimits) {
  char out[64];
  ASSERT_EQ(0, SLIBCUnicodeUTF8StrUpper("Disk full", out, sizeof out));
  EXPECT_STREQ("DISK FULL", out);
  ASSERT_EQ(0, SLIBCUnicodeUTF8StrUpper("größe ünd çé", out, sizeof out));
  EXPECT_STREQ("GRÖSSE ÜND ÇÉ", out);  // ß becomes SS: full, not one-to-one, mapping
  ASSERT_EQ(0, SLIBCUnicodeUTF8StrUpper("σπίτι", out, sizeof out));
  EXPECT_STREQ("ΣΠΊΤΙ", out);
  // "abc" needs four bytes with its NUL; "ŉ" (2 bytes) grows to "ʼN" (3 bytes) plus NUL.
  EXPECT_EQ(-1, SLIBCUnicodeUTF8StrUpper("abc", out, 3));
  EXPECT_EQ(0, SLIBCUnicodeUTF8StrUpper("abc", out, 4));
  EXPECT_EQ(-1, SLIBCUnicodeUTF8StrUpper("ŉ", out, 3));
  EXPECT_EQ(0, SLIBCUnicodeUTF8StrUpper("ŉ", out, 4));
  EXPECT_STREQ("ʼN", out);
  EXPECT_EQ(-1, SLIBCUnicodeUTF8StrUpper(nullptr, out, sizeof out));
  // Bytes that are not UTF-8 do not stop the rest from being upper-cased.
  ASSERT_EQ(0, SLIBCUnicodeUTF8StrUpper("a\xff"
                                        "b",
                                        out, sizeof out));
  EXPECT_EQ('A', out[0]);
  EXPECT_EQ('B', out[strlen(out) - 1]);
}

TEST(PlatformStringBundle, SectionsLanguageAndFallback) {
  TempRoot root;
  {
    StringBundle log("log");
    EXPECT_STREQ("System", log.Text("log_link_system", ""));
    EXPECT_STREQ("", log.Text("pppoe_IP", ""));  // not in the bundle's sections
    EXPECT_STREQ("", log.Text("no_such_key", ""));
    EXPECT_STREQ("Verbindung", log.Text("log_link_connection", "de"));
    EXPECT_STREQ("Connection", log.Text("log_link_connection", "../../etc"));
  }
  root.Write("/etc/quor.conf", "language=\"de\"\n");
  root.Write("/usr/quor/quorman/webman/texts/de/strings", "[log]\nlog_link_system=\"Systém\"\n");
  StringBundle first("pppoe", "log");
  EXPECT_STREQ("Systém", first.Text("log_link_system", ""));
  // Keys the language lacks come from English.
  EXPECT_STREQ("IP address", first.Text("pppoe_IP", nullptr));

  // A bundle that lives across requests sees the file change; what it handed out before stays
  // readable.
  const char* before = first.Text("log_link_system", "");
  root.Write("/usr/quor/quorman/webman/texts/de/strings",
             "[log]\nlog_link_system=\"System neu\"\n");
  EXPECT_STREQ("System neu", first.Text("log_link_system", ""));
  EXPECT_STREQ("Systém", before);
  // Another appliance root is another file.
  TempRoot other;
  EXPECT_STREQ("System", StringBundle("log").Text("log_link_system", "en"));
}

TEST(PlatformWebApi, ParameterKindsAndConversions) {
  using QUOR::WebAPIUtil::ParseJson;
  Json::Value params = ParseJson(
      R"({"text":"a","number":7,"big":4294967296,"real":1.0,"neg":-5,"flag":true,"obj":{"k":[1]}})");
  QUOR::APIRequest request(params, "admin", "de");
  EXPECT_EQ("admin", request.GetLoginUserName());
  EXPECT_EQ("de", request.GetUILanguage());
  // Kinds the checkers' tests do not reach: an absent optional text is neither set nor
  // invalid; integers must fit 32 bits and be written as integers.
  auto text = request.GetAndCheckString("text", QUOR::PARAM_OPTIONAL, nullptr);
  auto absent = request.GetAndCheckString("absent", QUOR::PARAM_OPTIONAL, nullptr);
  EXPECT_FALSE(absent.IsSet() || absent.IsInvalid());
  EXPECT_TRUE(request
                  .GetAndCheckString("text", QUOR::PARAM_OPTIONAL,
                                     [](const std::string& v) { return v == "b"; })
                  .IsInvalid());
  EXPECT_FALSE(request.GetAndCheckInt("neg", QUOR::PARAM_OPTIONAL, nullptr).IsInvalid());
  for (const char* name : {"big", "real", "flag"}) {
    EXPECT_TRUE(request.GetAndCheckInt(name, QUOR::PARAM_OPTIONAL, nullptr).IsInvalid()) << name;
  }

  using QUOR::WebAPIUtil::ToInt;
  using QUOR::WebAPIUtil::ToText;
  EXPECT_EQ(0, ToInt(Json::Value("0")));
  EXPECT_EQ(25, ToInt(Json::Value("25")));
  EXPECT_EQ(0, ToInt(Json::Value("abc")));
  EXPECT_EQ(2147483647, ToInt(params["big"]));
  EXPECT_EQ(-5, ToInt(params["neg"]));
  EXPECT_EQ(0, ToInt(params["obj"]));
  EXPECT_EQ("1600000000", ToText(Json::Value(1600000000)));
  EXPECT_EQ("", ToText(Json::Value()));
  EXPECT_EQ("true", ToText(params["flag"]));
  EXPECT_EQ(R"({"k":[1]})", ToText(params["obj"]));

  EXPECT_TRUE(ParseJson("[1, 2").isNull());
  EXPECT_TRUE(ParseJson("1 2").isNull());
  EXPECT_TRUE(QUOR::APIValidator::IsBelong(text, ParseJson("[\"x\", \"a\"]")));
  EXPECT_FALSE(QUOR::APIValidator::IsBelong(text, ParseJson("[\"x\"]")));
  EXPECT_FALSE(QUOR::APIValidator::IsBelong(absent, ParseJson("[\"\"]")));
}

// The display text of a point in time is strftime's "%Y/%m/%d %H:%M:%S" of localtime_r, in
// whatever zone TZ names at the call, across offset changes, odd historical offsets and leap
// seconds (the converter keeps whole local minutes between calls).
TEST(PlatformTime, LocalTimeTextAgreesWithStrftimeAcrossZoneChanges) {
  ScopedTimeZone zone("UTC");
  struct Span {
    const char* zone;
    time_t from;
  } spans[] = {
      {"Europe/Berlin", 1711846800 - 300},  // spring forward, 2024-03-31 01:00 UTC
      {"Europe/Berlin", 1729990800 - 300},  // fall back, 2024-10-27 01:00 UTC
      {"Africa/Monrovia", 63593070 - 300},  // -00:44:30 to UTC, 1972-01-07
      {"right/UTC", 78796800 - 300 + 10},   // the leap second of 1972-06-30
      {"America/St_Johns", 1700000000},     // a half-hour offset
      {"UTC", -62135596800 + 30},           // year 1
  };
  for (const Span& span : spans) {
    zone.Set(span.zone);
    for (time_t t = span.from; t < span.from + 600; t += 7) {
      struct tm local;
      char expected[64] = "";
      ASSERT_NE(nullptr, localtime_r(&t, &local));
      strftime(expected, sizeof expected, "%Y/%m/%d %H:%M:%S", &local);
      ASSERT_EQ(expected, QUORLogConvertTime1(t)) << span.zone << " " << t;
    }
  }
}
