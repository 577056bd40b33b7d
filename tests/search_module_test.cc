// QUOR.LogCenter.Search through quor-webapi call and through a real server, on one appliance
// root whose rows are known here: every answer is checked against the rows it was made from.
#include <gtest/gtest.h>
#include <json/value.h>

#include <algorithm>
#include <functional>
#include <map>
#include <memory>

#include "platform/webapi.h"
#include "search/search_methods.h"
#include "tests/support/method_call.h"
#include "tests/support/run_process.h"
#include "tests/support/server_process.h"
#include "tests/support/temp_root.h"
#include "tools/lib/log_schemas.h"

namespace {

const char kWebApi[] = QUOR_BUILD_DIR "/bin/quor-webapi";
const char kApi[] = "QUOR.LogCenter.Search";
const int64_t kT0 = 1700000000;

using Params = std::vector<std::pair<std::string, std::string>>;

// One stored row: its key texts as they sort (severity as its number, sizes as numbers).
struct Row {
  std::string type;  // orginalLogType
  std::map<std::string, std::string> text;
  std::map<std::string, int64_t> number;
};

std::string Quoted(const std::string& text) {
  std::string out = "'";
  for (char c : text) out += c == '\'' ? std::string("''") : std::string(1, c);
  return out + "'";
}

int Severity(const std::string& stored) {
  return stored == "err" ? 3 : stored == "warning" ? 2 : 1;
}

// The appliance root of every test, laid out once: rows kept by "type/id".
struct Appliance {
  TempRoot root;
  std::map<std::string, Row> rows;
  std::unique_ptr<ServerProcess> server;
  std::unique_ptr<WebApiClient> client;

