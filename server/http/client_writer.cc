// Sending to a client without blocking, and waiting for it with a stall limit.
#include "server/http/client_writer.h"

#include <errno.h>
#include <poll.h>
#include <sys/socket.h>

void ClientWriter::Queue(const char* data, size_t size) {
  if (!Pending()) {
    queued_.clear();
    sent_ = 0;
  }
  queued_.append(data, size);
}

ClientWriter::Result ClientWriter::Flush(bool* progressed) {
  *progressed = false;
  while (Pending()) {
    // MSG_DONTWAIT: the socket's own blocking mode does not matter; MSG_NOSIGNAL: a client
    // gone is an error result, not a signal.
    ssize_t n =
        send(fd_, queued_.data() + sent_, queued_.size() - sent_, MSG_DONTWAIT | MSG_NOSIGNAL);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return Result::kBlocked;
    if (n <= 0) return Result::kFailed;
    sent_ += static_cast<size_t>(n);
    total_ += n;
    *progressed = true;
  }
  queued_.clear();
  sent_ = 0;
  return Result::kDone;
}

bool ClientWriter::SendAll(const char* data, size_t size, int64_t stallMs) {
  Queue(data, size);
  for (;;) {
    bool progressed = false;
    Result result = Flush(&progressed);
    if (result == Result::kDone) return true;
    if (result == Result::kFailed) return false;
    pollfd writable = {fd_, POLLOUT, 0};
    int rc = poll(&writable, 1, static_cast<int>(stallMs));
    if (rc < 0 && errno == EINTR) continue;
    if (rc <= 0 || (writable.revents & (POLLERR | POLLHUP | POLLNVAL)) != 0) return false;
  }
}
