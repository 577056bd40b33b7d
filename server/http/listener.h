// The listening socket that the master binds and every worker accepts on.
#pragma once

#include <string>

// Binds and listens on "HOST:PORT" ("[::1]:8080" for IPv6; port 0 picks a free port). Returns
// the non-blocking, close-on-exec socket and fills *bound with the address actually bound
// ("127.0.0.1:41234"); -1 with *error on failure.
int BindListener(const std::string& address, std::string* bound, std::string* error);

// The numeric address of a connected or bound socket, "HOST:PORT" or, with withPort false,
// "HOST"; "-" when unknown.
std::string SocketAddress(int fd, bool peer, bool withPort);
