// follow and context of QUOR.LogCenter.Search on real stores in a temporary root: the marks
// move past every row written, stay past a clear and drop when a store is replaced; context
// walks the time order with ties by id, whatever the filters, and says where more remain.
#include <gtest/gtest.h>
#include <unistd.h>

#include "platform/webapi.h"
#include "search/position_methods.h"
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

}  // namespace
