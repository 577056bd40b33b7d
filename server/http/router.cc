// Routing by path and method, and the request fields of the API endpoints.
#include "server/http/router.h"

#include <sodium.h>
#include <stdio.h>

#include "server/error_report.h"
#include "server/http/saved_views.h"
#include "server/http/static_files.h"

#include <boost/beast/core/string.hpp>

namespace beast = boost::beast;
namespace http = beast::http;

const char kSessionCookie[] = "quor_session";

namespace {

void AnswerMethodNotAllowed(Exchange* exchange, const char* allowed) {
  AnswerText(exchange, 405, "Method not allowed\n");
  exchange->response.set(http::field::allow, allowed);
}

// The query string's fields, then those of a form or JSON body (which replace them). The
// request token counts only from the body: a query string ends up in proxies' logs.
bool ReadFields(const HttpRequest& request, RequestFields* fields, Exchange* exchange) {
  std::string target(request.target());
  size_t question = target.find('?');
  std::string error;
  bool ok =
      question == std::string::npos || AddUrlEncoded(target.substr(question + 1), fields, &error);
  fields->params.removeMember("_token");
  fields->raw.removeMember("_token");
  std::string type(request[http::field::content_type]);
  type = type.substr(0, type.find(';'));
  for (char& c : type) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
  if (ok && !request.body().empty()) {
    if (type == "application/json") {
      ok = AddJsonObject(request.body(), fields, &error);
    } else if (type == "application/x-www-form-urlencoded" || type.empty()) {
      ok = AddUrlEncoded(request.body(), fields, &error);
    } else {
      ok = false;
      error = "the request body must be application/x-www-form-urlencoded or application/json";
    }
  }
  if (!ok) AnswerText(exchange, 400, "Bad request: " + error + "\n");
  return ok;
}

// True when the browser says the request comes from another site: Sec-Fetch-Site other than
// "same-origin" or "none" (a header pages cannot set), or, from browsers that do not send it, an
// Origin header that names another host than the request's. The page's form posts (downloads)
// carry "Origin: null" under its no-referrer policy, with Sec-Fetch-Site "same-origin". Clients
// that send neither (curl, scripts) are not browsers a foreign page can drive.
bool IsCrossSite(const HttpRequest& request) {
  auto site = request.find("Sec-Fetch-Site");
  if (site != request.end()) {
    return !beast::iequals(site->value(), "same-origin") && !beast::iequals(site->value(), "none");
  }
  auto origin = request.find(http::field::origin);
  if (origin == request.end()) return false;
  std::string value(origin->value());
  size_t scheme = value.find("://");
  if (scheme == std::string::npos) return true;  // "null" and the like
  std::string originHost = value.substr(scheme + 3);
  std::string host(request[http::field::host]);
  if (originHost == host) return false;
  // Behind a proxy the Host header may lack the port the browser used.
  bool hostHasPort = host.find(':') != std::string::npos && host.back() != ']';
  return hostHasPort || originHost.substr(0, originHost.rfind(':')) != host;
}

}  // namespace

void AnswerText(Exchange* exchange, unsigned status, const std::string& text) {
  HttpResponse& response = exchange->response;
  response.result(status);
  response.set(http::field::content_type, "text/plain; charset=utf-8");
  response.set(http::field::cache_control, "no-store");
  response.set("X-Content-Type-Options", "nosniff");
  response.body() = text;
  response.prepare_payload();
}

void AnswerEnvelope(Exchange* exchange, const std::string& envelope) {
  HttpResponse& response = exchange->response;
  response.result(http::status::ok);
  response.set(http::field::content_type, "application/json; charset=utf-8");
  response.set(http::field::cache_control, "no-store");
  response.set("X-Content-Type-Options", "nosniff");
  response.body() = envelope;
  response.prepare_payload();
}

