// The export method end to end on real log databases: the whole HTML and CSV downloads as the
// handler prints them on standard output, compared byte for byte.
#include <regex>

#include "api/methods.h"
#include "platform/disk.h"
#include "tests/support/stdout_capture.h"
#include "tests/support/temp_root.h"
#include "tools/lib/log_schemas.h"

namespace {

// The whole HTML download of an export named base: its head, the title and the table's rows
// after the opening of the heading row.
std::string Html(const std::string& base, const std::string& title, const std::string& rows) {
  return "Content-Type: application/xxx\r\nContent-Disposition:attachment; filename=\"" + base +
         "_STAMP.html\"\r\n\r\n<html><head>\n<meta http-equiv=\"Content-Type\" "
         "content=\"text/html; charset=utf-8;\">\n</head>\n<body>\n<center><h2> " +
         title + " </h2></center>\n<table border=1 width=95%>\n<tr>" + rows +
         "</table></body></html>";
}

// The whole CSV download of an export named base: its head, the title line and the rows.
std::string Csv(const std::string& base, const std::string& title, const std::string& rows) {
  return "Content-Type: text/csv\r\nContent-Disposition:attachment; filename=\"" + base +
         "_STAMP.csv\"\r\n\r\n" + title + "\r\n" + rows;
}

// Logs of a small appliance; times are shown in UTC (TZ is set for the test).
class ExportTest : public ::testing::Test {
 protected:
  void SetUp() override {
    MakeDatabase(root_.At("/var/log/quorlog/.QUORSYSDB"),
                 std::string(QUOR_SYSTEM_LOG_SCHEMA) +
                     "INSERT INTO logs (time, level, username, msg) VALUES "
                     "(1700000100, 'info', 'carol', 'plain'),"
                     "(1700000300, 'warning', 'alice', 'Disk <full> & \"hot\", ok'),"
                     "(1700000050, 'notice', '', 'odd level'),"
                     "(1700000200, 'err', 'bob,ops', 'line1' || char(10) || 'line2');");
    MakeDatabase(root_.At("/var/log/quorlog/.FTPXFERDB"),
                 std::string(QUOR_TRANSFER_LOG_SCHEMA) +
                     "INSERT INTO logs (time, ip, username, cmd, filesize, filename, isdir) VALUES "
                     "(1700000300, '10.0.0.2', 'bob', 'write', 1536, '/share/a,b.txt', 0),"
                     "(1700000200, '10.0.0.3', 'eve', 'mkdir', 4096, '/share/<new', 1);");
  }
  // The download of an export request, its time-stamped file name replaced by base_STAMP.ext
  // after checking its form.
  std::string Export(Json::Value params, const std::string& language = "en") {
    QUOR::APIRequest request(params, "admin", language);
    QUOR::APIResponse response;
    StdoutCapture capture;
    ExportMethod(&request, &response);
    std::string text = capture.Text();
    EXPECT_FALSE(response.IsOutputEnabled());
    EXPECT_FALSE(response.IsAnswered());
    return Stamped(text);
  }
  std::string Export(const char* logtype, const char* format) {
    Json::Value params(Json::objectValue);
    params["logtype"] = logtype;
    if (format != nullptr) params["format"] = format;
    return Export(params);
  }

  static std::string Stamped(const std::string& text) {
    static const std::regex name(
        "filename=\"([A-Za-z]+)_[0-9]{4}-[1-9][0-9]?-[1-9][0-9]?-[0-9]{1,2}:[0-9]{1,2}:[0-9]{1,2}"
        "\\.(html|csv)\"");
    std::smatch match;
    EXPECT_TRUE(std::regex_search(text, match, name)) << text.substr(0, 200);
    return std::regex_replace(text, name, "filename=\"$1_STAMP.$2\"",
                              std::regex_constants::format_first_only);
  }

  ScopedTimeZone zone_{"UTC"};
  TempRoot root_;
  SysLogCapture log_;
};

}  // namespace

