// One client connection, read and written through Beast with deadlines.
#include "server/http/connection.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/string.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/write.hpp>
#include <chrono>

#include "server/http/access_log.h"
#include "server/http/listener.h"
#include "server/http/process_pool.h"

namespace beast = boost::beast;
namespace http = beast::http;
namespace net = boost::asio;
using tcp = net::ip::tcp;
using Clock = std::chrono::steady_clock;

namespace {

// The status that answers a failed read, or 0 when the connection should just close (the
// client went away).
unsigned ReadFailureStatus(const beast::error_code& ec) {
  if (ec == beast::error::timeout) return 408;
  if (ec == http::error::header_limit || ec == http::error::body_limit ||
      ec == http::error::buffer_overflow) {
    return 413;
  }
  if (ec == http::error::end_of_stream || ec == http::error::partial_message ||
      ec == net::error::eof || ec == net::error::connection_reset ||
      ec == net::error::broken_pipe || ec == net::error::operation_aborted) {
    return 0;
  }
  return 400;
}

double MillisecondsSince(Clock::time_point start) {
  return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
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

// Runs the one asynchronous operation that begin starts on socket, cancelling it when timeoutMs
// passes (the socket stays open, so a 408 can still be written). *timedOut tells which.
template <class Begin>
beast::error_code RunWithDeadline(net::io_context* context, tcp::socket* socket, int64_t timeoutMs,
                                  bool* timedOut, size_t* bytes, Begin begin) {
  net::steady_timer timer(*context);
  timer.expires_after(std::chrono::milliseconds(timeoutMs));
  *timedOut = false;
  beast::error_code result;
  timer.async_wait([&](beast::error_code waited) {
    if (waited) return;
    *timedOut = true;
    beast::error_code ignored;
    socket->cancel(ignored);
  });
  begin([&](beast::error_code done, size_t transferred) {
    result = done;
    *bytes = transferred;
    timer.cancel();
  });
  context->restart();
  context->run();
  return result;
}

}  // namespace

std::unique_ptr<Connection> Connection::Adopt(net::io_context* context, int fd,
                                              const ServerConfig& config) {
  std::unique_ptr<Connection> connection(new Connection(context, fd, config));
  if (!connection->socket_.is_open()) return nullptr;
  return connection;
}

Connection::Connection(net::io_context* context, int fd, const ServerConfig& config)
    : context_(context), socket_(*context), fd_(fd), config_(config) {
  sockaddr_storage local;
  socklen_t length = sizeof local;
  beast::error_code ec;
  if (getsockname(fd, reinterpret_cast<sockaddr*>(&local), &length) == 0) {
    socket_.assign(local.ss_family == AF_INET6 ? tcp::v6() : tcp::v4(), fd, ec);
  }
  if (!socket_.is_open()) close(fd);
  client_ = SocketAddress(fd, true, false);
}

Connection::~Connection() {
  beast::error_code ec;
  socket_.shutdown(tcp::socket::shutdown_send, ec);
  socket_.close(ec);
}

void Connection::AnswerSilence() {
  Exchange exchange;
  exchange.client = client_;
  AnswerText(&exchange, 408, ReasonText(408));
  exchange.response.keep_alive(false);
  bool timedOut = false;
  size_t transferred = 0;
  RunWithDeadline(
      context_, &socket_, config_.sendTimeoutMs, &timedOut, &transferred,
      [&](auto handler) { http::async_write(socket_, exchange.response, std::move(handler)); });
  WriteAccessLine(client_, "-", "-", 408, static_cast<int64_t>(transferred), 0);
}

bool Connection::ServeOne(Router* router) {
  Clock::time_point start = Clock::now();
  http::request_parser<http::string_body> parser;
  parser.header_limit(static_cast<std::uint32_t>(config_.headerLimit));
  parser.body_limit(config_.bodyLimit);
  bool timedOut = false;
  size_t transferred = 0;
  beast::error_code ec = RunWithDeadline(
      context_, &socket_, config_.requestTimeoutMs, &timedOut, &transferred,
      [&](auto handler) { http::async_read_header(socket_, buffer_, parser, std::move(handler)); });
  if (!ec && !timedOut && !parser.is_done()) {
    // A client that waits for leave to send its body (curl does, for larger forms) gets it.
    if (beast::iequals(parser.get()[http::field::expect], "100-continue")) {
      static const char kContinue[] = "HTTP/1.1 100 Continue\r\n\r\n";
      net::write(socket_, net::buffer(kContinue, sizeof kContinue - 1), ec);
    }
    int64_t left = config_.requestTimeoutMs - static_cast<int64_t>(MillisecondsSince(start));
    if (!ec) {
      ec = RunWithDeadline(
          context_, &socket_, std::max<int64_t>(left, 1), &timedOut, &transferred,
          [&](auto handler) { http::async_read(socket_, buffer_, parser, std::move(handler)); });
    }
  }

  Exchange exchange;
  exchange.socketFd = fd_;
  exchange.client = client_;
  bool keepAlive = false;
  if (timedOut || ec) {
    unsigned status = timedOut ? 408 : ReadFailureStatus(ec);
    if (status == 0) return false;
    AnswerText(&exchange, status, ReasonText(status));
  } else {
    router->Handle(parser.get(), &exchange);
    keepAlive = parser.get().keep_alive() && !WorkerShouldStop();
  }
  if (exchange.streamed) {
    WriteAccessLine(exchange.client, exchange.user, exchange.what, 200, exchange.streamedBytes,
                    MillisecondsSince(start));
    return false;
  }
  exchange.response.version(11);
  exchange.response.keep_alive(keepAlive);
  bool writeTimedOut = false;
  beast::error_code writeError = RunWithDeadline(
      context_, &socket_, config_.sendTimeoutMs, &writeTimedOut, &transferred,
      [&](auto handler) { http::async_write(socket_, exchange.response, std::move(handler)); });
  WriteAccessLine(exchange.client, exchange.user, exchange.what, exchange.response.result_int(),
                  static_cast<int64_t>(transferred), MillisecondsSince(start));
  fresh_ = false;
  return keepAlive && !writeError && !writeTimedOut;
}
