// One client connection: HTTP/1.1 requests read as their bytes arrive, without waiting, and
// answered one at a time, with keep-alive. A worker holds many; only a complete request makes
// it run a method, so a client that sends slowly costs a few bytes of memory, not a worker.
#pragma once

#include <stdint.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/string_body.hpp>
#include <memory>
#include <optional>
#include <string>

#include "server/http/router.h"
#include "server/http/server_config.h"

class Connection {
 public:
  // Takes the accepted socket fd (closed with the connection), taken at nowMs: the request's
  // header must be complete within the request timeout from then. Null when fd is unusable.
  static std::unique_ptr<Connection> Adopt(boost::asio::io_context* context, int fd,
                                           const ServerConfig& config, int64_t nowMs);
  ~Connection();

  enum class Progress {
    kWaiting,   // more bytes are needed; wait for them until deadline()
    kComplete,  // a whole request is ready for Serve
    kClosed,    // the client went away, or sent a bad request (answered 400 or 413)
  };
  // Reads whatever the client has sent so far, without waiting.
  Progress ReadAvailable(int64_t nowMs);

  int fd() const { return fd_; }
  // When the request being read must be complete: the header within the request timeout of
  // the connection being taken (or of the last answer, for a kept-alive one), the body within
  // the request timeout of the header's end.
  int64_t deadline() const { return deadline_; }
  // True once bytes of the request being read have come in.
  bool InRequest() const { return started_; }
  // True when bytes of a next request (pipelined) wait in the buffer.
  bool HasBufferedBytes() const { return buffer_.size() > 0; }

  // At the deadline: answers 408 when part of a request (or, on a fresh connection, nothing at
  // all) came in time; a kept-alive connection that was idle just closes. The caller closes.
  void Expire();

  // Routes the complete request and writes the answer (or hands the connection to a download
  // process). Returns whether the connection stays open for another request; its next request
  // has the idle timeout from nowMs after the answer.
  bool Serve(Router* router);

 private:
  Connection(boost::asio::io_context* context, int fd, const ServerConfig& config, int64_t nowMs);
  void NewParser();
  void AnswerStatus(unsigned status);

  boost::asio::io_context* context_;
  boost::asio::ip::tcp::socket socket_;
  int fd_;
  const ServerConfig& config_;
  boost::beast::flat_buffer buffer_;
  std::optional<boost::beast::http::request_parser<boost::beast::http::string_body>> parser_;
  std::string client_;
  int64_t start_ = 0;  // when the request being read began (the clock of the access log)
  int64_t deadline_ = 0;
  bool fresh_ = true;     // no request answered yet
  bool started_ = false;  // bytes of the current request have come in
  bool continued_ = false;
  bool handedOff_ = false;  // a download process owns the connection now
};