void Router::Handle(const HttpRequest& request, Exchange* exchange) {
  try {
    std::string target(request.target());
    std::string path = target.substr(0, target.find('?'));
    exchange->what = path;
    auto realIp = request.find("X-Real-IP");
    if (config_.trustProxy && realIp != request.end() && !realIp->value().empty()) {
      exchange->client = std::string(realIp->value());
    }
    // Before anything else: a page of another site that got its name to resolve to this
    // server (DNS rebinding) sends its own name, and must reach no handler.
    if (request.find(http::field::host) == request.end() && request.version() >= 11) {
      return AnswerText(exchange, 400, "Bad request: no Host header\n");
    }
    if (!HostAccepted(request, *exchange)) {
      return AnswerText(exchange, 421, "Misdirected request: unknown host name\n");
    }
    http::verb verb = request.method();
    if (verb == http::verb::post && IsCrossSite(request)) {
      return AnswerText(exchange, 403, "Cross-site request refused\n");
    }
    if (path == "/webapi/auth") {
      if (verb != http::verb::post) return AnswerMethodNotAllowed(exchange, "POST");
      RequestFields fields;
      if (ReadFields(request, &fields, exchange)) HandleAuth(request, fields, exchange);
    } else if (path == "/webapi") {
      if (verb != http::verb::get && verb != http::verb::post) {
        return AnswerMethodNotAllowed(exchange, "GET, POST");
      }
      RequestFields fields;
      if (ReadFields(request, &fields, exchange)) HandleWebApi(request, fields, exchange);
    } else if (path == "/webapi/views") {
      if (verb != http::verb::post) return AnswerMethodNotAllowed(exchange, "POST");
      RequestFields fields;
      if (ReadFields(request, &fields, exchange))
        HandleSavedViews(request, fields, sessions_, exchange);
    } else if (path.compare(0, 8, "/webapi/") == 0) {
      AnswerText(exchange, 404, "Not found\n");
    } else {
      if (verb != http::verb::get && verb != http::verb::head) {
        return AnswerMethodNotAllowed(exchange, "GET, HEAD");
      }
      ServeStaticFile(config_.uiDir, request, exchange);
    }
  } catch (const std::exception& e) {
    ReportError("request failed: %s", e.what());
    AnswerText(exchange, 500, "Internal server error\n");
  }
}

bool Router::HostAccepted(const HttpRequest& request, const Exchange& exchange) const {
  auto header = request.find(http::field::host);
  if (header == request.end()) return true;  // HTTP/1.0 without one: no browser sends that
  std::string host(header->value());
  if (!host.empty() && host.front() == '[') {
    host = host.substr(1, host.find(']') - 1);  // an IPv6 address, its port dropped
  } else if (host.find(':') == host.rfind(':')) {
    host = host.substr(0, host.find(':'));
  }
  if (!host.empty() && host.back() == '.') host.pop_back();
  std::string local = exchange.local;
  if (local.compare(0, 7, "::ffff:") == 0) local = local.substr(7);  // IPv4 over an IPv6 socket
  if (beast::iequals(host, "localhost") || beast::iequals(host, local)) return true;
  for (const std::string& name : config_.hostNames) {
    if (beast::iequals(host, name)) return true;
  }
  return false;
}

bool Router::FindSession(const HttpRequest& request, Session* session, bool* found,
                         Exchange* exchange) {
  std::string cookie = CookieValue(std::string(request[http::field::cookie]), kSessionCookie);
  if (sessions_->Touch(cookie, session, found)) {
    if (*found) exchange->user = session->user;
    return true;
  }
  ReportError("%s", sessions_->LastError().c_str());
  AnswerText(exchange, 500, "Internal server error\n");
  return false;
}

std::string RequestToken(const HttpRequest& request, const RequestFields& fields) {
  auto header = request.find("X-Quor-Token");
  return header != request.end() ? std::string(header->value()) : fields.Raw("_token");
}

bool TokenMatches(const std::string& given, const std::string& expected) {
  return !given.empty() && given.size() == expected.size() &&
         sodium_memcmp(given.data(), expected.data(), given.size()) == 0;
}
