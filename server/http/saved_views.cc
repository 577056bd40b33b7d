// The saved views table of the sessions database.
#include "server/http/saved_views.h"

namespace {

const char kSchema[] =
    "CREATE TABLE IF NOT EXISTS saved_views (user TEXT NOT NULL, name TEXT NOT NULL,"
    " view TEXT NOT NULL, PRIMARY KEY (user, name));";

// One prepared statement, finalized on every path.
class Query {
 public:
  Query(sqlite3* db, const char* sql) { sqlite3_prepare_v2(db, sql, -1, &stmt_, nullptr); }
  ~Query() { sqlite3_finalize(stmt_); }
  Query(const Query&) = delete;
  Query& operator=(const Query&) = delete;

  bool ok() const { return stmt_ != nullptr; }
  Query& Text(int index, const std::string& text) {
    sqlite3_bind_text(stmt_, index, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
    return *this;
  }
  Query& Int(int index, int value) {
    sqlite3_bind_int(stmt_, index, value);
    return *this;
  }
  int Step() { return sqlite3_step(stmt_); }
  std::string Column(int column) const {
    const unsigned char* text = sqlite3_column_text(stmt_, column);
    return text != nullptr ? reinterpret_cast<const char*>(text) : "";
  }

 private:
  sqlite3_stmt* stmt_ = nullptr;
};

}  // namespace

bool SavedViews::Fail(const char* what) {
  error_ = std::string("saved views: ") + what + ": " +
           (db_ != nullptr ? sqlite3_errmsg(db_.get()) : "no database");
  return false;
}

bool SavedViews::Open(const std::string& path) {
  // The sessions store made the file (0600) and its folder when the server started.
  sqlite3* db = nullptr;
  int rc = sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr);
  db_.reset(db);
  if (rc != SQLITE_OK) return Fail("cannot open the sessions database");
  sqlite3_busy_timeout(db, 5000);
  if (sqlite3_exec(db, kSchema, nullptr, nullptr, nullptr) != SQLITE_OK) return Fail("schema");
  return true;
}

bool SavedViews::List(const std::string& user,
                      std::vector<std::pair<std::string, std::string>>* views) {
  Query select(db_.get(), "SELECT name, view FROM saved_views WHERE user = ? ORDER BY name");
  if (!select.ok()) return Fail("list");
  select.Text(1, user);
  int rc;
  while ((rc = select.Step()) == SQLITE_ROW)
    views->emplace_back(select.Column(0), select.Column(1));
  return rc == SQLITE_DONE || Fail("list");
}

bool SavedViews::Save(const std::string& user, const std::string& name, const std::string& view,
                      bool* full) {
  // The count and the insert are one statement, so concurrent saves cannot pass the limit.
  Query insert(db_.get(),
               "INSERT INTO saved_views (user, name, view) SELECT ?1, ?2, ?3"
               " WHERE (SELECT count(*) FROM saved_views WHERE user = ?1) < ?4"
               " OR EXISTS (SELECT 1 FROM saved_views WHERE user = ?1 AND name = ?2)"
               " ON CONFLICT (user, name) DO UPDATE SET view = excluded.view");
  if (!insert.ok()) return Fail("save");
  insert.Text(1, user).Text(2, name).Text(3, view).Int(4, kMaxViewsPerUser);
  if (insert.Step() != SQLITE_DONE) return Fail("save");
  *full = sqlite3_changes(db_.get()) == 0;
  return true;
}

bool SavedViews::Rename(const std::string& user, const std::string& from, const std::string& to,
                        bool* done) {
  Query update(db_.get(),
               "UPDATE OR IGNORE saved_views SET name = ?3 WHERE user = ?1 AND name = ?2");
  if (!update.ok()) return Fail("rename");
  update.Text(1, user).Text(2, from).Text(3, to);
  if (update.Step() != SQLITE_DONE) return Fail("rename");
  *done = sqlite3_changes(db_.get()) == 1;
  return true;
}

bool SavedViews::Delete(const std::string& user, const std::string& name) {
  Query remove(db_.get(), "DELETE FROM saved_views WHERE user = ? AND name = ?");
  if (!remove.ok()) return Fail("delete");
  remove.Text(1, user).Text(2, name);
  return remove.Step() == SQLITE_DONE || Fail("delete");
}
