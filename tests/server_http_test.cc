// The real server on a loopback port: sessions, tokens, permissions, lockout, static files,
// HTTP limits and the process model.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <thread>

#include "platform/webapi.h"
#include "tests/support/server_process.h"
#include "tests/support/temp_root.h"

namespace {

Json::Value Parsed(const std::string& text) { return QUOR::WebAPIUtil::ParseJson(text); }

int ErrorCode(const Json::Value& envelope) { return envelope["error"]["code"].asInt(); }

// What a request on a fresh connection comes to: 0 for a successful envelope, the envelope's
// error code (at least 1) for a failed one, the HTTP status when it is not 200.
int Outcome(int port, const std::string& method, const std::string& target,
            const std::string& body = "", const std::vector<std::string>& headers = {}) {
  HttpAnswer answer = HttpRequest(port, method, target, body, headers);
  if (answer.status != 200) return answer.status;
  Json::Value envelope = Parsed(answer.body);
  return envelope["success"].asBool() ? 0 : std::max(1, ErrorCode(envelope));
}

// A root with an administrator and an operator, made once for the suite (hashing is slow),
// and a UI directory with a page and a file outside it.
class ServerHttp : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    root_ = new TempRoot();
    ASSERT_TRUE(AddUser(root_->path(), "admin", "admin-pw", true, "de"));
    ASSERT_TRUE(AddUser(root_->path(), "op", "op-pw", false));
    std::string ui = root_->path() + "/ui";
    root_->Write("/ui/index.html", "<!doctype html><title>log</title>");
    root_->Write("/ui/app.js", "console.log(1);");
    root_->Write("/ui/style.css", "body{}");
    root_->Write("/ui/sub/page.html", "sub");
    root_->Write("/secret.txt", "outside");
    ASSERT_EQ(0, symlink((root_->path() + "/secret.txt").c_str(), (ui + "/link.txt").c_str()));
  }
  static void TearDownTestSuite() {
    delete root_;
    root_ = nullptr;
  }
  // Every test starts without sessions or failed logins of the ones before.
  void SetUp() override {
    setenv("QUOR_ROOT", root_->path().c_str(), 1);
    std::string database = root_->path() + "/var/lib/quor-webapi/sessions.db";
    for (const char* suffix : {"", "-wal", "-shm"}) unlink((database + suffix).c_str());
  }

  std::unique_ptr<ServerProcess> Start(std::vector<std::string> args = {}) {
    args.insert(args.end(), {"--ui", root_->path() + "/ui"});
    auto server = std::make_unique<ServerProcess>(root_->path(), args);
    EXPECT_TRUE(server->started());
    return server;
  }

  static TempRoot* root_;
};

TempRoot* ServerHttp::root_ = nullptr;

}  // namespace

