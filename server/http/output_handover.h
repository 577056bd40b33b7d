// Giving a method that switches its output off the client connection as its standard output.
#pragma once

#include <stdint.h>

// The state of one handover. Install Hook with this as context on the call's response before
// the handler runs; call Finish after it returns.
class OutputHandover {
 public:
  OutputHandover(int socketFd, int64_t sendTimeoutMs)
      : socketFd_(socketFd), sendTimeoutMs_(sendTimeoutMs) {}

  // The response's output-off hook: makes the socket blocking with a send timeout, writes the
  // status line and the server's header lines ("Cache-Control: no-store",
  // "X-Content-Type-Options: nosniff", "Connection: close") and makes fd 1 the socket, stdio
  // flushed first. The method then writes its own header lines and document.
  static void Hook(void* self);

  // Flushes stdio and gives fd 1 back. True when the handover took place; *bytes is then the
  // number of bytes written on the socket (-1 when the kernel cannot tell).
  bool Finish(int64_t* bytes);

 private:
  int socketFd_;
  int64_t sendTimeoutMs_;
  int savedStdout_ = -1;
  bool started_ = false;
  int64_t bytesBefore_ = -1;
};
