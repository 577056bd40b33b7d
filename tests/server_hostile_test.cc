// Clients that do not play along, through the real server: pipelining without reading,
// downloads one after another and downloads nobody reads, a clear that meets a busy log, and
// requests under another host name.
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/socket.h>

#include <memory>
#include <thread>

#include "platform/webapi.h"
#include "tests/support/server_process.h"
#include "tests/support/temp_root.h"
#include "tools/lib/log_demo.h"

namespace {

const char kTestModules[] = QUOR_BUILD_DIR "/test-modules";

class ServerHostile : public testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(AddUser(root_.path(), "admin", "pw", true)); }

  void Start(std::vector<std::string> extra, bool testModules = true) {
    std::vector<std::string> args;
    if (testModules) {
      args = {"--modules", kTestModules, "--download-method", "QUOR.Test.Stream.stream"};
    }
    args.insert(args.end(), extra.begin(), extra.end());
    server_ = std::make_unique<ServerProcess>(root_.path(), args);
    ASSERT_TRUE(server_->started());
    client_ = std::make_unique<WebApiClient>(server_->port());
    ASSERT_TRUE(client_->Login("admin", "pw")["success"].asBool());
  }

  // A download of size bytes on a fresh connection: its status and whether it came whole.
  int Download(long size, bool* whole) {
    HttpAnswer answer = client_->Call("stream", "size=" + std::to_string(size), "QUOR.Test.Stream");
    *whole = answer.complete && answer.body.size() == static_cast<size_t>(size);
    return answer.status;
  }

  TempRoot root_;
  std::unique_ptr<ServerProcess> server_;
  std::unique_ptr<WebApiClient> client_;
};

}  // namespace

// With one worker, two clients that pipeline thousands of requests and never read hold no
// worker: another client's calls are answered at once (the send limit here is longer than the
// test client waits for an answer), a connection that takes nothing for the send limit is
// closed, and pipelined requests come back in order at the client's pace.
TEST_F(ServerHostile, ClientsThatNeverReadHoldNoWorker) {
  root_.Write("/ui/index.html", std::string(64 * 1024, 'x'));
  std::string burst;
  for (int i = 0; i < 4000; ++i) burst += "GET /index.html HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n";
  for (int sendLimitMs : {20000, 500}) {
    Start({"--workers", "1", "--send-timeout-ms", std::to_string(sendLimitMs), "--ui",
           root_.path() + "/ui"});
    std::vector<std::unique_ptr<HttpConnection>> hogs;
    std::vector<std::thread> senders;
    for (int i = 0; i < 2; ++i) {
      hogs.push_back(std::make_unique<HttpConnection>(server_->port()));
      // The server stops reading, so the send blocks: it runs beside the test.
      senders.emplace_back([&, i] { hogs[i]->Send(burst); });
    }
    SleepMs(300);
    for (int i = 0; i < 3; ++i) {
      EXPECT_TRUE(client_->Auth("method=status")["data"]["logged_in"].asBool()) << i;
    }
    if (sendLimitMs == 500) {
      for (auto& hog : hogs) EXPECT_TRUE(hog->ClosedWithin(5000));
    }
    for (auto& hog : hogs) shutdown(hog->fd(), SHUT_RDWR);
    for (auto& sender : senders) sender.join();
  }

  HttpConnection pipelined(server_->port());
  ASSERT_TRUE(pipelined.Send(
      "PUT /webapi HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n"
      "POST /webapi/auth HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Length: 13\r\n\r\nmethod=status"
      "GET /webapi/no HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n"));
  SleepMs(200);
  EXPECT_EQ(405, pipelined.Read().status);
  EXPECT_EQ(200, pipelined.Read().status);
  EXPECT_EQ(404, pipelined.Read().status);
}

