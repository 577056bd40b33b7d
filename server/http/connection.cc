// One client connection, read and answered without waiting, moved by one transition function.
#include "server/http/connection.h"

#include <errno.h>
#include <sys/socket.h>
#include <unistd.h>

#include <boost/beast/core/string.hpp>
#include <boost/beast/http/write.hpp>
#include <limits>
#include <sstream>

#include "server/http/access_log.h"
#include "server/http/listener.h"
#include "server/http/monotonic_clock.h"
#include "server/http/process_pool.h"

namespace beast = boost::beast;
namespace http = beast::http;

namespace {

// A download request that finds every slot taken asks again this often, up to kSlotWaitMs
// after it came in, before it is refused: slots come back as the documents before it end.
const int64_t kSlotRetryMs = 50;
const int64_t kSlotWaitMs = 1000;

// The status that answers a bad request.
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

}  // namespace

Connection::Connection(int fd, const ServerConfig& config, int64_t nowMs)
    : fd_(fd), config_(config), writer_(fd) {
  client_ = SocketAddress(fd, true, false);
  local_ = SocketAddress(fd, false, false);
  start_ = nowMs;
  NewParser();
  Enter(State::kFresh, nowMs);
}

Connection::~Connection() {
  // A download process shares the socket: shutting it down here would cut its document.
  if (state_ != State::kHandedOff) shutdown(fd_, SHUT_WR);
  close(fd_);
}

void Connection::Enter(State next, int64_t nowMs) {
  switch (next) {
    case State::kFresh:
      deadline_ = nowMs + config_.requestTimeoutMs;
      break;
    case State::kIdle:
      deadline_ = nowMs + config_.idleTimeoutMs;
      break;
    case State::kReading:
      // A fresh connection's first header keeps the window that began when it was taken;
      // otherwise a window begins: for a kept-alive connection's next request, or for the
      // body once the header is complete.
      if (state_ != State::kFresh) deadline_ = nowMs + config_.requestTimeoutMs;
      break;
    case State::kWaitingSlot:
      deadline_ = nowMs + kSlotRetryMs;
      break;
    case State::kWriting:
    case State::kWritingLast:
      deadline_ = nowMs + config_.sendTimeoutMs;  // moved on by every byte the client takes
      break;
    case State::kHandedOff:
    case State::kClosed:
      deadline_ = std::numeric_limits<int64_t>::max();
      break;
  }
  state_ = next;
}

short Connection::PollEvents() const {
  if (writer_.Pending()) return POLLOUT;
  if (state_ == State::kFresh || state_ == State::kIdle || state_ == State::kReading) {
    return POLLIN;
  }
  return 0;
}

bool Connection::Busy() const {
  return state_ == State::kReading || state_ == State::kWaitingSlot || state_ == State::kWriting ||
         state_ == State::kWritingLast;
}

void Connection::NewParser() {
  parser_.emplace();
  parser_->header_limit(static_cast<std::uint32_t>(config_.headerLimit));
  parser_->body_limit(config_.bodyLimit);
  parser_->eager(true);
}

bool Connection::Advance(Router* router, int64_t nowMs) {
  bool expired = false;
  while (state_ != State::kClosed && state_ != State::kHandedOff) {
    if (writer_.Pending()) {
      bool progressed = false;
      ClientWriter::Result result = writer_.Flush(&progressed);
      if (result == ClientWriter::Result::kFailed) {
        FinishAnswer(false, nowMs);
        break;
      }
      bool writing = state_ == State::kWriting || state_ == State::kWritingLast;
      if (progressed && writing) deadline_ = nowMs + config_.sendTimeoutMs;
      if (result == ClientWriter::Result::kBlocked) {
        // The client has taken nothing for the stall limit: this connection alone ends.
        if (deadline_ <= nowMs) FinishAnswer(false, nowMs);
        break;
      }
    }
    if (state_ == State::kWriting || state_ == State::kWritingLast) {
      FinishAnswer(true, nowMs);
      continue;
    }
    if (state_ == State::kWaitingSlot) {
      if (deadline_ > nowMs) break;
      Serve(router, nowMs);
      nowMs = MonotonicMs();
      continue;
    }
    if (ReadAvailable(nowMs)) {
      Serve(router, nowMs);
      nowMs = MonotonicMs();
      continue;
    }
    if (writer_.Pending()) continue;  // a 100 Continue or an error answer goes out first
    if (state_ == State::kClosed) break;
    // A request that came in while a method ran was read above before its deadline counts.
    if (deadline_ > nowMs || expired) break;
    expired = true;
    if (state_ == State::kIdle) {
      Enter(State::kClosed, nowMs);
    } else {
      AnswerStatus(408, nowMs);
    }
  }
  return state_ != State::kClosed && state_ != State::kHandedOff;
}

