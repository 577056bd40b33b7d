// The settings of quor-webapi serve.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

#include "server/auth/session_limits.h"

struct ServerConfig {
  std::string listen = "127.0.0.1:8080";
  int workers = 0;  // 0: the number of cores, at least 2
  std::string modulesDir;
  std::string uiDir;
  int64_t requestTimeoutMs = 10000;  // to read one whole request
  int64_t idleTimeoutMs = 5000;      // a kept-alive connection waiting for its next request
  int64_t sendTimeoutMs = 10000;     // an answer the client takes no byte of for this long ends
  int64_t downloadStallMs = 5000;    // the same for a download, which holds a slot meanwhile
  int64_t methodIdleMs = 30000;      // a document whose method writes nothing this long ends
  int64_t graceMs = 10000;           // requests in flight at stop may finish within this
  int64_t methodLimitMs = 120000;    // a method call in a worker is stopped past this
  // Methods that bound their own waits and must not be stopped halfway ("API.method"): the
  // clear gives up on a busy log by itself and goes on with the next, so stopping it would
  // leave some logs emptied and others not behind a 503. They get selfBoundedLimitMs instead
  // (or the method limit, when longer), against a worker that hangs for another reason.
  std::vector<std::string> selfBoundedMethods = {"QUOR.Core.SyslogClient.Log.clear"};
  int64_t selfBoundedLimitMs = 600000;
  // Methods that answer with a document of their own ("API.method"): each call runs in a
  // download process of its own, at most maxDownloads at once across the server.
  std::vector<std::string> downloadMethods = {"QUOR.Core.SyslogClient.Log.export"};
  int maxDownloads = 4;
  int maxDownloadsPerUser = 0;  // 0: half of maxDownloads, rounded up
  bool secureCookie = false;    // the session cookie always carries Secure (TLS in front)
  bool trustProxy = false;      // take the client address from X-Real-IP (set by a local proxy)
  // The names the server answers to in the Host header, beside "localhost" and the address the
  // client connected to (a browser led to it under another name is refused).
  std::vector<std::string> hostNames;
  size_t headerLimit = 8 * 1024;
  size_t bodyLimit = 64 * 1024;
  SessionLimits sessions;
};