  Appliance() {
    const char* messages[] = {"disk full on volume 1",  "volume 1 is full, disk ok",
                              "Backup to ÉCOLE failed", "Straße reached",
                              "user signed in",         "Quota over limit"};
    for (const char* type : {"system", "connection"}) {
      int count = std::string(type) == "system" ? 240 : 60;
      std::string sql = std::string(QUOR_SYSTEM_LOG_SCHEMA) +
                        "INSERT INTO logs (time, level, username, msg) VALUES ";
      for (int i = 0; i < count; ++i) {
        // Some times repeat, so that ties must be broken the same way in both orders.
        int64_t time = kT0 + (i / 2) * 60 + (type[0] == 'c' ? 30 : 0);
        std::string level = i % 10 == 0 ? "err" : i % 4 == 1 ? "warning" : "info";
        std::string user = "user" + std::to_string((i * 7) % 5);
        std::string msg = std::string(messages[i % 6]) + " #" + std::to_string(i);
        sql += (i ? "," : "") + std::string("(") + std::to_string(time) + "," + Quoted(level) +
               "," + Quoted(user) + "," + Quoted(msg) + ")";
        Row& row = rows[std::string(type) + "/" + std::to_string(i + 1)];
        row.type = type;
        row.number = {{"time", time}, {"level", Severity(level)}};
        row.text = {{"who", user}, {"descr", msg}, {"orginalLogType", type}};
      }
      MakeDatabase(
          root.At(type[0] == 's' ? "/var/log/quorlog/.QUORSYSDB" : "/var/log/quorlog/.QUORCONNDB"),
          sql + ";");
    }
    for (const char* type : {"ftpxfer", "smbxfer"}) {
      std::string file = type[0] == 'f' ? ".FTPXFERDB" : ".SMBXFERDB";
      std::string sql = std::string(QUOR_TRANSFER_LOG_SCHEMA) +
                        "INSERT INTO logs (time, ip, username, cmd, filesize, filename, isdir) "
                        "VALUES ";
      for (int i = 0; i < 40; ++i) {
        int64_t time = kT0 + i * 45;
        int64_t size = (i * 7919) % 5000 * (i % 3 == 0 ? 1000 : 1);
        std::string ip = "10.0." + std::to_string(i % 3) + "." + std::to_string(i);
        std::string user = "u" + std::to_string(i % 4);
        std::string cmd = i % 2 ? "read" : "write";
        std::string name = "/share/file" + std::to_string((i * 13) % 40);
        sql += (i ? "," : "") + std::string("(") + std::to_string(time) + "," + Quoted(ip) + "," +
               Quoted(user) + "," + Quoted(cmd) + "," + std::to_string(size) + "," + Quoted(name) +
               "," + std::to_string(i % 5 == 0) + ")";
        Row& row = rows[std::string(type) + "/" + std::to_string(i + 1)];
        row.type = type;
        row.number = {{"time", time}, {"filesize", size}, {"isdir", i % 5 == 0}};
        row.text = {{"ip", ip},
                    {"username", user},
                    {"cmd", cmd},
                    {"descr", name},
                    {"orginalLogType", type}};
      }
      MakeDatabase(root.At("/var/log/quorlog/" + file), sql + ";");
    }
    const char* codes[] = {"drive_crashed", "drive_removed", "temperature_over_threshold",
                           "drive_inserted"};
    std::string sql = std::string(QUOR_DISK_LOG_SCHEMA) +
                      "INSERT INTO logs (level, time, logtime, model, serial, container, slot, "
                      "path, msg, info, SHOW) VALUES ";
    for (int i = 0; i < 30; ++i) {
      std::string level = i % 3 == 0 ? "err" : i % 3 == 1 ? "warning" : "info";
      std::string model = "Model " + std::string(1, static_cast<char>('A' + (i * 5) % 7));
      std::string serial = "SN" + std::to_string((i * 11) % 30);
      std::string container = i % 2 ? "Expansion" : "QS-920+";
      std::string slot = std::to_string(1 + (i * 3) % 8);
      int64_t time = kT0 + ((i * 17) % 30) * 100;
      sql += (i ? "," : "") + std::string("(") + Quoted(level) + "," + std::to_string(time) + "," +
             std::to_string(time) + "," + Quoted(model) + "," + Quoted(serial) + "," +
             Quoted(container) + "," + Quoted(slot) + ",'/dev/sata" + slot + "'," +
             Quoted(codes[i % 4]) + ",'{\"temperature\":60,\"threshold\":55}'," +
             (i == 29 ? "0" : "1") + ")";
      if (i == 29) continue;  // hidden rows are no matches
      Row& row = rows["disk/" + std::to_string(i + 1)];
      row.type = "disk";
      row.number = {{"time", time}, {"level", Severity(level)}};
      row.text = {{"model", model},
                  {"serial", serial},
                  {"container", container},
                  {"slot", slot},
                  {"msg", codes[i % 4]}};
    }
    MakeDatabase(root.At("/var/log/quorlog/.QUORDISKDB"), sql + ";");

    // A backup log one line longer than the window the page reads, and a short copy log.
    std::string lines;
    for (int i = 0; i < 15001; ++i) {
      lines += (i % 100 == 0 ? "err" : "info") +
               std::string("\t2023/11/14 22:15:00\tbackupd:\tjob ") + std::to_string(i) + "\n";
    }
    root.Write("/var/log/quorbackup.log", lines);
    root.Write("/var/log/quorcopy.log",
               "info\t2023/11/14 22:15:00\tusbcopy:\tcopied Straße\n"
               "err\t2023/11/14 22:16:00\tusbcopy:\tfailed\n");
    // A network-backup store that is not a database.
    root.Write("/var/log/quorlog/.QUORNETBKPDB", std::string(4096, 'x'));

    if (AddUser(root.path(), "admin", "pw", true)) {
      server =
          std::make_unique<ServerProcess>(root.path(), std::vector<std::string>{"--log-stderr"});
      client = std::make_unique<WebApiClient>(server->port());
      client->Login("admin", "pw");
      // The sign-in is itself a connection-log row; the answers here count only the rows above.
      MakeDatabase(root.At("/var/log/quorlog/.QUORCONNDB"), "DELETE FROM logs WHERE id > 60;");
    }
  }
};

Appliance* appliance = nullptr;

enum class Channel { kCall, kServer };

class SearchModule : public testing::TestWithParam<Channel> {
 protected:
  static void SetUpTestSuite() { appliance = new Appliance; }
  static void TearDownTestSuite() {
    delete appliance;
    appliance = nullptr;
  }

