// quor-webapi call: module loading through the tables, parameter decoding, envelopes and exit
// statuses, run as the real executable on a temporary root.
#include <gtest/gtest.h>
#include <json/value.h>

#include "platform/webapi.h"
#include "server/dispatch/dispatch.h"
#include "server/dispatch/module_registry.h"
#include "tests/support/run_process.h"
#include "tests/support/temp_root.h"

namespace {

const char kWebApi[] = QUOR_BUILD_DIR "/bin/quor-webapi";
const char kModules[] = QUOR_BUILD_DIR "/modules";
const char kApi[] = "QUOR.Core.SyslogClient.Log";

ProcessResult Call(const TempRoot& root, std::vector<std::string> tail) {
  std::vector<std::string> argv = {kWebApi, "call", "--root", root.path(), "--modules", kModules};
  argv.insert(argv.end(), tail.begin(), tail.end());
  return RunProcess(argv);
}

Json::Value Parsed(const std::string& text) { return QUOR::WebAPIUtil::ParseJson(text); }

}  // namespace

TEST(ServerCall, DecodesValuesAsJsonOnlyWhenTheWholeTextIsOneValue) {
  EXPECT_EQ(Json::Value(10), DecodeParamValue("10"));
  EXPECT_EQ(Json::Value("system"), DecodeParamValue("\"system\""));
  EXPECT_EQ(Json::Value(true), DecodeParamValue("true"));
  EXPECT_TRUE(DecodeParamValue("null").isNull());
  EXPECT_TRUE(DecodeParamValue("[1,\"a\"]").isArray());
  EXPECT_TRUE(DecodeParamValue("{\"a\":1}").isObject());
  // Everything else is the text as given, including near-misses of JSON.
  for (const char* text :
       {"system", "abc", "", "10 20", "1,2", "[1,", "10 // note", "'x'", "tru", "NaN"}) {
    EXPECT_EQ(Json::Value(text), DecodeParamValue(text)) << text;
  }
  std::string deep(100000, '[');
  EXPECT_EQ(Json::Value(deep), DecodeParamValue(deep));
}

TEST(ServerCall, RegistryWalksBothTablesToTheEndRow) {
  ModuleRegistry registry;
  std::string error;
  ASSERT_TRUE(registry.LoadDirectory(kModules, &error)) << error;
  // Both modules of the directory: the log module and the search module.
  EXPECT_EQ(8u, registry.MethodCount());
  EXPECT_EQ(9u, registry.CheckRowCount());
  for (const char* method : {"list", "export", "clear"}) {
    const MethodEntry* entry = registry.Find(kApi, 1, method);
    ASSERT_NE(nullptr, entry) << method;
    EXPECT_NE(nullptr, entry->checker) << method;
  }
  for (const char* method : {"query", "histogram", "follow", "context", "count"}) {
    const MethodEntry* entry = registry.Find("QUOR.LogCenter.Search", 1, method);
    ASSERT_NE(nullptr, entry) << method;
    EXPECT_NE(nullptr, entry->checker) << method;
  }
  // The check-only row has no handler, so it is not callable.
  EXPECT_EQ(nullptr, registry.Find(kApi, 0, "get_remotearch_subfolder"));
  EXPECT_EQ(nullptr, registry.Find(kApi, 2, "list"));

  // Loading the same module twice would serve its methods twice: refused, naming both files.
  EXPECT_FALSE(registry.LoadFile(QUOR_MODULE_PATH, &error));
  EXPECT_NE(std::string::npos, error.find("already served")) << error;
  EXPECT_EQ(8u, registry.MethodCount());
}

