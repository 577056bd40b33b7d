// GET or POST /webapi: one module call on behalf of a logged-in session.
#include <algorithm>

#include "server/auth/session_store.h"
#include "server/dispatch/dispatch.h"
#include "server/error_report.h"
#include "server/http/chunked_output.h"
#include "server/http/download_process.h"
#include "server/http/download_slots.h"
#include "server/http/method_watchdog.h"
#include "server/http/router.h"

namespace {

// The fields that address the call rather than being its parameters.
const char* const kCallFields[] = {"api", "version", "method", "_token"};

// Runs the call with its output going out chunked when the method switches it off.
void RunCall(const ModuleRegistry& registry, const ServerConfig& config, const std::string& api,
             int version, const std::string& method, QUOR::APIRequest* call, bool ownProcess,
             Exchange* exchange) {
  QUOR::APIResponse response;
  ChunkedOutput output(exchange->socketFd, config.sendTimeoutMs, ownProcess);
  response.SetOutputOffHook(&ChunkedOutput::Hook, &output);
  DispatchCall(registry, api, version, method, call, &response);
  bool complete = false;
  if (output.Finish(&exchange->streamedBytes, &complete)) {
    exchange->streamed = true;
    return;
  }
  // Switched off without the hook's knowledge: nothing was written, so answer plainly.
  if (!response.IsOutputEnabled()) response.SetError(kErrorNoAnswer);
  AnswerEnvelope(exchange, EnvelopeText(response));
}

}  // namespace

void Router::HandleWebApi(const HttpRequest& request, const RequestFields& fields,
                          Exchange* exchange) {
  std::string api = fields.Raw("api");
  std::string method = fields.Raw("method");
  exchange->what = (api.empty() ? "-" : api) + "." + (method.empty() ? "-" : method);
  QUOR::APIResponse response;
  Session session;
  bool found = false;
  if (!FindSession(request, &session, &found, exchange)) return;
  int version = 0;
  if (!found) {
    response.SetError(kErrorNotLoggedIn);
  } else if (!TokenMatches(RequestToken(request, fields), session.token)) {
    response.SetError(kErrorBadToken);
  } else if (!ParseApiVersion(fields.Raw("version"), &version) ||
             registry_.Find(api, version, method) == nullptr) {
    response.SetError(kErrorUnknownMethod);
  } else if (!session.admin) {
    // Every API this server loads is the log center's, which only administrators may use.
    response.SetError(kErrorNotPermitted);
  } else {
    Json::Value params = fields.params;
    for (const char* name : kCallFields) params.removeMember(name);
    QUOR::APIRequest call(params, session.user, session.lang);
    const auto& downloads = config_.downloadMethods;
    if (std::find(downloads.begin(), downloads.end(), api + "." + method) != downloads.end()) {
      DownloadSlot slot;
      std::string error;
      if (!slot.Take(DownloadSlotsFolder(), config_.maxDownloads, &error)) {
        if (!error.empty()) ReportError("%s", error.c_str());
        AnswerText(exchange, 503, "Too many downloads at once; try again in a moment.\n");
        exchange->response.set("Retry-After", "5");
        return;
      }
      bool started = StartDownloadProcess(config_, slot.fd(), exchange, [&](Exchange* own) {
        RunCall(registry_, config_, api, version, method, &call, true, own);
      });
      if (started) return;
      AnswerText(exchange, 503, "The download could not be started; try again in a moment.\n");
      return;
    }
    MethodWatchdog watchdog(exchange->socketFd, config_.methodLimitMs);
    RunCall(registry_, config_, api, version, method, &call, false, exchange);
    return;
  }
  AnswerEnvelope(exchange, EnvelopeText(response));
}
