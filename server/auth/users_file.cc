// The users file with Argon2id password hashes (libsodium).
#include "server/auth/users_file.h"

#include <sodium.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

#include "platform/root.h"

namespace {

bool SodiumReady() {
  static const bool ready = sodium_init() >= 0;
  return ready;
}

std::vector<std::string> SplitFields(const std::string& line) {
  std::vector<std::string> fields;
  std::string field;
  std::istringstream in(line);
  while (std::getline(in, field, ':')) fields.push_back(field);
  return fields;
}

bool ParseLine(const std::string& line, UserRecord* user) {
  std::vector<std::string> fields = SplitFields(line);
  if (fields.size() != 4 || !IsValidUserName(fields[0])) return false;
  if (fields[2] != "admin" && fields[2] != "user") return false;
  user->name = fields[0];
  user->hash = fields[1];
  user->admin = fields[2] == "admin";
  user->lang = fields[3];
  return true;
}

std::string FormatLine(const UserRecord& user) {
  return user.name + ":" + user.hash + ":" + (user.admin ? "admin" : "user") + ":" + user.lang;
}

}  // namespace

std::string UsersFilePath() { return QuorResolvePath("/etc/quor-webapi/users"); }

bool IsValidUserName(const std::string& name) {
  if (name.empty() || name.size() > 64) return false;
  for (char c : name) {
    bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
              c == '.' || c == '_' || c == '-';
    if (!ok) return false;
  }
  return true;
}

bool IsSupportedLanguage(const std::string& lang) { return lang == "en" || lang == "de"; }

bool FindUser(const std::string& path, const std::string& name, UserRecord* user) {
  std::ifstream in(path);
  std::string line;
  while (std::getline(in, line)) {
    UserRecord candidate;
    if (ParseLine(line, &candidate) && candidate.name == name) {
      *user = candidate;
      return true;
    }
  }
  return false;
}

bool StoreUser(const std::string& path, const std::string& name, const std::string& password,
               bool admin, const std::string& lang, bool* replaced, std::string* error) {
  if (!SodiumReady()) {
    *error = "libsodium cannot be initialised";
    return false;
  }
  char hash[crypto_pwhash_STRBYTES];
  if (crypto_pwhash_str(hash, password.data(), password.size(), crypto_pwhash_OPSLIMIT_INTERACTIVE,
                        crypto_pwhash_MEMLIMIT_INTERACTIVE) != 0) {
    *error = "out of memory while hashing the password";
    return false;
  }
  UserRecord user{name, hash, admin, lang};

  std::vector<std::string> lines;
  *replaced = false;
  std::ifstream in(path);
  std::string line;
  while (std::getline(in, line)) {
    UserRecord existing;
    if (ParseLine(line, &existing) && existing.name == name) {
      line = FormatLine(user);
      *replaced = true;
    }
    lines.push_back(line);
  }
  if (!*replaced) lines.push_back(FormatLine(user));

  std::error_code failed;
  std::filesystem::create_directories(std::filesystem::path(path).parent_path(), failed);
  if (failed) {
    *error = "cannot create the directory of " + path + ": " + failed.message();
    return false;
  }
  std::string temp = path + ".tmp";
  FILE* out = fopen(temp.c_str(), "w");
  if (out == nullptr) {
    *error = "cannot write " + temp;
    return false;
  }
  fchmod(fileno(out), 0600);
  for (const std::string& kept : lines) fprintf(out, "%s\n", kept.c_str());
  bool written = fflush(out) == 0 && fsync(fileno(out)) == 0;
  written = fclose(out) == 0 && written;
  if (!written || rename(temp.c_str(), path.c_str()) != 0) {
    unlink(temp.c_str());
    *error = "cannot write " + path;
    return false;
  }
  return true;
}

namespace {

// A hash of a random password, made once per process, that unknown accounts are checked
// against.
const std::string& DummyHash() {
  static const std::string dummy = [] {
    unsigned char secret[16];
    randombytes_buf(secret, sizeof secret);
    char hash[crypto_pwhash_STRBYTES] = "";
    if (crypto_pwhash_str(hash, reinterpret_cast<const char*>(secret), sizeof secret,
                          crypto_pwhash_OPSLIMIT_INTERACTIVE,
                          crypto_pwhash_MEMLIMIT_INTERACTIVE) != 0) {
      return std::string();  // verification against it then fails at once
    }
    return std::string(hash);
  }();
  return dummy;
}

}  // namespace

bool VerifyPassword(const UserRecord* user, const std::string& password) {
  if (!SodiumReady()) return false;
  const std::string& hash = user != nullptr ? user->hash : DummyHash();
  bool match = crypto_pwhash_str_verify(hash.c_str(), password.data(), password.size()) == 0;
  return user != nullptr && match;
}