bool Connection::ReadAvailable(int64_t nowMs) {
  for (;;) {
    // Bytes already buffered (a pipelined request) are parsed before reading more.
    if (buffer_.size() > 0) {
      if (state_ != State::kReading) {
        start_ = nowMs;
        Enter(State::kReading, nowMs);
      }
      beast::error_code ec;
      bool hadHeader = parser_->is_header_done();
      size_t used = parser_->put(buffer_.data(), ec);
      buffer_.consume(used);
      if (ec && ec != http::error::need_more) {
        AnswerStatus(ParseFailureStatus(ec), nowMs);
        return false;
      }
      if (parser_->is_done()) return true;
      if (!hadHeader && parser_->is_header_done()) {
        Enter(State::kReading, nowMs);  // the body's own window
        // A client that waits for leave to send its body (curl does, for larger forms) gets it.
        if (beast::iequals(parser_->get()[http::field::expect], "100-continue")) {
          writer_.Queue("HTTP/1.1 100 Continue\r\n\r\n");
          return false;
        }
      }
      if (used > 0 && buffer_.size() > 0) continue;
    }
    if (writer_.Pending()) return false;
    if (buffer_.size() >= config_.headerLimit + config_.bodyLimit + 4096) {
      AnswerStatus(413, nowMs);
      return false;
    }
    auto space = buffer_.prepare(16 * 1024);
    ssize_t n = recv(fd_, space.data(), space.size(), MSG_DONTWAIT);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return false;
    if (n <= 0) {  // the client went away
      Enter(State::kClosed, nowMs);
      return false;
    }
    buffer_.commit(static_cast<size_t>(n));
  }
}

void Connection::Serve(Router* router, int64_t nowMs) {
  bool retried = waiting_.has_value();
  HttpRequest request = retried ? std::move(*waiting_) : parser_->release();
  waiting_.reset();
  if (!retried) slotWaitEnd_ = nowMs + kSlotWaitMs;
  Exchange exchange;
  exchange.socketFd = fd_;
  exchange.client = client_;
  exchange.local = local_;
  exchange.mayWait = nowMs < slotWaitEnd_;
  router->Handle(request, &exchange);
  if (exchange.retry) {
    waiting_ = std::move(request);
    Enter(State::kWaitingSlot, MonotonicMs());
    return;
  }
  NewParser();
  if (exchange.handedOff) {
    Enter(State::kHandedOff, nowMs);  // the download process logs its own access line
    return;
  }
  if (exchange.streamed) {
    WriteAccessLine(exchange.client, exchange.user, exchange.what, 200, exchange.streamedBytes,
                    static_cast<double>(MonotonicMs() - start_));
    Enter(State::kClosed, nowMs);
    return;
  }
  SendAnswer(&exchange, request.keep_alive() && !WorkerShouldStop(), MonotonicMs());
}

void Connection::SendAnswer(Exchange* exchange, bool keepAlive, int64_t nowMs) {
  HttpResponse& response = exchange->response;
  response.version(11);
  response.keep_alive(keepAlive);
  std::ostringstream text;
  text << response;
  answer_ = {exchange->client, exchange->user, exchange->what,
             static_cast<int>(response.result_int()), writer_.TotalSent()};
  writer_.Queue(text.str());
  Enter(keepAlive ? State::kWriting : State::kWritingLast, nowMs);
}

void Connection::AnswerStatus(unsigned status, int64_t nowMs) {
  Exchange exchange;
  exchange.client = client_;
  AnswerText(&exchange, status, ReasonText(status));
  SendAnswer(&exchange, false, nowMs);
}

void Connection::FinishAnswer(bool sentWhole, int64_t nowMs) {
  if (state_ == State::kWriting || state_ == State::kWritingLast) {
    WriteAccessLine(answer_.client, answer_.user, answer_.what, answer_.status,
                    writer_.TotalSent() - answer_.sentBefore,
                    static_cast<double>(MonotonicMs() - start_));
  }
  if (sentWhole && state_ == State::kWriting) {
    start_ = nowMs;
    Enter(State::kIdle, nowMs);
  } else {
    Enter(State::kClosed, nowMs);
  }
}
