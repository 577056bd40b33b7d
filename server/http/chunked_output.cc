// A method's document framed in chunks on its way to the client.
#include "server/http/chunked_output.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdio.h>
#include <string.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>

#include "server/http/method_watchdog.h"

namespace {

const char kHead[] =
    "HTTP/1.1 200 OK\r\n"
    "Cache-Control: no-store\r\n"
    "X-Content-Type-Options: nosniff\r\n"
    "Connection: close\r\n"
    "Transfer-Encoding: chunked\r\n";

// The most a method's header block may take before its document starts.
constexpr size_t kMaxHeaderBlock = 16 * 1024;

// The method's header lines as they go out: lines that would frame the body differently
// (Content-Length, Transfer-Encoding, Connection) are dropped.
std::string KeptHeaderLines(const std::string& block) {
  std::string kept;
  size_t at = 0;
  while (at < block.size()) {
    size_t end = block.find("\r\n", at);
    if (end == std::string::npos) end = block.size();
    std::string line = block.substr(at, end - at);
    at = end + 2;
    if (line.empty()) continue;
    std::string name = line.substr(0, line.find(':'));
    if (strcasecmp(name.c_str(), "Content-Length") == 0 ||
        strcasecmp(name.c_str(), "Transfer-Encoding") == 0 ||
        strcasecmp(name.c_str(), "Connection") == 0) {
      continue;
    }
    kept += line + "\r\n";
  }
  return kept;
}

}  // namespace

ChunkedOutput::~ChunkedOutput() {
  int64_t bytes;
  bool complete;
  Finish(&bytes, &complete);
}

void ChunkedOutput::Hook(void* context) {
  auto* self = static_cast<ChunkedOutput*>(context);
  if (self->started_) return;
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return;
  MethodWatchdog::AnswerStarted();
  fflush(stdout);
  self->savedStdout_ = dup(1);
  dup2(ends[1], 1);
  close(ends[1]);
  self->started_ = true;
  self->framer_ = std::thread(&ChunkedOutput::Frame, self, ends[0]);
}

bool ChunkedOutput::Send(const std::string& bytes) {
  return writer_.SendAll(bytes.data(), bytes.size(), clientStallMs_);
}

bool ChunkedOutput::SendChunk(const char* data, size_t size) {
  char length[24];
  int n = snprintf(length, sizeof length, "%zx\r\n", size);
  writer_.Queue(length, static_cast<size_t>(n));
  writer_.Queue(data, size);
  return writer_.SendAll("\r\n", 2, clientStallMs_);
}

void ChunkedOutput::Frame(int pipeFd) {
  std::string header;
  bool headerDone = false;
  bool ok = true;
  char buffer[64 * 1024];
  for (;;) {
    pollfd ready = {pipeFd, POLLIN, 0};
    int rc = poll(&ready, 1, static_cast<int>(methodIdleMs_));
    if (rc < 0 && errno == EINTR) continue;
    if (rc <= 0) {
      ok = false;  // the method wrote nothing for the idle limit
      break;
    }
    ssize_t n = read(pipeFd, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;  // the method has finished
    const char* body = buffer;
    size_t size = static_cast<size_t>(n);
    if (!headerDone) {
      header.append(buffer, size);
      size_t end = header.find("\r\n\r\n");
      if (end == std::string::npos && header.size() < kMaxHeaderBlock) continue;
      // A document without a header block of its own goes out whole as the body.
      std::string lines = end != std::string::npos ? KeptHeaderLines(header.substr(0, end + 2))
                                                   : "Content-Type: application/octet-stream\r\n";
      std::string rest = end != std::string::npos ? header.substr(end + 4) : header;
      headerDone = true;
      ok = Send(kHead + lines + "\r\n");
      if (ok && !rest.empty()) ok = SendChunk(rest.data(), rest.size());
      bodyBytes_ += static_cast<int64_t>(rest.size());
      if (!ok) break;
      continue;
    }
    ok = SendChunk(body, size);
    if (!ok) break;
    bodyBytes_ += static_cast<int64_t>(size);
  }
  if (ok && !headerDone) {
    std::string lines = KeptHeaderLines(header);
    ok = Send(kHead + lines + "\r\n");
  }
  if (ok && beforeLastChunk_) beforeLastChunk_();
  complete_ = ok && Send("0\r\n\r\n");
  if (!complete_) {
    // Nothing more can reach the client: the method must not block on a full pipe.
    shutdown(socketFd_, SHUT_RDWR);
    if (exitWhenCut_) _exit(1);
  }
  close(pipeFd);
}

bool ChunkedOutput::Finish(int64_t* bytes, bool* complete) {
  if (!started_) return false;
  fflush(stdout);
  // fd 1 must stop referring to the pipe, or the framing thread would never see its end.
  if (savedStdout_ >= 0) {
    dup2(savedStdout_, 1);
    close(savedStdout_);
    savedStdout_ = -1;
  }
  if (framer_.joinable()) framer_.join();
  // A client gone mid-document leaves stdio's error flag set; the next call starts clean.
  clearerr(stdout);
  started_ = false;
  *bytes = bodyBytes_;
  *complete = complete_;
  return true;
}
