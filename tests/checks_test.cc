// The parameter checkers through the real framework types: reasons, order, allowed values.
#include <gtest/gtest.h>

#include "api/checks.h"
#include "platform/webapi.h"

namespace {

struct Outcome {
  bool passed;
  int code;
  std::string name;
  std::string reason;
};

Outcome RunChecker(bool (*checker)(QUOR::APIRequest*, QUOR::APIResponse*), const char* paramsJson) {
  QUOR::APIRequest request(QUOR::WebAPIUtil::ParseJson(paramsJson), "admin", "en");
  QUOR::APIResponse response;
  bool passed = checker(&request, &response);
  EXPECT_EQ(passed, !response.IsAnswered()) << "a checker answers exactly when it refuses";
  return {passed, response.GetErrorCode(), response.GetErrors()["name"].asString(),
          response.GetErrors()["reason"].asString()};
}

void ExpectRefused(const Outcome& o, const std::string& name, const std::string& reason) {
  EXPECT_FALSE(o.passed);
  EXPECT_EQ(120, o.code);
  EXPECT_EQ(name, o.name);
  EXPECT_EQ(reason, o.reason);
}

}  // namespace

TEST(ListChecker, TypesInTableOrder) {
  EXPECT_TRUE(RunChecker(CheckListParams, "{}").passed);
  EXPECT_TRUE(RunChecker(CheckListParams,
                         R"({"logtype":"system","offset":0,"limit":50,"date_from":1600000000,
                      "date_to":0,"keyword":"x","level":"err","sort":5,"target":[]})")
                  .passed);  // sort and target are not checked
  ExpectRefused(RunChecker(CheckListParams, R"({"offset":"abc"})"), "offset", "type");
  ExpectRefused(RunChecker(CheckListParams, R"({"limit":"5","logtype":7})"), "logtype", "type");
  ExpectRefused(RunChecker(CheckListParams, R"({"date_from":"1600000000"})"), "date_from", "type");
  ExpectRefused(RunChecker(CheckListParams, R"({"limit":1.5})"), "limit", "type");
  ExpectRefused(RunChecker(CheckListParams, R"({"level":null})"), "level", "type");
}

TEST(ExportChecker, TypesBeforeTheFormatRule) {
  EXPECT_TRUE(RunChecker(CheckExportParams, "{}").passed);
  EXPECT_TRUE(RunChecker(CheckExportParams, R"({"format":"csv"})").passed);
  EXPECT_TRUE(RunChecker(CheckExportParams, R"({"format":"html","limit":10})").passed);
  ExpectRefused(RunChecker(CheckExportParams, R"({"format":"pdf"})"), "format", "condition");
  ExpectRefused(RunChecker(CheckExportParams, R"({"format":"CSV"})"), "format", "condition");
  ExpectRefused(RunChecker(CheckExportParams, R"({"format":["csv"]})"), "format", "type");
  ExpectRefused(RunChecker(CheckExportParams, R"({"format":"pdf","level":3})"), "level", "type");
}

TEST(ClearChecker, RequiredCategoryFromItsList) {
  ExpectRefused(RunChecker(CheckClearParams, "{}"), "category", "required");
  ExpectRefused(RunChecker(CheckClearParams, R"({"logtype":"system"})"), "category", "required");
  ExpectRefused(RunChecker(CheckClearParams, R"({"category":"all"})"), "category", "condition");
  ExpectRefused(RunChecker(CheckClearParams, R"({"category":1})"), "category", "type");
  ExpectRefused(RunChecker(CheckClearParams, R"({"category":"native","path":2})"), "path", "type");
  EXPECT_TRUE(RunChecker(CheckClearParams, R"({"category":"archive"})").passed);
  EXPECT_TRUE(
      RunChecker(CheckClearParams, R"({"category":"native","logtype":"system,disk"})").passed);
}
