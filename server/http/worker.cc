// The worker loop: one poll over the listening socket and every connection the worker holds.
// Connections are read as bytes arrive; a method runs only for a complete request.
#include "server/http/worker.h"

#include <errno.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include <algorithm>
#include <list>
#include <vector>

#include "server/http/connection.h"
#include "server/http/monotonic_clock.h"
#include "server/http/process_pool.h"

namespace {

// Connections one worker holds at most; beyond, the one that has waited longest is closed.
const size_t kMaxConnections = 1024;
// Connections taken from the listening socket per turn, so that one worker does not take a
// whole burst while another is free.
const int kAcceptsPerTurn = 8;

// Download processes are this worker's children: collect the ended ones.
void ReapDownloads() {
  while (waitpid(-1, nullptr, WNOHANG) > 0) {
  }
}

}  // namespace

int ServeAsWorker(int listenFd, const ServerConfig& config, Router* router) {
  std::list<std::unique_ptr<Connection>> connections;  // oldest first

  // Asked to stop, a worker takes no new connection and closes the idle ones, but finishes
  // the requests it has begun to read or answer (within their deadlines) before it ends.
  bool stopping = false;
  for (;;) {
    if (!stopping && WorkerShouldStop()) {
      stopping = true;
      connections.remove_if([](const std::unique_ptr<Connection>& c) { return !c->Busy(); });
    }
    if (stopping && connections.empty()) break;
    ReapDownloads();
    std::vector<pollfd> fds = {{stopping ? -1 : listenFd, POLLIN, 0}};
    int64_t now = MonotonicMs();
    int64_t wait = 1000;  // downloads are reaped at least this often
    for (const auto& c : connections) {
      short events = c->PollEvents();
      // A connection that waits only on its timer is not polled: a client that hung up
      // would make poll return at once, again and again.
      fds.push_back({events != 0 ? c->fd() : -1, events, 0});
      wait = std::min(wait, std::max<int64_t>(c->deadline() - now, 0));
    }
    if (stopping) {
      if (poll(fds.data(), fds.size(), static_cast<int>(wait)) < 0 && errno != EINTR) break;
    } else if (WaitForAny(fds.data(), fds.size(), wait) < 0) {
      if (WorkerShouldStop()) continue;  // drain, above
      break;
    }
    // Each ready connection (or one whose deadline passed) is advanced; the clock is read
    // afresh for each, since serving one may take long.
    size_t polled = connections.size();
    auto it = connections.begin();
    for (size_t index = 1; index <= polled && it != connections.end(); ++index) {
      Connection* connection = it->get();
      bool keep = true;
      if (fds[index].revents != 0 || connection->deadline() <= MonotonicMs()) {
        keep = connection->Advance(router, MonotonicMs());
      }
      it = keep ? std::next(it) : connections.erase(it);
    }
    if (!stopping && fds[0].revents != 0) {
      for (int i = 0; i < kAcceptsPerTurn; ++i) {
        int fd = accept4(listenFd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        if (fd < 0) break;  // none left, or another worker took it
        // The connection's deadlines start now, when it is taken.
        connections.push_back(std::make_unique<Connection>(fd, config, MonotonicMs()));
        if (!connections.back()->Advance(router, MonotonicMs())) connections.pop_back();
        if (connections.size() > kMaxConnections) connections.pop_front();
      }
    }
  }
  return 0;
}
