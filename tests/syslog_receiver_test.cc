// The syslog receiver on real loopback sockets into the daemon's queue: UDP, TCP in both
// framings, TLS, IPv4 and IPv6, the allow-list, connection limits, timeouts, a full queue.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <boost/asio/connect.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/asio/write.hpp>
#include <chrono>
#include <future>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "logd/entry_queue.h"
#include "logd/syslog/receiver.h"
#include "tests/support/run_process.h"
#include "tests/support/temp_root.h"

namespace {

using logd::LogEntry;
using logd::syslog::SyslogConfig;
using logd::syslog::SyslogReceiver;
namespace asio = boost::asio;
using namespace std::chrono_literals;

// The daemon's bounded queue, read by the test as the writer reads it: taking makes room.
class QueueReader {
 public:
  explicit QueueReader(size_t capacity = 1000000) : queue_(capacity, size_t{1} << 30) {}
  logd::EntrySink* sink() { return &queue_; }
  size_t queued() const { return queue_.size(); }
  // The messages taken so far that contain |needle|, once at least |count| of them are there
  // (or after 20 s); everything already queued is taken first.
  std::vector<std::string> WaitFor(const std::string& needle, size_t count) {
    const auto until = std::chrono::steady_clock::now() + 20s;
    std::vector<std::string> found;
    std::vector<LogEntry> batch;
    size_t scanned = 0;
    for (auto wake = 0ms;; wake = 50ms) {
      while (queue_.PopBatch(100000, 0ms, wake, &batch) && !batch.empty()) {
        for (LogEntry& e : batch) taken_.push_back(std::move(e.message));
        wake = 0ms;
      }
      for (; scanned < taken_.size(); ++scanned) {
        if (taken_[scanned].find(needle) != std::string::npos) found.push_back(taken_[scanned]);
      }
      if (found.size() >= count || std::chrono::steady_clock::now() > until) return found;
    }
  }