TEST_F(ServerHttp, LoginStatusAndLogout) {
  auto server = Start();
  WebApiClient client(server->port());
  // Before login: the state says so, and calls need a session.
  Json::Value status = client.Auth("method=status");
  EXPECT_TRUE(status["success"].asBool());
  EXPECT_FALSE(status["data"]["logged_in"].asBool());
  EXPECT_TRUE(status["data"]["timezone"].isString());
  EXPECT_TRUE(status["data"]["utc_offset"].isIntegral());
  EXPECT_EQ(110, ErrorCode(client.CallJson("list")));

  EXPECT_EQ(150, ErrorCode(client.Login("admin", "wrong")));
  EXPECT_EQ(150, ErrorCode(client.Login("nobody", "admin-pw")));
  HttpAnswer answer = HttpRequest(server->port(), "POST", "/webapi/auth",
                                  "method=login&account=admin&passwd=admin-pw");
  EXPECT_EQ(200, answer.status);
  EXPECT_EQ("application/json; charset=utf-8", answer.Header("content-type"));
  EXPECT_EQ("no-store", answer.Header("cache-control"));
  std::string setCookie = answer.Header("set-cookie");
  EXPECT_EQ(0u, setCookie.find("quor_session="));
  EXPECT_EQ(64u, setCookie.find(';') - 13) << setCookie;  // 256 random bits in hex
  for (const char* attribute : {"; HttpOnly", "; SameSite=Strict", "; Path=/"}) {
    EXPECT_NE(std::string::npos, setCookie.find(attribute)) << setCookie;
  }

  Json::Value login = client.Login("admin", "admin-pw", "en");
  ASSERT_TRUE(login["success"].asBool()) << login;
  EXPECT_EQ("admin", login["data"]["account"].asString());
  EXPECT_EQ("en", login["data"]["lang"].asString());  // asked for; the user's own is "de"
  EXPECT_TRUE(login["data"]["is_admin"].asBool());
  status = client.Auth("method=status");
  EXPECT_TRUE(status["data"]["logged_in"].asBool());
  EXPECT_EQ("admin", status["data"]["account"].asString());
  EXPECT_EQ(client.token, status["data"]["token"].asString());

  // Logout ends the session for good (the token is not needed for it).
  EXPECT_TRUE(client.Auth("method=logout", false)["success"].asBool());
  EXPECT_EQ(110, ErrorCode(client.CallJson("list")));
  EXPECT_FALSE(client.Auth("method=status")["data"]["logged_in"].asBool());

  EXPECT_EQ(102, ErrorCode(client.Auth("method=nosuch")));
  EXPECT_EQ(405, HttpRequest(server->port(), "GET", "/webapi/auth?method=status").status);
}

