// The sub-commands of quor-webapi. Each takes the arguments after its name and returns the
// process exit status.
#pragma once

#include <string>
#include <vector>

using Args = std::vector<std::string>;

// Exit statuses shared by the sub-commands.
enum ExitStatus { kExitOk = 0, kExitErrorAnswer = 1, kExitUsage = 2 };

int CallCommand(const Args& args);
int ServeCommand(const Args& args);
int AddUserCommand(const Args& args);

// The usage text of every sub-command.
extern const char kUsage[];
// Reports a usage error of command ("call", "serve", ...) with the usage text; kExitUsage.
int UsageError(const char* command, const std::string& message);

// Makes dir the appliance root of this process (QUOR_ROOT), as the platform reads it.
void UseRoot(const std::string& dir);
