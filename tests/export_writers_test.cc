// The HTML and CSV export writers on hand-made records, compared byte for byte.
#include <stdio.h>
#include <stdlib.h>

#include "export/csv_writer.h"
#include "export/export_layouts.h"
#include "export/html_writer.h"
#include "tests/support/temp_root.h"

namespace {

Json::Value Record(std::initializer_list<std::pair<const char*, const char*>> members) {
  Json::Value record(Json::objectValue);
  for (const auto& m : members) record[m.first] = m.second;
  return record;
}

// What a writer printed into a memory stream.
class Output {
 public:
  Output() : out_(open_memstream(&data_, &size_)) {}
  ~Output() {
    if (out_ != nullptr) fclose(out_);
    free(data_);
  }
  FILE* out() { return out_; }
  std::string Text() {
    fflush(out_);
    return std::string(data_, size_);
  }

 private:
  char* data_ = nullptr;
  size_t size_ = 0;
  FILE* out_;
};

std::string HtmlBody(const std::string& type, const std::vector<Json::Value>& records,
                     const std::string& language = "en") {
  Output o;
  WriteHtmlBody(o.out(), type, language, records);
  return o.Text();
}

std::string CsvBody(const std::string& type, const std::vector<Json::Value>& records,
                    const std::string& language = "en") {
  Output o;
  WriteCsvBody(o.out(), type, language, records);
  return o.Text();
}

const std::vector<Json::Value> kGeneralRecords = {
    Record({{"time", "2024/03/05 07:04:09"},
            {"level", "warn"},
            {"who", "a<b>"},
            {"descr", "x & \"y\", 'z'"},
            {"orginalLogType", "system"},
            {"logtype", "System"}}),
    Record({{"time", "2024/03/05 07:04:08"},
            {"level", "err"},
            {"who", "root,ops"},
            {"descr", "line1\nline2"},
            {"logtype", "System"}}),
    Record({{"time", "2024/03/05 07:04:07"},
            {"level", "info"},
            {"who", ""},
            {"descr", "plain"},
            {"logtype", "Connection"}}),
};

const std::vector<Json::Value> kTransferRecords = {
    Record({{"time", "2024/03/05 07:04:09"},
            {"ip", "10.0.0.2"},
            {"username", "bob"},
            {"cmd", "write"},
            {"filesize", "1.5 KB"},
            {"isdir", "false"},
            {"descr", "/share/a,b.txt"},
            {"logtype", "FTP"}}),
    Record({{"time", "2024/03/05 07:04:08"},
            {"ip", "10.0.0.3"},
            {"username", "eve"},
            {"cmd", "mkdir"},
            {"filesize", "4096"},
            {"isdir", "true"},
            {"descr", "/share/<dir>"},
            {"logtype", "SMB"}}),
};

const std::vector<Json::Value> kDiskRecords = {
    Record({{"time", "2024/03/05 07:04:09"},
            {"level", "err"},
            {"model", "WD40"},
            {"serial", "S1"},
            {"container", "Main unit"},
            {"slot", "Drive 2"},
            {"msg", "Bad sector \"count\" rose"}}),
};

const std::vector<Json::Value> kSyslogRecords = {
    Record({{"ldate", "2024-03-05"},
            {"ltime", "07:04:09"},
            {"prio", "warning"},
            {"host", "nas"},
            {"fac", "user"},
            {"prog", "smbd"},
            {"msg", "a,b"}}),
    Record({{"ldate", "2024-03-05"},
            {"ltime", "07:04:08"},
            {"prio", "warn"},
            {"host", "nas"},
            {"fac", "kern"},
            {"prog", "k"},
            {"msg", "m"}}),
};

}  // namespace

TEST(ExportWriters, HeadsOfBothDocuments) {
  Output html;
  WriteHtmlHead(html.out(), "syslog_2024-3-5-7:4:9.html", "A <b>title</b>");
  EXPECT_EQ(
      "Content-Type: application/xxx\r\n"
      "Content-Disposition:attachment; filename=\"syslog_2024-3-5-7:4:9.html\"\r\n\r\n"
      "<html><head>\n"
      "<meta http-equiv=\"Content-Type\" content=\"text/html; charset=utf-8;\">\n"
      "</head>\n"
      "<body>\n"
      "<center><h2> A <b>title</b> </h2></center>\n"
      "<table border=1 width=95%>\n"
      "<tr>",
      html.Text());
  Output csv;
  WriteCsvHead(csv.out(), "disklog_2024-12-31-23:59:0.csv", "Disk, \"all\"");
  EXPECT_EQ(
      "Content-Type: text/csv\r\n"
      "Content-Disposition:attachment; filename=\"disklog_2024-12-31-23:59:0.csv\"\r\n\r\n"
      "Disk, \"all\"\r\n",
      csv.Text());
}