 private:
  logd::EntryQueue queue_;
  std::vector<std::string> taken_;
};

// A connected or bound socket, closed on every path.
struct Fd {
  int fd = -1;
  explicit Fd(int f) : fd(f) {}
  ~Fd() {
    if (fd >= 0) close(fd);
  }
};

sockaddr_storage Loopback(bool v6, unsigned short port, socklen_t* length) {
  sockaddr_storage address{};
  if (v6) {
    auto* a = reinterpret_cast<sockaddr_in6*>(&address);
    a->sin6_family = AF_INET6;
    a->sin6_port = htons(port);
    a->sin6_addr = in6addr_loopback;
    *length = sizeof *a;
  } else {
    auto* a = reinterpret_cast<sockaddr_in*>(&address);
    a->sin_family = AF_INET;
    a->sin_port = htons(port);
    a->sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    *length = sizeof *a;
  }
  return address;
}

void SendUdp(unsigned short port, const std::string& datagram, bool v6 = false) {
  Fd s(socket(v6 ? AF_INET6 : AF_INET, SOCK_DGRAM, 0));
  socklen_t length;
  sockaddr_storage to = Loopback(v6, port, &length);
  ASSERT_EQ(
      static_cast<ssize_t>(datagram.size()),
      sendto(s.fd, datagram.data(), datagram.size(), 0, reinterpret_cast<sockaddr*>(&to), length));
}

int ConnectTcp(unsigned short port, bool v6 = false) {
  int fd = socket(v6 ? AF_INET6 : AF_INET, SOCK_STREAM, 0);
  socklen_t length;
  sockaddr_storage to = Loopback(v6, port, &length);
  if (connect(fd, reinterpret_cast<sockaddr*>(&to), length) != 0) {
    close(fd);
    return -1;
  }
  const int on = 1;
  setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  return fd;
}

bool SendAll(int fd, const std::string& bytes) {
  size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t n = send(fd, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
    if (n <= 0) return false;
    done += static_cast<size_t>(n);
  }
  return true;
}

// Whether the receiver closed |fd| within 20 s (a read sees the end or a reset); bytes it
// sent before (a TLS alert) are skipped.
bool ClosedByPeer(int fd) {
  timeval timeout{20, 0};
  setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
  char buffer[4096];
  ssize_t n;
  while ((n = recv(fd, buffer, sizeof buffer, 0)) > 0) {
  }
  return n == 0 || errno != EAGAIN;
}

// A self-signed CA, a server certificate and a client certificate it signed.
struct Certificates {
  TempRoot dir;
  std::string Path(const char* name) const { return dir.path() + "/" + name; }
  Certificates() {
    const std::string d = dir.path();
    const std::string script =
        "set -e; cd " + d +
        "; openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 1 "
        "-subj /CN=test-ca -keyout ca.key -out ca.pem 2>/dev/null;"
        "for n in server client; do openssl req -newkey ec -pkeyopt "
        "ec_paramgen_curve:prime256v1 -nodes -subj /CN=$n -keyout $n.key -out $n.csr "
        "2>/dev/null; openssl x509 -req -in $n.csr -CA ca.pem -CAkey ca.key -CAcreateserial "
        "-days 1 -out $n.pem 2>/dev/null; done";
    EXPECT_EQ(0, RunProcess({"/bin/sh", "-c", script}).status);
  }
};

// A TLS client on asio's blocking calls; with a client certificate when given.
struct TlsClient {
  asio::io_context io;
  asio::ssl::context context{asio::ssl::context::tls_client};
  // Made after the context is complete: a stream copies the context's certificate.
  std::optional<asio::ssl::stream<asio::ip::tcp::socket>> stream;
  boost::system::error_code Connect(unsigned short port, const Certificates& certs,
                                    bool withCertificate) {
    boost::system::error_code ec;
    context.load_verify_file(certs.Path("ca.pem"), ec);
    if (withCertificate) {
      context.use_certificate_chain_file(certs.Path("client.pem"), ec);
      context.use_private_key_file(certs.Path("client.key"), asio::ssl::context::pem, ec);
    }
    stream.emplace(io, context);
    stream->set_verify_mode(asio::ssl::verify_peer, ec);
    stream->lowest_layer().connect({asio::ip::make_address("127.0.0.1"), port}, ec);
    if (!ec) stream->handshake(asio::ssl::stream_base::client, ec);
    return ec;
  }
  boost::system::error_code Send(const std::string& bytes) {
    boost::system::error_code ec;
    asio::write(*stream, asio::buffer(bytes), ec);
    return ec;
  }
};

SyslogConfig LoopbackConfig() {
  SyslogConfig config;
  config.timeZone = "UTC";
  config.reportSeconds = 1;
  return config;
}

TEST(SyslogReceiver, EveryTransportAndFramingOnIpv4AndIpv6) {
  Certificates certs;
  SyslogConfig config = LoopbackConfig();
  config.udp = {"127.0.0.1:0", "[::1]:0"};
  config.tcp = {"127.0.0.1:0", "[::1]:0"};
  config.tls = {"*:0"};
  config.certFile = certs.Path("server.pem");
  config.keyFile = certs.Path("server.key");
  QueueReader sink;
  SyslogReceiver receiver(config, sink.sink());
  std::string error;
  ASSERT_TRUE(receiver.Start(&error)) << error;
  EXPECT_EQ(1u, sink.WaitFor("syslog receiver listening on udp 127.0.0.1:0", 1).size());

  SendUdp(receiver.udpPorts()[0], "<11>Nov 23 10:00:00 udp4: over UDP");
  SendUdp(receiver.udpPorts()[1], "<11>Nov 23 10:00:00 udp6: over UDP", true);
  // Octet counting sent a byte at a time; lines coalesced in one write, the last one
  // without its line end and ended by the close.
  {
    Fd counted(ConnectTcp(receiver.tcpPorts()[0]));
    for (char c : std::string("24 <14>1 - h tcp4 - - - one25 <14>1 - h tcp4 - - - two\n"))
      ASSERT_TRUE(SendAll(counted.fd, std::string(1, c)));
    Fd lines(ConnectTcp(receiver.tcpPorts()[1], true));
    ASSERT_TRUE(SendAll(lines.fd, "<13>tcp6: a\r\n<13>tcp6: b\n\n<13>tcp6: c"));
  }
  TlsClient tls;
  ASSERT_FALSE(tls.Connect(receiver.tlsPorts()[0], certs, false));
  ASSERT_FALSE(tls.Send("31 <13>Nov 23 10:00:00 h tls: one\n"));

  EXPECT_EQ(std::vector<std::string>{"127.0.0.1 udp4: over UDP"}, sink.WaitFor("udp4:", 1));
  EXPECT_EQ(std::vector<std::string>{"::1 udp6: over UDP"}, sink.WaitFor("udp6:", 1));
  EXPECT_EQ((std::vector<std::string>{"h tcp4: one", "h tcp4: two"}), sink.WaitFor("tcp4:", 2));
  EXPECT_EQ((std::vector<std::string>{"::1 tcp6: a", "::1 tcp6: b", "::1 tcp6: c"}),
            sink.WaitFor("tcp6:", 3));
  EXPECT_EQ(std::vector<std::string>{"h tls: one"}, sink.WaitFor("tls:", 1));

  // A listening address that is taken, and TLS files that do not exist, fail the start.
  SyslogConfig taken = LoopbackConfig();
  taken.tcp = {"127.0.0.1:" + std::to_string(receiver.tcpPorts()[0])};
  SyslogReceiver second(taken, sink.sink());

  EXPECT_FALSE(second.Start(&error));
  EXPECT_NE(std::string::npos, error.find("cannot listen on 127.0.0.1:")) << error;
  SyslogConfig noFiles = LoopbackConfig();
  noFiles.tls = {"127.0.0.1:0"};
  noFiles.certFile = noFiles.keyFile = certs.Path("missing.pem");
  SyslogReceiver third(noFiles, sink.sink());
  EXPECT_FALSE(third.Start(&error));
  EXPECT_NE(std::string::npos, error.find("cannot load the TLS certificate")) << error;
}

TEST(SyslogReceiver, AllowListConnectionLimitsAndTimeouts) {
  QueueReader sink;
  {
    SyslogConfig config = LoopbackConfig();
    config.udp = {"127.0.0.1:0"};
    config.tcp = {"127.0.0.1:0"};
    config.allow = {"10.0.0.0/8", "2001:db8::/32"};
    SyslogReceiver receiver(config, sink.sink());
    std::string error;
    ASSERT_TRUE(receiver.Start(&error)) << error;
    SendUdp(receiver.udpPorts()[0], "<13>outside: not allowed");
    Fd refused(ConnectTcp(receiver.tcpPorts()[0]));
    EXPECT_TRUE(ClosedByPeer(refused.fd));
    EXPECT_EQ(1u, sink.WaitFor("1 connections from outside syslog_allow refused", 1).size());
    EXPECT_EQ(1u,
              sink.WaitFor("1 UDP messages from senders outside syslog_allow ignored", 1).size());
    EXPECT_TRUE(sink.WaitFor("outside:", 0).empty());
  }
  SyslogConfig config = LoopbackConfig();
  config.tcp = {"127.0.0.1:0"};
  config.allow = {"127.0.0.0/8"};
  config.maxConnections = 3;
  config.maxPerAddress = 2;
  config.idleTimeoutSeconds = 1;
  SyslogReceiver receiver(config, sink.sink());
  std::string error;
  ASSERT_TRUE(receiver.Start(&error)) << error;
  const unsigned short port = receiver.tcpPorts()[0];
  Fd first(ConnectTcp(port)), second(ConnectTcp(port));
  ASSERT_TRUE(SendAll(first.fd, "<13>first: 1\n"));
  ASSERT_TRUE(SendAll(second.fd, "<13>second: 2\n"));
  EXPECT_EQ(1u, sink.WaitFor("second:", 1).size());
  Fd third(ConnectTcp(port));  // a third from the same address
  EXPECT_TRUE(ClosedByPeer(third.fd));
  EXPECT_EQ(1u, sink.WaitFor("1 connections over the connection limits refused", 1).size());
  // Idle connections are closed, which frees their places.
  EXPECT_TRUE(ClosedByPeer(first.fd));
  EXPECT_TRUE(ClosedByPeer(second.fd));
  EXPECT_EQ(2u, receiver.counters().connectionsTimedOut.load());
  Fd again(ConnectTcp(port));
  ASSERT_TRUE(SendAll(again.fd, "<13>again: 3\n"));
  EXPECT_EQ(1u, sink.WaitFor("again:", 1).size());
}

TEST(SyslogReceiver, TlsHandshakeStallAndClientCertificates) {
  Certificates certs;
  SyslogConfig config = LoopbackConfig();
  config.tls = {"127.0.0.1:0"};
  config.certFile = certs.Path("server.pem");
  config.keyFile = certs.Path("server.key");
  config.caFile = certs.Path("ca.pem");
  config.handshakeTimeoutSeconds = 1;
  QueueReader sink;
  SyslogReceiver receiver(config, sink.sink());
  std::string error;
  ASSERT_TRUE(receiver.Start(&error)) << error;
  const unsigned short port = receiver.tlsPorts()[0];

  // A client that sends half a ClientHello and stops: it holds nobody else up, and is dropped.
  Fd stalled(ConnectTcp(port));
  ASSERT_TRUE(SendAll(stalled.fd, std::string("\x16\x03\x01\x02\x00\x01", 6)));
  TlsClient good;
  ASSERT_FALSE(good.Connect(port, certs, true));
  ASSERT_FALSE(good.Send("<13>Nov 23 10:00:00 h certified: yes\n"));
  EXPECT_EQ(1u, sink.WaitFor("certified:", 1).size());
  EXPECT_TRUE(ClosedByPeer(stalled.fd));
  EXPECT_EQ(1u, receiver.counters().connectionsTimedOut.load());

  // Without a client certificate the handshake fails, and nothing is taken from it.
  TlsClient anonymous;
  if (!anonymous.Connect(port, certs, false)) {
    anonymous.Send("<13>Nov 23 10:00:00 h anonymous: no\n");  // TLS 1.3 reports it after
  }
  EXPECT_TRUE(ClosedByPeer(anonymous.stream->lowest_layer().native_handle()));
  EXPECT_EQ(1u, receiver.counters().handshakesFailed.load());
  EXPECT_TRUE(sink.WaitFor("anonymous:", 0).empty());
}

TEST(SyslogReceiver, FullQueueMakesTcpWaitAndUdpCount) {
  QueueReader sink(50);
  SyslogConfig config = LoopbackConfig();
  config.udp = {"127.0.0.1:0"};
  config.tcp = {"127.0.0.1:0"};
  SyslogReceiver receiver(config, sink.sink());
  std::string error;
  ASSERT_TRUE(receiver.Start(&error)) << error;

  // TCP: 100k messages (about 6 MB) against a queue of 50 that nobody empties; the
  // receiver stops reading, so the sender waits instead of anything being lost.
  constexpr int kCount = 100000;
  std::atomic<bool> sent{false};
  std::thread sender([&] {
    Fd s(ConnectTcp(receiver.tcpPorts()[0]));
    std::string batch;
    for (int i = 0; i < kCount; ++i) {
      batch += "<13>Nov 23 10:00:00 host seq: " + std::to_string(i) + " padding padding\n";
      if (batch.size() > 60000) {
        ASSERT_TRUE(SendAll(s.fd, batch));
        batch.clear();
      }
    }
    ASSERT_TRUE(SendAll(s.fd, batch));
    sent = true;
  });
  while (sink.queued() < 50) std::this_thread::sleep_for(10ms);
  // UDP while the queue is full: refused and counted, never waited for.
  for (int i = 0; i < 10; ++i) SendUdp(receiver.udpPorts()[0], "<13>lost: " + std::to_string(i));
  while (receiver.counters().udpDropped.load() < 10) std::this_thread::sleep_for(10ms);
  EXPECT_FALSE(sent.load());  // the sender is held by TCP flow control

  const std::vector<std::string> seq = sink.WaitFor(" seq: ", kCount);
  sender.join();
  ASSERT_EQ(static_cast<size_t>(kCount), seq.size());
  for (int i = 0; i < kCount; ++i) {
    ASSERT_EQ("host seq: " + std::to_string(i) + " padding padding", seq[i]);
  }
  EXPECT_EQ(1u, sink.WaitFor("10 UDP messages dropped because the queue was full", 1).size());

  // A stop while a connection waits for room and a report fell due meanwhile: once the queue
  // has room again, Stop returns (nothing queued before it may start anew).
  Fd waiting(ConnectTcp(receiver.tcpPorts()[0]));
  std::string burst;
  for (int i = 0; i < 200; ++i)
    burst += "<13>Nov 23 10:00:00 host burst: " + std::to_string(i) + "\n";
  ASSERT_TRUE(SendAll(waiting.fd, burst));
  while (sink.queued() < 50) std::this_thread::sleep_for(10ms);
  std::this_thread::sleep_for(1500ms);  // past the next report
  auto stopped = std::async(std::launch::async, [&] { receiver.Stop(); });
  const auto until = std::chrono::steady_clock::now() + 20s;
  while (stopped.wait_for(10ms) != std::future_status::ready &&
         std::chrono::steady_clock::now() < until) {
    sink.WaitFor("", 0);
  }
  ASSERT_EQ(std::future_status::ready, stopped.wait_for(0s)) << "Stop did not return";
}

}  // namespace
