// One HTTP request and its answer as the connection and the endpoints share them.
#pragma once

#include <stdint.h>

#include <boost/beast/http/message.hpp>
#include <boost/beast/http/string_body.hpp>
#include <string>

using HttpRequest = boost::beast::http::request<boost::beast::http::string_body>;
using HttpResponse = boost::beast::http::response<boost::beast::http::string_body>;

struct Exchange {
  int socketFd = -1;   // the client connection
  std::string client;  // the client's address
  std::string local;   // the address the client connected to
  // A download that finds every slot taken may ask to be handled again shortly (retry) while
  // mayWait holds; otherwise it is refused.
  bool mayWait = false;
  bool retry = false;

  // Filled by the endpoint. When streamed, the endpoint has written the whole answer to
  // socketFd itself (a body of streamedBytes) and the connection must close after it. When
  // handedOff, a download process of its own answers on socketFd: the worker only lets go of
  // the connection.
  HttpResponse response;
  bool streamed = false;
  bool handedOff = false;
  int64_t streamedBytes = -1;
  std::string user = "-";  // the session's user, for the access log
  std::string what = "-";  // "API.method" or the path, for the access log
};

// A plain-text answer with the given status, never cached.
void AnswerText(Exchange* exchange, unsigned status, const std::string& text);
// An answer envelope over HTTP 200 as application/json, never cached.
void AnswerEnvelope(Exchange* exchange, const std::string& envelope);