  // The answer envelope of one call through the channel under test.
  Json::Value Envelope(const std::string& method, const Params& params) {
    if (GetParam() == Channel::kCall) {
      std::vector<std::string> argv = {kWebApi,        "call", "--root", appliance->root.path(),
                                       "--log-stderr", kApi,   "1",      method};
      for (const auto& p : params) argv.push_back(p.first + "=" + p.second);
      return QUOR::WebAPIUtil::ParseJson(RunProcess(argv).out);
    }
    std::string form;
    for (const auto& p : params) form += "&" + p.first + "=" + FormEncode(p.second);
    EXPECT_TRUE(appliance->server != nullptr && appliance->server->started());
    return QUOR::WebAPIUtil::ParseJson(
        appliance->client->Call(method, form.empty() ? "" : form.substr(1), kApi).body);
  }

  Json::Value Data(const std::string& method, const Params& params) {
    Json::Value envelope = Envelope(method, params);
    EXPECT_TRUE(envelope["success"].asBool()) << envelope.toStyledString();
    return envelope["data"];
  }

  Json::Value Query(const Params& params) { return Data("query", params); }

  const Row& RowOf(const Json::Value& item) {
    std::string key = item["orginalLogType"].asString();
    if (key.empty()) key = "disk";
    return appliance->rows.at(key + "/" + item["id"].asString());
  }
};

int64_t Sum(const Json::Value& levels) {
  return levels["info"].asInt64() + levels["warn"].asInt64() + levels["err"].asInt64();
}

// The rows of a class that pass keep, and their level counts.
struct Expected {
  int64_t count = 0;
  int64_t levels[4] = {0, 0, 0, 0};
};

Expected Count(const std::vector<std::string>& types, std::function<bool(const Row&)> keep) {
  Expected e;
  for (const auto& entry : appliance->rows) {
    const Row& row = entry.second;
    if (std::find(types.begin(), types.end(), row.type) == types.end() || !keep(row)) continue;
    ++e.count;
    auto level = row.number.find("level");
    ++e.levels[level == row.number.end() ? 1 : level->second];
  }
  return e;
}

}  // namespace

TEST_P(SearchModule, LevelsFilterAndCountTheWholeLog) {
  Expected all = Count({"system"}, [](const Row&) { return true; });
  Json::Value first = Query({{"level", "err"}, {"limit", "10"}});
  EXPECT_EQ(all.levels[3], first["total"].asInt64());
  ASSERT_EQ(10u, first["items"].size());
  for (const Json::Value& item : first["items"]) EXPECT_EQ("err", item["level"].asString());
  // The boxes count every level whatever is ticked and whichever page is shown.
  EXPECT_EQ(all.levels[1], first["levels"]["info"].asInt64());
  EXPECT_EQ(all.levels[2], first["levels"]["warn"].asInt64());
  EXPECT_EQ(all.levels[3], first["levels"]["err"].asInt64());
  Json::Value second = Query({{"level", "err"}, {"limit", "10"}, {"offset", "10"}});
  EXPECT_EQ(first["levels"], second["levels"]);
  EXPECT_EQ(first["total"], second["total"]);
  ASSERT_EQ(10u, second["items"].size());
  EXPECT_NE(first["items"][0]["id"], second["items"][0]["id"]);

  Json::Value two = Query({{"level", "warning,info"}, {"limit", "1000"}});
  EXPECT_EQ(all.levels[1] + all.levels[2], two["total"].asInt64());
  EXPECT_EQ(static_cast<Json::ArrayIndex>(two["total"].asInt()), two["items"].size());
  for (const Json::Value& item : two["items"]) EXPECT_NE("err", item["level"].asString());

  // Other filters narrow the boxes too; the level filter does not. Transfer logs ignore it.
  Json::Value ranged = Query({{"from", std::to_string(kT0 + 600)}, {"level", "err"}});
  Expected later = Count({"system"}, [](const Row& r) { return r.number.at("time") >= kT0 + 600; });
  EXPECT_EQ(later.levels[3], ranged["total"].asInt64());
  EXPECT_EQ(later.count, Sum(ranged["levels"]));
  Json::Value transfer = Query({{"logtype", "ftpxfer"}, {"level", "err"}});
  EXPECT_EQ(40, transfer["total"].asInt64());
  EXPECT_EQ(40, transfer["levels"]["info"].asInt64());
  EXPECT_FALSE(transfer["partial"].asBool());
}