TEST(ExportWriters, GeneralLayout) {
  TempRoot root;
  EXPECT_EQ(
      "<th>Level</th><th>Log</th><th>Time</th><th>User</th><th>Event</th></tr>\n"
      "<tr><td align=\"center\" >Warning</td><td align=\"center\" >System</td>"
      "<td align=\"center\" >2024/03/05 07:04:09</td><td align=\"center\" >a&lt;b&gt;</td>"
      "<td align=\"left\" >x &amp; &quot;y&quot;, &#39;z&#39;</td></tr>"
      "<tr><td align=\"center\" >Error</td><td align=\"center\" >System</td>"
      "<td align=\"center\" >2024/03/05 07:04:08</td><td align=\"center\" >root,ops</td>"
      "<td align=\"left\" >line1\nline2</td></tr>"
      "<tr><td align=\"center\" >Information</td><td align=\"center\" >Connection</td>"
      "<td align=\"center\" >2024/03/05 07:04:07</td><td align=\"center\" ></td>"
      "<td align=\"left\" >plain</td></tr>"
      "</table></body></html>",
      HtmlBody("system", kGeneralRecords));
  // The quoted last field keeps its line feed bare; the comma of a middle field shifts columns.
  EXPECT_EQ(
      "Level,Log,Time,User,Event,\r\n"
      "Warning,System,2024/03/05 07:04:09,a<b>,\"x & \"\"y\"\", 'z'\"\r\n"
      "Error,System,2024/03/05 07:04:08,root,ops,line1\nline2\r\n"
      "Information,Connection,2024/03/05 07:04:07,,plain\r\n",
      CsvBody("system", kGeneralRecords));
  // Plain-text types and category words take the same layout; class tests ignore case.
  EXPECT_EQ(CsvBody("system", kGeneralRecords), CsvBody("bkplog", kGeneralRecords));
  EXPECT_EQ(CsvBody("system", kGeneralRecords), CsvBody("NETBKPLOG", kGeneralRecords));
}

TEST(ExportWriters, TransferLayout) {
  TempRoot root;
  EXPECT_EQ(
      "<th>Log</th><th>Time</th><th>IP address</th><th>User</th><th>Event</th>"
      "<th>File/Folder</th><th>Size</th><th>File Name</th></tr>\n"
      "<tr><td align=\"center\" >FTP</td><td align=\"center\" >2024/03/05 07:04:09</td>"
      "<td align=\"center\" >10.0.0.2</td><td align=\"center\" >bob</td>"
      "<td align=\"center\" >write</td><td align=\"center\" >File</td>"
      "<td align=\"right\" >1.5 KB</td><td align=\"left\" >/share/a,b.txt</td></tr>"
      "<tr><td align=\"center\" >SMB</td><td align=\"center\" >2024/03/05 07:04:08</td>"
      "<td align=\"center\" >10.0.0.3</td><td align=\"center\" >eve</td>"
      "<td align=\"center\" >mkdir</td><td align=\"center\" >Folder</td>"
      "<td align=\"right\" >NA</td><td align=\"left\" >/share/&lt;dir&gt;</td></tr>"
      "</table></body></html>",
      HtmlBody("smbxfer", kTransferRecords));
  EXPECT_EQ(
      "Log,Time,IP address,User,Event,File/Folder,Size,File Name,\r\n"
      "FTP,2024/03/05 07:04:09,10.0.0.2,bob,write,File,1.5 KB,\"/share/a,b.txt\"\r\n"
      "SMB,2024/03/05 07:04:08,10.0.0.3,eve,mkdir,Folder,NA,/share/<dir>\r\n",
      CsvBody("ftpxfer", kTransferRecords));
}