TEST(ServerCall, RefusesFilesThatAreNotModules) {
  TempRoot root;
  // A real shared library without the tables, and a file that is no library at all.
  std::string dir = root.path() + "/modules";
  ASSERT_EQ(0, system(("mkdir -p " + dir + " && cp " QUOR_BUILD_DIR "/lib/libquorplatform.so " +
                       dir + "/a.so && echo junk > " + dir + "/b.so")
                          .c_str()));
  ProcessResult result =
      RunProcess({kWebApi, "call", "--root", root.path(), "--modules", dir, kApi, "1", "list"});
  EXPECT_EQ(2, result.status);
  EXPECT_EQ("", result.out);
  EXPECT_NE(std::string::npos, result.err.find(dir + "/a.so lacks GetAPITable")) << result.err;
  EXPECT_NE(std::string::npos, result.err.find("undefined symbol")) << result.err;

  ASSERT_EQ(0, system(("rm " + dir + "/a.so").c_str()));
  result = RunProcess({kWebApi, "call", "--modules", dir, kApi, "1", "list"});
  EXPECT_EQ(2, result.status);
  EXPECT_NE(std::string::npos, result.err.find("cannot load module " + dir + "/b.so"))
      << result.err;
}

TEST(ServerCall, RefusesAModuleWithAnIncompleteTableRow) {
  ProcessResult result =
      RunProcess({kWebApi, "call", "--modules", QUOR_BUILD_DIR "/test-modules-broken",
                  "QUOR.Test.Half", "1", "whole"});
  EXPECT_EQ(2, result.status);
  EXPECT_NE(std::string::npos,
            result.err.find("QUOR.Test.Half.so: row 1 of its method table is incomplete"))
      << result.err;
}

TEST(ServerCall, UsageErrorsExitWithTwo) {
  TempRoot root;
  for (std::vector<std::string> tail : {std::vector<std::string>{},
                                        {kApi, "1"},
                                        {kApi, "one", "list"},
                                        {kApi, "1", "list", "x"},
                                        {kApi, "1", "list", "=1"},
                                        {"--bogus", kApi, "1", "list"},
                                        {kApi, "1", "list", "--lang"}}) {
    ProcessResult result = Call(root, tail);
    EXPECT_EQ(2, result.status) << testing::PrintToString(tail);
    EXPECT_EQ("", result.out);
    EXPECT_NE(std::string::npos, result.err.find("usage:")) << result.err;
  }
}

TEST(ServerCall, AnswersEnvelopesWithExitStatus) {
  TempRoot root;
  // Unknown API, version or method: 102, no "errors" member.
  for (std::vector<std::string> tail : {std::vector<std::string>{"No.Such.Api", "1", "list"},
                                        {kApi, "2", "list"},
                                        {kApi, "1", "nosuch"},
                                        {kApi, "0", "get_remotearch_subfolder"}}) {
    ProcessResult result = Call(root, tail);
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("{\"success\":false,\"error\":{\"code\":102}}\n", result.out);
  }
  // A checker refusing stops the call before the handler: its own 120 and detail come back,
  // and the first invalid parameter in the checker's order is the one named.
  ProcessResult result = Call(root, {kApi, "1", "list", "offset=abc", "limit=\"5\""});
  EXPECT_EQ(1, result.status);
  Json::Value answer = Parsed(result.out);
  EXPECT_FALSE(answer["success"].asBool());
  EXPECT_EQ(120, answer["error"]["code"].asInt());
  EXPECT_EQ("offset", answer["error"]["errors"]["name"].asString());
  EXPECT_EQ("type", answer["error"]["errors"]["reason"].asString());

  // Decoded parameters reach the checker as JSON: a quoted number is a text, so "limit" fails.
  result = Call(root, {kApi, "1", "list", "limit=\"5\""});
  EXPECT_EQ("limit", Parsed(result.out)["error"]["errors"]["name"].asString());
  result = Call(root, {kApi, "1", "clear"});
  EXPECT_EQ("required", Parsed(result.out)["error"]["errors"]["reason"].asString());
  result = Call(root, {kApi, "1", "clear", "category=all"});
  EXPECT_EQ("condition", Parsed(result.out)["error"]["errors"]["reason"].asString());
}
