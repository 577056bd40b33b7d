// Binding the listening socket.
#include "server/http/listener.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

int BindListener(const std::string& address, std::string* bound, std::string* error) {
  size_t colon = address.rfind(':');
  if (colon == std::string::npos || colon + 1 == address.size()) {
    *error = "listen address '" + address + "' is not HOST:PORT";
    return -1;
  }
  std::string host = address.substr(0, colon);
  std::string port = address.substr(colon + 1);
  if (host.size() >= 2 && host.front() == '[' && host.back() == ']') {
    host = host.substr(1, host.size() - 2);
  }
  addrinfo hints;
  memset(&hints, 0, sizeof hints);
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_PASSIVE | AI_NUMERICSERV;
  addrinfo* found = nullptr;
  int rc = getaddrinfo(host.empty() ? nullptr : host.c_str(), port.c_str(), &hints, &found);
  if (rc != 0) {
    *error = "cannot resolve listen address '" + address + "': " + gai_strerror(rc);
    return -1;
  }
  int fd = -1;
  std::string reason = "no address";
  for (addrinfo* ai = found; ai != nullptr && fd < 0; ai = ai->ai_next) {
    fd = socket(ai->ai_family, ai->ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC, ai->ai_protocol);
    if (fd < 0) {
      reason = strerror(errno);
      continue;
    }
    int on = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (bind(fd, ai->ai_addr, ai->ai_addrlen) != 0 || listen(fd, 128) != 0) {
      reason = strerror(errno);
      close(fd);
      fd = -1;
    }
  }
  freeaddrinfo(found);
  if (fd < 0) {
    *error = "cannot listen on " + address + ": " + reason;
    return -1;
  }
  *bound = SocketAddress(fd, false, true);
  return fd;
}

std::string SocketAddress(int fd, bool peer, bool withPort) {
  sockaddr_storage storage;
  socklen_t length = sizeof storage;
  sockaddr* address = reinterpret_cast<sockaddr*>(&storage);
  if ((peer ? getpeername(fd, address, &length) : getsockname(fd, address, &length)) != 0) {
    return "-";
  }
  char host[INET6_ADDRSTRLEN] = "-";
  int port = 0;
  if (storage.ss_family == AF_INET) {
    auto* in = reinterpret_cast<sockaddr_in*>(&storage);
    inet_ntop(AF_INET, &in->sin_addr, host, sizeof host);
    port = ntohs(in->sin_port);
  } else if (storage.ss_family == AF_INET6) {
    auto* in6 = reinterpret_cast<sockaddr_in6*>(&storage);
    inet_ntop(AF_INET6, &in6->sin6_addr, host, sizeof host);
    port = ntohs(in6->sin6_port);
    if (withPort) return "[" + std::string(host) + "]:" + std::to_string(port);
  }
  return withPort ? std::string(host) + ":" + std::to_string(port) : host;
}