TEST(ExportWriters, DiskLayout) {
  TempRoot root;
  EXPECT_EQ(
      "<th>Level</th><th>Time</th><th>Disk Model</th><th>Serial Number</th><th>Enclosure</th>"
      "<th>Position</th><th>Event</th></tr>\n"
      "<tr><td align=\"center\" >Error</td><td align=\"center\" >2024/03/05 07:04:09</td>"
      "<td align=\"center\" >WD40</td><td align=\"center\" >S1</td>"
      "<td align=\"center\" >Main unit</td><td align=\"center\" >Drive 2</td>"
      "<td align=\"left\" >Bad sector &quot;count&quot; rose</td></tr>"
      "</table></body></html>",
      HtmlBody("disk", kDiskRecords));
  EXPECT_EQ(
      "Level,Time,Disk Model,Serial Number,Enclosure,Position,Event,\r\n"
      "Error,2024/03/05 07:04:09,WD40,S1,Main unit,Drive 2,\"Bad sector \"\"count\"\" rose\"\r\n",
      CsvBody("disk", kDiskRecords));
}

TEST(ExportWriters, SyslogLayoutReadsTheLanguageFile) {
  TempRoot root;
  // HTML maps "warning" only; CSV prints the priority as stored.
  EXPECT_EQ(
      "<th>Datum</th><th>Uhrzeit</th><th>Priorität</th><th>Host</th><th>Kategorie</th>"
      "<th>Programm</th><th>Meldung</th></tr>\n"
      "<tr><td align=\"center\" >2024-03-05</td><td align=\"center\" >07:04:09</td>"
      "<td align=\"center\" >Warning</td><td align=\"center\" >nas</td>"
      "<td align=\"center\" >user</td><td align=\"center\" >smbd</td>"
      "<td align=\"center\" >a,b</td></tr>"
      "<tr><td align=\"center\" >2024-03-05</td><td align=\"center\" >07:04:08</td>"
      "<td align=\"center\" >warn</td><td align=\"center\" >nas</td>"
      "<td align=\"center\" >kern</td><td align=\"center\" >k</td>"
      "<td align=\"center\" >m</td></tr>"
      "</table></body></html>",
      HtmlBody("all", kSyslogRecords, "de"));
  EXPECT_EQ(
      "Date,Time,Priority,Host,Facility,Program,Message,\r\n"
      "2024-03-05,07:04:09,warning,nas,user,smbd,\"a,b\"\r\n"
      "2024-03-05,07:04:08,warn,nas,kern,k,m\r\n",
      CsvBody("all", kSyslogRecords));
  // "All" is no layout: the "all" test is case-sensitive.
  EXPECT_EQ("</table></body></html>", HtmlBody("All", kSyslogRecords));
}

TEST(ExportWriters, EmptyResultsUnknownTypesAndOddRecords) {
  TempRoot root;
  SysLogCapture log;
  EXPECT_EQ("</table></body></html>", HtmlBody("system", {}));
  EXPECT_TRUE(log.Has(LOG_ERR, "no log")) << log.Dump();
  EXPECT_EQ("", CsvBody("system", {}));
  EXPECT_EQ(1u, log.lines().size()) << log.Dump();  // the CSV writer logs nothing

  log.Clear();
  EXPECT_EQ("</table></body></html>", HtmlBody("syslog", kGeneralRecords));
  EXPECT_TRUE(log.Has(LOG_ERR, "QUOR.Core.SyslogClient.Log:483 No such logType: syslog"));
  EXPECT_EQ("", CsvBody("filexfer", kGeneralRecords));
  EXPECT_TRUE(log.Has(LOG_ERR, "QUOR.Core.SyslogClient.Log:616 No such logType: filexfer"));

  // A missing member prints empty, an unknown level as stored, a non-text member as its text.
  Json::Value odd = Record({{"level", "notice"}, {"logtype", "System"}});
  odd["time"] = 17;
  EXPECT_EQ("Level,Log,Time,User,Event,\r\nnotice,System,17,,\r\n", CsvBody("system", {odd}));
}

TEST(ExportWriters, CsvQuote) {
  EXPECT_EQ("plain text", CsvQuote("plain text"));
  EXPECT_EQ("", CsvQuote(""));
  EXPECT_EQ("line\nbreak\r", CsvQuote("line\nbreak\r"));
  EXPECT_EQ("\"a,b\"", CsvQuote("a,b"));
  EXPECT_EQ("\"say \"\"hi\"\"\"", CsvQuote("say \"hi\""));
  EXPECT_EQ("\"\"\"\"\"\"\"\"", CsvQuote("\"\"\""));  // a run of n quotes becomes 2n
  EXPECT_EQ(std::string("\"a\0b\"", 5), CsvQuote(std::string("a\0b", 3)));
  EXPECT_EQ(std::string("\"a\0b,\"\"\"", 8), CsvQuote(std::string("a\0b,\"", 5)));
}
