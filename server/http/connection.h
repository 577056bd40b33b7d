// One client connection: HTTP/1.1 requests read as their bytes arrive and answers sent as the
// client takes them, both without waiting, driven by the worker's poll loop. Requests of a
// keep-alive connection are answered in order: while an answer has bytes not yet sent, the
// connection is not read further, so a pipelining client that never reads costs one answer of
// memory and no worker time. Only a complete request makes the worker run a method.
#pragma once

#include <poll.h>
#include <stdint.h>

#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/string_body.hpp>
#include <memory>
#include <optional>
#include <string>

#include "server/http/client_writer.h"
#include "server/http/router.h"
#include "server/http/server_config.h"

class Connection {
 public:
  // Takes the accepted socket fd (closed with the connection), taken at nowMs: the request's
  // header must be complete within the request timeout from then.
  Connection(int fd, const ServerConfig& config, int64_t nowMs);
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  // Where a connection is. Every change goes through Enter, which sets the deadline.
  enum class State {
    kFresh,        // accepted, no byte yet: the request timeout runs (408 at its end)
    kIdle,         // kept alive after an answer: the idle timeout runs (closed quietly)
    kReading,      // part of a request came in: the request timeout runs (408 at its end)
    kWaitingSlot,  // a complete download request waits for a free download slot
    kWriting,      // an answer is going out; the connection stays open after it
    kWritingLast,  // an answer is going out; the connection closes after it
    kHandedOff,    // a download process owns the socket now
    kClosed,       // done: the worker drops the connection
  };
  State state() const { return state_; }
  int fd() const { return fd_; }
  // The events the worker polls for: output while bytes wait to go out, else input.
  short PollEvents() const;
  // When the current state ends by itself (see State); the worker then calls Advance.
  int64_t deadline() const { return deadline_; }
  // True while a request is under way (read, waited on, or answered), so a stopping worker
  // must not drop the connection.
  bool Busy() const;

  // Does what the connection can do now without waiting: sends queued output, reads what the
  // client sent, serves complete requests, and acts on a passed deadline. False once closed.
  bool Advance(Router* router, int64_t nowMs);

 private:
  void Enter(State next, int64_t nowMs);
  // Reads and parses what the client sent; true when a whole request is ready.
  bool ReadAvailable(int64_t nowMs);
  void Serve(Router* router, int64_t nowMs);
  void SendAnswer(Exchange* exchange, bool keepAlive, int64_t nowMs);
  void AnswerStatus(unsigned status, int64_t nowMs);
  void OnDeadline(Router* router, int64_t nowMs);
  void FinishAnswer(bool sentWhole, int64_t nowMs);
  void NewParser();

  int fd_;
  const ServerConfig& config_;
  ClientWriter writer_;
  State state_ = State::kFresh;
  int64_t deadline_ = 0;
  boost::beast::flat_buffer buffer_;
  std::optional<boost::beast::http::request_parser<boost::beast::http::string_body>> parser_;
  std::optional<HttpRequest> waiting_;  // the request of kWaitingSlot
  int64_t slotWaitEnd_ = 0;             // when that request stops waiting and is refused
  std::string client_;
  std::string local_;  // the address the client connected to
  int64_t start_ = 0;  // when the request being served began (the clock of the access log)
  // The access-log line of the answer going out, written when it is sent or given up.
  struct Pending {
    std::string client, user, what;
    int status = 0;
    int64_t sentBefore = 0;
  } answer_;
};
