// A download in a process of its own.
#include "server/http/download_process.h"

#include <dirent.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <boost/beast/http/write.hpp>
#include <sstream>
#include <vector>

#include "server/http/client_writer.h"

#include "server/http/access_log.h"
#include "server/http/monotonic_clock.h"

namespace http = boost::beast::http;

namespace {

// The lowest priority: a download takes the CPU the workers leave, so a page change does not
// wait behind one.
constexpr int kDownloadNice = 19;

// The worker's other connections, its listening socket and its sessions database stay the
// worker's: the download process closes every descriptor but the standard streams and keep.
void CloseInheritedDescriptors(const std::vector<int>& keep) {
  DIR* dir = opendir("/proc/self/fd");
  if (dir == nullptr) return;
  int own = dirfd(dir);
  std::vector<int> inherited;
  while (dirent* entry = readdir(dir)) {
    if (entry->d_name[0] == '.') continue;
    int fd = atoi(entry->d_name);
    if (fd > 2 && fd != own && std::find(keep.begin(), keep.end(), fd) == keep.end()) {
      inherited.push_back(fd);
    }
  }
  closedir(dir);
  for (int fd : inherited) close(fd);
}

// Writes the answer the call left in exchange (an error envelope: the method did not stream).
int64_t WriteAnswer(const ServerConfig& config, Exchange* exchange) {
  HttpResponse& response = exchange->response;
  response.version(11);
  response.keep_alive(false);
  std::ostringstream text;
  text << response;
  std::string raw = text.str();
  ClientWriter(exchange->socketFd).SendAll(raw.data(), raw.size(), config.downloadStallMs);
  return static_cast<int64_t>(response.body().size());
}

}  // namespace

bool StartDownloadProcess(
    const ServerConfig& config, const std::vector<int>& slotFds, Exchange* exchange,
    const std::function<void(Exchange*, const std::function<void()>& releaseSlots)>& call) {
  int64_t start = MonotonicMs();
  fflush(nullptr);
  pid_t pid = fork();
  if (pid < 0) return false;
  if (pid > 0) {
    exchange->handedOff = true;
    return true;
  }
  // The download process: it ends with the server, and its stop is the server's to give. It
  // yields the processor to the workers: a long document may take a little longer, the calls
  // of the administrators waiting on a page may not.
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  setpriority(PRIO_PROCESS, 0, kDownloadNice);
  signal(SIGTERM, SIG_DFL);
  signal(SIGINT, SIG_DFL);
  signal(SIGALRM, SIG_DFL);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  std::vector<int> keep = slotFds;
  keep.push_back(exchange->socketFd);
  CloseInheritedDescriptors(keep);
  std::vector<int> slots = slotFds;
  auto releaseSlots = [&slots] {
    for (int fd : slots) close(fd);
    slots.clear();
  };
  int status = 0;
  try {
    call(exchange, releaseSlots);
    releaseSlots();
    int64_t bytes = exchange->streamed ? exchange->streamedBytes : WriteAnswer(config, exchange);
    int code = exchange->streamed ? 200 : exchange->response.result_int();
    WriteAccessLine(exchange->client, exchange->user, exchange->what, code, bytes,
                    static_cast<double>(MonotonicMs() - start));
  } catch (...) {
    status = 1;
  }
  shutdown(exchange->socketFd, SHUT_WR);
  close(exchange->socketFd);
  fflush(nullptr);
  _exit(status);
}
