// What one client can do to the others through the real server: slow senders, long downloads,
// methods that never end, downloads cut off. Uses the test module QUOR.Test.Stream, whose
// "stream" method is run as a download method here.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <chrono>
#include <fstream>
#include <memory>
#include <sstream>
#include <thread>

#include "platform/webapi.h"
#include "tests/support/server_process.h"
#include "tests/support/temp_root.h"

namespace {

const char kTestModules[] = QUOR_BUILD_DIR "/test-modules";

std::vector<pid_t> ChildrenOf(pid_t pid) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/task/" + std::to_string(pid) + "/children");
  std::vector<pid_t> children;
  pid_t child;
  while (in >> child) children.push_back(child);
  return children;
}

class ServerIsolation : public testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(AddUser(root_.path(), "admin", "pw", true)); }

  void Start(std::vector<std::string> extra) {
    std::vector<std::string> args = {"--modules", kTestModules, "--download-method",
                                     "QUOR.Test.Stream.stream"};
    args.insert(args.end(), extra.begin(), extra.end());
    server_ = std::make_unique<ServerProcess>(root_.path(), args);
    ASSERT_TRUE(server_->started());
    client_ = std::make_unique<WebApiClient>(server_->port());
    ASSERT_TRUE(client_->Login("admin", "pw")["success"].asBool());
  }

  // One echo call on a fresh connection: its envelope's success.
  bool EchoAnswers() {
    HttpAnswer answer = client_->Call("echo", "n=1", "QUOR.Test.Stream");
    return answer.status == 200 && QUOR::WebAPIUtil::ParseJson(answer.body)["success"].asBool();
  }

  TempRoot root_;
  std::unique_ptr<ServerProcess> server_;
  std::unique_ptr<WebApiClient> client_;
};

}  // namespace

// Eight clients trickling their requests and two downloads nobody reads leave both workers
// free: every other call answers.
TEST_F(ServerIsolation, SlowSendersAndDownloadsHoldNoWorker) {
  Start({"--workers", "2", "--request-timeout-ms", "20000"});
  std::string request = client_->RawCall("echo", "slow=1");
  std::vector<std::unique_ptr<HttpConnection>> slow;
  for (int i = 0; i < 8; ++i) {
    slow.push_back(std::make_unique<HttpConnection>(server_->port()));
    ASSERT_TRUE(slow.back()->Send(request.substr(0, 10)));
  }
  std::vector<std::unique_ptr<HttpConnection>> downloads;
  for (int i = 0; i < 2; ++i) {
    downloads.push_back(std::make_unique<HttpConnection>(server_->port()));
    ASSERT_TRUE(downloads.back()->Send(client_->RawCall("stream", "size=268435456")));
    EXPECT_FALSE(downloads.back()->ReadSome(1024).empty());
  }
  for (int i = 0; i < 20; ++i) {
    for (auto& s : slow) s->Send(request.substr(10 + i, 1));
    EXPECT_TRUE(EchoAnswers()) << i;
  }
  // The downloads run in processes of their own, apart from the two workers.
  size_t downloadProcesses = 0;
  for (pid_t worker : server_->Workers()) downloadProcesses += ChildrenOf(worker).size();
  EXPECT_EQ(2u, downloadProcesses);
  // The slow requests, once whole, are answered too.
  for (auto& s : slow) ASSERT_TRUE(s->Send(request.substr(30)));
  for (auto& s : slow) EXPECT_EQ(200, s->Read().status);
}

// Downloads at once are bounded across workers; the one over the bound is told so.
TEST_F(ServerIsolation, DownloadsBeyondTheBoundAreRefusedClearly) {
  Start({"--workers", "2", "--max-downloads", "1"});
  HttpConnection first(server_->port());
  ASSERT_TRUE(first.Send(client_->RawCall("stream", "size=268435456")));
  EXPECT_FALSE(first.ReadSome(1024).empty());
  HttpAnswer refused = client_->Call("stream", "size=10", "QUOR.Test.Stream");
  EXPECT_EQ(503, refused.status);
  EXPECT_EQ("5", refused.Header("retry-after"));
  EXPECT_NE(std::string::npos, refused.body.find("Too many downloads")) << refused.body;
  EXPECT_TRUE(EchoAnswers());
}

// A connection's deadline starts when a worker takes it: a request that arrived while the
// worker ran a long method is served, not answered 408.
TEST_F(ServerIsolation, DeadlinesStartWhenTheConnectionIsTaken) {
  Start({"--workers", "1", "--request-timeout-ms", "400"});
  std::thread longCall(
      [&] { EXPECT_EQ(200, client_->Call("sleep", "ms=1500", "QUOR.Test.Stream").status); });
  SleepMs(300);
  std::vector<std::unique_ptr<HttpConnection>> waiting;
  for (int i = 0; i < 4; ++i) {
    waiting.push_back(std::make_unique<HttpConnection>(server_->port()));
    ASSERT_TRUE(waiting.back()->Send("GET /webapi?api=x HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n"));
  }
  longCall.join();
  for (auto& w : waiting) EXPECT_EQ(200, w->Read().status);
}

// A method past its time limit is stopped: its client gets 503, the worker is replaced, and
// the server goes on.
TEST_F(ServerIsolation, AMethodPastItsLimitIsStopped) {
  Start({"--workers", "1", "--method-limit", "1"});
  std::vector<pid_t> before = server_->Workers();
  auto start = std::chrono::steady_clock::now();
  HttpAnswer stopped = client_->Call("sleep", "ms=30000", "QUOR.Test.Stream");
  EXPECT_EQ(503, stopped.status);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
  EXPECT_TRUE(server_->LogHas("ran past its time limit"));
  for (int i = 0; i < 100 && server_->Workers() == before; ++i) SleepMs(50);
  EXPECT_NE(before, server_->Workers());
  EXPECT_TRUE(EchoAnswers());
}

// A download whose process dies midway lacks its closing chunk: clients see it cut off.
TEST_F(ServerIsolation, ACutOffDownloadReadsAsTruncated) {
  Start({"--workers", "1"});
  HttpConnection download(server_->port());
  ASSERT_TRUE(download.Send(client_->RawCall("stream", "size=268435456")));
  // Kill the download's process once its head and some body have come.
  ASSERT_TRUE(download.Await(8192));
  std::vector<pid_t> processes = ChildrenOf(server_->Workers().at(0));
  ASSERT_EQ(1u, processes.size());
  ASSERT_EQ(0, kill(processes[0], SIGKILL));
  HttpAnswer answer = download.Read();
  EXPECT_EQ(200, answer.status);
  EXPECT_FALSE(answer.complete);
  EXPECT_GT(answer.body.size(), 0u);

  // curl says so too (exit 18, a partial transfer), where curl is installed.
  if (system("command -v curl >/dev/null 2>&1") != 0) return;
  std::ostringstream command;
  command << "curl -s -o /dev/null -H 'Cookie: " << client_->cookie
          << "' -H 'X-Quor-Token: " << client_->token
          << "' -d 'api=QUOR.Test.Stream&version=1&method=stream&size=268435456'"
          << " --limit-rate 2M http://127.0.0.1:" << server_->port() << "/webapi";
  std::thread killer([&] {
    for (int i = 0; i < 100; ++i) {
      SleepMs(50);
      // The first download's process may not be reaped yet: wait for a new one.
      for (pid_t child : ChildrenOf(server_->Workers().at(0))) {
        if (child == processes[0]) continue;
        SleepMs(300);
        kill(child, SIGKILL);
        return;
      }
    }
  });
  int status = system(command.str().c_str());
  killer.join();
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(18, WEXITSTATUS(status));
}
