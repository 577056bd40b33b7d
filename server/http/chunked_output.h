// The download path. A method that answers with a document of its own (an export) switches its
// output off and writes the document's header lines and body to standard output. The server
// installs Hook on the call's response: when the method switches its output off, fd 1 becomes
// the write end of a pipe, and a framing thread reads the pipe and writes to the client socket:
// the status line and the server's header lines, the method's own header lines (any length or
// framing header of its own dropped), "Transfer-Encoding: chunked", then the body in chunks and
// the closing empty chunk once the method has finished. A download cut off (the process killed,
// the method stalled) therefore lacks the closing chunk and reads as truncated in browsers and
// curl. Finish, after the call, gives fd 1 back and waits for the thread.
//
// Downloads are limited by inactivity, never by length: the thread gives up (and the process
// must end) when the method writes nothing, or the client takes nothing, for its limit.
#pragma once

#include <stdint.h>

#include <functional>
#include <thread>

#include "server/http/client_writer.h"

class ChunkedOutput {
 public:
  // With exitWhenCut, a download that can no longer reach the client ends the process at once
  // (a download's own process); otherwise the method runs on with its output discarded.
  // beforeLastChunk, when given, runs once the method has finished, before the closing chunk
  // goes out: a download frees its slot there, so that a client that starts its next download
  // as soon as it has the whole document finds the slot free.
  // The method may write nothing for methodIdleMs, and the client take nothing for
  // clientStallMs, before the document is given up.
  ChunkedOutput(int socketFd, int64_t methodIdleMs, int64_t clientStallMs, bool exitWhenCut,
                std::function<void()> beforeLastChunk = nullptr)
      : socketFd_(socketFd),
        writer_(socketFd),
        methodIdleMs_(methodIdleMs),
        clientStallMs_(clientStallMs),
        exitWhenCut_(exitWhenCut),
        beforeLastChunk_(std::move(beforeLastChunk)) {}
  ~ChunkedOutput();
  ChunkedOutput(const ChunkedOutput&) = delete;
  ChunkedOutput& operator=(const ChunkedOutput&) = delete;

  // The response's output-off hook (context: this ChunkedOutput).
  static void Hook(void* self);

  // After the call. False when the method never switched its output off (nothing was written;
  // the caller answers as usual). Otherwise the document has been written: *bytes is its body's
  // length and *complete tells whether it was written whole (closing chunk included).
  bool Finish(int64_t* bytes, bool* complete);

 private:
  void Frame(int pipeFd);
  bool Send(const std::string& bytes);
  bool SendChunk(const char* data, size_t size);

  int socketFd_;
  ClientWriter writer_;
  int64_t methodIdleMs_;
  int64_t clientStallMs_;
  bool exitWhenCut_;
  std::function<void()> beforeLastChunk_;
  int savedStdout_ = -1;
  std::thread framer_;
  bool started_ = false;
  int64_t bodyBytes_ = 0;
  bool complete_ = false;
};
