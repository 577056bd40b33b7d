// GET or POST /webapi: one module call on behalf of a logged-in session.
#include <algorithm>
#include <functional>

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

bool Listed(const std::vector<std::string>& names, const std::string& name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

// Runs the call with its output going out chunked when the method switches it off. In a
// download process (releaseSlots given) the process ends when the client is cut off, and the
// slots are freed before the document's last bytes.
void RunCall(const ModuleRegistry& registry, const ServerConfig& config, const std::string& api,
             int version, const std::string& method, QUOR::APIRequest* call,
             const std::function<void()>& releaseSlots, Exchange* exchange) {
  QUOR::APIResponse response;
  bool ownProcess = releaseSlots != nullptr;
  ChunkedOutput output(exchange->socketFd, config.methodIdleMs,
                       ownProcess ? config.downloadStallMs : config.sendTimeoutMs, ownProcess,
                       releaseSlots);
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
    std::string name = api + "." + method;
    if (Listed(config_.downloadMethods, name)) {
      return StartDownload(
          session.user,
          [&](Exchange* own, const std::function<void()>& release) {
            RunCall(registry_, config_, api, version, method, &call, release, own);
          },
          exchange);
    }
    int64_t limit = config_.methodLimitMs;
    if (Listed(config_.selfBoundedMethods, name)) {
      limit = std::max(limit, config_.selfBoundedLimitMs);
    }
    MethodWatchdog watchdog(exchange->socketFd, limit);
    RunCall(registry_, config_, api, version, method, &call, nullptr, exchange);
    return;
  }
  AnswerEnvelope(exchange, EnvelopeText(response));
}

void Router::StartDownload(const std::string& user,
                           const std::function<void(Exchange*, const std::function<void()>&)>& call,
                           Exchange* exchange) {
  int perUser = config_.maxDownloadsPerUser > 0 ? config_.maxDownloadsPerUser
                                                : (config_.maxDownloads + 1) / 2;
  DownloadSlot serverSlot, userSlot;
  std::string error;
  std::string folder = DownloadSlotsFolder();
  bool taken = userSlot.Take(folder, UserSlotPrefix(user), perUser, &error) &&
               serverSlot.Take(folder, ServerSlotPrefix(), config_.maxDownloads, &error);
  if (!taken) {
    if (!error.empty()) ReportError("%s", error.c_str());
    if (error.empty() && exchange->mayWait) {
      exchange->retry = true;  // a slot may come back in a moment; the connection asks again
      return;
    }
    AnswerText(exchange, 503, "Too many downloads at once; try again in a moment.\n");
    exchange->response.set("Retry-After", "5");
    return;
  }
  if (!StartDownloadProcess(config_, {serverSlot.fd(), userSlot.fd()}, exchange, call)) {
    AnswerText(exchange, 503, "The download could not be started; try again in a moment.\n");
  }
}
