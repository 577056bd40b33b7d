// quor-soak: the load test of the server's isolation. Against a running quor-webapi on
// 127.0.0.1:PORT it times one session's list of 50 rows unloaded, then again while eight
// clients send requests one byte a second and two 1M-row CSV exports stream, and checks that
// no real request failed.
//   quor-soak PORT ACCOUNT PASSWORD [SECONDS]
// Prints the figures and the goal (loaded <= 2x unloaded + 50 ms); exit 1 when a request
// failed, 2 on a usage or connection error.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

int gPort = 0;
std::atomic<bool> gStop{false};
std::atomic<int> gFailures{0};

int Connect() {
  int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(gPort));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  timeval timeout = {30, 0};
  setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
  if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    close(fd);
    return -1;
  }
  return fd;
}

bool SendAll(int fd, const std::string& data) {
  size_t sent = 0;
  while (sent < data.size()) {
    ssize_t n = send(fd, data.data() + sent, data.size() - sent, MSG_NOSIGNAL);
    if (n <= 0) return false;
    sent += static_cast<size_t>(n);
  }
  return true;
}

// Sends a request on a fresh connection and reads the answer to its end (the server closes).
// Returns the status; *body gets the raw body; *complete whether a chunked body was whole.
int Exchange(const std::string& request, std::string* body, bool* complete) {
  int fd = Connect();
  if (fd < 0 || !SendAll(fd, request)) {
    if (fd >= 0) close(fd);
    return 0;
  }
  std::string raw;
  char buffer[1 << 16];
  ssize_t n;
  while ((n = recv(fd, buffer, sizeof buffer, 0)) > 0) raw.append(buffer, n);
  close(fd);
  size_t end = raw.find("\r\n\r\n");
  if (raw.compare(0, 9, "HTTP/1.1 ") != 0 || end == std::string::npos) return 0;
  *body = raw.substr(end + 4);
  bool chunked = raw.find("Transfer-Encoding: chunked") < end;
  *complete =
      !chunked || (body->size() >= 5 && body->compare(body->size() - 5, 5, "0\r\n\r\n") == 0);
  return atoi(raw.c_str() + 9);
}

std::string Post(const std::string& path, const std::string& form, const std::string& cookie,
                 const std::string& token) {
  std::string request = "POST " + path + " HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n";
  if (!cookie.empty()) request += "Cookie: " + cookie + "\r\n";
  if (!token.empty()) request += "X-Quor-Token: " + token + "\r\n";
  return request + "Content-Type: application/x-www-form-urlencoded\r\nContent-Length: " +
         std::to_string(form.size()) + "\r\n\r\n" + form;
}

struct Session {
  std::string cookie, token;
};

bool Login(const std::string& account, const std::string& password, Session* session) {
  std::string request =
      Post("/webapi/auth", "method=login&account=" + account + "&passwd=" + password, "", "");
  int fd = Connect();
  if (fd < 0 || !SendAll(fd, request)) return false;
  std::string raw;
  char buffer[4096];
  ssize_t n;
  while ((n = recv(fd, buffer, sizeof buffer, 0)) > 0) raw.append(buffer, n);
  close(fd);
  size_t cookie = raw.find("Set-Cookie: ");
  size_t token = raw.find("\"token\":\"");
  if (cookie == std::string::npos || token == std::string::npos) return false;
  session->cookie = raw.substr(cookie + 12, raw.find(';', cookie) - cookie - 12);
  session->token = raw.substr(token + 9, raw.find('"', token + 9) - token - 9);
  return true;
}

// One list of 50 rows: its time in ms, or -1 when it failed.
double TimedList(const Session& s) {
  auto start = Clock::now();
  std::string body;
  bool complete = false;
  int status = Exchange(Post("/webapi",
                             "api=QUOR.Core.SyslogClient.Log&version=1&method=list&"
                             "logtype=system&limit=50&offset=0",
                             s.cookie, s.token),
                        &body, &complete);
  double ms = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
  return status == 200 && body.find("\"success\":true") != std::string::npos ? ms : -1;
}

