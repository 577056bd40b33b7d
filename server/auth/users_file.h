// The users file: one line per user, "name:argon2id-hash:role:lang", role "admin" or "user".
// The password hashes are libsodium's Argon2id strings, which hold no ':'.
#pragma once

#include <string>

struct UserRecord {
  std::string name;
  std::string hash;  // crypto_pwhash_str form
  bool admin = false;
  std::string lang;  // interface language, "en" or "de"
};

// The users file of the current appliance root.
std::string UsersFilePath();

// True for names of 1 to 64 characters from letters, digits, '.', '_' and '-'.
bool IsValidUserName(const std::string& name);
// True for the interface languages the texts exist for: "en" and "de".
bool IsSupportedLanguage(const std::string& lang);

// Finds name in the users file at path. False when the file or the user does not exist, or the
// user's line is malformed.
bool FindUser(const std::string& path, const std::string& name, UserRecord* user);

// Adds the user, or replaces the password, role and language of an existing one, with a fresh
// Argon2id hash of password. The file is rewritten whole through a temporary file and a rename
// (mode 0600), so a reader never sees it half written. False with *error on failure; the old
// file is then unchanged. *replaced tells whether the user existed.
bool StoreUser(const std::string& path, const std::string& name, const std::string& password,
               bool admin, const std::string& lang, bool* replaced, std::string* error);

// True when password matches the user's hash. With a null user it checks against a fixed
// dummy hash and returns false, so that unknown accounts take as long as known ones.
bool VerifyPassword(const UserRecord* user, const std::string& password);