TEST_P(SearchModule, BothOrdersOnEveryKeyOfEveryClass) {
  struct Class {
    std::string logtype;
    std::vector<std::string> types;
    std::vector<std::string> keys;
  } classes[] = {
      {"system,connection",
       {"system", "connection"},
       {"time", "level", "who", "descr", "orginalLogType"}},
      {"ftpxfer,smbxfer",
       {"ftpxfer", "smbxfer"},
       {"time", "ip", "username", "cmd", "filesize", "descr", "orginalLogType", "isdir"}},
      {"disk", {"disk"}, {"time", "level", "model", "serial", "container", "slot", "msg"}},
  };
  for (const Class& c : classes) {
    int64_t count = Count(c.types, [](const Row&) { return true; }).count;
    for (const std::string& key : c.keys) {
      for (const char* order : {"asc", "desc"}) {
        SCOPED_TRACE(c.logtype + " by " + key + " " + order);
        Json::Value answer =
            Query({{"logtype", c.logtype}, {"sort", key}, {"order", order}, {"limit", "1000"}});
        ASSERT_EQ(count, answer["total"].asInt64());
        ASSERT_EQ(static_cast<Json::ArrayIndex>(count), answer["items"].size());
        // Each neighbour pair is in order by the key: numbers as numbers, texts as texts.
        bool ascending = std::string(order) == "asc";
        for (Json::ArrayIndex i = 1; i < answer["items"].size(); ++i) {
          const Row& a = RowOf(answer["items"][i - 1]);
          const Row& b = RowOf(answer["items"][i]);
          int compared = 0;
          if (a.number.count(key) != 0) {
            int64_t x = a.number.at(key), y = b.number.at(key);
            compared = x < y ? -1 : x > y ? 1 : 0;
          } else {
            compared = a.text.at(key).compare(b.text.at(key));
          }
          ASSERT_TRUE(ascending ? compared <= 0 : compared >= 0)
              << answer["items"][i - 1] << answer["items"][i];
        }
        // Paging cuts the same order: the third page of ten is items 20 to 29.
        Json::Value page = Query({{"logtype", c.logtype},
                                  {"sort", key},
                                  {"order", order},
                                  {"limit", "10"},
                                  {"offset", "20"}});
        ASSERT_EQ(std::min<int64_t>(10, count - 20), page["items"].size());
        for (Json::ArrayIndex i = 0; i < page["items"].size(); ++i) {
          EXPECT_EQ(answer["items"][20 + i], page["items"][i]);
        }
      }
    }
  }
  // A record key of another class is no sort key here.
  Json::Value envelope = Envelope("query", {{"sort", "filesize"}});
  EXPECT_EQ(120, envelope["error"]["code"].asInt());
}

