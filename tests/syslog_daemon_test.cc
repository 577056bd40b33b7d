// quor-logd with the syslog receiver switched on, as a real process: messages over TCP and
// UDP end up as rows of the system-log store, with the options from the command line and
// the configuration file.
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

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

TEST(SyslogDaemon, MessagesBecomeSystemLogRows) {
  TempRoot root;
  const unsigned short tcp = FreePort(SOCK_STREAM), udp = FreePort(SOCK_DGRAM);
  root.Write("/etc/quor-logd.conf",
             "syslog_udp = 127.0.0.1:" + std::to_string(udp) + "\nsyslog_allow = 127.0.0.0/8\n");
  const std::string daemon = std::string(QUOR_BUILD_DIR) + "/bin/quor-logd";
  const std::string tcpAddress = "127.0.0.1:" + std::to_string(tcp);
  std::vector<const char*> argv = {daemon.c_str(), "--root",           root.path().c_str(),
                                   "--tcp",        tcpAddress.c_str(), nullptr};
  pid_t pid;
  ASSERT_EQ(0, posix_spawn(&pid, daemon.c_str(), nullptr, nullptr, const_cast<char**>(argv.data()),
                           environ));
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
  kill(pid, SIGTERM);
  int status = 0;
  ASSERT_EQ(pid, waitpid(pid, &status, 0));
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;

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

}  // namespace
