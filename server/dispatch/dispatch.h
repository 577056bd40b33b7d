// Dispatch of one web-API call: the checker, then the handler, never an exception.
#pragma once

#include <string>

#include "platform/webapi.h"
#include "server/dispatch/module_registry.h"

// Server error codes of the answer envelope.
enum ServerError {
  kErrorNoAnswer = 100,       // the handler gave no answer or failed unexpectedly
  kErrorUnknownMethod = 102,  // unknown API, version or method
  kErrorNotLoggedIn = 110,    // not logged in, or the session expired
  kErrorNotPermitted = 111,   // the user may not call this API
  kErrorBadToken = 112,       // request token missing or wrong
  kErrorBadLogin = 150,       // wrong account or password
  kErrorLockedOut = 151,      // too many failed logins, try again later
};

// Runs the method of registry for api, version and method on request, answering in response:
// error 102 when nothing serves it; otherwise the row's checker, and the handler only when the
// checker lets the request through. An exception thrown by a checker or handler (a module
// fault) is caught and answered with error 100.
void DispatchCall(const ModuleRegistry& registry, const std::string& api, int version,
                  const std::string& method, QUOR::APIRequest* request,
                  QUOR::APIResponse* response);

// Decodes one request parameter value: a text that parses completely as one JSON value
// ("10", "\"system\"", "true", "null", "[...]", "{...}") is that value; anything else is
// taken as the plain text itself ("system", "abc", "").
Json::Value DecodeParamValue(const std::string& text);

// Reads an API version: a whole decimal integer within int. False for anything else.
bool ParseApiVersion(const std::string& text, int* version);

// The envelope as compact JSON text, without a line end.
std::string EnvelopeText(const QUOR::APIResponse& response);
