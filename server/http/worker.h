// A worker process's loop: accepts connections and serves their requests one at a time.
#pragma once

#include "server/http/router.h"
#include "server/http/server_config.h"

// Serves connections accepted on the shared listening socket until the worker is asked to
// stop. Idle connections (kept alive, or opened and not yet sending) wait in the worker
// without holding it: whichever connection has a request is served next, so a browser's
// spare connections cannot starve the others. Returns the worker's exit status.
int ServeAsWorker(int listenFd, const ServerConfig& config, Router* router);
