// The list method as the server calls it, on a real appliance root.
#include <gtest/gtest.h>

#include "api/methods.h"
#include "tests/support/temp_root.h"
#include "tools/lib/log_schemas.h"

namespace {

Json::Value List(const char* paramsJson) {
  QUOR::APIRequest request(QUOR::WebAPIUtil::ParseJson(paramsJson), "admin", "en");
  QUOR::APIResponse response;
  ListMethod(&request, &response);
  EXPECT_TRUE(response.IsSuccess()) << paramsJson;
  return response.GetData();
}

class ListMethodTest : public ::testing::Test {
 protected:
  void SetUp() override {
    // 150 system rows, times 1700000000 + i; every third is an error, every fifth a warning.
    std::string rows = QUOR_SYSTEM_LOG_SCHEMA;
    rows += "INSERT INTO logs (time, level, username, msg) VALUES ";
    for (int i = 0; i < 150; ++i) {
      const char* level = i % 3 == 0 ? "err" : i % 5 == 0 ? "warning" : "info";
      rows += (i ? "," : "") + std::string("(") + std::to_string(1700000000 + i) + ",'" + level +
              "','user" + std::to_string(i % 4) + "','event " + std::to_string(i) + "')";
    }
    MakeDatabase(root_.At("/var/log/quorlog/.QUORSYSDB"), rows + ";");
  }
  TempRoot root_;
};

}  // namespace

TEST_F(ListMethodTest, DefaultsListTheSystemLogNewestFirst) {
  Json::Value answer = List("{}");
  EXPECT_EQ((std::vector<std::string>{"errorCount", "infoCount", "items", "total", "warnCount"}),
            answer.getMemberNames());
  EXPECT_EQ(150, answer["total"].asInt());
  ASSERT_EQ(100u, answer["items"].size());
  EXPECT_EQ("event 149", answer["items"][0]["descr"].asString());
  EXPECT_EQ("event 50", answer["items"][99]["descr"].asString());
  EXPECT_EQ("system", answer["items"][0]["orginalLogType"].asString());
  EXPECT_EQ("System", answer["items"][0]["logtype"].asString());
  int counted =
      answer["infoCount"].asInt() + answer["warnCount"].asInt() + answer["errorCount"].asInt();
  EXPECT_EQ(100, counted);
  EXPECT_EQ(33, answer["errorCount"].asInt());  // multiples of 3 in 50..149

  // Any target answers the same; offsets and dates given as texts or integers read alike.
  EXPECT_EQ(answer, List(R"({"target":"REMOTE"})"));
  EXPECT_EQ(answer, List(R"({"offset":"0","date_from":0,"date_to":"0"})"));
  Json::Value page = List(R"({"offset":40,"limit":20,"date_from":1700000100})");
  EXPECT_EQ(50, page["total"].asInt());
  EXPECT_EQ(10u, page["items"].size());
  EXPECT_EQ("event 109", page["items"][0]["descr"].asString());
}

// The answer keeps its shape whatever the dispatcher found (routing, paging and failures are
// the dispatcher's tests), and values of unexpected kinds never make the handler throw.
TEST_F(ListMethodTest, FailuresAnswerAsSuccess) {
  Json::Value two = List(R"({"logtype":"bkplog,copylog"})");
  EXPECT_EQ(-1, two["total"].asInt());
  EXPECT_TRUE(two["items"].isArray());
  EXPECT_EQ(0u, two["items"].size());
  EXPECT_EQ(0, two["infoCount"].asInt() + two["warnCount"].asInt() + two["errorCount"].asInt());
  Json::Value odd = List(R"({"sort":{"a":1},"keyword":["x"],"logtype":null,"limit":"abc"})");
  EXPECT_EQ(0, odd["total"].asInt());
}
