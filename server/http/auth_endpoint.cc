// POST /webapi/auth: login, logout and the session state of the page.
#include <stdio.h>

#include "server/auth/users_file.h"
#include "server/dispatch/dispatch.h"
#include "server/error_report.h"
#include "server/http/appliance_time.h"
#include "server/http/router.h"

namespace http = boost::beast::http;

namespace {

// Account names are at most this long: anything longer is refused before any lookup.
const size_t kMaxAccountBytes = 64;

void SetCookie(Exchange* exchange, const std::string& value, bool expire, bool secure) {
  std::string cookie =
      std::string(kSessionCookie) + "=" + value + "; HttpOnly; SameSite=Strict; Path=/";
  if (secure) cookie += "; Secure";
  if (expire) cookie += "; Max-Age=0";
  exchange->response.set(http::field::set_cookie, cookie);
}

Json::Value SessionData(const Session& session) {
  Json::Value data(Json::objectValue);
  data["account"] = session.user;
  data["lang"] = session.lang;
  data["is_admin"] = session.admin;
  data["token"] = session.token;
  return data;
}

}  // namespace

void Router::HandleAuth(const HttpRequest& request, const RequestFields& fields,
                        Exchange* exchange) {
  std::string method = fields.Raw("method");
  exchange->what = "auth." + (method.empty() ? std::string("-") : method);
  QUOR::APIResponse answer;
  Session session;
  bool found = false;

  bool secure =
      config_.secureCookie || (config_.trustProxy && request["X-Forwarded-Proto"] == "https");
  if (method == "login") {
    std::string account = fields.Raw("account");
    if (account.size() > kMaxAccountBytes) {
      // Counted against the address only: a name this long is no account, and is not stored.
      exchange->user = "-";
      if (!sessions_->RecordFailure("", exchange->client)) {
        ReportError("%s", sessions_->LastError().c_str());
      }
      answer.SetError(kErrorBadLogin);
      return AnswerEnvelope(exchange, EnvelopeText(answer));
    }
    exchange->user = account.empty() ? "-" : account;
    bool locked = false;
    if (!sessions_->IsLockedOut(account, exchange->client, &locked)) {
      ReportError("%s", sessions_->LastError().c_str());
      return AnswerText(exchange, 500, "Internal server error\n");
    }
    if (locked) {
      answer.SetError(kErrorLockedOut);
      return AnswerEnvelope(exchange, EnvelopeText(answer));
    }
    UserRecord user;
    bool known = IsValidUserName(account) && FindUser(UsersFilePath(), account, &user);
    if (!VerifyPassword(known ? &user : nullptr, fields.Raw("passwd"))) {
      if (!sessions_->RecordFailure(account, exchange->client)) {
        ReportError("%s", sessions_->LastError().c_str());
      }
      answer.SetError(kErrorBadLogin);
      return AnswerEnvelope(exchange, EnvelopeText(answer));
    }
    // A login replaces whatever session the client had.
    std::string old = CookieValue(std::string(request[http::field::cookie]), kSessionCookie);
    if (!old.empty()) sessions_->End(old);
    sessions_->ClearFailures(account, exchange->client);
    std::string lang = fields.Raw("lang");
    session.user = user.name;
    session.lang = IsSupportedLanguage(lang) ? lang : user.lang;
    session.admin = user.admin;
    std::string cookie;
    if (!sessions_->Create(&session, &cookie)) {
      ReportError("%s", sessions_->LastError().c_str());
      return AnswerText(exchange, 500, "Internal server error\n");
    }
    answer.SetSuccess(SessionData(session));
    AnswerEnvelope(exchange, EnvelopeText(answer));
    SetCookie(exchange, cookie, false, secure);
  } else if (method == "logout") {
    // No token needed: the SameSite=Strict cookie keeps other sites from ending a session, and
    // a page that lost its token can still sign out.
    if (!FindSession(request, &session, &found, exchange)) return;
    if (found)
      sessions_->End(CookieValue(std::string(request[http::field::cookie]), kSessionCookie));
    answer.SetSuccess();
    AnswerEnvelope(exchange, EnvelopeText(answer));
    SetCookie(exchange, "", true, secure);
  } else if (method == "status") {
    if (!FindSession(request, &session, &found, exchange)) return;
    Json::Value data = found ? SessionData(session) : Json::Value(Json::objectValue);
    data["logged_in"] = found;
    data["timezone"] = TimeZoneName();
    data["utc_offset"] = static_cast<Json::Int64>(UtcOffsetSeconds());
    answer.SetSuccess(data);
    AnswerEnvelope(exchange, EnvelopeText(answer));
  } else {
    answer.SetError(kErrorUnknownMethod);
    AnswerEnvelope(exchange, EnvelopeText(answer));
  }
}