TEST_P(SearchModule, TermsAndPhrasesMatchEveryWordIgnoringUnicodeCase) {
  auto contains = [](const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
  };
  // Two words anywhere, in either order; as a phrase, only together. (Parameter values are
  // read as JSON where they are JSON, so a phrase alone is sent as a JSON text.)
  Json::Value words = Query({{"q", "full disk"}, {"limit", "1000"}});
  Expected both = Count({"system"}, [&](const Row& r) {
    return contains(r.text.at("descr"), "full") && contains(r.text.at("descr"), "disk");
  });
  EXPECT_EQ(both.count, words["total"].asInt64());
  Json::Value phrase = Query({{"q", R"("\"DISK FULL\"")"}, {"limit", "1000"}});
  Expected together =
      Count({"system"}, [&](const Row& r) { return contains(r.text.at("descr"), "disk full"); });
  EXPECT_EQ(together.count, phrase["total"].asInt64());
  EXPECT_LT(together.count, both.count);

  // Case beyond ASCII, and a term may also be the user.
  Expected user2Ecole = Count({"system"}, [&](const Row& r) {
    return r.text.at("who") == "user2" && contains(r.text.at("descr"), "ÉCOLE");
  });
  EXPECT_EQ(user2Ecole.count, Query({{"q", "USER2 École"}})["total"].asInt64());
  EXPECT_EQ(0, Query({{"q", "école nothing-like-this"}})["total"].asInt64());
  // Terms are literal: SQL and pattern characters find themselves only.
  EXPECT_EQ(0, Query({{"q", "%' OR 1=1 --"}})["total"].asInt64());
  EXPECT_EQ(0, Query({{"q", "_"}})["total"].asInt64());

  // The plain-text log and the disk log search the same way.
  EXPECT_EQ(1, Query({{"logtype", "copylog"}, {"q", "STRASSE"}})["total"].asInt64());
  Json::Value crashed = Query({{"logtype", "disk"}, {"q", "crashed"}});
  EXPECT_EQ(Count({"disk"}, [](const Row& r) { return r.text.at("msg") == "drive_crashed"; }).count,
            crashed["total"].asInt64());
}

TEST_P(SearchModule, HistogramCountsAddUpToTheQueryTotals) {
  const std::vector<Params> filters = {
      {},
      {{"level", "err"}},
      {{"q", "disk"}, {"buckets", "7"}},
      {{"from", std::to_string(kT0 + 1000)}, {"to", std::to_string(kT0 + 5000)}},
      {{"logtype", "system,connection"}, {"level", "warn,err"}, {"buckets", "500"}},
      {{"logtype", "disk"}, {"buckets", "3"}},
      {{"logtype", "ftpxfer,smbxfer"}},
      {{"logtype", "copylog"}},
  };
  for (const Params& filter : filters) {
    Json::Value query = Query(filter);
    Json::Value histogram = Data("histogram", filter);
    SCOPED_TRACE(histogram.toStyledString());
    int64_t counted = 0, buckets = 60;
    for (const auto& p : filter) {
      if (p.first == "buckets") buckets = std::stoll(p.second);
    }
    const Json::Value& counts = histogram["counts"];
    ASSERT_GE(counts.size(), 1u);
    EXPECT_LE(counts.size(), static_cast<Json::ArrayIndex>(buckets));
    EXPECT_EQ(histogram["from"], counts[0][0]);
    for (Json::ArrayIndex i = 0; i < counts.size(); ++i) {
      EXPECT_EQ(histogram["from"].asInt64() + i * histogram["bucket"].asInt64(),
                counts[i][0].asInt64());
      counted += counts[i][1].asInt64() + counts[i][2].asInt64() + counts[i][3].asInt64();
    }
    EXPECT_GE(histogram["from"].asInt64() + counts.size() * histogram["bucket"].asInt64() - 1,
              histogram["to"].asInt64());
    EXPECT_EQ(query["total"].asInt64(), counted);
  }
  // Errors land in the error column only.
  Json::Value errors = Data("histogram", {{"level", "err"}});
  for (const Json::Value& row : errors["counts"]) EXPECT_EQ(0, row[1].asInt() + row[2].asInt());
  // Nothing matches: no buckets unless the range was given.
  EXPECT_EQ(0u, Data("histogram", {{"q", "nothing-like-this"}})["counts"].size());
  Json::Value given = Data(
      "histogram", {{"q", "nothing-like-this"}, {"from", "0"}, {"to", "59"}, {"buckets", "6"}});
  EXPECT_EQ(6u, given["counts"].size());
  EXPECT_EQ(10, given["bucket"].asInt());
}

TEST_P(SearchModule, MergedDatabasesAndPlainTextWindows) {
  Json::Value merged = Query({{"logtype", "system,connection"}, {"limit", "1000"}});
  EXPECT_EQ(300, merged["total"].asInt64());
  int64_t fromConnection = 0;
  for (const Json::Value& item : merged["items"]) {
    fromConnection += item["orginalLogType"].asString() == "connection";
  }
  EXPECT_EQ(60, fromConnection);
  // Records carry the list's keys and texts.
  const Json::Value& newest = merged["items"][0];
  EXPECT_EQ((std::vector<std::string>{"descr", "id", "level", "logtype", "orginalLogType", "time",
                                      "who"}),
            newest.getMemberNames());

  Json::Value backup = Query({{"logtype", "bkplog"}, {"level", "err"}});
  EXPECT_TRUE(backup["partial"].asBool());
  EXPECT_EQ(15000, Sum(backup["levels"]));
  EXPECT_EQ(150, backup["total"].asInt64());
  EXPECT_EQ("job 15000", backup["items"][0]["descr"].asString());
  Json::Value copy = Query({{"logtype", "copylog"}, {"sort", "level"}, {"order", "asc"}});
  EXPECT_FALSE(copy["partial"].asBool());
  EXPECT_EQ(2, copy["total"].asInt64());
  EXPECT_EQ("info", copy["items"][0]["level"].asString());
  // A store that does not exist is empty.
  Json::Value webdav = Query({{"logtype", "webdavxfer"}});
  EXPECT_EQ(0, webdav["total"].asInt64());
  EXPECT_EQ(0u, webdav["items"].size());
}

TEST_P(SearchModule, BadParametersAndUnreadableStoresAnswerErrors) {
  struct Bad {
    Params params;
    const char* name;
    const char* reason;
  } bad[] = {
      {{{"sort", "nosuchkey"}}, "sort", "condition"},
      {{{"order", "up"}}, "order", "condition"},
      {{{"limit", "0"}}, "limit", "condition"},
      {{{"limit", "1001"}}, "limit", "condition"},
      {{{"limit", "ten"}}, "limit", "type"},
      {{{"offset", "-1"}}, "offset", "condition"},
      {{{"from", "yesterday"}}, "from", "type"},
      {{{"level", "fatal"}}, "level", "condition"},
      {{{"level", "7"}}, "level", "type"},
      {{{"logtype", "system,bkplog"}}, "logtype", "condition"},
      {{{"logtype", "bkplog,copylog"}}, "logtype", "condition"},
      {{{"logtype", "nosuchlog"}}, "logtype", "condition"},
      {{{"buckets", "501"}}, "buckets", "condition"},
      {{{"counts", "no"}}, "counts", "type"},
  };
  for (const Bad& b : bad) {
    Json::Value envelope = Envelope("query", b.params);
    SCOPED_TRACE(envelope.toStyledString());
    EXPECT_FALSE(envelope["success"].asBool());
    EXPECT_EQ(120, envelope["error"]["code"].asInt());
    EXPECT_EQ(b.name, envelope["error"]["errors"]["name"].asString());
    EXPECT_EQ(b.reason, envelope["error"]["errors"]["reason"].asString());
    EXPECT_EQ(envelope, Envelope("histogram", b.params));
    EXPECT_EQ(envelope, Envelope("count", b.params));
  }
  // An unreadable store fails the search alone and merged with readable ones.
  for (const char* method : {"query", "histogram", "count"}) {
    for (const char* types : {"netbkplog", "system,netbkplog"}) {
      Json::Value envelope = Envelope(method, {{"logtype", types}});
      SCOPED_TRACE(envelope.toStyledString());
      EXPECT_EQ(5101, envelope["error"]["code"].asInt());
      EXPECT_EQ(types, envelope["error"]["errors"]["logtype"].asString());
      EXPECT_FALSE(envelope["error"]["errors"]["reason"].asString().empty());
      EXPECT_EQ("netbkplog", envelope["error"]["errors"]["store"].asString());
    }
  }
  if (GetParam() == Channel::kServer) {
    // The lines of the core carry the module's name too.
    EXPECT_TRUE(appliance->server->LogHas(" cannot read the netbkplog logs"));
    EXPECT_TRUE(appliance->server->LogHas("QUOR.LogCenter.Search:"));
    EXPECT_FALSE(appliance->server->LogHas("QUOR.Core.SyslogClient.Log:"));
  }
}

INSTANTIATE_TEST_SUITE_P(Channels, SearchModule, testing::Values(Channel::kCall, Channel::kServer),
                         [](const testing::TestParamInfo<Channel>& info) {
                           return info.param == Channel::kCall ? "Call" : "Server";
                         });

// Counts are those of the log as it is now, whether kept for paging or read from the index:
// after an insert, the oldest rows trimmed, a clear, all within the same second. Rows whose
// time is missing or not a number are shown, sort first and count in the first bucket.
TEST(SearchCounts, KeptOnlyWhileTheLogIsUnchangedAndRowsWithoutATimeCountFirst) {
  TempRoot root;
  const std::string db = root.At("/var/log/quorlog/.QUORSYSDB");
  MakeDatabase(db, std::string(QUOR_SYSTEM_LOG_SCHEMA) +
                       "INSERT INTO logs (time, level, username, msg) VALUES "
                       "(1, 'err', 'a', 'x'), (2, 'info', 'a', 'y'), (3, 'warning', 'a', 'z');");
  auto levels = [](const char* params) {
    Json::Value data = CallMethod(QueryMethod, params);
    const Json::Value& l = data["levels"];
    return std::to_string(l["info"].asInt()) + "/" + std::to_string(l["warn"].asInt()) + "/" +
           std::to_string(l["err"].asInt()) + " total " + std::to_string(data["total"].asInt());
  };
  EXPECT_EQ("1/1/1 total 1", levels(R"({"level":"err"})"));
  EXPECT_EQ("1/1/1 total 3", levels(R"({"sort":"who","order":"asc","offset":1})"));
  MakeDatabase(db, "INSERT INTO logs (time, level, username, msg) VALUES (4, 'err', 'b', 'w');");
  EXPECT_EQ("1/1/2 total 2", levels(R"({"level":"err"})"));
  MakeDatabase(db, "DELETE FROM logs WHERE id = 1;");
  EXPECT_EQ("1/1/1 total 1", levels(R"({"level":"err"})"));
  MakeDatabase(db, "DELETE FROM logs;");
  EXPECT_EQ("0/0/0 total 0", levels(R"({"level":"err"})"));
  // Another filter is another count.
  MakeDatabase(db, "INSERT INTO logs (time, level, username, msg) VALUES (5, 'err', 'c', 'v');");
  EXPECT_EQ("0/0/1 total 1", levels(R"({"level":"err"})"));
  EXPECT_EQ("0/0/0 total 0", levels(R"({"level":"err","q":"zzz"})"));

  MakeDatabase(db,
               "DELETE FROM logs; INSERT INTO logs (time, level, username, msg) VALUES "
               "(1000, 'err', 'a', 'x'), (NULL, 'info', 'a', 'y'), ('soon', 'warning', 'a', "
               "'z'), (5000, 'info', 'b', 'w');");
  Json::Value histogram = CallMethod(HistogramMethod, R"({"buckets":4})");
  EXPECT_EQ(1000, histogram["from"].asInt());
  EXPECT_EQ(5000, histogram["to"].asInt());
  EXPECT_EQ("[[1000,1,1,1],[2001,0,0,0],[3002,0,0,0],[4003,1,0,0]]",
            QUOR::WebAPIUtil::ToText(histogram["counts"]));
  Json::Value oldest = CallMethod(QueryMethod, R"({"sort":"time","order":"asc","limit":2})");
  EXPECT_EQ(4, oldest["total"].asInt());
  EXPECT_EQ("y", oldest["items"][0]["descr"].asString());
}
