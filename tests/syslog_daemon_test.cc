// quor-logd with the syslog receiver switched on, as a real process: messages over TCP and
// UDP end up as rows of the system-log store, with the options from the command line and
// the configuration file; a restart while a sender writes loses only what was never read.
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/logd_harness.h"
#include "tests/support/temp_root.h"

extern char** environ;

namespace {

using namespace std::chrono_literals;

// A loopback port nobody listens on right now.
unsigned short FreePort(int type) {
  const int fd = socket(AF_INET, type, 0);
  sockaddr_in a{};
  a.sin_family = AF_INET;
  a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof a;
  bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a);
  getsockname(fd, reinterpret_cast<sockaddr*>(&a), &length);
  close(fd);
  return ntohs(a.sin_port);
}

int Connect(int type, unsigned short port) {
  const int fd = socket(AF_INET, type, 0);
  sockaddr_in a{};
  a.sin_family = AF_INET;
  a.sin_port = htons(port);
  a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0) {
    close(fd);
    return -1;
  }
  return fd;
}

// quor-logd on a root with extra arguments, stopped with SIGTERM and waited for on every path.
class Daemon {
 public:
  Daemon(const TempRoot& root, const std::vector<std::string>& args) {
    const std::string daemon = std::string(QUOR_BUILD_DIR) + "/bin/quor-logd";
    std::vector<std::string> all = {daemon, "--root", root.path()};
    all.insert(all.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (std::string& a : all) argv.push_back(a.data());
    argv.push_back(nullptr);
    if (posix_spawn(&pid_, daemon.c_str(), nullptr, nullptr, argv.data(), environ) != 0) pid_ = -1;
  }
  ~Daemon() { Stop(); }
  // The exit status (a wait status), -1 when there was no process.
  int Stop() {
    if (pid_ <= 0) return -1;
    kill(pid_, SIGTERM);
    int status = -1;
    waitpid(pid_, &status, 0);
    pid_ = -1;
    return status;
  }

 private:
  pid_t pid_ = -1;
};

TEST(SyslogDaemon, MessagesBecomeSystemLogRows) {
  TempRoot root;
  const unsigned short tcp = FreePort(SOCK_STREAM), udp = FreePort(SOCK_DGRAM);
  root.Write("/etc/quor-logd.conf",
             "syslog_udp = 127.0.0.1:" + std::to_string(udp) + "\nsyslog_allow = 127.0.0.0/8\n");
  Daemon daemon(root, {"--tcp", "127.0.0.1:" + std::to_string(tcp)});
  int fd = -1;
  for (int i = 0; i < 500 && fd < 0; ++i) {
    fd = Connect(SOCK_STREAM, tcp);
    if (fd < 0) std::this_thread::sleep_for(10ms);
  }
  ASSERT_GE(fd, 0) << "quor-logd did not listen";
  std::string stream;
  for (int i = 0; i < 5000; ++i) {
    stream += "<11>Nov 23 10:00:00 router" + std::to_string(i) + " app[7]: message " +
              std::to_string(i) + "\n";
  }
  ASSERT_EQ(static_cast<ssize_t>(stream.size()), send(fd, stream.data(), stream.size(), 0));
  const int u = Connect(SOCK_DGRAM, udp);
  const std::string datagram = "<12>1 2026-11-23T10:00:00Z cam1 motion - - - over UDP";
  ASSERT_EQ(static_cast<ssize_t>(datagram.size()), send(u, datagram.data(), datagram.size(), 0));
  close(u);
  close(fd);
  const std::string store = root.At("/var/log/quorlog/.QUORSYSDB");
  for (int i = 0; i < 500; ++i) {
    const auto n = QueryRows(store,
                             "SELECT count(*) FROM logs WHERE msg LIKE '% over UDP' OR "
                             "msg LIKE '% message 4999'");
    if (!n.empty() && n[0] == "2") break;
    std::this_thread::sleep_for(10ms);
  }
  EXPECT_EQ(0, daemon.Stop());

  EXPECT_EQ(std::vector<std::string>{"5000"},
            QueryRows(store,
                      "SELECT count(*) FROM logs WHERE msg LIKE 'router% app[7]: message %' "
                      "AND level = 'err' AND username = 'SYSTEM'"));
  EXPECT_EQ(std::vector<std::string>{"router4999 app[7]: message 4999"},
            QueryRows(store, "SELECT msg FROM logs WHERE msg LIKE 'router4999 %'"));
  EXPECT_EQ(std::vector<std::string>{"cam1 motion: over UDP|warning|1795428000"},
            QueryRows(store,
                      "SELECT msg || '|' || level || '|' || time FROM logs "
                      "WHERE msg LIKE '% over UDP'"));
  EXPECT_EQ(std::vector<std::string>{"1"},
            QueryRows(store,
                      "SELECT count(*) FROM logs WHERE msg LIKE 'syslog receiver listening "
                      "on udp 127.0.0.1:% tcp 127.0.0.1:%'"));
}

TEST(SyslogDaemon, RestartWithMessagesInFlightOverTcp) {
  // A sender writes numbered messages without pause and reconnects when the connection
  // fails; the daemon is stopped and started again on the same port meanwhile. What the store
  // gets: whole messages, each at most once, in order, and all of them up to the stop signal
  // once read. The gap is what the sender had written into the stopped daemon's socket and
  // was never read: TCP acknowledges nothing above the transport, so that is the sender's.
  TempRoot root;
  const unsigned short port = FreePort(SOCK_STREAM);
  const std::string address = "127.0.0.1:" + std::to_string(port);
  auto daemon = std::make_unique<Daemon>(root, std::vector<std::string>{"--tcp", address});
  std::atomic<int> next{0}, connections{0};
  std::atomic<bool> stop{false};
  std::thread sender([&] {
    while (!stop) {
      const int fd = Connect(SOCK_STREAM, port);
      if (fd < 0) {
        std::this_thread::sleep_for(5ms);
        continue;
      }
      ++connections;
      for (;;) {
        const std::string m = "<13>flight: " + std::to_string(next.load());
        const std::string frame = std::to_string(m.size()) + " " + m;
        if (send(fd, frame.data(), frame.size(), MSG_NOSIGNAL) != ssize_t(frame.size())) break;
        if (++next % 1000 == 0 && stop) break;
      }
      close(fd);
    }
  });
  const auto sent = [&](int n) {
    for (int i = 0; i < 2000 && next < n; ++i) std::this_thread::sleep_for(10ms);
  };
  sent(20000);
  EXPECT_EQ(0, daemon->Stop());
  const int beforeRestart = next;
  daemon = std::make_unique<Daemon>(root, std::vector<std::string>{"--tcp", address});
  sent(beforeRestart + 20000);
  stop = true;
  sender.join();
  const int last = next - 1;
  const std::string store = root.At("/var/log/quorlog/.QUORSYSDB");
  const std::string lastRow = "msg = '127.0.0.1 flight: " + std::to_string(last) + "'";
  for (int i = 0; i < 1000 && CountRows(store, lastRow) != 1; ++i) {
    std::this_thread::sleep_for(20ms);
  }
  EXPECT_EQ(0, daemon->Stop());
  EXPECT_GE(connections.load(), 2);
  EXPECT_GT(last, beforeRestart);

  int previous = -1, gaps = 0;
  for (const std::string& m :
       QueryRows(store, "SELECT msg FROM logs WHERE msg LIKE '% flight: %' ORDER BY id")) {
    const int n = std::stoi(m.substr(m.rfind(' ') + 1));
    ASSERT_EQ("127.0.0.1 flight: " + std::to_string(n), m);  // whole
    ASSERT_GT(n, previous);                                  // once, in order
    gaps += n != previous + 1;
    previous = n;
  }
  EXPECT_EQ(last, previous);
  EXPECT_LE(gaps, 1);  // at the restart only
}

}  // namespace