TEST_F(ExportTest, SystemLogAsHtmlAndCsv) {
  std::string html =
      Html("syslog", "System",
           "<th>Level</th><th>Log</th><th>Time</th><th>User</th><th>Event</th></tr>\n"
           "<tr><td align=\"center\" >Warning</td><td align=\"center\" >System</td>"
           "<td align=\"center\" >2023/11/14 22:18:20</td><td align=\"center\" >alice</td>"
           "<td align=\"left\" >Disk &lt;full&gt; &amp; &quot;hot&quot;, ok</td></tr>"
           "<tr><td align=\"center\" >Error</td><td align=\"center\" >System</td>"
           "<td align=\"center\" >2023/11/14 22:16:40</td><td align=\"center\" >bob,ops</td>"
           "<td align=\"left\" >line1\nline2</td></tr>"
           "<tr><td align=\"center\" >Information</td><td align=\"center\" >System</td>"
           "<td align=\"center\" >2023/11/14 22:15:00</td><td align=\"center\" >carol</td>"
           "<td align=\"left\" >plain</td></tr>"
           "<tr><td align=\"center\" >Information</td><td align=\"center\" >System</td>"
           "<td align=\"center\" >2023/11/14 22:14:10</td><td align=\"center\" ></td>"
           "<td align=\"left\" >odd level</td></tr>");
  EXPECT_EQ(html, Export("system", nullptr));
  EXPECT_EQ(html, Export("system", "html"));
  EXPECT_EQ(Csv("syslog", "System",
                "Level,Log,Time,User,Event,\r\n"
                "Warning,System,2023/11/14 22:18:20,alice,\"Disk <full> & \"\"hot\"\", ok\"\r\n"
                "Error,System,2023/11/14 22:16:40,bob,ops,line1\nline2\r\n"
                "Information,System,2023/11/14 22:15:00,carol,plain\r\n"
                "Information,System,2023/11/14 22:14:10,,odd level\r\n"),
            Export("system", "csv"));
  EXPECT_TRUE(log_.lines().empty()) << log_.Dump();
  // The filters of the list method apply; only the page limit does not exist here.
  Json::Value params(Json::objectValue);
  params["format"] = "csv";
  params["level"] = "err,warning";
  params["offset"] = 1;
  params["limit"] = 1;
  EXPECT_EQ(Csv("syslog", "System",
                "Level,Log,Time,User,Event,\r\n"
                "Error,System,2023/11/14 22:16:40,bob,ops,line1\nline2\r\n"),
            Export(params));
}

TEST_F(ExportTest, TransferLogsByCategoryWord) {
  EXPECT_EQ(Html("filexferlog", "File Transfer",
                 "<th>Log</th><th>Time</th><th>IP address</th><th>User</th><th>Event</th>"
                 "<th>File/Folder</th><th>Size</th><th>File Name</th></tr>\n"
                 "<tr><td align=\"center\" >FTP</td><td align=\"center\" >2023/11/14 22:18:20</td>"
                 "<td align=\"center\" >10.0.0.2</td><td align=\"center\" >bob</td>"
                 "<td align=\"center\" >write</td><td align=\"center\" >File</td>"
                 "<td align=\"right\" >1.50 KB</td><td align=\"left\" >/share/a,b.txt</td></tr>"
                 "<tr><td align=\"center\" >FTP</td><td align=\"center\" >2023/11/14 22:16:40</td>"
                 "<td align=\"center\" >10.0.0.3</td><td align=\"center\" >eve</td>"
                 "<td align=\"center\" >mkdir</td><td align=\"center\" >Folder</td>"
                 "<td align=\"right\" >NA</td><td align=\"left\" >/share/&lt;new</td></tr>"),
            Export("ftp", nullptr));
  EXPECT_EQ(Csv("filexferlog", "File Transfer",
                "Log,Time,IP address,User,Event,File/Folder,Size,File Name,\r\n"
                "FTP,2023/11/14 22:18:20,10.0.0.2,bob,write,File,1.50 KB,\"/share/a,b.txt\"\r\n"
                "FTP,2023/11/14 22:16:40,10.0.0.3,eve,mkdir,Folder,NA,/share/<new\r\n"),
            Export("filexfer", "csv"));
}

TEST_F(ExportTest, EmptyResultsAndTypesWithoutLayout) {
  // Nothing matches: the heading row stays open, "no log" goes to the system log.
  Json::Value params(Json::objectValue);
  params["keyword"] = "nothing like this";
  EXPECT_EQ(Html("syslog", "System", ""), Export(params));
  EXPECT_TRUE(log_.Has(LOG_ERR, "no log")) << log_.Dump();
  params["format"] = "csv";
  log_.Clear();
  EXPECT_EQ(Csv("syslog", "System", ""), Export(params));
  EXPECT_TRUE(log_.lines().empty()) << log_.Dump();

  // "all" has the syslog layout, but no source serves it: the empty document again.
  EXPECT_EQ(Html("syslog", "System", ""), Export("all", nullptr));

  // A first type without a layout ("0" is skipped by the dispatcher, which still serves the
  // system log): logged, and the document ends without headings.
  log_.Clear();
  EXPECT_EQ(Html("syslog", "System", ""), Export("0,system", nullptr));
  EXPECT_TRUE(log_.Has(LOG_ERR, "QUOR.Core.SyslogClient.Log:483 No such logType: 0"))
      << log_.Dump();
  EXPECT_EQ(Csv("syslog", "System", ""), Export("0,system", "csv"));
  EXPECT_TRUE(log_.Has(LOG_ERR, "QUOR.Core.SyslogClient.Log:616 No such logType: 0"));
}
