// Sessions and lockout in SQLite: the server's only use of SQLite, and its errors turned into
// texts in one place (Fail).
#include "server/auth/session_store.h"

#include <fcntl.h>
#include <sodium.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <vector>

#include "platform/root.h"

namespace {

int64_t NowMs() {
  timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

std::string RandomHex(size_t bytes) {
  unsigned char buffer[64];
  randombytes_buf(buffer, bytes);
  char hex[129];
  sodium_bin2hex(hex, sizeof hex, buffer, bytes);
  return hex;
}

// The stored form of a session key: a leaked database does not give live cookies.
std::string KeyHash(const std::string& cookie) {
  unsigned char digest[32];
  crypto_generichash(digest, sizeof digest, reinterpret_cast<const unsigned char*>(cookie.data()),
                     cookie.size(), nullptr, 0);
  char hex[65];
  sodium_bin2hex(hex, sizeof hex, digest, sizeof digest);
  return hex;
}

// A prepared statement finalized when it leaves scope.
class Statement {
 public:
  Statement(sqlite3* db, const char* sql) {
    if (sqlite3_prepare_v2(db, sql, -1, &stmt_, nullptr) != SQLITE_OK) stmt_ = nullptr;
  }
  ~Statement() { sqlite3_finalize(stmt_); }
  bool ok() const { return stmt_ != nullptr; }
  Statement& Bind(int index, const std::string& text) {
    sqlite3_bind_text(stmt_, index, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
    return *this;
  }
  Statement& Bind(int index, int64_t value) {
    sqlite3_bind_int64(stmt_, index, value);
    return *this;
  }
  int Step() { return sqlite3_step(stmt_); }
  std::string Text(int column) const {
    const unsigned char* text = sqlite3_column_text(stmt_, column);
    return text != nullptr ? reinterpret_cast<const char*>(text) : "";
  }
  int64_t Int(int column) const { return sqlite3_column_int64(stmt_, column); }

 private:
  sqlite3_stmt* stmt_ = nullptr;
};

const char kSchema[] =
    "PRAGMA journal_mode=WAL;"
    // Sessions need not survive a power cut; a sync per request would cost more than the call.
    "PRAGMA synchronous=NORMAL;"
    "CREATE TABLE IF NOT EXISTS sessions (key_hash TEXT PRIMARY KEY, token TEXT NOT NULL,"
    " user TEXT NOT NULL, lang TEXT NOT NULL, admin INTEGER NOT NULL, last_used INTEGER NOT NULL);"
    "CREATE TABLE IF NOT EXISTS login_failures (subject TEXT NOT NULL, at INTEGER NOT NULL);"
    "CREATE INDEX IF NOT EXISTS login_failures_subject ON login_failures (subject, at);"
    "CREATE TABLE IF NOT EXISTS lockouts (subject TEXT PRIMARY KEY, until INTEGER NOT NULL);";

std::string PairSubject(const std::string& account, const std::string& address) {
  return "pair:" + address + "\n" + account;
}
std::string AddressSubject(const std::string& address) { return "address:" + address; }

}  // namespace

std::string SessionsDatabasePath() { return QuorResolvePath("/var/lib/quor-webapi/sessions.db"); }

SessionStore::~SessionStore() { sqlite3_close(db_); }

bool SessionStore::Fail(const char* what) {
  error_ = std::string(what) + ": " + (db_ != nullptr ? sqlite3_errmsg(db_) : "no database");
  return false;
}

bool SessionStore::Exec(const char* sql) {
  char* message = nullptr;
  if (sqlite3_exec(db_, sql, nullptr, nullptr, &message) == SQLITE_OK) return true;
  error_ = std::string("sessions database: ") + (message != nullptr ? message : "error");
  sqlite3_free(message);
  return false;
}

bool SessionStore::Open(const std::string& path, const SessionLimits& limits) {
  if (sodium_init() < 0) {
    error_ = "libsodium cannot be initialised";
    return false;
  }
  limits_ = limits;
  // The database holds live session keys' hashes and request tokens: the folder is the
  // server's alone (0700) and the file 0600, which SQLite gives its journal files too.
  std::string folder = std::filesystem::path(path).parent_path();
  std::error_code failed;
  std::filesystem::create_directories(folder, failed);
  if (failed || chmod(folder.c_str(), 0700) != 0) {
    error_ = "cannot create the directory of " + path;
    return false;
  }
  int fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (fd < 0 || fchmod(fd, 0600) != 0) {
    if (fd >= 0) close(fd);
    error_ = "cannot create " + path;
    return false;
  }
  close(fd);
  for (const char* journal : {"-wal", "-shm", "-journal"}) chmod((path + journal).c_str(), 0600);
  if (sqlite3_open(path.c_str(), &db_) != SQLITE_OK) return Fail(("cannot open " + path).c_str());
  sqlite3_busy_timeout(db_, 5000);
  return Exec(kSchema);
}

bool SessionStore::Create(Session* session, std::string* cookie) {
  *cookie = RandomHex(32);
  session->token = RandomHex(16);
  Statement insert(db_,
                   "INSERT INTO sessions (key_hash, token, user, lang, admin, last_used)"
                   " VALUES (?, ?, ?, ?, ?, ?)");
  if (!insert.ok()) return Fail("sessions database");
  insert.Bind(1, KeyHash(*cookie)).Bind(2, session->token).Bind(3, session->user);
  insert.Bind(4, session->lang).Bind(5, int64_t{session->admin ? 1 : 0}).Bind(6, NowMs());
  return insert.Step() == SQLITE_DONE || Fail("cannot store the session");
}

bool SessionStore::Touch(const std::string& cookie, Session* session, bool* found) {
  *found = false;
  if (cookie.empty()) return true;
  std::string key = KeyHash(cookie);
  int64_t now = NowMs();
  int64_t lastUsed = 0;
  {
    // The read ends before any write below: a write from inside a read transaction cannot wait
    // for another worker's commit in WAL mode and would fail with "database is locked".
    Statement select(db_,
                     "SELECT token, user, lang, admin, last_used FROM sessions WHERE key_hash = ?");
    if (!select.ok()) return Fail("sessions database");
    select.Bind(1, key);
    int rc = select.Step();
    if (rc == SQLITE_DONE) return true;
    if (rc != SQLITE_ROW) return Fail("cannot read the session");
    session->token = select.Text(0);
    session->user = select.Text(1);
    session->lang = select.Text(2);
    session->admin = select.Int(3) != 0;
    lastUsed = select.Int(4);
  }
  if (now - lastUsed > limits_.idleMs) {
    *session = Session();
    return End(cookie);
  }
  *found = true;
  // Refreshing the use time is a write; a slightly older time changes nothing that matters.
  if (now - lastUsed < std::min<int64_t>(limits_.idleMs / 20, 5000)) return true;
  Statement update(db_, "UPDATE sessions SET last_used = ? WHERE key_hash = ?");
  if (!update.ok()) return Fail("sessions database");
  update.Bind(1, now).Bind(2, key);
  return update.Step() == SQLITE_DONE || Fail("cannot update the session");
}

bool SessionStore::End(const std::string& cookie) {
  Statement remove(db_, "DELETE FROM sessions WHERE key_hash = ? OR last_used < ?");
  if (!remove.ok()) return Fail("sessions database");
  remove.Bind(1, KeyHash(cookie)).Bind(2, NowMs() - limits_.idleMs);
  return remove.Step() == SQLITE_DONE || Fail("cannot end the session");
}

bool SessionStore::IsLockedOut(const std::string& account, const std::string& address,
                               bool* locked) {
  Statement select(db_, "SELECT 1 FROM lockouts WHERE subject IN (?, ?) AND until > ?");
  if (!select.ok()) return Fail("sessions database");
  select.Bind(1, PairSubject(account, address)).Bind(2, AddressSubject(address)).Bind(3, NowMs());
  int rc = select.Step();
  *locked = rc == SQLITE_ROW;
  return rc == SQLITE_ROW || rc == SQLITE_DONE || Fail("cannot read the lockouts");
}

std::vector<SessionStore::Counted> SessionStore::CountedSubjects(const std::string& account,
                                                                 const std::string& address) const {
  std::vector<Counted> counted = {{AddressSubject(address), limits_.maxAddressFailures, false}};
  if (!account.empty()) {
    counted.push_back({PairSubject(account, address), limits_.maxFailures, true});
  }
  return counted;
}

bool SessionStore::BeginCheck(const std::string& account, const std::string& address,
                              bool* allowed) {
  *allowed = false;
  int64_t now = NowMs();
  // One writer at a time across workers: the look at the counts and the reservation are one
  // step, so concurrent tries cannot all see room under the limit.
  if (!Exec("BEGIN IMMEDIATE")) return false;
  bool ok = true;
  {
    Statement prune(db_, "DELETE FROM login_failures WHERE at <= ?");
    ok = prune.ok() && prune.Bind(1, now - limits_.failureWindowMs).Step() == SQLITE_DONE;
    Statement expired(db_, "DELETE FROM lockouts WHERE until <= ?");
    ok = ok && expired.ok() && expired.Bind(1, now).Step() == SQLITE_DONE;
  }
  bool room = true;
  for (const Counted& c : CountedSubjects(account, address)) {
    if (!ok) break;
    Statement locked(db_, "SELECT 1 FROM lockouts WHERE subject = ?");
    Statement count(db_, "SELECT count(*) FROM login_failures WHERE subject = ?");
    ok = locked.ok() && count.ok() && count.Bind(1, c.subject).Step() == SQLITE_ROW;
    int rc = ok ? locked.Bind(1, c.subject).Step() : SQLITE_ERROR;
    ok = ok && (rc == SQLITE_ROW || rc == SQLITE_DONE);
    room = room && rc == SQLITE_DONE && count.Int(0) < c.limit;
  }
  for (const Counted& c : CountedSubjects(account, address)) {
    if (!ok || !room) break;
    Statement insert(db_, "INSERT INTO login_failures (subject, at) VALUES (?, ?)");
    ok = insert.ok() && insert.Bind(1, c.subject).Bind(2, now).Step() == SQLITE_DONE;
  }
  if (!ok) {
    Fail("cannot count the login");
    Exec("ROLLBACK");
    return false;
  }
  *allowed = room;
  return Exec("COMMIT");
}

bool SessionStore::ConfirmFailure(const std::string& account, const std::string& address,
                                  bool* addressLocked, bool* pairLocked) {
  *addressLocked = *pairLocked = false;
  int64_t now = NowMs();
  if (!Exec("BEGIN IMMEDIATE")) return false;
  bool ok = true;
  for (const Counted& c : CountedSubjects(account, address)) {
    Statement count(db_, "SELECT count(*) FROM login_failures WHERE subject = ?");
    ok = count.ok() && count.Bind(1, c.subject).Step() == SQLITE_ROW;
    if (!ok) break;
    if (count.Int(0) < c.limit) continue;
    // Locked: the count starts afresh when the lockout ends.
    Statement lock(db_, "INSERT OR REPLACE INTO lockouts (subject, until) VALUES (?, ?)");
    ok =
        lock.ok() && lock.Bind(1, c.subject).Bind(2, now + limits_.lockoutMs).Step() == SQLITE_DONE;
    Statement reset(db_, "DELETE FROM login_failures WHERE subject = ?");
    ok = ok && reset.ok() && reset.Bind(1, c.subject).Step() == SQLITE_DONE;
    if (!ok) break;
    *(c.pair ? pairLocked : addressLocked) = true;
  }
  if (!ok) {
    Fail("cannot record the failed login");
    Exec("ROLLBACK");
    return false;
  }
  return Exec("COMMIT");
}

bool SessionStore::RecordFailure(const std::string& account, const std::string& address) {
  bool allowed = false, addressLocked, pairLocked;
  return BeginCheck(account, address, &allowed) &&
         ConfirmFailure(account, address, &addressLocked, &pairLocked);
}

bool SessionStore::ClearFailures(const std::string& account, const std::string& address) {
  // The pair's failures go, and the address's latest: the reservation of the right password.
  Statement remove(db_, "DELETE FROM login_failures WHERE subject = ?");
  Statement reserved(db_,
                     "DELETE FROM login_failures WHERE rowid = (SELECT max(rowid) FROM "
                     "login_failures WHERE subject = ?)");
  if (!remove.ok() || !reserved.ok()) return Fail("sessions database");
  return (remove.Bind(1, PairSubject(account, address)).Step() == SQLITE_DONE &&
          reserved.Bind(1, AddressSubject(address)).Step() == SQLITE_DONE) ||
         Fail("cannot clear the failed logins");
}
