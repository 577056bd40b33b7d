// quor-webapi serve: binds, loads the modules once, and serves HTTP from forked workers.
#include <malloc.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "server/auth/session_store.h"
#include "server/commands.h"
#include "server/dispatch/module_registry.h"
#include "server/error_report.h"
#include "server/http/listener.h"
#include "server/http/process_pool.h"
#include "server/http/router.h"
#include "server/http/worker.h"
#include "server/module_log_output.h"

namespace {

int Usage(const std::string& message) { return UsageError("serve", message); }

bool ParseCount(const std::string& text, long long minimum, long long* value) {
  char* end = nullptr;
  long long parsed = strtoll(text.c_str(), &end, 10);
  if (text.empty() || *end != '\0' || parsed < minimum) return false;
  *value = parsed;
  return true;
}

// Accepts connections on the shared listening socket until asked to stop. A worker keeps the
// heap its calls grew: giving it back after every call and faulting it in again on the next
// would cost more than the memory is worth.
int WorkerMain(int listenFd, const ServerConfig& config, const ModuleRegistry& registry) {
  mallopt(M_TRIM_THRESHOLD, 64 << 20);
  mallopt(M_MMAP_THRESHOLD, 16 << 20);
  SessionStore sessions;
  if (!sessions.Open(SessionsDatabasePath(), config.sessions)) {
    ReportError("%s", sessions.LastError().c_str());
    return 1;
  }
  Router router(config, registry, &sessions);
  return ServeAsWorker(listenFd, config, &router);
}

}  // namespace

int ServeCommand(const Args& args) {
  ServerConfig config;
  config.modulesDir = QUOR_DEFAULT_MODULE_DIR;
  config.uiDir = QUOR_DEFAULT_UI_DIR;
  std::string root;
  bool logToStderr = false;
  // Durations in milliseconds, not in the usage text: tests shorten them.
  struct Hidden {
    const char* name;
    int64_t* target;
  } hidden[] = {
      {"--request-timeout-ms", &config.requestTimeoutMs},
      {"--idle-timeout-ms", &config.idleTimeoutMs},
      {"--send-timeout-ms", &config.sendTimeoutMs},
      {"--download-stall-ms", &config.downloadStallMs},
      {"--method-idle-ms", &config.methodIdleMs},
      {"--grace-ms", &config.graceMs},
      {"--session-idle-ms", &config.sessions.idleMs},
      {"--lockout-ms", &config.sessions.lockoutMs},
      {"--failure-window-ms", &config.sessions.failureWindowMs},
  };
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    if (arg == "--trust-proxy" || arg == "--secure-cookie" || arg == "--log-stderr") {
      if (arg == "--trust-proxy") config.trustProxy = true;
      if (arg == "--secure-cookie") config.secureCookie = true;
      if (arg == "--log-stderr") logToStderr = true;
      continue;
    }
    if (i + 1 >= args.size()) return Usage("unexpected argument " + arg);
    const std::string& value = args[++i];
    long long number = 0;
    bool known = true;
    if (arg == "--root") {
      root = value;
    } else if (arg == "--listen") {
      config.listen = value;
    } else if (arg == "--modules") {
      config.modulesDir = value;
    } else if (arg == "--ui") {
      config.uiDir = value;
    } else if (arg == "--method-limit") {
      if (!ParseCount(value, 1, &number)) return Usage("--method-limit must be a positive number");
      config.methodLimitMs = number * 1000;
    } else if (arg == "--max-downloads") {
      if (!ParseCount(value, 1, &number) || number > 64) {
        return Usage("--max-downloads must be 1 to 64");
      }
      config.maxDownloads = static_cast<int>(number);
    } else if (arg == "--max-downloads-per-user") {
      if (!ParseCount(value, 1, &number) || number > 64) {
        return Usage("--max-downloads-per-user must be 1 to 64");
      }
      config.maxDownloadsPerUser = static_cast<int>(number);
    } else if (arg == "--host-name") {
      // A comma list, or the option repeated: the names behind which clients reach the server.
      for (size_t at = 0; at <= value.size();) {
        size_t comma = std::min(value.find(',', at), value.size());
        if (comma > at) config.hostNames.push_back(value.substr(at, comma - at));
        at = comma + 1;
      }
    } else if (arg == "--download-method") {
      if (value.find('.') == std::string::npos) return Usage("--download-method takes API.METHOD");
      config.downloadMethods.push_back(value);
    } else if (arg == "--workers") {
      if (!ParseCount(value, 1, &number) || number > 256)
        return Usage("--workers must be 1 to 256");
      config.workers = static_cast<int>(number);
    } else {
      known = false;
      for (const Hidden& option : hidden) {
        if (arg != option.name) continue;
        if (!ParseCount(value, 1, &number)) return Usage(arg + " must be a positive number");
        *option.target = number;
        known = true;
      }
    }
    if (!known) return Usage("unknown option " + arg);
  }
  if (root.empty()) return Usage("--root is required");
  struct stat info;
  if (stat(root.c_str(), &info) != 0 || !S_ISDIR(info.st_mode)) {
    return Usage("the root " + root + " is not a directory");
  }
  UseRoot(root);
  RouteModuleLog(logToStderr);
  if (config.workers == 0) {
    long cores = sysconf(_SC_NPROCESSORS_ONLN);
    config.workers = cores > 2 ? static_cast<int>(cores) : 2;
  }
  if (stat(config.uiDir.c_str(), &info) != 0) {
    ReportError("warning: no UI directory %s; only the web API is served", config.uiDir.c_str());
  }

  std::string bound, error;
  int listenFd = BindListener(config.listen, &bound, &error);
  if (listenFd < 0) {
    ReportError("%s", error.c_str());
    return kExitUsage;
  }
  ModuleRegistry registry;
  if (!registry.LoadDirectory(config.modulesDir, &error)) {
    ReportError("%s", error.c_str());
    return kExitUsage;
  }
  {
    // Created (or checked) once here, so a broken root fails at start, not per request.
    SessionStore sessions;
    if (!sessions.Open(SessionsDatabasePath(), config.sessions)) {
      ReportError("%s", sessions.LastError().c_str());
      return kExitUsage;
    }
  }
  printf("quor-webapi: serving http://%s/ with %d workers, %zu methods, root %s\n", bound.c_str(),
         config.workers, registry.MethodCount(), root.c_str());
  fflush(stdout);
  int status = RunProcessPool(config.workers, config.graceMs,
                              [&] { return WorkerMain(listenFd, config, registry); });
  close(listenFd);
  ReportError("stopped");
  return status;
}
