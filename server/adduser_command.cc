// quor-webapi adduser: adds a user to the users file, or replaces an existing user's password,
// role and language. The password comes from standard input (its first line).
#include <stdio.h>
#include <termios.h>
#include <unistd.h>

#include <iostream>

#include "server/auth/users_file.h"
#include "server/commands.h"
#include "server/error_report.h"

namespace {

int Usage(const std::string& message) { return UsageError("adduser", message); }

// Reads one line from standard input; on a terminal, without echo and after a prompt.
bool ReadPassword(std::string* password) {
  termios saved;
  bool terminal = isatty(0) && tcgetattr(0, &saved) == 0;
  if (terminal) {
    termios quiet = saved;
    quiet.c_lflag &= ~ECHO;
    tcsetattr(0, TCSANOW, &quiet);
    fputs("Password: ", stderr);
  }
  bool read = static_cast<bool>(std::getline(std::cin, *password));
  if (terminal) {
    tcsetattr(0, TCSANOW, &saved);
    fputs("\n", stderr);
  }
  if (!password->empty() && password->back() == '\r') password->pop_back();
  return read;
}

}  // namespace

int AddUserCommand(const Args& args) {
  std::string root, name, lang = "en";
  bool admin = false;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    if (arg == "--root" || arg == "--lang") {
      if (i + 1 >= args.size()) return Usage(arg + " needs a value");
      (arg == "--root" ? root : lang) = args[++i];
    } else if (arg == "--admin") {
      admin = true;
    } else if (arg.compare(0, 2, "--") == 0 || !name.empty()) {
      return Usage("unexpected argument " + arg);
    } else {
      name = arg;
    }
  }
  if (root.empty()) return Usage("--root is required");
  if (!IsValidUserName(name)) {
    return Usage("NAME must be 1 to 64 letters, digits, '.', '_' or '-'");
  }
  if (!IsSupportedLanguage(lang)) return Usage("--lang must be en or de");
  UseRoot(root);

  std::string password;
  if (!ReadPassword(&password) || password.empty()) {
    fputs("quor-webapi adduser: no password on standard input\n", stderr);
    return kExitUsage;
  }
  bool replaced = false;
  std::string error;
  if (!StoreUser(UsersFilePath(), name, password, admin, lang, &replaced, &error)) {
    ReportError("adduser: %s", error.c_str());
    return kExitErrorAnswer;
  }
  ReportError("adduser: %s %s%s", replaced ? "updated" : "added", name.c_str(),
              admin ? " (administrator)" : "");
  return kExitOk;
}
