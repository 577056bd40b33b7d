// Saved views of the log-center page, kept per user in the sessions database (table
// saved_views), and POST /webapi/views, through which the page lists, saves, renames and
// deletes its user's views. A view is the page's address fragment without page and entry
// ("log=system&level=err&from=-15m"), so a relative range stays relative.
#pragma once

#include <sqlite3.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "server/auth/session_store.h"
#include "server/http/exchange.h"
#include "server/http/form_fields.h"

// Limits that keep one user's views small.
const size_t kMaxViewNameBytes = 80;
const size_t kMaxViewBytes = 2000;
const int kMaxViewsPerUser = 100;

// One connection to the sessions database for the views of one request. Every operation that
// can fail returns false with the reason in LastError().
class SavedViews {
 public:
  bool Open(const std::string& path);
  // The user's views as (name, view), by name.
  bool List(const std::string& user, std::vector<std::pair<std::string, std::string>>* views);
  // Saves view under name, replacing a view of that name. *full when the user already has the
  // most views allowed and name is new.
  bool Save(const std::string& user, const std::string& name, const std::string& view, bool* full);
  // Renames; *done is false when no view has the old name or one has the new name.
  bool Rename(const std::string& user, const std::string& from, const std::string& to, bool* done);
  bool Delete(const std::string& user, const std::string& name);

  const std::string& LastError() const { return error_; }

 private:
  bool Fail(const char* what);

  struct Closer {
    void operator()(sqlite3* db) const { sqlite3_close(db); }
  };
  std::unique_ptr<sqlite3, Closer> db_;
  std::string error_;
};

// POST /webapi/views for the session of the request (its cookie and request token): method
// "list" {"views": [{"name", "view"}]}, "save" (name, view), "rename" (name, to), "delete"
// (name). Answers in the web API's envelope: 110 without a session, 112 with a wrong token,
// 120 {"name", "reason"} for a bad field, "exists" for a name taken, "limit" for too many.
void HandleSavedViews(const HttpRequest& request, const RequestFields& fields,
                      SessionStore* sessions, Exchange* exchange);