std::vector<double> ListTimes(const Session& s, double seconds) {
  std::vector<double> times;
  auto end = Clock::now() + std::chrono::duration<double>(seconds);
  while (Clock::now() < end) {
    double ms = TimedList(s);
    if (ms < 0) {
      ++gFailures;
      fprintf(stderr, "quor-soak: a list call failed\n");
    } else {
      times.push_back(ms);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  std::sort(times.begin(), times.end());
  return times;
}

double Percentile(const std::vector<double>& sorted, double p) {
  if (sorted.empty()) return 0;
  return sorted[std::min(sorted.size() - 1, static_cast<size_t>(p * sorted.size()))];
}

// A client that sends a request one byte a second and starts again when answered (408).
void SlowSender(const Session& s) {
  std::string request =
      Post("/webapi", "api=QUOR.Core.SyslogClient.Log&version=1&method=list", s.cookie, s.token);
  while (!gStop) {
    int fd = Connect();
    if (fd < 0) return;
    for (size_t i = 0; i < request.size() && !gStop; ++i) {
      if (send(fd, request.data() + i, 1, MSG_NOSIGNAL) != 1) break;
      std::this_thread::sleep_for(std::chrono::seconds(1));
    }
    close(fd);
  }
}

std::atomic<int> gExports{0};

// Downloads the whole 1M-row CSV export again and again.
void Exporter(const Session& s) {
  while (!gStop) {
    std::string body;
    bool complete = false;
    int status = Exchange(Post("/webapi",
                               "api=QUOR.Core.SyslogClient.Log&version=1&method=export&"
                               "logtype=system&format=csv",
                               s.cookie, s.token),
                          &body, &complete);
    if (gStop && status == 0) return;
    if (status != 200 || !complete || body.size() < 1000000) {
      ++gFailures;
      fprintf(stderr, "quor-soak: an export failed (status %d, %zu bytes)\n", status, body.size());
    } else {
      ++gExports;
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 4) {
    fprintf(stderr, "usage: quor-soak PORT ACCOUNT PASSWORD [SECONDS]\n");
    return 2;
  }
  gPort = atoi(argv[1]);
  double seconds = argc > 4 ? atof(argv[4]) : 30;
  Session lister, loader;
  if (!Login(argv[2], argv[3], &lister) || !Login(argv[2], argv[3], &loader)) {
    fprintf(stderr, "quor-soak: cannot sign in on port %d\n", gPort);
    return 2;
  }
  std::vector<double> unloaded = ListTimes(lister, 5);
  std::vector<std::thread> load;
  for (int i = 0; i < 8; ++i) load.emplace_back(SlowSender, loader);
  for (int i = 0; i < 2; ++i) load.emplace_back(Exporter, loader);
  std::this_thread::sleep_for(std::chrono::seconds(2));  // the exports are streaming
  std::vector<double> loaded = ListTimes(lister, seconds);
  gStop = true;
  for (std::thread& t : load) t.join();

  double base = Percentile(unloaded, 0.5);
  double goal = 2 * base + 50;
  printf("list of 50 rows, unloaded:  median %.1f ms (%zu calls)\n", base, unloaded.size());
  printf("under load (8 slow senders, 2 exports of 1M rows streaming, %d exports done):\n",
         gExports.load());
  printf("  median %.1f ms, p95 %.1f ms, max %.1f ms (%zu calls)\n", Percentile(loaded, 0.5),
         Percentile(loaded, 0.95), loaded.empty() ? 0 : loaded.back(), loaded.size());
  printf("goal: every call within 2x unloaded + 50 ms = %.1f ms: %s (max/goal %.2f)\n", goal,
         !loaded.empty() && loaded.back() <= goal ? "met" : "NOT met",
         goal > 0 && !loaded.empty() ? loaded.back() / goal : 0);
  printf("failed requests: %d\n", gFailures.load());
  return gFailures > 0 ? 1 : 0;
}
