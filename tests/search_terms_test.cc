// The search module's terms: Unicode default caseless matching, the quote rule, and histograms
// at the ends of the 64-bit time range.
#include <gtest/gtest.h>
#include <json/value.h>

#include "platform/webapi.h"
#include "search/search_methods.h"
#include "search/search_request.h"
#include "tests/support/temp_root.h"
#include "tools/lib/log_schemas.h"

namespace {

Json::Value Call(void (*method)(QUOR::APIRequest*, QUOR::APIResponse*), const Json::Value& params) {
  QUOR::APIRequest request(params, "admin", "en");
  QUOR::APIResponse response;
  method(&request, &response);
  return response.GetErrorCode() != 0 ? Json::Value(response.GetErrorCode()) : response.GetData();
}

// The messages of the rows a query for q finds, oldest first, joined by "|".
std::string Found(const std::string& q) {
  Json::Value params(Json::objectValue);
  params["q"] = q;
  params["order"] = "asc";
  Json::Value answer = Call(QueryMethod, params);
  std::string found;
  for (const Json::Value& item : answer["items"]) found += item["descr"].asString() + "|";
  return found;
}

}  // namespace

TEST(SearchTerms, FoldCaseInFullAndQuoteOnlyAtTheStartOfATerm) {
  TempRoot root;
  MakeDatabase(root.At("/var/log/quorlog/.QUORSYSDB"),
               std::string(QUOR_SYSTEM_LOG_SCHEMA) +
                   "INSERT INTO logs (time, level, username, msg) VALUES "
                   "(1, 'info', 'a', 'STRAẞE'), (2, 'info', 'a', 'Straße'), "
                   "(3, 'info', 'a', 'STRASSE'), (4, 'info', 'a', 'strasse'), "
                   "(5, 'info', 'a', 'ıstanbul'), (6, 'info', 'a', 'Istanbul'), "
                   "(7, 'info', 'a', '300 \u212A'), (8, 'info', 'a', '300 kelvin'), "
                   "(9, 'info', 'a', 'tag=\"View\" shown'), (10, 'info', 'a', 'tag= View');");
  const std::string streets = "STRAẞE|Straße|STRASSE|strasse|";
  EXPECT_EQ(streets, Found("STRAẞE"));
  EXPECT_EQ(streets, Found("straße"));
  EXPECT_EQ(streets, Found("strasse"));
  EXPECT_EQ("Istanbul|", Found("istanbul"));  // the dotless ı folds to itself
  EXPECT_EQ("ıstanbul|", Found("ıSTANBUL"));
  EXPECT_EQ("300 \u212A|300 kelvin|", Found("300 k"));
  EXPECT_EQ("300 kelvin|", Found("\u212Aelvin"));
  // A quote inside a word is a character; one that begins a term opens a phrase.
  EXPECT_EQ("tag=\"View\" shown|", Found("tag=\"View"));
  EXPECT_EQ("tag=\"View\" shown|tag= View|", Found("tag= View"));
  EXPECT_EQ("tag= View|", Found("\"tag= View\""));
  EXPECT_EQ((std::vector<std::string>{"a\"b", "c d", "e\"", "f g"}),
            SplitTerms("a\"b \"c d\" e\" \"f g"));
}

TEST(SearchHistogram, RangesAtTheEndsOf64BitsAreNarrowedToTheData) {
  TempRoot root;
  const std::string db = root.At("/var/log/quorlog/.QUORSYSDB");
  MakeDatabase(db, std::string(QUOR_SYSTEM_LOG_SCHEMA) +
                       "INSERT INTO logs (time, level, username, msg) VALUES "
                       "(1000, 'err', 'a', 'x'), (1059, 'info', 'a', 'y');");
  Json::Value params(Json::objectValue);
  params["buckets"] = 60;
  params["from"] = Json::Int64(INT64_MIN);
  params["to"] = Json::Int64(INT64_MAX);
  Json::Value wide = Call(HistogramMethod, params);
  ASSERT_TRUE(wide.isObject()) << QUOR::WebAPIUtil::ToText(wide);
  EXPECT_EQ(1000, wide["from"].asInt64());
  EXPECT_EQ(1059, wide["to"].asInt64());
  ASSERT_EQ(60u, wide["counts"].size());
  EXPECT_EQ("[1000,0,0,1]", QUOR::WebAPIUtil::ToText(wide["counts"][0]));
  EXPECT_EQ("[1059,1,0,0]", QUOR::WebAPIUtil::ToText(wide["counts"][59]));
  EXPECT_EQ(2, Call(QueryMethod, params)["total"].asInt());
  params.removeMember("to");
  EXPECT_EQ(60u, Call(HistogramMethod, params)["counts"].size());
  // Rows at both ends of the range cannot be laid out in buckets: refused.
  MakeDatabase(db, "INSERT INTO logs (time, level, username, msg) VALUES (" +
                       std::to_string(INT64_MIN) + ", 'info', 'a', 'z'), (" +
                       std::to_string(INT64_MAX) + ", 'info', 'a', 'z');");
  EXPECT_EQ(120, Call(HistogramMethod, params).asInt());
  EXPECT_EQ(4, Call(QueryMethod, params)["total"].asInt());
}
