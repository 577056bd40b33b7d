// The limit on one method call in a worker.
#include "server/http/method_watchdog.h"

#include <signal.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

volatile sig_atomic_t gClientFd = -1;
volatile sig_atomic_t gAnswerStarted = 0;

const char kTooLong[] =
    "HTTP/1.1 503 Service Unavailable\r\n"
    "Content-Type: text/plain; charset=utf-8\r\n"
    "Cache-Control: no-store\r\n"
    "Connection: close\r\n"
    "Content-Length: 43\r\n\r\n"
    "The request took too long and was stopped.\n";

void OnLimit(int) {
  // Only async-signal-safe calls here.
  static const char kMessage[] = "quor-webapi: a method ran past its time limit; worker ends\n";
  int fd = gClientFd;
  if (fd >= 0 && !gAnswerStarted) send(fd, kTooLong, sizeof kTooLong - 1, MSG_NOSIGNAL);
  ssize_t ignored = write(2, kMessage, sizeof kMessage - 1);
  (void)ignored;
  _exit(3);
}

}  // namespace

MethodWatchdog::MethodWatchdog(int socketFd, int64_t limitMs) {
  gClientFd = socketFd;
  gAnswerStarted = 0;
  struct sigaction action;
  memset(&action, 0, sizeof action);
  action.sa_handler = OnLimit;
  sigemptyset(&action.sa_mask);
  sigaction(SIGALRM, &action, nullptr);
  itimerval timer = {};
  timer.it_value.tv_sec = static_cast<time_t>(limitMs / 1000);
  timer.it_value.tv_usec = static_cast<suseconds_t>(limitMs % 1000) * 1000;
  setitimer(ITIMER_REAL, &timer, nullptr);
}

MethodWatchdog::~MethodWatchdog() {
  itimerval off = {};
  setitimer(ITIMER_REAL, &off, nullptr);
  gClientFd = -1;
}

void MethodWatchdog::AnswerStarted() { gAnswerStarted = 1; }
