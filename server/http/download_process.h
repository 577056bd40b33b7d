// A download in a process of its own: forked from the worker for one call of a download method,
// it runs the method and streams the document (see chunked_output.h), then ends. The worker
// goes back to its other connections at once.
#pragma once

#include <functional>

#include "server/http/exchange.h"
#include "server/http/server_config.h"

// Forks the download process, which keeps only the client socket and slotFd (the download
// slot's lock, held while it lives), runs call(exchange) to stream the answer or fill it,
// writes the answer when the call left one in exchange, logs its access line and ends. In the
// worker: true once the process runs (exchange->handedOff set); false when fork failed.
bool StartDownloadProcess(const ServerConfig& config, int slotFd, Exchange* exchange,
                          const std::function<void(Exchange*)>& call);
