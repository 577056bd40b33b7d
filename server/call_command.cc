// quor-webapi call: loads the modules as the server does and runs one call, printing the
// answer envelope (or the method's own output) on standard output.
#include <stdio.h>

#include "server/commands.h"
#include "server/dispatch/dispatch.h"
#include "server/error_report.h"
#include "server/module_log_output.h"

namespace {

int Usage(const std::string& message) { return UsageError("call", message); }

}  // namespace

int CallCommand(const Args& args) {
  std::string modules = QUOR_DEFAULT_MODULE_DIR;
  std::string user = "admin";
  std::string lang = "en";
  bool logToStderr = false;
  Args positional;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    if (arg == "--log-stderr") {
      logToStderr = true;
      continue;
    }
    bool takesValue = arg == "--root" || arg == "--modules" || arg == "--user" || arg == "--lang";
    if (takesValue) {
      if (i + 1 >= args.size()) return Usage(arg + " needs a value");
      const std::string& value = args[++i];
      if (arg == "--root") UseRoot(value);
      if (arg == "--modules") modules = value;
      if (arg == "--user") user = value;
      if (arg == "--lang") lang = value;
    } else if (positional.size() < 3 && arg.size() > 2 && arg.compare(0, 2, "--") == 0) {
      return Usage("unknown option " + arg);
    } else {
      positional.push_back(arg);
    }
  }
  if (positional.size() < 3) return Usage("API, VERSION and METHOD are required");
  int version = 0;
  if (!ParseApiVersion(positional[1], &version)) {
    return Usage("VERSION must be an integer, not '" + positional[1] + "'");
  }
  Json::Value params(Json::objectValue);
  for (size_t i = 3; i < positional.size(); ++i) {
    size_t equals = positional[i].find('=');
    if (equals == std::string::npos || equals == 0) {
      return Usage("parameter '" + positional[i] + "' is not NAME=VALUE");
    }
    params[positional[i].substr(0, equals)] = DecodeParamValue(positional[i].substr(equals + 1));
  }

  RouteModuleLog(logToStderr);
  ModuleRegistry registry;
  std::string error;
  if (!registry.LoadDirectory(modules, &error)) {
    ReportError("call: %s", error.c_str());
    return kExitUsage;
  }
  QUOR::APIRequest request(params, user, lang);
  QUOR::APIResponse response;
  fflush(stdout);
  DispatchCall(registry, positional[0], version, positional[2], &request, &response);
  if (response.IsOutputEnabled()) printf("%s\n", EnvelopeText(response).c_str());
  fflush(stdout);
  if (!response.IsOutputEnabled()) return kExitOk;
  return response.IsSuccess() ? kExitOk : kExitErrorAnswer;
}
