// One client connection: HTTP/1.1 requests read and answered in turn, with keep-alive.
#pragma once

#include "server/http/router.h"
#include "server/http/server_config.h"

// Serves the accepted socket fd until the client closes, a keep-alive wait passes the idle
// timeout, an answer requires closing, or the worker is asked to stop; then closes fd.
// Malformed requests are answered 400, oversized ones 413, requests not read whole within
// the request timeout 408; each request gets one access-log line.
void ServeConnection(int fd, const ServerConfig& config, Router* router);
