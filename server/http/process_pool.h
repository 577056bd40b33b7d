// The master and worker processes: the master forks the workers, replaces those that die and
// stops them on SIGTERM or SIGINT; workers learn of the stop through WorkerShouldStop().
#pragma once

#include <stdint.h>

#include <poll.h>

#include <functional>

// Runs workerMain in count forked processes until the master receives SIGTERM or SIGINT, then
// asks the workers to stop (SIGTERM), waits up to graceMs for them and kills the rest.
// A worker that dies is replaced (after a short pause when it died within a second of its
// start, so a worker that cannot start does not spin). Returns the master's exit status, with
// SIGTERM and SIGINT left blocked so that a repeated stop signal cannot kill the exiting master.
// Must be called from a single-threaded process.
int RunProcessPool(int count, int64_t graceMs, const std::function<int()>& workerMain);

// In a worker: true once the master asked it to stop (also while the request is pending).
bool WorkerShouldStop();

// In a worker: waits until one of the count descriptors is ready (their revents filled).
// >0: that many are ready; 0: timeoutMs passed; -1: the worker was asked to stop (or poll
// failed). Stop requests are delivered only here, so a request being served is never
// interrupted by one.
int WaitForAny(pollfd* fds, size_t count, int64_t timeoutMs);
