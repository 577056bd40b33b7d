// The log center's three methods end to end through the real server on a demo root: the same
// answers as quor-webapi call, exports streamed whole, and clear.
#include <gtest/gtest.h>

#include <fstream>
#include <memory>

#include "platform/webapi.h"
#include "tests/support/run_process.h"
#include "tests/support/server_process.h"
#include "tests/support/temp_root.h"
#include "tools/lib/log_demo.h"

namespace {

const char kApi[] = "QUOR.Core.SyslogClient.Log";

// The document after the header block of an answer that carries its own header lines.
std::string AfterHeaderBlock(const std::string& text) {
  size_t end = text.find("\r\n\r\n");
  return end == std::string::npos ? "" : text.substr(end + 4);
}

long RssKb(pid_t pid) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/status");
  std::string line;
  while (std::getline(in, line)) {
    if (line.compare(0, 6, "VmRSS:") == 0) return atol(line.c_str() + 6);
  }
  return -1;
}

class ServerMethods : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    root_ = new TempRoot();
    DemoOptions options;
    options.root = root_->path();
    options.textsDir = QUOR_SOURCE_DIR "/texts";
    options.rows = 20000;
    std::string error;
    ASSERT_TRUE(BuildDemoRoot(options, &error)) << error;
    ASSERT_TRUE(AddUser(root_->path(), "admin", "pw", true, "en"));
    server_ = new ServerProcess(root_->path(), {"--workers", "2"});
    ASSERT_TRUE(server_->started());
    client_ = new WebApiClient(server_->port());
    ASSERT_TRUE(client_->Login("admin", "pw")["success"].asBool());
  }
  static void TearDownTestSuite() {
    delete client_;
    delete server_;
    delete root_;
  }
  void SetUp() override { setenv("QUOR_ROOT", root_->path().c_str(), 1); }

  // The same call through quor-webapi call; params as NAME=VALUE words.
  static ProcessResult Call(const std::string& method, const std::vector<std::string>& params) {
    std::vector<std::string> argv = {
        QUOR_BUILD_DIR "/bin/quor-webapi", "call", "--root", root_->path(), "--modules",
        QUOR_BUILD_DIR "/modules",         kApi,   "1",      method};
    argv.insert(argv.end(), params.begin(), params.end());
    return RunProcess(argv);
  }

  // The form of the same parameters for the HTTP call.
  static std::string Form(const std::vector<std::string>& params) {
    std::string form;
    for (const std::string& param : params) {
      size_t equals = param.find('=');
      if (!form.empty()) form += "&";
      form += param.substr(0, equals) + "=" + FormEncode(param.substr(equals + 1));
    }
    return form;
  }

  static TempRoot* root_;
  static ServerProcess* server_;
  static WebApiClient* client_;
};

TempRoot* ServerMethods::root_ = nullptr;
ServerProcess* ServerMethods::server_ = nullptr;
WebApiClient* ServerMethods::client_ = nullptr;

}  // namespace

TEST_F(ServerMethods, ListAnswersAsTheCallCommandDoes) {
  Json::Value defaults = client_->CallJson("list");
  ASSERT_TRUE(defaults["success"].asBool()) << defaults;
  for (const char* key : {"total", "items", "infoCount", "warnCount", "errorCount"}) {
    EXPECT_TRUE(defaults["data"].isMember(key)) << key;
  }
  EXPECT_GT(defaults["data"]["total"].asInt(), 0);

  for (const std::vector<std::string>& params : std::vector<std::vector<std::string>>{
           {},
           {"logtype=system", "limit=10", "offset=5"},
           {"logtype=system", "keyword=timed out", "level=err"},
           {"logtype=ftpxfer,smbxfer", "limit=3"},
           {"logtype=disk", "limit=3"},
           {"logtype=system,nosuchtype"},
           {"logtype=system", "limit=\"10\""},
       }) {
    ProcessResult call = Call("list", params);
    HttpAnswer answer = client_->Call("list", Form(params));
    EXPECT_EQ(200, answer.status);
    EXPECT_EQ(call.out, answer.body + "\n") << Form(params);
  }
}

TEST_F(ServerMethods, ExportsStreamWholeAsTheCallCommandWritesThem) {
  pid_t master = server_->pid();
  long masterBefore = RssKb(master);
  for (const char* format : {"html", "csv"}) {
    std::vector<std::string> params = {"logtype=system", std::string("format=") + format};
    ProcessResult call = Call("export", params);
    ASSERT_EQ(0, call.status) << call.err;
    HttpAnswer answer = client_->Call("export", Form(params));
    EXPECT_EQ(200, answer.status);
    EXPECT_EQ("no-store", answer.Header("cache-control"));
    EXPECT_EQ("nosniff", answer.Header("x-content-type-options"));
    EXPECT_EQ("close", answer.Header("connection"));
    // The method's own header lines follow the server's in one header block.
    EXPECT_EQ(format == std::string("csv") ? "text/csv" : "application/xxx",
              answer.Header("content-type"));
    EXPECT_EQ(0u, answer.head.find("HTTP/1.1 200 OK\r\nCache-Control: no-store\r\n"
                                   "X-Content-Type-Options: nosniff\r\nConnection: close\r\n"
                                   "Transfer-Encoding: chunked\r\nContent-Type: "))
        << answer.head;
    EXPECT_EQ(0u, answer.Header("content-disposition").find("attachment; filename=\"syslog_"));
    EXPECT_TRUE(answer.complete);
    const std::string& document = answer.body;
    EXPECT_GT(document.size(), format == std::string("html") ? 3000000u : 1000000u);
    EXPECT_EQ(AfterHeaderBlock(call.out), document) << format;
  }
  EXPECT_LT(RssKb(master) - masterBefore, 1024);

  // A refused export answers an envelope, nothing streamed.
  Json::Value refused = client_->CallJson("export", "format=pdf");
  EXPECT_EQ(120, refused["error"]["code"].asInt());
  EXPECT_EQ("format", refused["error"]["errors"]["name"].asString());
}

TEST_F(ServerMethods, ClearEmptiesTheLogItNames) {
  Json::Value before = client_->CallJson("list", "logtype=connection");
  ASSERT_GT(before["data"]["total"].asInt(), 0) << before;
  Json::Value refused = client_->CallJson("clear", "category=all");
  EXPECT_EQ("condition", refused["error"]["errors"]["reason"].asString());
  Json::Value cleared = client_->CallJson("clear", "category=native&logtype=connection");
  EXPECT_TRUE(cleared["success"].asBool()) << cleared;
  EXPECT_EQ(0, client_->CallJson("list", "logtype=connection")["data"]["total"].asInt());
  EXPECT_GT(client_->CallJson("list", "logtype=system")["data"]["total"].asInt(), 0);
}