TEST_F(ServerHttp, TokensPermissionsAndExpiry) {
  auto server = Start({"--session-idle-ms", "1000"});
  WebApiClient admin(server->port());
  ASSERT_TRUE(admin.Login("admin", "admin-pw")["success"].asBool());
  // The checker answers: the call got through session, token and permission checks.
  EXPECT_EQ(120, ErrorCode(admin.CallJson("list", "offset=abc")));
  // Without the token, or with a wrong one, it does not (where the token counts is pinned in
  // SecretsStayOutOfReach).
  std::string token = admin.token;
  admin.token.clear();
  EXPECT_EQ(112, ErrorCode(admin.CallJson("list", "offset=abc")));
  EXPECT_EQ(112, ErrorCode(admin.CallJson("list", "_token=" + token.substr(1))));
  admin.token = token;
  // A GET with the fields in the query string is the same call.
  EXPECT_EQ(120, Outcome(server->port(), "GET",
                         "/webapi?api=QUOR.Core.SyslogClient.Log&version=1&method=list&offset=abc",
                         "", {"Cookie: " + admin.cookie, "X-Quor-Token: " + token}));
  // A JSON body carries values as they are.
  HttpConnection json(server->port());
  std::string body =
      "{\"api\":\"QUOR.Core.SyslogClient.Log\",\"version\":1,\"method\":\"list\","
      "\"limit\":\"5\"}";
  ASSERT_TRUE(
      json.Send("POST /webapi HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Type: application/json\r\n"
                "Cookie: " +
                admin.cookie + "\r\nX-Quor-Token: " + token +
                "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body));
  EXPECT_EQ("limit", Parsed(json.Read().body)["error"]["errors"]["name"].asString());

  // Unknown API, version or method.
  EXPECT_EQ(102, ErrorCode(Parsed(admin.Call("list", "", "No.Such.Api").body)));
  EXPECT_EQ(102, ErrorCode(admin.CallJson("nosuch")));
  EXPECT_EQ(102, ErrorCode(admin.CallJson("list", "version=x")));

  // Sessions end after the idle time (that use keeps them alive is pinned in ServerAuth).
  SleepMs(1300);
  EXPECT_EQ(110, ErrorCode(admin.CallJson("list", "offset=abc")));
  EXPECT_FALSE(admin.Auth("method=status")["data"]["logged_in"].asBool());

  // Only administrators may call the log center.
  WebApiClient op(server->port());
  ASSERT_TRUE(op.Login("op", "op-pw")["success"].asBool());
  EXPECT_FALSE(op.Auth("method=status")["data"]["is_admin"].asBool());
  EXPECT_EQ(111, ErrorCode(op.CallJson("list")));
}

TEST_F(ServerHttp, FailedLoginsLockOutPairsAcrossWorkers) {
  auto server = Start({"--workers", "3", "--lockout-ms", "1500", "--trust-proxy"});
  WebApiClient client(server->port());
  auto loginFrom = [&](const std::string& address, const std::string& account,
                       const std::string& password) {
    return Outcome(server->port(), "POST", "/webapi/auth",
                   "method=login&account=" + account + "&passwd=" + password,
                   {"X-Real-IP: " + address});
  };
  for (int i = 0; i < 5; ++i) EXPECT_EQ(150, loginFrom("10.0.0.5", "admin", "bad")) << i;
  // Locked for that pair: even the right password, whichever worker answers...
  for (int i = 0; i < 3; ++i) EXPECT_EQ(151, loginFrom("10.0.0.5", "admin", "admin-pw")) << i;
  // ...but not other accounts from there, nor the owner from elsewhere.
  EXPECT_EQ(0, loginFrom("10.0.0.5", "op", "op-pw"));
  EXPECT_EQ(0, loginFrom("10.0.0.9", "admin", "admin-pw"));
  // Made-up names behind one proxy address do not lock out the owner there before the
  // address's ceiling (20); a name longer than 64 bytes is refused and counted the same way.
  for (int i = 0; i < 18; ++i) EXPECT_EQ(150, loginFrom("10.0.0.7", "x" + std::to_string(i), "y"));
  EXPECT_EQ(150, loginFrom("10.0.0.7", std::string(65, 'a'), "y"));
  EXPECT_EQ(0, loginFrom("10.0.0.7", "admin", "admin-pw"));
  EXPECT_EQ(150, loginFrom("10.0.0.7", "x-last", "y"));
  EXPECT_EQ(151, loginFrom("10.0.0.7", "admin", "admin-pw"));
  EXPECT_TRUE(server->LogHas(" 10.0.0.9 admin auth.login 200 "));
  SleepMs(1600);
  EXPECT_EQ(0, loginFrom("10.0.0.5", "admin", "admin-pw"));
}

TEST_F(ServerHttp, StaticFilesStayInsideTheUiDirectory) {
  auto server = Start();
  int port = server->port();
  HttpAnswer index = HttpRequest(port, "GET", "/");
  EXPECT_EQ(200, index.status);
  EXPECT_EQ("<!doctype html><title>log</title>", index.body);
  EXPECT_EQ("text/html; charset=utf-8", index.Header("content-type"));
  std::string policy = index.Header("content-security-policy");
  for (const char* part : {"default-src 'none'", "script-src 'self'", "style-src 'self'"}) {
    EXPECT_NE(std::string::npos, policy.find(part)) << policy;
  }
  EXPECT_EQ(std::string::npos, policy.find("unsafe")) << policy;
  EXPECT_EQ("nosniff", index.Header("x-content-type-options"));
  EXPECT_EQ("text/javascript; charset=utf-8",
            HttpRequest(port, "GET", "/app.js").Header("content-type"));
  EXPECT_EQ("text/css; charset=utf-8",
            HttpRequest(port, "GET", "/style.css?v=2").Header("content-type"));
  EXPECT_EQ("sub", HttpRequest(port, "GET", "/sub/page.html").body);
  HttpAnswer head = HttpRequest(port, "HEAD", "/app.js");
  EXPECT_EQ(200, head.status);
  EXPECT_EQ("15", head.Header("content-length"));

  for (const char* path :
       {"/../secret.txt", "/sub/../../secret.txt", "/%2e%2e/secret.txt", "/%2E%2E%2fsecret.txt",
        "/sub/%2e%2e/%2e%2e/secret.txt", "/..%5csecret.txt", "/link.txt", "/nothere.html", "/sub",
        "/%00index.html", "/%zz", "//etc/passwd", "/ui/../../../../etc/passwd"}) {
    HttpAnswer answer = HttpRequest(port, "GET", path);
    EXPECT_EQ(404, answer.status) << path;
    EXPECT_EQ(std::string::npos, answer.body.find("outside")) << path;
    EXPECT_EQ(std::string::npos, answer.body.find("root:")) << path;
  }
  EXPECT_EQ(405, HttpRequest(port, "POST", "/index.html", "x=1").status);
  EXPECT_EQ("GET, HEAD", HttpRequest(port, "DELETE", "/").Header("allow"));
  EXPECT_EQ(405, HttpRequest(port, "PUT", "/webapi").status);
  EXPECT_EQ(404, HttpRequest(port, "GET", "/webapi/other").status);
}

TEST_F(ServerHttp, MalformedOversizedAndSlowRequests) {
  auto server = Start({"--request-timeout-ms", "400", "--idle-timeout-ms", "300"});
  int port = server->port();
  for (const char* raw :
       {"GARBAGE\r\n\r\n", "GET / HTTP/1.1\r\nHost x\r\n\r\n", "GET / HTTP/9.9\r\n\r\n",
        "POST /webapi HTTP/1.1\r\nContent-Length: -1\r\n\r\n",
        "POST /webapi HTTP/1.1\r\nContent-Length: 3\r\nContent-Length: 4\r\n\r\nabc"}) {
    HttpConnection connection(port);
    ASSERT_TRUE(connection.Send(raw));
    HttpAnswer answer = connection.Read();
    EXPECT_EQ(400, answer.status) << raw;
    EXPECT_TRUE(connection.ClosedWithin(10000)) << raw;
  }
  // Fields that are not a form or a JSON object.
  EXPECT_EQ(400, HttpRequest(port, "POST", "/webapi/auth", "method=%zz").status);
  HttpConnection json(port);
  ASSERT_TRUE(json.Send(
      "POST /webapi/auth HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Type: application/json\r\n"
      "Content-Length: 3\r\n\r\n[1]"));
  EXPECT_EQ(400, json.Read().status);

  // A client that waits for leave to send its body is told to go on.
  HttpConnection waiting(port);
  ASSERT_TRUE(
      waiting.Send("POST /webapi/auth HTTP/1.1\r\nHost: 127.0.0.1\r\nExpect: 100-continue\r\n"
                   "Content-Type: application/x-www-form-urlencoded\r\n"
                   "Content-Length: 13\r\n\r\n"));
  EXPECT_EQ(100, waiting.Read().status);
  ASSERT_TRUE(waiting.Send("method=status"));
  EXPECT_EQ(200, waiting.Read().status);

  // Too large: a header block over 8 KiB, a body over 64 KiB (refused from its length alone).
  EXPECT_EQ(413, HttpRequest(port, "GET", "/", "", {"X-Big: " + std::string(10000, 'a')}).status);
  HttpConnection big(port);
  ASSERT_TRUE(
      big.Send("POST /webapi HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Length: 10000000\r\n\r\n"));
  EXPECT_EQ(413, big.Read().status);

  // Slow: a request not whole within the time limit gets 408, and so does silence.
  HttpConnection slow(port);
  ASSERT_TRUE(slow.Send("GET / HTTP/1.1\r\nHost: 127.0.0.1\r\n"));
  SleepMs(200);
  ASSERT_TRUE(slow.Send("X-More: 1\r\n"));
  HttpAnswer late = slow.Read();
  EXPECT_EQ(408, late.status);
  EXPECT_EQ("close", late.Header("connection"));
  HttpConnection silent(port);
  EXPECT_EQ(408, silent.Read().status);

  // Keep-alive: two requests on one connection, then the idle timeout closes it.
  HttpConnection kept(port);
  ASSERT_TRUE(
      kept.Send("GET /app.js HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\nGET /style.css HTTP/1.1\r\nHost: "
                "127.0.0.1\r\n\r\n"));
  EXPECT_EQ("console.log(1);", kept.Read().body);
  EXPECT_EQ("body{}", kept.Read().body);
  auto start = std::chrono::steady_clock::now();
  EXPECT_TRUE(kept.ClosedWithin(10000));
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(200));

  // Each request left one access-log line with client, user, what, status and bytes.
  EXPECT_TRUE(server->LogHas(" 127.0.0.1 - /app.js 200 ")) << server->Log();
  EXPECT_TRUE(server->LogHas(" 127.0.0.1 - - 408 ")) << server->Log();
  EXPECT_TRUE(server->LogHas(" 413 ")) << server->Log();
}

TEST_F(ServerHttp, IdleConnectionsDoNotHoldTheWorker) {
  // Browsers open spare connections that send nothing for a while, and keep used ones open.
  auto server = Start({"--workers", "1", "--request-timeout-ms", "5000"});
  std::vector<std::unique_ptr<HttpConnection>> spare;
  for (int i = 0; i < 4; ++i) spare.push_back(std::make_unique<HttpConnection>(server->port()));
  HttpConnection kept(server->port());
  ASSERT_TRUE(kept.Send("GET /app.js HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n"));
  EXPECT_EQ(200, kept.Read().status);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(200, HttpRequest(server->port(), "GET", "/").status);
  ASSERT_TRUE(spare[2]->Send("GET /style.css HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n"));
  EXPECT_EQ("body{}", spare[2]->Read().body);
  ASSERT_TRUE(kept.Send("GET /style.css HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n"));
  EXPECT_EQ("body{}", kept.Read().body);
}

TEST_F(ServerHttp, AKilledWorkerIsReplaced) {
  auto server = Start({"--workers", "1"});
  // The only worker is inside a request when it dies: that request is lost, nothing else. An
  // answer first shows the worker has taken the connection (and has been started: the server
  // says where it listens before its workers run).
  HttpConnection inFlight(server->port());
  ASSERT_TRUE(inFlight.Send("GET /app.js HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n"));
  ASSERT_EQ(200, inFlight.Read().status);
  std::vector<pid_t> before = server->Workers();
  ASSERT_EQ(1u, before.size());
  ASSERT_TRUE(inFlight.Send("GET / HTTP/1.1\r\nHost: 127.0.0.1\r\n"));
  ASSERT_EQ(0, kill(before[0], SIGKILL));
  EXPECT_TRUE(inFlight.ClosedWithin(10000));
  HttpAnswer next = HttpRequest(server->port(), "GET", "/app.js");
  EXPECT_EQ(200, next.status);
  std::vector<pid_t> after = server->Workers();
  ASSERT_EQ(1u, after.size());
  EXPECT_NE(before[0], after[0]);
  EXPECT_TRUE(server->LogHas("died of signal 9")) << server->Log();
}

TEST_F(ServerHttp, StopLetsRequestsInFlightFinish) {
  auto server = Start({"--workers", "2"});
  int port = server->port();
  HttpConnection inFlight(port);
  // A first answer shows a worker holds the connection; then a request stays half sent.
  ASSERT_TRUE(inFlight.Send("GET /style.css HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n"));
  ASSERT_EQ(200, inFlight.Read().status);
  ASSERT_TRUE(inFlight.Send("GET /app.js HTTP/1.1\r\nHost: 127.0.0.1\r\n"));
  SleepMs(200);
  ASSERT_EQ(0, kill(server->pid(), SIGTERM));
  SleepMs(200);
  ASSERT_TRUE(inFlight.Send("\r\n"));
  HttpAnswer answer = inFlight.Read();
  EXPECT_EQ(200, answer.status);
  EXPECT_EQ("console.log(1);", answer.body);
  EXPECT_EQ("close", answer.Header("connection"));
  EXPECT_EQ(0, server->Stop(5000));
  // No new connections once stopped.
  HttpConnection refused(port);
  EXPECT_FALSE(refused.connected());
}

// What a foreign page or a proxy's log could get hold of: the cookie is Secure over TLS, the
// token counts only in a header or a POST body, and browsers' cross-site POSTs are refused
// (clients that name no origin, like curl, are not browsers and keep working).
TEST_F(ServerHttp, SecretsStayOutOfReach) {
  auto plain = Start({"--trust-proxy"});
  int port = plain->port();
  const std::string login = "method=login&account=admin&passwd=admin-pw";
  HttpAnswer answer = HttpRequest(port, "POST", "/webapi/auth", login);
  EXPECT_EQ(std::string::npos, answer.Header("set-cookie").find("Secure"));
  answer = HttpRequest(port, "POST", "/webapi/auth", login, {"X-Forwarded-Proto: https"});
  EXPECT_NE(std::string::npos, answer.Header("set-cookie").find("; Secure"));

  WebApiClient client(port);
  ASSERT_TRUE(client.Login("admin", "admin-pw")["success"].asBool());
  const std::string cookie = "Cookie: " + client.cookie, header = "X-Quor-Token: " + client.token;
  const std::string call = "api=QUOR.Core.SyslogClient.Log&version=1&method=list&limit=1";
  const std::string withToken = call + "&_token=" + client.token;
  // In the query string the token does not count; in the body or the header it does.
  EXPECT_EQ(112, Outcome(port, "GET", "/webapi?" + withToken, "", {cookie}));
  EXPECT_EQ(112, Outcome(port, "POST", "/webapi?_token=" + client.token, call, {cookie}));
  EXPECT_EQ(0, Outcome(port, "POST", "/webapi", withToken, {cookie}));

  // A sign-in (or any POST) from another site's page is refused; the page's own goes through.
  EXPECT_EQ(403, Outcome(port, "POST", "/webapi/auth", login, {"Origin: http://evil.example"}));
  EXPECT_EQ(403, Outcome(port, "POST", "/webapi/auth", login, {"Sec-Fetch-Site: cross-site"}));
  EXPECT_EQ(403, Outcome(port, "POST", "/webapi", call, {cookie, header, "Origin: null"}));
  EXPECT_EQ(403, Outcome(port, "POST", "/webapi", call,
                         {cookie, header, "Origin: null", "Sec-Fetch-Site: same-site"}));
  // The page's own form post (a download) says "Origin: null" under its no-referrer policy.
  EXPECT_EQ(0, Outcome(port, "POST", "/webapi", withToken,
                       {cookie, "Origin: null", "Sec-Fetch-Site: same-origin"}));
  EXPECT_EQ(0, Outcome(port, "POST", "/webapi/auth", login,
                       {"Origin: http://127.0.0.1:" + std::to_string(port),
                        "Sec-Fetch-Site: same-origin"}));
  plain->Stop();

  auto secure = Start({"--secure-cookie"});
  answer = HttpRequest(secure->port(), "POST", "/webapi/auth", login);
  EXPECT_NE(std::string::npos, answer.Header("set-cookie").find("; Secure"));
}

// Where no syslog is (or with --log-stderr), the modules' system-log lines reach standard error.
TEST_F(ServerHttp, ModuleLinesGoToStandardError) {
  auto server = Start({"--log-stderr"});
  WebApiClient client(server->port());
  ASSERT_TRUE(client.Login("admin", "admin-pw")["success"].asBool());
  client.Call("list", "sort=nonsense");
  EXPECT_TRUE(server->LogHas("quor-webapi: syslog err: QUOR.Core.SyslogClient.Log:"))
      << server->Log();
  EXPECT_TRUE(server->LogHas(" Bad sort field.\n")) << server->Log();
}
