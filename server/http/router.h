// Routing of one HTTP request to its endpoint: the page's files, the login endpoint and the
// web-API endpoint.
#pragma once

#include <functional>

#include "server/auth/session_store.h"
#include "server/dispatch/module_registry.h"
#include "server/http/exchange.h"
#include "server/http/form_fields.h"
#include "server/http/server_config.h"

// The session cookie's name.
extern const char kSessionCookie[];

// The request token of a call: the header "X-Quor-Token", else the field "_token".
std::string RequestToken(const HttpRequest& request, const RequestFields& fields);
// Compares a given token with the session's in constant time; an empty one never matches.
bool TokenMatches(const std::string& given, const std::string& expected);

class Router {
 public:
  // The registry and the session store outlive the router; the store is this process's own.
  Router(const ServerConfig& config, const ModuleRegistry& registry, SessionStore* sessions)
      : config_(config), registry_(registry), sessions_(sessions) {}

  // Fills exchange with the answer to request (or streams it, see Exchange). Never throws.
  void Handle(const HttpRequest& request, Exchange* exchange);

 private:
  // POST /webapi/auth: login, logout, status.
  void HandleAuth(const HttpRequest& request, const RequestFields& fields, Exchange* exchange);
  // GET or POST /webapi: one module call.
  void HandleWebApi(const HttpRequest& request, const RequestFields& fields, Exchange* exchange);
  // Runs call in a download process once a slot of the server and one of the user are free;
  // otherwise asks for a retry (while exchange->mayWait) or answers 503.
  void StartDownload(const std::string& user,
                     const std::function<void(Exchange*, const std::function<void()>&)>& call,
                     Exchange* exchange);
  // True when the Host header names this server (see ServerConfig::hostNames).
  bool HostAccepted(const HttpRequest& request, const Exchange& exchange) const;
  // The live session of the request's cookie; false after answering 500 when the store fails.
  bool FindSession(const HttpRequest& request, Session* session, bool* found, Exchange* exchange);

  const ServerConfig& config_;
  const ModuleRegistry& registry_;
  SessionStore* sessions_;
};
