// A real quor-webapi server on a loopback port for tests, and a small HTTP client for it.
#pragma once

#include <json/value.h>
#include <json/writer.h>
#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

// quor-webapi serve on root, on a free loopback port, started by the constructor. It is
// stopped (SIGTERM, then SIGKILL) by the destructor and dies with the test process, so a
// failing test never leaves it running.
class ServerProcess {
 public:
  ServerProcess(const std::string& root, const std::vector<std::string>& extraArgs = {});
  ~ServerProcess();
  ServerProcess(const ServerProcess&) = delete;
  ServerProcess& operator=(const ServerProcess&) = delete;

  bool started() const { return port_ > 0; }
  int port() const { return port_; }
  pid_t pid() const { return pid_; }
  // The worker processes now running.
  std::vector<pid_t> Workers() const;
  // What the server wrote on standard error so far (access log, messages).
  std::string Log() const;
  // True once the log holds text; waits up to waitMs, as lines follow the answers they log.
  bool LogHas(const std::string& text, int waitMs = 3000) const;
  // Sends SIGTERM and waits up to waitMs; the exit status, or -1 if it had to be killed.
  int Stop(int waitMs = 10000);

 private:
  pid_t pid_ = -1;
  int port_ = 0;
  std::string logPath_;
};

// Adds a user to root's users file through quor-webapi adduser; false on failure.
bool AddUser(const std::string& root, const std::string& name, const std::string& password,
             bool admin, const std::string& lang = "en");

struct HttpAnswer {
  int status = 0;                              // 0 when no answer could be read
  std::map<std::string, std::string> headers;  // names in lower case
  std::string head;                            // the raw status line and header lines
  std::string body;                            // decoded when it came in chunks
  bool complete = true;  // false for a message that ended before its end (a chunked body
                         // without its closing chunk, a HEAD answer's announced body)
  std::string Header(const std::string& name) const;
};

// One client connection to 127.0.0.1:port with a 10 s receive timeout.
class HttpConnection {
 public:
  explicit HttpConnection(int port);
  ~HttpConnection();
  bool connected() const { return fd_ >= 0; }
  int fd() const { return fd_; }
  bool Send(const std::string& raw);
  // Reads one answer as its framing says (Content-Length, chunks, or up to the close).
  HttpAnswer Read();
  // Reads at most max bytes of whatever comes next (raw).
  std::string ReadSome(size_t max);
  // Waits until at least bytes have come (kept for Read); false when the connection ends first.
  bool Await(size_t bytes);
  // True when the server closes the connection within waitMs (reading and dropping data).
  bool ClosedWithin(int waitMs);

 private:
  bool Fill();
  int fd_ = -1;
  std::string pending_;
};

// A request on a fresh connection. headers: extra "Name: value" lines (a "Host:" line among
// them replaces the usual "Host: 127.0.0.1").
HttpAnswer HttpRequest(int port, const std::string& method, const std::string& target,
                       const std::string& body = "", const std::vector<std::string>& headers = {});

// A logged-in client of the web API: keeps the session cookie and the request token.
class WebApiClient {
 public:
  explicit WebApiClient(int port) : port_(port) {}
  // POST /webapi/auth method=login; on success keeps the cookie and token. The envelope.
  Json::Value Login(const std::string& account, const std::string& password,
                    const std::string& lang = "");
  // POST /webapi/auth with form fields (method=..., ...); the envelope.
  Json::Value Auth(const std::string& form, bool withToken = true);
  // POST /webapi with api, version 1, method and the form fields, cookie and token header.
  HttpAnswer Call(const std::string& method, const std::string& form = "",
                  const std::string& api = "QUOR.Core.SyslogClient.Log");
  Json::Value CallJson(const std::string& method, const std::string& form = "");
  // The raw text of a POST of method of the test module QUOR.Test.Stream with the form
  // fields, cookie and token: for a connection of the test's own.
  std::string RawCall(const std::string& method, const std::string& form) const;

  std::string cookie;
  std::string token;

 private:
  int port_;
};

// Percent-encodes a form value.
std::string FormEncode(const std::string& text);
