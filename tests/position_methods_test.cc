// follow and context of QUOR.LogCenter.Search on real stores in a temporary root: the marks
// move past every row written, stay past a clear and drop when a store is replaced; context
// walks the time order with ties by id, whatever the filters, and says where more remain.
// The users and logs that the page's "filter out" leaves out, and the rows between two
// loads' marks that live mode counts, with and without the stores' search index.
#include <gtest/gtest.h>
#include <unistd.h>

#include "index/search_index.h"
#include "platform/webapi.h"
#include "search/position_methods.h"
#include "search/search_methods.h"
#include "tests/support/temp_root.h"
#include "tools/lib/log_schemas.h"

namespace {

Json::Value Call(void (*method)(QUOR::APIRequest*, QUOR::APIResponse*), const char* params) {
  QUOR::APIRequest request(QUOR::WebAPIUtil::ParseJson(params), "admin", "en");
  QUOR::APIResponse response;
  method(&request, &response);
  if (!response.IsSuccess()) return Json::Value(response.GetErrorCode());
  return response.GetData();
}

std::string Marks(const char* params) {
  Json::Value answer = Call(FollowMethod, params);
  if (!answer.isObject()) return "error " + answer.toStyledString();
  std::string text;
  for (const std::string& store : answer["marks"].getMemberNames()) {
    text += store + "=" + std::to_string(answer["oldest"][store].asInt64()) + ".." +
            std::to_string(answer["marks"][store].asInt64()) + " ";
  }
  return text;
}

// The messages of a context answer, the entry in brackets, "..." where more remain.
std::string Context(const char* params) {
  Json::Value answer = Call(ContextMethod, params);
  if (!answer.isObject()) return "error " + std::to_string(answer.asInt());
  std::string text = answer["moreBefore"].asBool() ? "... " : "";
  for (Json::ArrayIndex i = 0; i < answer["items"].size(); ++i) {
    std::string descr = answer["items"][i]["descr"].asString();
    text += static_cast<int>(i) == answer["index"].asInt() ? "[" + descr + "] " : descr + " ";
  }
  return text + (answer["moreAfter"].asBool() ? "..." : "");
}

TEST(SearchFollow, MarksPassEveryRowWrittenAndDropWhenAStoreIsReplaced) {
  TempRoot root;
  const std::string system = root.At("/var/log/quorlog/.QUORSYSDB");
  EXPECT_EQ("", Marks(R"({"logtype":"system,connection"})"));
  MakeDatabase(system, std::string(QUOR_SYSTEM_LOG_SCHEMA) +
                           "INSERT INTO logs (time, level, username, msg) VALUES "
                           "(5, 'info', 'a', 'x'), (1, 'err', 'a', 'y');");
  MakeDatabase(root.At("/var/log/quorlog/.QUORCONNDB"), QUOR_SYSTEM_LOG_SCHEMA);
  EXPECT_EQ("connection=0..0 system=1..2 ", Marks(R"({"logtype":"system,connection"})"));
  // A row with an older time is still past the mark; a clear keeps the ids growing.
  MakeDatabase(system,
               "INSERT INTO logs (time, level, username, msg) VALUES (0, 'info', 'b', 'z');"
               "DELETE FROM logs;"
               "INSERT INTO logs (time, level, username, msg) VALUES (9, 'info', 'c', 'w');");
  EXPECT_EQ("connection=0..0 system=4..4 ", Marks(R"({"logtype":"system,connection"})"));
  // A store made anew starts again below the marks the page holds.
  ASSERT_EQ(0, unlink(system.c_str()));
  MakeDatabase(system,
               std::string(QUOR_SYSTEM_LOG_SCHEMA) +
                   "INSERT INTO logs (time, level, username, msg) VALUES (9, 'info', 'd', 'v');");
  EXPECT_EQ("system=1..1 ", Marks(R"({"logtype":"system"})"));
  // Plain-text logs have no row ids; a bad log type is refused.
  EXPECT_EQ("", Marks(R"({"logtype":"bkplog"})"));
  EXPECT_EQ("error 120\n", Marks(R"({"logtype":"nosuch"})"));
}

TEST(SearchContext, NeighboursInTimeOrderWhateverTheFilters) {
  TempRoot root;
  // Ids 1..8; times out of id order, with ties at 20.
  MakeDatabase(root.At("/var/log/quorlog/.QUORSYSDB"),
               std::string(QUOR_SYSTEM_LOG_SCHEMA) +
                   "INSERT INTO logs (time, level, username, msg) VALUES "
                   "(30, 'info', 'u', 'a'), (10, 'err', 'u', 'b'), (20, 'info', 'u', 'c'),"
                   "(20, 'warning', 'u', 'd'), (40, 'info', 'u', 'e'), (20, 'info', 'u', 'f'),"
                   "(50, 'info', 'u', 'g'), (5, 'info', 'u', 'h');");
  // Time order: h b c d f a e g.
  EXPECT_EQ("... b c [d] f a ...", Context(R"({"logtype":"system","id":4,"count":2})"));
  EXPECT_EQ("h b c d f [a] e g ", Context(R"({"logtype":"system","id":1,"level":"err","q":"x"})"));
  EXPECT_EQ("[h] b ...", Context(R"({"logtype":"system","id":8,"count":1})"));
  EXPECT_EQ("... e [g] ", Context(R"({"logtype":"system","id":7,"count":1})"));
  EXPECT_EQ("error 120", Context(R"({"logtype":"system","id":99})"));
  EXPECT_EQ("error 120", Context(R"({"logtype":"system"})"));
  EXPECT_EQ("error 120", Context(R"({"logtype":"system","id":1,"count":101})"));
  EXPECT_EQ("error 120", Context(R"({"logtype":"system,connection","id":1})"));
  EXPECT_EQ("error 120", Context(R"({"logtype":"bkplog","id":1})"));
}

// A query of the system and connection logs: its level counts, its rows as store:user, and
// its histogram's total.
std::string Search(const std::string& more) {
  std::string params = R"({"logtype":"system,connection")" + more + "}";
  Json::Value answer = Call(QueryMethod, params.c_str());
  if (!answer.isObject()) return "error " + std::to_string(answer.asInt());
  std::string text;
  for (const char* level : {"info", "warn", "err"}) {
    text += std::to_string(answer["levels"][level].asInt()) + " ";
  }
  for (const Json::Value& item : answer["items"]) {
    text += item["orginalLogType"].asString() + ":" + item["who"].asString() + " ";
  }
  int64_t counted = 0;
  Json::Value histogram = Call(HistogramMethod, params.c_str());
  for (const Json::Value& bucket : histogram["counts"]) {
    counted += bucket[1].asInt64() + bucket[2].asInt64() + bucket[3].asInt64();
  }
  return text + "=" + std::to_string(counted);
}

TEST(SearchExclusions, UsersAndLogsLeftOutAndRowsBetweenMarks) {
  TempRoot root;
  const std::string system = root.At("/var/log/quorlog/.QUORSYSDB");
  const std::string insert = "INSERT INTO logs (time, level, username, msg) VALUES ";
  MakeDatabase(system, std::string(QUOR_SYSTEM_LOG_SCHEMA) + insert +
                           "(1, 'info', 'ann', 'disk full'), (2, 'err', 'bob', 'disk lost'),"
                           "(3, 'warning', NULL, 'disk hot'), (4, 'info', 'o''hara', 'disk ok'),"
                           "(5, 'info', 'Bob', 'disk new');");
  MakeDatabase(root.At("/var/log/quorlog/.QUORCONNDB"),
               std::string(QUOR_SYSTEM_LOG_SCHEMA) + insert +
                   "(6, 'err', 'bob', 'login'), (7, 'info', 'ann', 'logout');");
  // Every user first, so that counts kept from it cannot answer for an exclusion.
  EXPECT_EQ(
      "4 1 2 connection:ann connection:bob system:Bob system:o'hara system: system:bob "
      "system:ann =7",
      Search(""));
  // Values compare exactly; a row without a user stays.
  const std::string users = R"(,"exclude":{"who":["bob","o'hara"]})";
  EXPECT_EQ("3 1 0 connection:ann system:Bob system: system:ann =4", Search(users));
  EXPECT_EQ("1 0 1 connection:ann connection:bob =2",
            Search(R"(,"exclude":{"orginalLogType":["SYSTEM"]})"));
  EXPECT_EQ("0 0 0 =0", Search(R"(,"exclude":{"orginalLogType":["system","connection"]})"));
  const std::string term =
      R"(,"q":"disk","level":"info,err","exclude":{"who":["ann"],"orginalLogType":["connection"]})";
  EXPECT_EQ("2 1 1 system:Bob system:o'hara system:bob =3", Search(term));
  // The rows between two loads' marks; a store not named is not bounded.
  EXPECT_EQ("1 0 2 connection:ann connection:bob system:bob =3",
            Search(R"(,"after":{"system":1},"through":{"SYSTEM":2})"));
  EXPECT_EQ("1 0 0 system:Bob =1", Search(R"(,"after":{"system":4,"connection":7,"disk":0})"));
  // With the index: it counts only searches without row filters, and narrows a term to its
  // candidates before the exclusion runs on them.
  ASSERT_TRUE(IndexCatchUp(system));
  EXPECT_EQ("3 1 0 connection:ann system:Bob system: system:ann =4", Search(users));
  EXPECT_EQ("2 1 1 system:Bob system:o'hara system:bob =3", Search(term));
  for (const char* bad :
       {R"("exclude":"bob")", R"("exclude":{"who":"bob"})", R"("exclude":{"who":[1]})",
        R"("exclude":{"msg":["x"]})", R"("exclude":{"who":["a\u0000b"]})",
        R"("after":{"system":-1})", R"("through":{"system":"1"})"}) {
    EXPECT_EQ("error 120", Search(std::string(",") + bad)) << bad;
  }
  EXPECT_EQ(120, Call(QueryMethod, R"({"logtype":"bkplog","after":{}})").asInt());
}

}  // namespace
