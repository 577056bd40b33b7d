// Load for the syslog benchmarks (scripts/bench.sh, section syslog): sends numbered syslog
// lines over TCP, TLS or UDP as fast as allowed, and waits for a file to reach a line count.
//   syslog_load tcp PORT COUNT [RATE]      COUNT lines over one TCP connection (LF framing),
//                                          at RATE lines per second when given
//   syslog_load tls PORT COUNT CAFILE      the same over TLS
//   syslog_load udp PORT RATE SECONDS      RATE datagrams per second for SECONDS, paced per ms
//   syslog_load lines FILE COUNT TIMEOUT   waits until FILE holds COUNT lines (reads on)
//   syslog_load rows STORE COUNT TIMEOUT   waits until the newest rowid of STORE's "logs" is
//                                          at least COUNT (one connection, polled every 20 ms,
//                                          so that waiting costs next to nothing, as with lines)
//   syslog_load receive PORT COUNT TIMEOUT the daemon's receiver alone, on TCP PORT, into a
//                                          sink that counts and discards: waits for COUNT
// Prints the number of messages sent (or lines seen) and the seconds taken; receive prints
// the seconds from the first message to the last and its CPU seconds.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sqlite3.h>
#include <stdio.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/asio/write.hpp>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "logd/syslog/receiver.h"

