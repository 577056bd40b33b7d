// What one client can do to the others through the real server: documents streamed from a
// method without the server holding them, modules that crash, slow senders, long downloads,
// methods that never end, downloads cut off, pipelining without reading, downloads nobody
// reads, a clear that meets a busy log, and requests under another host name. Uses the test
// module QUOR.Test.Stream, whose "stream" method is run as a download method here.
#include <gtest/gtest.h>
#include <signal.h>
#include <sqlite3.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include <chrono>
#include <fstream>
#include <memory>
#include <sstream>
#include <thread>

#include "platform/webapi.h"
#include "tests/support/server_process.h"
#include "tests/support/temp_root.h"
#include "tools/lib/log_demo.h"

namespace {

const char kTestModules[] = QUOR_BUILD_DIR "/test-modules";

std::vector<pid_t> ChildrenOf(pid_t pid) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/task/" + std::to_string(pid) + "/children");
  std::vector<pid_t> children;
  pid_t child;
  while (in >> child) children.push_back(child);
  return children;
}

// A value in kB from /proc/PID/status ("VmRSS").
long StatusKb(pid_t pid, const std::string& key) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/status");
  std::string line;
  while (std::getline(in, line)) {
    if (line.compare(0, key.size() + 1, key + ":") == 0) return atol(line.c_str() + key.size() + 1);
  }
  return -1;
}

class ServerIsolation : public testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(AddUser(root_.path(), "admin", "pw", true, "de")); }

  // Where the test module's "stream" runs: as a download, in the worker, or not at all.
  enum Modules { kStreamAsDownload, kStreamInWorker, kRealModules };

  void Start(std::vector<std::string> extra, Modules modules = kStreamAsDownload) {
    std::vector<std::string> args;
    if (modules != kRealModules) args = {"--modules", kTestModules};
    if (modules == kStreamAsDownload) {
      args.insert(args.end(), {"--download-method", "QUOR.Test.Stream.stream"});
    }
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

// With one worker, two clients that pipeline thousands of requests and never read hold no
// worker: another client's calls are answered at once (the send limit here is longer than the
// test client waits for an answer), a connection that takes nothing for the send limit is
// closed, and pipelined requests come back in order at the client's pace.
TEST_F(ServerIsolation, ClientsThatNeverReadHoldNoWorker) {
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
      for (auto& hog : hogs) EXPECT_TRUE(hog->ClosedWithin(20000));
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
// nobody reads gives its slot back after the stall limit; one user cannot take every slot, and
// the download over the bound is refused clearly.
TEST_F(ServerIsolation, DownloadSlotsComeBack) {
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
  // The admin's one slot of two is taken: the one over the bound is told so.
  HttpAnswer refused = client_->Call("stream", "size=10", "QUOR.Test.Stream");
  EXPECT_EQ(503, refused.status);
  EXPECT_EQ("5", refused.Header("retry-after"));
  EXPECT_NE(std::string::npos, refused.body.find("Too many downloads")) << refused.body;
  EXPECT_TRUE(EchoAnswers());
  WebApiClient other(server_->port());
  ASSERT_TRUE(other.Login("other", "pw2")["success"].asBool());
  EXPECT_EQ(200, other.Call("stream", "size=1000", "QUOR.Test.Stream").status);
}

// A clear that meets a log held by another process is not stopped by the method limit: it
// empties what it can, leaves the busy log whole, and answers as it always does.
TEST_F(ServerIsolation, ClearUnderTheMethodLimitLeavesNoHalfDoneSecret) {
  DemoOptions options;
  options.root = root_.path();
  options.textsDir = QUOR_SOURCE_DIR "/texts";
  options.rows = 4000;
  std::string error;
  ASSERT_TRUE(BuildDemoRoot(options, &error)) << error;
  Start({"--workers", "1", "--method-limit", "1"}, kRealModules);
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
TEST_F(ServerIsolation, ForeignHostNamesAreRefused) {
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

TEST_F(ServerIsolation, DocumentStreamsWholeWhileTheWorkerStaysFlat) {
  Start({"--workers", "1", "--send-timeout-ms", "500"}, kStreamInWorker);
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

TEST_F(ServerIsolation, ClientsThatLeaveOrStallCostOnlyTheirRequest) {
  Start({"--workers", "1", "--send-timeout-ms", "500"}, kStreamInWorker);
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

TEST_F(ServerIsolation, AModuleThatCrashesLosesOnlyItsRequest) {
  Start({"--workers", "1", "--send-timeout-ms", "500"}, kStreamInWorker);
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
