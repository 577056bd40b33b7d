// Sessions and failed-login lockout, kept in one SQLite database under the appliance root so
// that every worker process sees the same state and it survives a worker's death.
#pragma once

#include <stdint.h>

#include <string>

#include "server/auth/session_limits.h"

struct sqlite3;

struct Session {
  std::string user;
  std::string lang;
  bool admin = false;
  std::string token;  // the request token every call of the session must carry
};

// The sessions database of the current appliance root.
std::string SessionsDatabasePath();

// One process's connection to the sessions database. Not shared across fork(): every worker
// opens its own. Every operation that can fail returns false; the error text is in LastError().
class SessionStore {
 public:
  SessionStore() = default;
  ~SessionStore();
  SessionStore(const SessionStore&) = delete;
  SessionStore& operator=(const SessionStore&) = delete;

  // Opens (creating when missing) the database at path and its tables.
  bool Open(const std::string& path, const SessionLimits& limits);

  // Starts a session: fills *cookie with a fresh random session key (256 bits, hex) and
  // session->token with a fresh request token. Only a hash of the key is stored.
  bool Create(Session* session, std::string* cookie);
  // Finds the live session of cookie and marks it used now. *found is false for an unknown,
  // ended or expired key (an expired one is deleted).
  bool Touch(const std::string& cookie, Session* session, bool* found);
  // Ends the session of cookie, if any.
  bool End(const std::string& cookie);

  // True in *locked when the account is locked out from the address, or the whole address is.
  bool IsLockedOut(const std::string& account, const std::string& address, bool* locked);
  // Counts a failed login against the account and address pair and against the address: the
  // pair is locked out at maxFailures within the window, the address (for every account) at
  // maxAddressFailures. An empty account counts against the address only. Expired failures
  // and lockouts are deleted on the way.
  bool RecordFailure(const std::string& account, const std::string& address);
  // Forgets the pair's failed logins after a successful one.
  bool ClearFailures(const std::string& account, const std::string& address);

  const std::string& LastError() const { return error_; }

 private:
  bool Exec(const char* sql);
  bool Fail(const char* what);

  sqlite3* db_ = nullptr;
  SessionLimits limits_;
  std::string error_;
};
