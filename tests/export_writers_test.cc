// The HTML and CSV export writers on hand-made records, compared byte for byte: the layouts
// the method tests do not reach from a database (disk, syslog), odd records and quoting.
#include <stdio.h>
#include <stdlib.h>

#include "export/csv_writer.h"
#include "export/html_writer.h"
#include "tests/support/temp_root.h"

namespace {

// The document body the writer prints for records in hand, fed through its record interface.
template <class Writer>
std::string Body(const std::string& type, const std::vector<Json::Value>& records,
                 const std::string& language) {
  char* data = nullptr;
  size_t size = 0;
  FILE* out = open_memstream(&data, &size);
  {
    Writer writer(out, type, language);
    LogRecord record;
    for (const Json::Value& json : records) {
      record.FromJson(json);
      writer.Add(record);
    }
    writer.Finish(type);
  }
  fclose(out);
  std::string text(data, size);
  free(data);
  return text;
}

Json::Value Record(std::initializer_list<std::pair<const char*, const char*>> members) {
  Json::Value record(Json::objectValue);
  for (const auto& m : members) record[m.first] = m.second;
  return record;
}

std::string HtmlBody(const std::string& type, const std::vector<Json::Value>& records,
                     const std::string& language = "en") {
  return Body<HtmlRowWriter>(type, records, language);
}

std::string CsvBody(const std::string& type, const std::vector<Json::Value>& records,
                    const std::string& language = "en") {
  return Body<CsvRowWriter>(type, records, language);
}

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

TEST(ExportWriters, OddRecords) {
  TempRoot root;
  // A missing member prints empty, an unknown level as stored, a non-text member as its text.
  Json::Value odd = Record({{"level", "notice"}, {"logtype", "System"}});
  odd["time"] = 17;
  EXPECT_EQ("Level,Log,Time,User,Event,\r\nnotice,System,17,,\r\n", CsvBody("system", {odd}));
}

// The last field of a CSV row is quoted when it holds a quote, a comma or a NUL byte, each quote
// doubled; line breaks alone leave it bare.
TEST(ExportWriters, CsvQuotesTheLastField) {
  TempRoot root;
  const std::pair<std::string, std::string> cases[] = {
      {"plain text", "plain text"},
      {"", ""},
      {"line\nbreak\r", "line\nbreak\r"},
      {"a,b", "\"a,b\""},
      {"say \"hi\"", "\"say \"\"hi\"\"\""},
      {"\"\"\"", "\"\"\"\"\"\"\"\""},  // a run of n quotes becomes 2n
      {std::string("a\0b", 3), std::string("\"a\0b\"", 5)},
      {std::string("a\0b,\"", 5), std::string("\"a\0b,\"\"\"", 8)},
  };
  for (const auto& [field, quoted] : cases) {
    Json::Value record(Json::objectValue);
    record["descr"] = Json::Value(field.data(), field.data() + field.size());
    EXPECT_EQ("Level,Log,Time,User,Event,\r\n,,,," + quoted + "\r\n", CsvBody("system", {record}));
  }
}
