// Standard output handed to a method for the length of its call.
#include "server/http/output_handover.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/sockios.h>
#include <linux/tcp.h>
#include <netinet/in.h>
#include <stddef.h>
#include <stdio.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

const char kHead[] =
    "HTTP/1.1 200 OK\r\n"
    "Cache-Control: no-store\r\n"
    "X-Content-Type-Options: nosniff\r\n"
    "Connection: close\r\n";

// Bytes the socket has taken from this process so far: acknowledged plus still queued.
int64_t BytesWritten(int fd) {
  tcp_info info;
  socklen_t length = sizeof info;
  memset(&info, 0, sizeof info);
  int queued = 0;
  if (getsockopt(fd, IPPROTO_TCP, TCP_INFO, &info, &length) != 0 ||
      length < offsetof(tcp_info, tcpi_bytes_acked) + sizeof info.tcpi_bytes_acked ||
      ioctl(fd, SIOCOUTQ, &queued) != 0) {
    return -1;
  }
  return static_cast<int64_t>(info.tcpi_bytes_acked) + queued;
}

bool WriteAll(int fd, const char* data, size_t size) {
  while (size > 0) {
    ssize_t n = write(fd, data, size);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    data += n;
    size -= n;
  }
  return true;
}

}  // namespace

void OutputHandover::Hook(void* context) {
  auto* self = static_cast<OutputHandover*>(context);
  if (self->started_) return;
  int fd = self->socketFd_;
  int flags = fcntl(fd, F_GETFL);
  if (flags >= 0) fcntl(fd, F_SETFL, flags & ~O_NONBLOCK);
  timeval timeout = {static_cast<time_t>(self->sendTimeoutMs_ / 1000),
                     static_cast<suseconds_t>(self->sendTimeoutMs_ % 1000) * 1000};
  setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout);
  self->bytesBefore_ = BytesWritten(fd);
  fflush(stdout);
  WriteAll(fd, kHead, sizeof kHead - 1);
  self->savedStdout_ = dup(1);
  dup2(fd, 1);
  self->started_ = true;
}

bool OutputHandover::Finish(int64_t* bytes) {
  if (!started_) return false;
  fflush(stdout);
  // fd 1 must stop referring to the socket, or the connection would never close.
  if (savedStdout_ >= 0) {
    dup2(savedStdout_, 1);
    close(savedStdout_);
    savedStdout_ = -1;
  } else {
    int null = open("/dev/null", O_WRONLY);
    dup2(null, 1);
    if (null > 1) close(null);
  }
  int64_t after = BytesWritten(socketFd_);
  *bytes = bytesBefore_ >= 0 && after >= 0 ? after - bytesBefore_ : -1;
  // A client gone mid-document leaves stdio's error flag set; the next call starts clean.
  clearerr(stdout);
  started_ = false;
  return true;
}
