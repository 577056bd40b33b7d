// One client connection: HTTP/1.1 requests read and answered one at a time, with keep-alive.
#pragma once

#include <stdint.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <memory>
#include <string>

#include "server/http/router.h"
#include "server/http/server_config.h"

class Connection {
 public:
  // Takes the accepted socket fd (closed with the connection). Null when fd is unusable.
  static std::unique_ptr<Connection> Adopt(boost::asio::io_context* context, int fd,
                                           const ServerConfig& config);
  ~Connection();

  int fd() const { return fd_; }
  // True before the connection's first request has been answered.
  bool fresh() const { return fresh_; }
  // True when bytes of a next (pipelined) request have been read already.
  bool HasBufferedBytes() const { return buffer_.size() > 0; }

  // Reads one request within the request timeout and answers it: malformed requests 400,
  // oversized ones 413, requests not whole in time 408; one access-log line. Returns whether
  // the connection stays open for another request.
  bool ServeOne(Router* router);
  // Answers 408 to a fresh connection that sent nothing in time; the caller then closes it.
  void AnswerSilence();

 private:
  Connection(boost::asio::io_context* context, int fd, const ServerConfig& config);

  boost::asio::io_context* context_;
  boost::asio::ip::tcp::socket socket_;
  int fd_;
  const ServerConfig& config_;
  boost::beast::flat_buffer buffer_;
  std::string client_;
  bool fresh_ = true;
};
