// One client connection, read without waiting and answered through Beast with deadlines.
#include "server/http/connection.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/string.hpp>
#include <boost/beast/http/write.hpp>
#include <chrono>

#include "server/http/access_log.h"
#include "server/http/listener.h"
#include "server/http/monotonic_clock.h"
#include "server/http/process_pool.h"

namespace beast = boost::beast;
namespace http = beast::http;
namespace net = boost::asio;
using tcp = net::ip::tcp;

namespace {

// The status that answers a bad request, or 0 when the connection should just close.
unsigned ParseFailureStatus(const beast::error_code& ec) {
  if (ec == http::error::header_limit || ec == http::error::body_limit ||
      ec == http::error::buffer_overflow) {
    return 413;
  }
  return 400;
}

const char* ReasonText(unsigned status) {
  switch (status) {
    case 408:
      return "Request timeout\n";
    case 413:
      return "Request too large\n";
    default:
      return "Bad request\n";
  }
}

// Writes response within timeoutMs. Returns the bytes written; *ok tells whether all were.
size_t WriteWithDeadline(net::io_context* context, tcp::socket* socket, HttpResponse* response,
                         int64_t timeoutMs, bool* ok) {
  net::steady_timer timer(*context);
  timer.expires_after(std::chrono::milliseconds(timeoutMs));
  bool timedOut = false;
  beast::error_code result;
  size_t written = 0;
  timer.async_wait([&](beast::error_code waited) {
    if (waited) return;
    timedOut = true;
    beast::error_code ignored;
    socket->cancel(ignored);
  });
  http::async_write(*socket, *response, [&](beast::error_code done, size_t transferred) {
    result = done;
    written = transferred;
    timer.cancel();
  });
  context->restart();
  context->run();
  *ok = !result && !timedOut;
  return written;
}

}  // namespace

std::unique_ptr<Connection> Connection::Adopt(net::io_context* context, int fd,
                                              const ServerConfig& config, int64_t nowMs) {
  std::unique_ptr<Connection> connection(new Connection(context, fd, config, nowMs));
  if (!connection->socket_.is_open()) return nullptr;
  return connection;
}

Connection::Connection(net::io_context* context, int fd, const ServerConfig& config, int64_t nowMs)
    : context_(context), socket_(*context), fd_(fd), config_(config) {
  sockaddr_storage local;
  socklen_t length = sizeof local;
  beast::error_code ec;
  if (getsockname(fd, reinterpret_cast<sockaddr*>(&local), &length) == 0) {
    socket_.assign(local.ss_family == AF_INET6 ? tcp::v6() : tcp::v4(), fd, ec);
  }
  if (!socket_.is_open()) {
    close(fd);
    return;
  }
  socket_.non_blocking(true, ec);
  client_ = SocketAddress(fd, true, false);
  start_ = nowMs;
  deadline_ = nowMs + config_.requestTimeoutMs;
  NewParser();
}

Connection::~Connection() {
  beast::error_code ec;
  // A download process shares the socket: shutting it down here would cut its document.
  if (!handedOff_) socket_.shutdown(tcp::socket::shutdown_send, ec);
  socket_.close(ec);
}

void Connection::NewParser() {
  parser_.emplace();
  parser_->header_limit(static_cast<std::uint32_t>(config_.headerLimit));
  parser_->body_limit(config_.bodyLimit);
  parser_->eager(true);
  started_ = false;
  continued_ = false;
}

Connection::Progress Connection::ReadAvailable(int64_t nowMs) {
  for (;;) {
    // Bytes already buffered (a pipelined request) are parsed before reading more.
    if (buffer_.size() > 0) {
      if (!started_) {
        started_ = true;
        start_ = nowMs;
        // A kept-alive connection's next request gets the whole request window for its header.
        if (!fresh_) deadline_ = nowMs + config_.requestTimeoutMs;
      }
      beast::error_code ec;
      bool hadHeader = parser_->is_header_done();
      size_t used = parser_->put(buffer_.data(), ec);
      buffer_.consume(used);
      if (ec && ec != http::error::need_more) {
        unsigned status = ParseFailureStatus(ec);
        AnswerStatus(status);
        return Progress::kClosed;
      }
      if (parser_->is_done()) return Progress::kComplete;
      if (!hadHeader && parser_->is_header_done()) {
        // The body gets a window of its own from the header's end.
        deadline_ = nowMs + config_.requestTimeoutMs;
        // A client that waits for leave to send its body (curl does, for larger forms) gets it.
        if (!continued_ && beast::iequals(parser_->get()[http::field::expect], "100-continue")) {
          static const char kContinue[] = "HTTP/1.1 100 Continue\r\n\r\n";
          send(fd_, kContinue, sizeof kContinue - 1, MSG_NOSIGNAL);
          continued_ = true;
        }
      }
      if (used > 0 && buffer_.size() > 0) continue;
    }
    if (buffer_.size() >= config_.headerLimit + config_.bodyLimit + 4096) {
      AnswerStatus(413);
      return Progress::kClosed;
    }
    beast::error_code ec;
    auto space = buffer_.prepare(16 * 1024);
    size_t n = socket_.read_some(space, ec);
    if (ec == net::error::would_block || ec == net::error::try_again) return Progress::kWaiting;
    if (ec || n == 0) return Progress::kClosed;  // the client went away
    buffer_.commit(n);
  }
}

void Connection::AnswerStatus(unsigned status) {
  Exchange exchange;
  exchange.client = client_;
  AnswerText(&exchange, status, ReasonText(status));
  exchange.response.version(11);
  exchange.response.keep_alive(false);
  bool ok = false;
  size_t written =
      WriteWithDeadline(context_, &socket_, &exchange.response, config_.sendTimeoutMs, &ok);
  WriteAccessLine(client_, "-", "-", static_cast<int>(status), static_cast<int64_t>(written),
                  static_cast<double>(MonotonicMs() - start_));
}

void Connection::Expire() {
  if (started_ || fresh_) AnswerStatus(408);
}

bool Connection::Serve(Router* router) {
  Exchange exchange;
  exchange.socketFd = fd_;
  exchange.client = client_;
  HttpRequest request = parser_->release();
  router->Handle(request, &exchange);
  bool keepAlive = request.keep_alive() && !WorkerShouldStop();
  double elapsed = static_cast<double>(MonotonicMs() - start_);
  fresh_ = false;
  if (exchange.handedOff) {
    handedOff_ = true;  // the download process writes the answer and its access-log line
    return false;
  }
  if (exchange.streamed) {
    WriteAccessLine(exchange.client, exchange.user, exchange.what, 200, exchange.streamedBytes,
                    elapsed);
    return false;
  }
  exchange.response.version(11);
  exchange.response.keep_alive(keepAlive);
  bool ok = false;
  size_t written =
      WriteWithDeadline(context_, &socket_, &exchange.response, config_.sendTimeoutMs, &ok);
  WriteAccessLine(exchange.client, exchange.user, exchange.what, exchange.response.result_int(),
                  static_cast<int64_t>(written), static_cast<double>(MonotonicMs() - start_));
  if (!keepAlive || !ok) return false;
  NewParser();
  start_ = MonotonicMs();
  deadline_ = start_ + config_.idleTimeoutMs;
  return true;
}
