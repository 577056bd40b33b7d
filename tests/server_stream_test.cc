// Methods that write their own output through the real server: the document streams from the
// method to the client without the server holding it, and faulty modules or clients cost only
// their own request. Uses the test module QUOR.Test.Stream.
#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <fstream>
#include <memory>
#include <thread>

#include "platform/webapi.h"
#include "tests/support/server_process.h"
#include "tests/support/temp_root.h"

namespace {

const char kTestModules[] = QUOR_BUILD_DIR "/test-modules";

// A value in kB from /proc/PID/status ("VmRSS").
long StatusKb(pid_t pid, const std::string& key) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/status");
  std::string line;
  while (std::getline(in, line)) {
    if (line.compare(0, key.size() + 1, key + ":") == 0) return atol(line.c_str() + key.size() + 1);
  }
  return -1;
}

class ServerStream : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(AddUser(root_.path(), "admin", "pw", true, "de"));
    server_ = std::make_unique<ServerProcess>(
        root_.path(), std::vector<std::string>{"--modules", kTestModules, "--workers", "1",
                                               "--send-timeout-ms", "500"});
    ASSERT_TRUE(server_->started());
    client_ = std::make_unique<WebApiClient>(server_->port());
    ASSERT_TRUE(client_->Login("admin", "pw")["success"].asBool());
  }

  TempRoot root_;
  std::unique_ptr<ServerProcess> server_;
  std::unique_ptr<WebApiClient> client_;
};

}  // namespace

TEST_F(ServerStream, DocumentStreamsWholeWhileTheWorkerStaysFlat) {
  pid_t worker = server_->Workers().at(0);
  const long size = 24L << 20;
  HttpConnection connection(server_->port());
  long before = StatusKb(worker, "VmRSS");
  ASSERT_TRUE(connection.Send(client_->RawCall("stream", "size=" + std::to_string(size))));

  // The first bytes arrive while the method is still writing: the client has read little and
  // the rest cannot fit in the socket buffers, so the worker waits inside the method.
  ASSERT_TRUE(connection.Await(65536));
  SleepMs(300);
  long during = StatusKb(worker, "VmRSS");
  EXPECT_LT(during - before, 4 * 1024) << "kB grown while 24 MiB were being written";

  HttpAnswer answer = connection.Read();
  EXPECT_EQ(0u, answer.head.find("HTTP/1.1 200 OK\r\nCache-Control: no-store\r\n"
                                 "X-Content-Type-Options: nosniff\r\nConnection: close\r\n"
                                 "Transfer-Encoding: chunked\r\n"
                                 "Content-Type: text/plain\r\n"
                                 "Content-Disposition:attachment; filename=\"big.txt\"\r\n"))
      << answer.head;
  EXPECT_TRUE(answer.complete);
  const std::string& body = answer.body;
  EXPECT_EQ(static_cast<size_t>(size), body.size());
  EXPECT_EQ(std::string::npos, body.find_first_not_of("x\n"));
  EXPECT_LT(StatusKb(worker, "VmRSS") - before, 4 * 1024);

  // The access log counts the document's bytes.
  std::string expected = " admin QUOR.Test.Stream.stream 200 " + std::to_string(body.size());
  EXPECT_TRUE(server_->LogHas(expected)) << server_->Log();

  // The worker's own standard output is back: the next call answers its envelope normally.
  Json::Value echo = QUOR::WebAPIUtil::ParseJson([&] {
    HttpConnection next(server_->port());
    next.Send(client_->RawCall("echo", "n=10&t=text&j=%7B%22a%22%3A1%7D"));
    return next.Read().body;
  }());
  EXPECT_EQ(10, echo["data"]["params"]["n"].asInt());
  EXPECT_EQ("text", echo["data"]["params"]["t"].asString());
  EXPECT_EQ(1, echo["data"]["params"]["j"]["a"].asInt());
  EXPECT_FALSE(echo["data"]["params"].isMember("api"));
  EXPECT_EQ("admin", echo["data"]["user"].asString());
  EXPECT_EQ("de", echo["data"]["lang"].asString());
  EXPECT_EQ(worker, server_->Workers().at(0));
}

TEST_F(ServerStream, ClientsThatLeaveOrStallCostOnlyTheirRequest) {
  pid_t worker = server_->Workers().at(0);
  {
    HttpConnection leaving(server_->port());
    ASSERT_TRUE(leaving.Send(client_->RawCall("stream", "size=50000000")));
    EXPECT_FALSE(leaving.ReadSome(1000).empty());
  }  // closed mid-document
  {
    HttpConnection stalled(server_->port());
    ASSERT_TRUE(stalled.Send(client_->RawCall("stream", "size=50000000")));
    SleepMs(1200);  // reads nothing: the send timeout ends the method's writes
  }
  HttpAnswer answer = client_->Call("echo", "x=1", "QUOR.Test.Stream");
  EXPECT_EQ(200, answer.status);
  EXPECT_EQ(worker, server_->Workers().at(0)) << server_->Log();
  // A checker refusing answers normally, before anything is streamed.
  EXPECT_EQ(120, QUOR::WebAPIUtil::ParseJson(
                     client_->Call("stream", "size=-1", "QUOR.Test.Stream").body)["error"]["code"]
                     .asInt());
}

TEST_F(ServerStream, AModuleThatCrashesLosesOnlyItsRequest) {
  pid_t worker = server_->Workers().at(0);
  HttpConnection crashing(server_->port());
  ASSERT_TRUE(crashing.Send(client_->RawCall("crash", "")));
  EXPECT_EQ(0, crashing.Read().status);  // no answer, the connection just ends
  HttpAnswer next = client_->Call("echo", "x=1", "QUOR.Test.Stream");
  EXPECT_EQ(200, next.status);
  EXPECT_NE(worker, server_->Workers().at(0));
  // The session survived the worker.
  EXPECT_TRUE(client_->Auth("method=status")["data"]["logged_in"].asBool());
}
