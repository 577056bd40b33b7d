// A download in a process of its own: forked from the worker for one call of a download method,
// it runs the method and streams the document (see chunked_output.h), then ends. The worker
// goes back to its other connections at once.
#pragma once

#include <functional>
#include <vector>

#include "server/http/exchange.h"
#include "server/http/server_config.h"

// Forks the download process, which keeps only the client socket and slotFds (the download
// slots' locks), runs call(exchange, releaseSlots) to stream the answer or fill it, writes the
// answer when the call left one in exchange, logs its access line and ends. releaseSlots
// closes the slots' locks: the call runs it before its document's last bytes go out (it runs
// anyway before an answer left in exchange is sent). In the worker: true once the process runs
// (exchange->handedOff set); false when fork failed.
bool StartDownloadProcess(
    const ServerConfig& config, const std::vector<int>& slotFds, Exchange* exchange,
    const std::function<void(Exchange*, const std::function<void()>& releaseSlots)>& call);
