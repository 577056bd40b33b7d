// A real quor-webapi server for tests, and a small HTTP client.
#include "tests/support/server_process.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/string_body.hpp>
#include <chrono>
#include <fstream>
#include <sstream>
#include <thread>

#include "platform/webapi.h"
#include "tests/support/run_process.h"

namespace {

const char kWebApi[] = QUOR_BUILD_DIR "/bin/quor-webapi";

std::string ReadFile(const std::string& path) {
  std::ifstream in(path);
  std::ostringstream content;
  content << in.rdbuf();
  return content.str();
}

bool WaitExit(pid_t pid, int waitMs, int* status) {
  for (int waited = 0; waited <= waitMs; waited += 10) {
    if (waitpid(pid, status, WNOHANG) == pid) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return false;
}

}  // namespace

ServerProcess::ServerProcess(const std::string& root, const std::vector<std::string>& extraArgs) {
  std::string outPath = root + "/server.out";
  logPath_ = root + "/server.log";
  std::vector<std::string> argv = {
      kWebApi,    "serve",       "--root",    root,
      "--listen", "127.0.0.1:0", "--modules", QUOR_BUILD_DIR "/modules"};
  argv.insert(argv.end(), extraArgs.begin(), extraArgs.end());
  unlink(outPath.c_str());  // the port is read from it: never from an earlier server's
  pid_ = fork();
  if (pid_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    int out = open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    int err = open(logPath_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    dup2(out, 1);
    dup2(err, 2);
    std::vector<char*> args;
    for (const std::string& arg : argv) args.push_back(const_cast<char*>(arg.c_str()));
    args.push_back(nullptr);
    execv(kWebApi, args.data());
    _exit(127);
  }
  for (int waited = 0; waited < 10000 && pid_ > 0; waited += 10) {
    std::string out = ReadFile(outPath);
    size_t at = out.find("http://127.0.0.1:");
    if (at != std::string::npos && out.find('/', at + 17) != std::string::npos) {
      port_ = atoi(out.c_str() + at + 17);
      return;
    }
    int status;
    if (waitpid(pid_, &status, WNOHANG) == pid_) {
      pid_ = -1;
      return;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
}

ServerProcess::~ServerProcess() {
  if (pid_ > 0 && Stop(5000) == -1) {
    kill(pid_, SIGKILL);
    int status;
    waitpid(pid_, &status, 0);
  }
}

int ServerProcess::Stop(int waitMs) {
  if (pid_ <= 0) return -1;
  kill(pid_, SIGTERM);
  int status = 0;
  if (!WaitExit(pid_, waitMs, &status)) return -1;
  pid_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::vector<pid_t> ServerProcess::Workers() const {
  std::vector<pid_t> workers;
  std::istringstream in(
      ReadFile("/proc/" + std::to_string(pid_) + "/task/" + std::to_string(pid_) + "/children"));
  pid_t child;
  while (in >> child) workers.push_back(child);
  return workers;
}

std::string ServerProcess::Log() const { return ReadFile(logPath_); }

bool ServerProcess::LogHas(const std::string& text, int waitMs) const {
  for (int waited = 0; waited <= waitMs; waited += 20) {
    if (Log().find(text) != std::string::npos) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return false;
}

bool AddUser(const std::string& root, const std::string& name, const std::string& password,
             bool admin, const std::string& lang) {
  std::vector<std::string> argv = {kWebApi, "adduser", "--root", root, name, "--lang", lang};
  if (admin) argv.push_back("--admin");
  return RunProcess(argv, password + "\n").status == 0;
}

std::string HttpAnswer::Header(const std::string& name) const {
  auto found = headers.find(name);
  return found != headers.end() ? found->second : "";
}

HttpConnection::HttpConnection(int port) {
  fd_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  timeval timeout = {10, 0};
  setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
  if (connect(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    close(fd_);
    fd_ = -1;
  }
}

HttpConnection::~HttpConnection() {
  if (fd_ >= 0) close(fd_);
}

bool HttpConnection::Send(const std::string& raw) {
  size_t sent = 0;
  while (sent < raw.size()) {
    ssize_t n = send(fd_, raw.data() + sent, raw.size() - sent, MSG_NOSIGNAL);
    if (n <= 0) return false;
    sent += n;
  }
  return true;
}

bool HttpConnection::Fill() {
  char buffer[65536];
  ssize_t n = recv(fd_, buffer, sizeof buffer, 0);
  if (n <= 0) return false;
  pending_.append(buffer, n);
  return true;
}

HttpAnswer HttpConnection::Read() {
  namespace http = boost::beast::http;
  HttpAnswer answer;
  http::response_parser<http::string_body> parser;
  parser.body_limit(UINT64_MAX);
  boost::beast::error_code error;
  for (;;) {
    size_t headEnd = pending_.find("\r\n\r\n");
    if (!parser.is_header_done() && headEnd != std::string::npos) {
      answer.head = pending_.substr(0, headEnd + 2);
    }
    size_t used = pending_.empty() ? 0 : parser.put(boost::asio::buffer(pending_), error);
    pending_.erase(0, used);
    if (parser.is_done() || (error && error != http::error::need_more)) break;
    error = {};
    if (used == 0 && !Fill()) {
      parser.put_eof(error);
      break;
    }
  }
  if (answer.head.empty() || !parser.is_header_done()) return HttpAnswer();
  answer.status = parser.get().result_int();
  for (const auto& field : parser.get()) {
    std::string name(field.name_string());
    for (char& c : name) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    answer.headers[name] = std::string(field.value());
  }
  answer.body = std::move(parser.get().body());
  answer.complete = parser.is_done();
  return answer;
}

std::string HttpConnection::ReadSome(size_t max) {
  if (pending_.empty()) Fill();
  std::string some = pending_.substr(0, max);
  pending_.erase(0, some.size());
  return some;
}

bool HttpConnection::Await(size_t bytes) {
  while (pending_.size() < bytes) {
    if (!Fill()) return false;
  }
  return true;
}

bool HttpConnection::ClosedWithin(int waitMs) {
  timeval timeout = {waitMs / 1000, (waitMs % 1000) * 1000};
  setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
  char buffer[65536];
  for (;;) {
    ssize_t n = recv(fd_, buffer, sizeof buffer, 0);
    if (n == 0 || (n < 0 && errno == ECONNRESET)) return true;
    if (n < 0) return false;
  }
}

HttpAnswer HttpRequest(int port, const std::string& method, const std::string& target,
                       const std::string& body, const std::vector<std::string>& headers) {
  HttpConnection connection(port);
  std::string raw = method + " " + target + " HTTP/1.1\r\nConnection: close\r\n";
  bool hasHost = false;
  for (const std::string& header : headers) {
    raw += header + "\r\n";
    hasHost = hasHost || header.compare(0, 5, "Host:") == 0;
  }
  if (!hasHost) raw += "Host: 127.0.0.1\r\n";
  if (!body.empty() || method == "POST") {
    raw += "Content-Type: application/x-www-form-urlencoded\r\n";
    raw += "Content-Length: " + std::to_string(body.size()) + "\r\n";
  }
  raw += "\r\n" + body;
  if (!connection.Send(raw)) return HttpAnswer();
  return connection.Read();
}

std::string FormEncode(const std::string& text) {
  static const char kHex[] = "0123456789ABCDEF";
  std::string encoded;
  for (unsigned char c : text) {
    if (isalnum(c) || c == '-' || c == '_' || c == '.' || c == '~') {
      encoded.push_back(static_cast<char>(c));
    } else {
      encoded += '%';
      encoded += kHex[c >> 4];
      encoded += kHex[c & 15];
    }
  }
  return encoded;
}

Json::Value WebApiClient::Login(const std::string& account, const std::string& password,
                                const std::string& lang) {
  std::string form =
      "method=login&account=" + FormEncode(account) + "&passwd=" + FormEncode(password);
  if (!lang.empty()) form += "&lang=" + FormEncode(lang);
  HttpAnswer answer = HttpRequest(port_, "POST", "/webapi/auth", form);
  Json::Value envelope = QUOR::WebAPIUtil::ParseJson(answer.body);
  if (envelope["success"].asBool()) {
    std::string setCookie = answer.Header("set-cookie");
    cookie = setCookie.substr(0, setCookie.find(';'));
    token = envelope["data"]["token"].asString();
  }
  return envelope;
}

Json::Value WebApiClient::Auth(const std::string& form, bool withToken) {
  std::vector<std::string> headers;
  if (!cookie.empty()) headers.push_back("Cookie: " + cookie);
  if (withToken && !token.empty()) headers.push_back("X-Quor-Token: " + token);
  return QUOR::WebAPIUtil::ParseJson(
      HttpRequest(port_, "POST", "/webapi/auth", form, headers).body);
}

HttpAnswer WebApiClient::Call(const std::string& method, const std::string& form,
                              const std::string& api) {
  std::vector<std::string> headers;
  if (!cookie.empty()) headers.push_back("Cookie: " + cookie);
  if (!token.empty()) headers.push_back("X-Quor-Token: " + token);
  std::string body = "api=" + FormEncode(api) + "&version=1&method=" + FormEncode(method);
  if (!form.empty()) body += "&" + form;
  return HttpRequest(port_, "POST", "/webapi", body, headers);
}

std::string WebApiClient::RawCall(const std::string& method, const std::string& form) const {
  std::string body = "api=QUOR.Test.Stream&version=1&method=" + method + "&" + form;
  return "POST /webapi HTTP/1.1\r\nHost: 127.0.0.1\r\nCookie: " + cookie +
         "\r\nX-Quor-Token: " + token +
         "\r\nContent-Type: application/x-www-form-urlencoded\r\nContent-Length: " +
         std::to_string(body.size()) + "\r\n\r\n" + body;
}

Json::Value WebApiClient::CallJson(const std::string& method, const std::string& form) {
  return QUOR::WebAPIUtil::ParseJson(Call(method, form).body);
}