// One client downloading one file after another with one slot gets every one; a download
// nobody reads gives its slot back after the stall limit; one user cannot take every slot.
TEST_F(ServerHostile, DownloadSlotsComeBack) {
  Start({"--workers", "2", "--max-downloads", "1", "--download-stall-ms", "500"});
  for (int i = 0; i < 20; ++i) {
    bool whole = false;
    EXPECT_EQ(200, Download(100000, &whole)) << i;
    EXPECT_TRUE(whole) << i;
  }
  {
    HttpConnection stalled(server_->port());
    ASSERT_TRUE(stalled.Send(client_->RawCall("stream", "size=268435456")));
    EXPECT_FALSE(stalled.ReadSome(1024).empty());
    SleepMs(1500);  // reads nothing more
    bool whole = false;
    EXPECT_EQ(200, Download(1000, &whole)) << server_->Log();
  }
  server_.reset();
  ASSERT_TRUE(AddUser(root_.path(), "other", "pw2", true));
  Start({"--workers", "2", "--max-downloads", "2"});
  HttpConnection first(server_->port());
  ASSERT_TRUE(first.Send(client_->RawCall("stream", "size=268435456")));
  EXPECT_FALSE(first.ReadSome(1024).empty());
  bool whole = false;
  EXPECT_EQ(503, Download(1000, &whole));  // the admin's one slot of two is taken
  WebApiClient other(server_->port());
  ASSERT_TRUE(other.Login("other", "pw2")["success"].asBool());
  EXPECT_EQ(200, other.Call("stream", "size=1000", "QUOR.Test.Stream").status);
}

// A clear that meets a log held by another process is not stopped by the method limit: it
// empties what it can, leaves the busy log whole, and answers as it always does.
TEST_F(ServerHostile, ClearUnderTheMethodLimitLeavesNoHalfDoneSecret) {
  DemoOptions options;
  options.root = root_.path();
  options.textsDir = QUOR_SOURCE_DIR "/texts";
  options.rows = 4000;
  std::string error;
  ASSERT_TRUE(BuildDemoRoot(options, &error)) << error;
  Start({"--workers", "1", "--method-limit", "1"}, false);
  std::string system = root_.At("/var/log/quorlog/.QUORSYSDB");
  std::string connection = root_.At("/var/log/quorlog/.QUORCONNDB");
  std::string connectionRows = QueryRows(connection, "SELECT count(*) FROM logs").at(0);
  ASSERT_NE("0", connectionRows);

  sqlite3* holder = nullptr;
  ASSERT_EQ(SQLITE_OK, sqlite3_open(connection.c_str(), &holder));
  ASSERT_EQ(SQLITE_OK, sqlite3_exec(holder, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr));
  HttpAnswer answer = client_->Call("clear", "category=native&logtype=system,connection");
  sqlite3_exec(holder, "ROLLBACK", nullptr, nullptr, nullptr);
  sqlite3_close(holder);

  EXPECT_EQ(200, answer.status) << server_->Log();
  Json::Value envelope = QUOR::WebAPIUtil::ParseJson(answer.body);
  EXPECT_TRUE(envelope["success"].asBool()) << answer.body;
  EXPECT_TRUE(envelope["data"].isNull()) << answer.body;
  // The system log holds only the clear's own event; the busy connection log is untouched.
  EXPECT_EQ("1", QueryRows(system, "SELECT count(*) FROM logs").at(0));
  EXPECT_EQ(connectionRows, QueryRows(connection, "SELECT count(*) FROM logs").at(0));
  EXPECT_FALSE(server_->LogHas("ran past its time limit", 0));
}

// Only the server's own names reach a handler: others get 421 before any sign-in is tried.
TEST_F(ServerHostile, ForeignHostNamesAreRefused) {
  Start({"--host-name", "logs.example,center.example"});
  int port = server_->port();
  std::string form = "method=login&account=admin&passwd=pw";
  HttpAnswer foreign = HttpRequest(port, "POST", "/webapi/auth", form,
                                   {"Host: rebind.attacker.example:" + std::to_string(port)});
  EXPECT_EQ(421, foreign.status);
  EXPECT_EQ(std::string::npos, foreign.body.find("success"));
  EXPECT_EQ(421, HttpRequest(port, "GET", "/", "", {"Host: logs.example.attacker"}).status);
  for (const char* host : {"logs.example", "CENTER.example:8443", "localhost:1", "127.0.0.1"}) {
    HttpConnection connection(port);
    ASSERT_TRUE(connection.Send(std::string("POST /webapi/auth HTTP/1.1\r\nHost: ") + host +
                                "\r\nContent-Length: " + std::to_string(form.size()) + "\r\n\r\n" +
                                form));
    HttpAnswer answer = connection.Read();
    EXPECT_EQ(200, answer.status) << host;
    EXPECT_TRUE(QUOR::WebAPIUtil::ParseJson(answer.body)["success"].asBool()) << host;
  }
  HttpConnection noHost(port);
  ASSERT_TRUE(noHost.Send("GET / HTTP/1.1\r\n\r\n"));
  EXPECT_EQ(400, noHost.Read().status);
}
