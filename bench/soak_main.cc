// quor-soak: the load test of the server's isolation, against a running quor-webapi on
// 127.0.0.1:PORT with the accounts "soak" and "soak2" (password "soak-password"):
//   quor-soak PORT SERVER_PID [SECONDS]
//     1. a list of 50 rows, timed quiet, then beside eight clients that send one byte a second
//        and two 1M-row CSV exports streaming (export 503s counted apart);
//     2. status and list, timed quiet, then beside two clients that pipeline 4,000 requests
//        each and never read (reconnecting whenever the server closes them);
//     3. 24 exports at once by two users, then the server's download processes and zombies
//        2.5 s later.
//   quor-soak --sequential PORT [COUNT]
//     COUNT (40) small exports one after another by one client (against --max-downloads 1).
// Prints the figures beside their goals (loaded <= 2x quiet + 50 ms); exit 1 when a request
// failed, 2 on a usage or connection error.
#include <arpa/inet.h>
#include <dirent.h>
#include <errno.h>
#include <netinet/in.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <time.h>
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
// Returns the status; *body gets the raw body; *complete whether a chunked body was whole;
// *head, when given, the status line and header lines.
int Exchange(const std::string& request, std::string* body, bool* complete,
             std::string* head = nullptr) {
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
  if (head != nullptr) *head = raw.substr(0, end);
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

const char kListForm[] =
    "api=QUOR.Core.SyslogClient.Log&version=1&method=list&logtype=system&limit=50&offset=0";
const char kExportForm[] =
    "api=QUOR.Core.SyslogClient.Log&version=1&method=export&logtype=system&format=csv";

// One call: its time in ms, or -1 when it failed.
double TimedCall(const Session& s, const char* path, const std::string& form) {
  auto start = Clock::now();
  std::string body;
  bool complete = false;
  int status = Exchange(Post(path, form, s.cookie, s.token), &body, &complete);
  double ms = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
  return status == 200 && body.find("\"success\":true") != std::string::npos ? ms : -1;
}

double TimedList(const Session& s) { return TimedCall(s, "/webapi", kListForm); }
double TimedStatus(const Session& s) { return TimedCall(s, "/webapi/auth", "method=status"); }

std::vector<double> CallTimes(const Session& s, double seconds, double (*call)(const Session&)) {
  std::vector<double> times;
  auto end = Clock::now() + std::chrono::duration<double>(seconds);
  while (Clock::now() < end) {
    double ms = call(s);
    if (ms < 0) {
      ++gFailures;
      fprintf(stderr, "quor-soak: a call failed\n");
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
std::atomic<int> gExportsRefused{0};

// Downloads the whole 1M-row CSV export again and again.
void Exporter(const Session& s) {
  while (!gStop) {
    std::string body;
    bool complete = false;
    int status = Exchange(Post("/webapi", kExportForm, s.cookie, s.token), &body, &complete);
    if (gStop && status == 0) return;
    if (status == 503) {
      ++gExportsRefused;  // counted apart: two exporters never need more than their slots
      continue;
    }
    if (status != 200 || !complete || body.size() < 1000000) {
      ++gFailures;
      fprintf(stderr, "quor-soak: an export failed (status %d, %zu bytes)\n", status, body.size());
    } else {
      ++gExports;
    }
  }
}

// A client that pipelines 4,000 requests and never reads; when the server closes it, it
// comes back.
void Hog() {
  std::string burst;
  for (int i = 0; i < 4000; ++i) burst += "GET /index.html HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n";
  std::atomic<int> reconnects{0};
  while (!gStop) {
    int fd = Connect();
    if (fd < 0) return;
    timeval timeout = {0, 200 * 1000};  // the send returns now and then to look at gStop
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout);
    size_t sent = 0;
    while (!gStop && sent < burst.size()) {
      ssize_t n = send(fd, burst.data() + sent, burst.size() - sent, MSG_NOSIGNAL);
      if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) continue;
      if (n <= 0) break;
      sent += static_cast<size_t>(n);
    }
    // All sent (or cut): wait without reading until the server gives up on it.
    while (!gStop) {
      pollfd closed = {fd, POLLRDHUP, 0};
      if (poll(&closed, 1, 200) > 0) break;
    }
    close(fd);
  }
}

struct Counts {
  int processes = 0;
  int zombies = 0;
};

// The processes below the server's workers (download processes), and how many are zombies.
Counts Grandchildren(pid_t server) {
  Counts counts;
  DIR* proc = opendir("/proc");
  if (proc == nullptr) return counts;
  std::vector<std::pair<pid_t, pid_t>> parents;  // pid, ppid
  std::vector<char> states;
  while (dirent* entry = readdir(proc)) {
    pid_t pid = atoi(entry->d_name);
    if (pid <= 0) continue;
    FILE* stat = fopen(("/proc/" + std::to_string(pid) + "/stat").c_str(), "r");
    if (stat == nullptr) continue;
    char state = '?';
    int ppid = 0;
    if (fscanf(stat, "%*d (%*[^)]) %c %d", &state, &ppid) == 2) {
      parents.push_back({pid, ppid});
      states.push_back(state);
    }
    fclose(stat);
  }
  closedir(proc);
  for (size_t i = 0; i < parents.size(); ++i) {
    for (const auto& worker : parents) {
      if (worker.second != server || parents[i].second != worker.first) continue;
      ++counts.processes;
      if (states[i] == 'Z') ++counts.zombies;
    }
  }
  return counts;
}

void PrintTimes(const char* what, const std::vector<double>& quiet,
                const std::vector<double>& loaded) {
  double base = Percentile(quiet, 0.5);
  double goal = 2 * base + 50;
  double worst = loaded.empty() ? 0 : loaded.back();
  printf(
      "  %-7s quiet median %.1f ms | loaded median %.1f, p95 %.1f, max %.1f ms (%zu calls) | "
      "goal max <= %.1f ms: %s (max/goal %.2f)\n",
      what, base, Percentile(loaded, 0.5), Percentile(loaded, 0.95), worst, loaded.size(), goal,
      !loaded.empty() && worst <= goal ? "met" : "NOT met", goal > 0 ? worst / goal : 0);
}

int Sequential(int count) {
  Session s;
  if (!Login("soak", "soak-password", &s)) {
    fprintf(stderr, "quor-soak: cannot sign in on port %d\n", gPort);
    return 2;
  }
  // Small documents (the last hour's rows): the client has the whole document at once, so
  // its next request comes while the previous download's process may still be ending.
  std::string form = std::string(kExportForm) +
                     "&date_from=" + std::to_string(static_cast<long long>(time(nullptr)) - 3600);
  int whole = 0, refused = 0;
  size_t bytes = 0;
  for (int i = 0; i < count; ++i) {
    std::string body;
    bool complete = false;
    int status = Exchange(Post("/webapi", form, s.cookie, s.token), &body, &complete);
    if (status == 200 && complete) ++whole;
    if (status == 503) ++refused;
    bytes = body.size();
  }
  printf(
      "%d sequential exports of the last hour's rows (%zu bytes each) by one client, "
      "--max-downloads 1: %d of %d whole, %d answered 503 (goal: %d of %d)\n",
      count, bytes, whole, count, refused, count, count);
  return whole == count ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc >= 3 && std::string(argv[1]) == "--sequential") {
    gPort = atoi(argv[2]);
    return Sequential(argc > 3 ? atoi(argv[3]) : 40);
  }
  if (argc < 3) {
    fprintf(stderr, "usage: quor-soak PORT SERVER_PID [SECONDS] | --sequential PORT [COUNT]\n");
    return 2;
  }
  gPort = atoi(argv[1]);
  pid_t server = atoi(argv[2]);
  double seconds = argc > 3 ? atof(argv[3]) : 30;
  Session lister, loader, second;
  if (!Login("soak", "soak-password", &lister) || !Login("soak", "soak-password", &loader) ||
      !Login("soak2", "soak-password", &second)) {
    fprintf(stderr, "quor-soak: cannot sign in on port %d\n", gPort);
    return 2;
  }

  // 1. Slow senders and two exports.
  std::vector<double> quietList = CallTimes(lister, 5, TimedList);
  std::vector<double> quietStatus;
  std::vector<std::thread> load;
  for (int i = 0; i < 8; ++i) load.emplace_back(SlowSender, loader);
  for (int i = 0; i < 2; ++i) load.emplace_back(Exporter, loader);
  std::this_thread::sleep_for(std::chrono::seconds(2));  // the exports are streaming
  std::vector<double> loaded = CallTimes(lister, seconds, TimedList);
  gStop = true;
  for (std::thread& t : load) t.join();
  load.clear();
  printf(
      "1. beside 8 slow senders and 2 exports of 1M rows streaming (%d exports done, %d "
      "answered 503):\n",
      gExports.load(), gExportsRefused.load());
  PrintTimes("list", quietList, loaded);

  // 2. Two clients that pipeline and never read; quiet times taken again just before.
  quietStatus = CallTimes(lister, 3, TimedStatus);
  quietList = CallTimes(lister, 5, TimedList);
  gStop = false;
  for (int i = 0; i < 2; ++i) load.emplace_back(Hog);
  std::this_thread::sleep_for(std::chrono::seconds(1));
  std::vector<double> hoggedStatus = CallTimes(lister, seconds / 2, TimedStatus);
  std::vector<double> hoggedList = CallTimes(lister, seconds / 2, TimedList);
  gStop = true;
  for (std::thread& t : load) t.join();
  load.clear();
  printf("2. beside 2 clients pipelining 4,000 requests each and never reading:\n");
  PrintTimes("status", quietStatus, hoggedStatus);
  PrintTimes("list", quietList, hoggedList);

  // 3. 24 exports at once by two users (each may hold half the slots).
  std::atomic<int> ok{0}, refused{0}, retryAfter{0}, other{0};
  for (int i = 0; i < 24; ++i) {
    load.emplace_back([&, i] {
      const Session& s = i % 2 == 0 ? loader : second;
      std::string body, head;
      bool complete = false;
      int status =
          Exchange(Post("/webapi", kExportForm, s.cookie, s.token), &body, &complete, &head);
      if (status == 200 && complete) {
        ++ok;
      } else if (status == 503) {
        ++refused;
        if (head.find("Retry-After: ") != std::string::npos) ++retryAfter;
      } else {
        ++other;
      }
    });
  }
  for (std::thread& t : load) t.join();
  std::this_thread::sleep_for(std::chrono::milliseconds(2500));
  Counts left = Grandchildren(server);
  printf(
      "3. 24 exports at once by 2 users, 4 slots: %d x 200, %d x 503 (%d with Retry-After), "
      "%d other; 2.5 s later %d download processes, %d zombies (goal: 4 x 200, the rest 503, "
      "0 and 0)\n",
      ok.load(), refused.load(), retryAfter.load(), other.load(), left.processes, left.zombies);
  if (other > 0) gFailures += other;

  printf("failed requests: %d\n", gFailures.load());
  return gFailures > 0 ? 1 : 0;
}