namespace {

namespace asio = boost::asio;
using Clock = std::chrono::steady_clock;

double Since(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

// A typical forwarded line, about 110 bytes.
void AppendLine(long i, std::string* out) {
  char line[160];
  const int n = snprintf(line, sizeof line,
                         "<30>Nov 23 10:00:00 host%03ld sshd[%ld]: Accepted publickey for admin "
                         "from 10.0.%ld.%ld port 52144 ssh2 seq=%ld\n",
                         i % 1000, 1000 + i % 30000, (i / 256) % 256, i % 256, i);
  out->append(line, static_cast<size_t>(n));
}

// Writes count lines in writes of up to 64 KiB; paced (rate > 0), each millisecond's share
// as it falls due, a late one caught up at once.
template <class Stream>
int SendStream(Stream& stream, long count, long rate) {
  const auto start = Clock::now();
  std::string batch;
  boost::system::error_code ec;
  for (long i = 0; i < count;) {
    const long due = rate > 0 ? std::min(count, static_cast<long>(Since(start) * rate) + 1) : count;
    for (; i < due && batch.size() < 64 * 1024; ++i) AppendLine(i, &batch);
    asio::write(stream, asio::buffer(batch), ec);
    if (ec) return fprintf(stderr, "send: %s\n", ec.message().c_str()), 1;
    batch.clear();
    if (rate > 0 && i == due && i < count) {
      std::this_thread::sleep_until(start +
                                    std::chrono::microseconds(static_cast<long>(1e6 * i / rate)));
    }
  }
  printf("%ld %.3f\n", count, Since(start));
  return 0;
}

int Tcp(unsigned short port, long count, long rate, const char* caFile) {
  asio::io_context io;
  const asio::ip::tcp::endpoint to(asio::ip::make_address("127.0.0.1"), port);
  boost::system::error_code ec;
  if (caFile == nullptr) {
    asio::ip::tcp::socket socket(io);
    socket.connect(to, ec);
    if (ec) return fprintf(stderr, "connect: %s\n", ec.message().c_str()), 1;
    return SendStream(socket, count, rate);
  }
  asio::ssl::context context(asio::ssl::context::tls_client);
  context.load_verify_file(caFile, ec);
  asio::ssl::stream<asio::ip::tcp::socket> stream(io, context);
  stream.set_verify_mode(asio::ssl::verify_peer);
  stream.lowest_layer().connect(to, ec);
  if (!ec) stream.handshake(asio::ssl::stream_base::client, ec);
  if (ec) return fprintf(stderr, "tls: %s\n", ec.message().c_str()), 1;
  const int rc = SendStream(stream, count, rate);
  stream.shutdown(ec);
  return rc;
}

int Udp(unsigned short port, long rate, double seconds) {
  const int fd = socket(AF_INET, SOCK_DGRAM, 0);
  sockaddr_in to{};
  to.sin_family = AF_INET;
  to.sin_port = htons(port);
  to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (connect(fd, reinterpret_cast<sockaddr*>(&to), sizeof to) != 0) return perror("connect"), 1;
  const long total = static_cast<long>(rate * seconds);
  const auto start = Clock::now();
  std::string line;
  long sent = 0;
  // Each millisecond gets its share; a late millisecond catches up, as a burst would.
  while (sent < total) {
    const long due = std::min(total, static_cast<long>(Since(start) * rate) + 1);
    for (; sent < due; ++sent) {
      line.clear();
      AppendLine(sent, &line);
      line.pop_back();
      if (send(fd, line.data(), line.size(), 0) < 0) return perror("send"), 1;
    }
    std::this_thread::sleep_until(
        start + std::chrono::microseconds(static_cast<long>(1e6 * (sent + 1) / rate)));
  }
  printf("%ld %.3f\n", sent, Since(start));
  close(fd);
  return 0;
}

int Lines(const char* path, long count, double timeout) {
  const auto start = Clock::now();
  long lines = 0;
  std::vector<char> buffer(1 << 20);
  std::ifstream file;
  while (lines < count && Since(start) < timeout) {
    if (!file.is_open()) file.open(path, std::ios::binary);
    if (file.is_open()) {
      file.clear();
      while (file.read(buffer.data(), buffer.size()) || file.gcount() > 0) {
        for (std::streamsize i = 0; i < file.gcount(); ++i) lines += buffer[i] == '\n';
        if (file.gcount() < static_cast<std::streamsize>(buffer.size())) break;
      }
    }
    if (lines < count) std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  printf("%ld %.3f\n", lines, Since(start));
  return lines >= count ? 0 : 1;
}

int Rows(const char* path, long count, double timeout) {
  const auto start = Clock::now();
  sqlite3* db = nullptr;
  sqlite3_stmt* stmt = nullptr;
  long rows = 0;
  while (rows < count && Since(start) < timeout) {
    if (stmt == nullptr) {  // the store may not exist yet
      sqlite3_close_v2(db);
      db = nullptr;
      if (sqlite3_open_v2(path, &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK) {
        sqlite3_busy_timeout(db, 1000);
        sqlite3_prepare_v2(db, "SELECT coalesce(max(rowid), 0) FROM logs", -1, &stmt, nullptr);
      }
    }
    if (stmt != nullptr && sqlite3_step(stmt) == SQLITE_ROW) {
      rows = sqlite3_column_int64(stmt, 0);
      sqlite3_reset(stmt);  // ends the read: the writer's log may start over
    } else if (stmt != nullptr) {
      fprintf(stderr, "rows: %s; opening the store again\n", sqlite3_errmsg(db));
      sqlite3_finalize(stmt);
      stmt = nullptr;
    }
    if (rows < count) std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  sqlite3_finalize(stmt);
  sqlite3_close_v2(db);
  printf("%ld %.3f\n", rows, Since(start));
  return rows >= count ? 0 : 1;
}

// Counts what the receiver hands over and drops it: the receiver's own rate, no store.
class CountingSink : public logd::EntrySink {
 public:
  bool Push(logd::LogEntry entry) override { return TryPush(std::move(entry)); }
  bool TryPush(logd::LogEntry) override {
    if (count_.fetch_add(1) == 1) first_ = Clock::now();
    return true;
  }
  long count() const { return count_.load(); }
  Clock::time_point first() const { return first_; }

 private:
  std::atomic<long> count_{0};
  Clock::time_point first_;  // the first received message (the listening row is the 0th)
};

int Receive(const std::string& port, long count, double timeout) {
  logd::syslog::SyslogConfig config;
  config.tcp.push_back("127.0.0.1:" + port);
  CountingSink sink;
  logd::syslog::SyslogReceiver receiver(config, &sink);
  std::string error;
  if (!receiver.Start(&error)) return fprintf(stderr, "receive: %s\n", error.c_str()), 1;
  const auto start = Clock::now();
  while (sink.count() < count + 1 && Since(start) < timeout) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  const long got = sink.count() - 1;
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const double cpu = usage.ru_utime.tv_sec + usage.ru_stime.tv_sec +
                     (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
  printf("%ld %.3f %.2f\n", got, got > 0 ? Since(sink.first()) : 0.0, cpu);
  return got >= count ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string mode = argc > 1 ? argv[1] : "";
  if (mode == "tcp" && (argc == 4 || argc == 5)) {
    return Tcp(atoi(argv[2]), atol(argv[3]), argc == 5 ? atol(argv[4]) : 0, nullptr);
  }
  if (mode == "tls" && argc == 5) return Tcp(atoi(argv[2]), atol(argv[3]), 0, argv[4]);
  if (mode == "udp" && argc == 5) return Udp(atoi(argv[2]), atol(argv[3]), atof(argv[4]));
  if (mode == "lines" && argc == 5) return Lines(argv[2], atol(argv[3]), atof(argv[4]));
  if (mode == "rows" && argc == 5) return Rows(argv[2], atol(argv[3]), atof(argv[4]));
  if (mode == "receive" && argc == 5) return Receive(argv[2], atol(argv[3]), atof(argv[4]));
  fprintf(
      stderr,
      "usage: syslog_load tcp PORT COUNT [RATE] | tls PORT COUNT CAFILE | udp PORT RATE SECONDS |"
      " lines FILE COUNT TIMEOUT | rows STORE COUNT TIMEOUT | receive PORT COUNT TIMEOUT\n");
  return 2;
}
