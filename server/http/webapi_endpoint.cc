// GET or POST /webapi: one module call on behalf of a logged-in session.
#include "server/dispatch/dispatch.h"
#include "server/http/output_handover.h"
#include "server/http/router.h"

namespace {

// The fields that address the call rather than being its parameters.
const char* const kCallFields[] = {"api", "version", "method", "_token"};

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
    OutputHandover handover(exchange->socketFd, config_.sendTimeoutMs);
    response.SetOutputOffHook(&OutputHandover::Hook, &handover);
    DispatchCall(registry_, api, version, method, &call, &response);
    if (handover.Finish(&exchange->streamedBytes)) {
      exchange->streamed = true;
      return;
    }
    if (!response.IsOutputEnabled()) {
      // Switched off without the hook's knowledge: nothing was written, so answer plainly.
      response.SetError(kErrorNoAnswer);
    }
  }
  AnswerEnvelope(exchange, EnvelopeText(response));
}
