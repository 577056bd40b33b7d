// Reference platform: configuration, HTML escaping, language files, events and activity log.
#include <json/reader.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "platform/config.h"
#include "platform/eventlog.h"
#include "platform/webutils.h"
#include "tests/support/temp_root.h"

namespace {

const unsigned int kClearEvent = 0x11801E12;

std::vector<std::string> Lines(const std::string& realPath) {
  std::ifstream in(realPath);
  std::vector<std::string> lines;
  std::string line;
  while (std::getline(in, line)) lines.push_back(line);
  return lines;
}

}  // namespace

TEST(PlatformConfig, ReadsKeysWithDefaults) {
  TempRoot root;
  EXPECT_EQ("no", QuorConf().Def("usbbkp", "no"));  // no file at all
  root.Write("/etc/quor.conf", "usbbkp=\"yes\"\n# netbkp=\"yes\"\nsdcopy=yes\nusbcopy=\"\"\n");
  QuorConf conf;
  EXPECT_EQ("yes", conf.Def("usbbkp", "no"));
  EXPECT_EQ("yes", conf.Def("sdcopy", "no"));
  EXPECT_EQ("no", conf.Def("netbkp", "no"));
  EXPECT_EQ("", conf.Def("usbcopy", "no"));  // present but empty is not missing
}

TEST(PlatformWebUtils, EscapesHtmlAndParsesLanguageFiles) {
  EXPECT_EQ("a&amp;b&lt;c&gt;&quot;d&quot;&#39;e&#39;\n",
            WebUtils::EncodeHtml("a&b<c>\"d\"'e'\n", false));
  EXPECT_EQ("x<br>y", WebUtils::EncodeHtml("x\ny", true));
  EXPECT_EQ("", WebUtils::EncodeHtml("", false));

  TempRoot root;
  Json::Value texts = QUOR::SDS::LocalizedStringParser::ParseTexts(
      "/usr/quor/quorman/webman/modules/Vellum/texts/de");
  EXPECT_EQ("Priorität", texts["logattr"]["attr_priority"].asString());
  root.Write("/lang/x/strings", "[a]\nk=\"say \\\"hi\\\"\"\n[b]\nk=plain\n");
  texts = QUOR::SDS::LocalizedStringParser::ParseTexts(root.At("/lang/x"));  // resolved path too
  EXPECT_EQ("say \"hi\"", texts["a"]["k"].asString());
  EXPECT_EQ("plain", texts["b"]["k"].asString());
  texts = QUOR::SDS::LocalizedStringParser::ParseTexts("/lang/none");
  EXPECT_TRUE(texts.isObject());
  EXPECT_EQ(0u, texts.size());
}

TEST(PlatformEvents, WritesLocalizedRowsIntoTheSystemDatabase) {
  TempRoot root;
  std::string db = root.At("/var/log/quorlog/.QUORSYSDB");
  time_t before = time(nullptr);
  // Missing database (and directory): made with the system log's schema.
  ASSERT_EQ(0, QUORLogSet1(2, 1, kClearEvent, "System", "", "", ""));
  std::vector<std::string> schema =
      QueryRows(db,
                "SELECT type, name, sql FROM sqlite_master WHERE name NOT "
                "LIKE 'sqlite_%' ORDER BY type DESC");
  ASSERT_EQ(2u, schema.size());
  EXPECT_EQ(
      "table|logs|CREATE TABLE logs (id INTEGER PRIMARY KEY AUTOINCREMENT, time INTEGER, level "
      "TEXT, username TEXT, msg TEXT)",
      schema[0]);
  EXPECT_EQ("index|logs_time|CREATE INDEX logs_time ON logs(time)", schema[1]);

  // An existing database keeps its rows; arguments are text, never format directives.
  root.Write("/etc/quor.conf", "language=\"de\"\n");
  ASSERT_EQ(0, QUORLogSet1(2, 1, kClearEvent, "%s%n {2}", "x", "", ""));
  EXPECT_EQ(-1, QUORLogSet1(2, 1, 0x1234u, "System", "", "", ""));
  std::vector<std::string> rows =
      QueryRows(db, "SELECT level, username, msg FROM logs ORDER BY id");
  EXPECT_EQ((std::vector<std::string>{"info|SYSTEM|System logs were cleared.",
                                      "info|SYSTEM|%s%n {2}-Protokolle wurden gelöscht."}),
            rows);
  std::vector<std::string> times = QueryRows(db, "SELECT typeof(time), time FROM logs");
  for (const std::string& t : times) {
    EXPECT_EQ("integer|", t.substr(0, 8));
    long seconds = std::stol(t.substr(8));
    EXPECT_LE(before, seconds);
    EXPECT_GE(time(nullptr), seconds);
  }
}

TEST(PlatformActivityLog, AppendsWholeLinesFromConcurrentProcesses) {
  TempRoot root;
  ASSERT_EQ(0, Logger().LogAddLogClear("system", "ad\"min\n"));
  const int kProcesses = 4;
  const int kLines = 200;
  const std::string longUser(3000, 'u');  // larger than a pipe's atomic write
  std::vector<pid_t> children;
  for (int p = 0; p < kProcesses; ++p) {
    pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
      Logger logger;
      int failures = 0;
      for (int i = 0; i < kLines; ++i) failures += logger.LogAddLogClear("disk", longUser) != 0;
      _exit(failures == 0 ? 0 : 1);
    }
    children.push_back(pid);
  }
  for (pid_t pid : children) {
    int status = 0;
    ASSERT_EQ(pid, waitpid(pid, &status, 0));
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  }
  std::vector<std::string> lines = Lines(root.At("/var/log/quorlog/activity.jsonl"));
  ASSERT_EQ(1u + kProcesses * kLines, lines.size());
  Json::CharReaderBuilder builder;
  std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  for (size_t i = 0; i < lines.size(); ++i) {
    Json::Value entry;
    ASSERT_TRUE(reader->parse(lines[i].data(), lines[i].data() + lines[i].size(), &entry, nullptr))
        << lines[i].substr(0, 80);
    EXPECT_EQ("clear", entry["action"].asString());
    EXPECT_EQ(4u, entry.size());
    EXPECT_TRUE(entry["time"].isIntegral());
    EXPECT_EQ(i == 0 ? "ad\"min\n" : longUser, entry["user"].asString());
    EXPECT_EQ(i == 0 ? "system" : "disk", entry["logtype"].asString());
  }
}
