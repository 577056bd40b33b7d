// The worker loop: one poll over the listening socket and the idle connections.
#include "server/http/worker.h"

#include <poll.h>
#include <sys/socket.h>
#include <time.h>

#include <algorithm>
#include <list>
#include <vector>

#include "server/http/connection.h"
#include "server/http/process_pool.h"

namespace {

// Idle connections one worker keeps at most; beyond, the longest idle is closed.
const size_t kMaxIdleConnections = 256;

int64_t NowMs() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

struct Idle {
  std::unique_ptr<Connection> connection;
  int64_t deadline;  // a fresh one must send by then; a kept-alive one is closed then
};

}  // namespace

int ServeAsWorker(int listenFd, const ServerConfig& config, Router* router) {
  boost::asio::io_context context(1);
  std::list<Idle> idle;  // oldest first
  auto serve = [&](std::list<Idle>::iterator it) {
    std::unique_ptr<Connection> connection = std::move(it->connection);
    idle.erase(it);
    if (connection->ServeOne(router)) {
      idle.push_back({std::move(connection), NowMs() + config.idleTimeoutMs});
    }
  };

  while (!WorkerShouldStop()) {
    // A request already read ahead (pipelined) is served before anything else.
    auto ahead = std::find_if(idle.begin(), idle.end(),
                              [](const Idle& i) { return i.connection->HasBufferedBytes(); });
    if (ahead != idle.end()) {
      serve(ahead);
      continue;
    }
    std::vector<pollfd> fds = {{listenFd, POLLIN, 0}};
    int64_t now = NowMs();
    int64_t wait = 60 * 1000;
    for (const Idle& i : idle) {
      fds.push_back({i.connection->fd(), POLLIN, 0});
      wait = std::min(wait, std::max<int64_t>(i.deadline - now, 0));
    }
    int ready = WaitForAny(fds.data(), fds.size(), wait);
    if (ready < 0) break;
    now = NowMs();
    // Serve one ready connection, the longest waiting; expire the ones past their deadline.
    // Entries served and kept go to the back of the list: only the polled ones are visited.
    size_t polled = idle.size();
    bool served = false;
    auto it = idle.begin();
    for (size_t index = 1; index <= polled; ++index) {
      auto next = std::next(it);
      if (!served && fds[index].revents != 0) {
        serve(it);
        served = true;
      } else if (fds[index].revents == 0 && it->deadline <= now) {
        if (it->connection->fresh()) it->connection->AnswerSilence();
        idle.erase(it);
      }
      it = next;
    }
    if (fds[0].revents != 0) {
      int fd = accept4(listenFd, nullptr, nullptr, SOCK_CLOEXEC);  // may lose to another worker
      std::unique_ptr<Connection> connection =
          fd >= 0 ? Connection::Adopt(&context, fd, config) : nullptr;
      if (connection) idle.push_back({std::move(connection), now + config.requestTimeoutMs});
      if (idle.size() > kMaxIdleConnections) idle.pop_front();
    }
  }
  return 0;
}
