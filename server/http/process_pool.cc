// The master and worker processes.
#include "server/http/process_pool.h"

#include "server/error_report.h"
#include "server/http/monotonic_clock.h"

#include <errno.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <map>

namespace {

volatile sig_atomic_t gStopRequested = 0;
sigset_t gWaitMask;  // the worker's mask inside WaitReadable: stop signals let through

void OnStopSignal(int) { gStopRequested = 1; }

// The child's side of fork: stop signals set a flag and stay blocked outside WaitReadable;
// a broken connection is an error result, not a signal; the worker dies with its master.
[[noreturn]] void RunWorker(pid_t master, const std::function<int()>& workerMain) {
  struct sigaction action;
  sigemptyset(&action.sa_mask);
  action.sa_flags = 0;  // no SA_RESTART: the wait returns at once
  action.sa_handler = OnStopSignal;
  sigaction(SIGTERM, &action, nullptr);
  sigaction(SIGINT, &action, nullptr);
  signal(SIGPIPE, SIG_IGN);
  signal(SIGCHLD, SIG_DFL);
  sigset_t blocked;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGTERM);
  sigaddset(&blocked, SIGINT);
  sigprocmask(SIG_SETMASK, &blocked, nullptr);
  sigemptyset(&gWaitMask);
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  if (getppid() != master) _exit(0);
  int status = 1;
  try {
    status = workerMain();
  } catch (...) {
    fputs("quor-webapi: worker failed unexpectedly\n", stderr);
  }
  fflush(nullptr);
  _exit(status);
}

}  // namespace

bool WorkerShouldStop() {
  if (gStopRequested) return true;
  // Stop signals wait blocked while a request is served; a pending one counts already.
  sigset_t pending;
  return sigpending(&pending) == 0 &&
         (sigismember(&pending, SIGTERM) == 1 || sigismember(&pending, SIGINT) == 1);
}

int WaitForAny(pollfd* fds, size_t count, int64_t timeoutMs) {
  int64_t deadline = MonotonicMs() + timeoutMs;
  for (;;) {
    if (gStopRequested) return -1;
    int64_t left = deadline - MonotonicMs();
    if (left <= 0) return 0;
    timespec wait = {static_cast<time_t>(left / 1000), static_cast<long>(left % 1000) * 1000000};
    int rc = ppoll(fds, count, &wait, &gWaitMask);
    if (rc > 0) return rc;
    if (rc < 0 && errno != EINTR) return -1;
  }
}

int RunProcessPool(int count, int64_t graceMs, const std::function<int()>& workerMain) {
  sigset_t handled, previous;
  sigemptyset(&handled);
  sigaddset(&handled, SIGCHLD);
  sigaddset(&handled, SIGTERM);
  sigaddset(&handled, SIGINT);
  sigprocmask(SIG_BLOCK, &handled, &previous);
  pid_t master = getpid();
  std::map<pid_t, int64_t> workers;  // pid -> start time

  auto start = [&]() {
    pid_t pid = fork();
    if (pid == 0) RunWorker(master, workerMain);
    if (pid > 0) workers[pid] = MonotonicMs();
    if (pid < 0) perror("quor-webapi: fork");
  };
  for (int i = 0; i < count; ++i) start();

  bool stopping = false;
  int64_t stopDeadline = 0;
  while (!workers.empty()) {
    siginfo_t info;
    int sig;
    if (stopping) {
      int64_t left = stopDeadline - MonotonicMs();
      if (left <= 0) {
        for (const auto& worker : workers) kill(worker.first, SIGKILL);
        left = 1000;
        stopDeadline = MonotonicMs() + left;
      }
      timespec wait = {static_cast<time_t>(left / 1000), static_cast<long>(left % 1000) * 1000000};
      sig = sigtimedwait(&handled, &info, &wait);
    } else {
      sig = sigwaitinfo(&handled, &info);
    }
    if ((sig == SIGTERM || sig == SIGINT) && !stopping) {
      stopping = true;
      stopDeadline = MonotonicMs() + graceMs;
      for (const auto& worker : workers) kill(worker.first, SIGTERM);
    }
    if (sig != SIGCHLD && !(sig < 0 && stopping)) continue;
    int status = 0;
    pid_t pid;
    while ((pid = waitpid(-1, &status, WNOHANG)) > 0) {
      auto found = workers.find(pid);
      if (found == workers.end()) continue;
      int64_t lived = MonotonicMs() - found->second;
      workers.erase(found);
      if (stopping) continue;
      if (WIFSIGNALED(status)) {
        ReportError("worker %d died of signal %d; replacing it", pid, WTERMSIG(status));
      } else {
        ReportError("worker %d exited with %d; replacing it", pid, WEXITSTATUS(status));
      }
      if (lived < 1000) usleep(200 * 1000);
      start();
    }
  }
  // The stop is done: keep SIGTERM and SIGINT blocked, so that a repeated stop signal (an
  // impatient supervisor) cannot turn the clean exit into a death by signal.
  sigaddset(&previous, SIGTERM);
  sigaddset(&previous, SIGINT);
  sigprocmask(SIG_SETMASK, &previous, nullptr);
  return 0;
}
