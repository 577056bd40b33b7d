// POST /webapi/auth: login, logout and the session state of the page.
#include <stdio.h>

#include "platform/connection_log.h"
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

// What the connection log is told about the web server's sign-ins, in its usual phrasing.
enum SignInEvent { kSignedIn, kSignedOut, kFailed, kPairLocked, kAddressLocked };

void LogSignIn(SignInEvent event, const std::string& account, const std::string& address,
               const SessionLimits& limits) {
  struct Row {
    const char* level;
    const char* format;  // filled with the account and the address, or the address alone
  };
  static const Row kRows[] = {
      {"info", "User [%s] signed in from [%s] via [Web]."},
      {"info", "User [%s] signed out from [%s] via [Web]."},
      {"warning", "User [%s] failed to sign in from [%s]: wrong password."},
      {"err", "User [%s] was blocked from [%s] after %d failed sign-ins."},
      {"err", "IP address [%s] was blocked after %d failed sign-ins."},
  };
  const Row& row = kRows[event];
  char message[512];
  if (event == kAddressLocked) {
    snprintf(message, sizeof message, row.format, address.c_str(), limits.maxAddressFailures);
  } else {
    snprintf(message, sizeof message, row.format, account.c_str(), address.c_str(),
             limits.maxFailures);
  }
  // A row that cannot be written is reported by the platform; the sign-in goes on regardless.
  QuorConnectionLogAdd(row.level, account.c_str(), message);
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
    // A name this long is no account: it is counted against the address only, and not stored.
    bool tooLong = account.size() > kMaxAccountBytes;
    exchange->user = account.empty() || tooLong ? "-" : account;
    bool allowed = false;
    if (!sessions_->BeginCheck(tooLong ? "" : account, exchange->client, &allowed)) {
      ReportError("%s", sessions_->LastError().c_str());
      return AnswerText(exchange, 500, "Internal server error\n");
    }
    if (!allowed) {
      answer.SetError(kErrorLockedOut);
      return AnswerEnvelope(exchange, EnvelopeText(answer));
    }
    UserRecord user;
    bool known = !tooLong && IsValidUserName(account) && FindUser(UsersFilePath(), account, &user);
    if (tooLong || !VerifyPassword(known ? &user : nullptr, fields.Raw("passwd"))) {
      bool addressLocked = false, pairLocked = false;
      if (!sessions_->ConfirmFailure(tooLong ? "" : account, exchange->client, &addressLocked,
                                     &pairLocked)) {
        ReportError("%s", sessions_->LastError().c_str());
      }
      std::string shown = tooLong ? account.substr(0, kMaxAccountBytes) + "..." : account;
      LogSignIn(kFailed, shown, exchange->client, config_.sessions);
      if (pairLocked) LogSignIn(kPairLocked, shown, exchange->client, config_.sessions);
      if (addressLocked) LogSignIn(kAddressLocked, "", exchange->client, config_.sessions);
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
    LogSignIn(kSignedIn, session.user, exchange->client, config_.sessions);
  } else if (method == "logout") {
    // No token needed: the SameSite=Strict cookie keeps other sites from ending a session, and
    // a page that lost its token can still sign out.
    if (!FindSession(request, &session, &found, exchange)) return;
    if (found) {
      sessions_->End(CookieValue(std::string(request[http::field::cookie]), kSessionCookie));
      LogSignIn(kSignedOut, session.user, exchange->client, config_.sessions);
    }
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
