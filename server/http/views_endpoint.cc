// POST /webapi/views: the signed-in user's saved views of the page.
#include "server/dispatch/dispatch.h"
#include "server/error_report.h"
#include "server/http/router.h"
#include "server/http/saved_views.h"

namespace http = boost::beast::http;

namespace {

const int kErrorInvalidParameter = 120;

void Refuse(QUOR::APIResponse* answer, const char* name, const char* reason) {
  Json::Value detail(Json::objectValue);
  detail["name"] = name;
  detail["reason"] = reason;
  answer->SetError(kErrorInvalidParameter, detail);
}

// A name: 1 to kMaxViewNameBytes bytes, no control characters.
bool IsViewName(const std::string& name) {
  if (name.empty() || name.size() > kMaxViewNameBytes) return false;
  for (unsigned char c : name) {
    if (c < 0x20 || c == 0x7f) return false;
  }
  return true;
}

// Runs method for user; false when the database failed (reported, 500 to answer).
bool Run(const std::string& method, const std::string& user, const RequestFields& fields,
         QUOR::APIResponse* answer) {
  SavedViews views;
  if (!views.Open(SessionsDatabasePath())) {
    ReportError("%s", views.LastError().c_str());
    return false;
  }
  std::string name = fields.Raw("name");
  bool ok = true;
  if (method == "list") {
    std::vector<std::pair<std::string, std::string>> list;
    ok = views.List(user, &list);
    Json::Value items(Json::arrayValue);
    for (const auto& [viewName, view] : list) {
      Json::Value item(Json::objectValue);
      item["name"] = viewName;
      item["view"] = view;
      items.append(item);
    }
    Json::Value data(Json::objectValue);
    data["views"] = items;
    answer->SetSuccess(data);
  } else if (!IsViewName(name)) {
    Refuse(answer, "name", fields.Raw("name").empty() ? "required" : "condition");
  } else if (method == "save") {
    std::string view = fields.Raw("view");
    bool full = false;
    if (view.size() > kMaxViewBytes || view.find_first_of("\r\n") != std::string::npos) {
      Refuse(answer, "view", "condition");
    } else if ((ok = views.Save(user, name, view, &full)) && full) {
      Refuse(answer, "name", "limit");
    } else {
      answer->SetSuccess();
    }
  } else if (method == "rename") {
    std::string to = fields.Raw("to");
    bool done = false;
    if (!IsViewName(to)) {
      Refuse(answer, "to", to.empty() ? "required" : "condition");
    } else if ((ok = views.Rename(user, name, to, &done)) && !done) {
      Refuse(answer, "to", "exists");
    } else {
      answer->SetSuccess();
    }
  } else if (method == "delete") {
    ok = views.Delete(user, name);
    answer->SetSuccess();
  } else {
    answer->SetError(kErrorUnknownMethod);
  }
  if (!ok) ReportError("%s", views.LastError().c_str());
  return ok;
}

}  // namespace

void HandleSavedViews(const HttpRequest& request, const RequestFields& fields,
                      SessionStore* sessions, Exchange* exchange) {
  std::string method = fields.Raw("method");
  exchange->what = "views." + (method.empty() ? std::string("-") : method);
  Session session;
  bool found = false;
  std::string cookie = CookieValue(std::string(request[http::field::cookie]), kSessionCookie);
  if (!sessions->Touch(cookie, &session, &found)) {
    ReportError("%s", sessions->LastError().c_str());
    return AnswerText(exchange, 500, "Internal server error\n");
  }
  QUOR::APIResponse answer;
  if (!found) {
    answer.SetError(kErrorNotLoggedIn);
  } else if (!TokenMatches(RequestToken(request, fields), session.token)) {
    exchange->user = session.user;
    answer.SetError(kErrorBadToken);
  } else {
    exchange->user = session.user;
    if (!Run(method, session.user, fields, &answer)) {
      return AnswerText(exchange, 500, "Internal server error\n");
    }
  }
  AnswerEnvelope(exchange, EnvelopeText(answer));
}
