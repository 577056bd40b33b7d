// The one way bytes go to a client socket. Every answer, 100 Continue, chunked document and
// the method limit's 503 leaves through ClientWriter, which never blocks on its own: the
// worker's poll loop drives Flush when the socket takes more, and a thread or process that owns
// a socket alone (a document's framing thread, a download process, the method limit) waits
// through SendAll, which gives up when the client takes nothing for a stall limit.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string>

class ClientWriter {
 public:
  // fd stays owned by the caller; the writer only sends on it.
  explicit ClientWriter(int fd) : fd_(fd) {}

  // Appends bytes to the output not yet sent.
  void Queue(const std::string& bytes) { Queue(bytes.data(), bytes.size()); }
  void Queue(const char* data, size_t size);
  // True while queued bytes remain.
  bool Pending() const { return sent_ < queued_.size(); }
  // Bytes sent since the writer was made.
  int64_t TotalSent() const { return total_; }

  enum class Result {
    kDone,     // everything queued has gone out
    kBlocked,  // the socket takes nothing more now; wait for POLLOUT
    kFailed,   // the client is gone
  };
  // Sends what the socket takes now, without waiting. *progressed tells whether any byte left.
  Result Flush(bool* progressed);

  // Queues data and sends it all, waiting for the socket while it is full: false when the
  // client takes nothing for stallMs, or is gone. For a caller that owns the socket alone.
  bool SendAll(const char* data, size_t size, int64_t stallMs);

 private:
  int fd_;
  std::string queued_;
  size_t sent_ = 0;
  int64_t total_ = 0;
};
