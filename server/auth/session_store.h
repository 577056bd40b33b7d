// Sessions and failed-login lockout, kept in one SQLite database under the appliance root so
// that every worker process sees the same state and it survives a worker's death.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

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
  // Before a password is checked: in one step across workers, *allowed is false when the
  // account and address pair or the whole address is locked out, or its failures (checks still
  // under way included) reached the limit: maxFailures for the pair, maxAddressFailures for the
  // address. Otherwise the check is counted as a failure at once, so concurrent tries can never
  // check more passwords than the limit; ConfirmFailure or ClearFailures settle it. An empty
  // account counts against the address only. Expired failures and lockouts are deleted.
  bool BeginCheck(const std::string& account, const std::string& address, bool* allowed);
  // After a wrong password: locks the pair or the address out when its failures reached the
  // limit (*addressLocked, *pairLocked tell which lock began now), and their count starts
  // afresh.
  bool ConfirmFailure(const std::string& account, const std::string& address, bool* addressLocked,
                      bool* pairLocked);
  // A failed login without a check under way: BeginCheck and ConfirmFailure in one.
  bool RecordFailure(const std::string& account, const std::string& address);
  // After the right password: forgets the pair's failed logins and the check's reservation.
  bool ClearFailures(const std::string& account, const std::string& address);

  const std::string& LastError() const { return error_; }

 private:
  struct Counted {
    std::string subject;
    int limit;
    bool pair;  // the account and address pair, not the address alone
  };
  // What a failed login of account from address counts against, with its limit.
  std::vector<Counted> CountedSubjects(const std::string& account,
                                       const std::string& address) const;
  bool Exec(const char* sql);
  bool Fail(const char* what);

  sqlite3* db_ = nullptr;
  SessionLimits limits_;
  std::string error_;
};
