// The syslog receiver's settings, from the command line (--udp, --tcp, --tls, --cert, --key,
// --ca) and from quor-logd's configuration file (keys "syslog_...").
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace logd::syslog {

struct SyslogConfig {
  // Listening addresses "ADDR:PORT" ("[::]:514", "0.0.0.0:514", "[::1]:6514"); each may be
  // given several times.
  std::vector<std::string> udp, tcp, tls;
  std::string certFile, keyFile;   // the server's certificate chain and key (PEM), for TLS
  std::string caFile;              // when set, TLS clients must show a certificate it signed
  std::vector<std::string> allow;  // sender networks "10.0.0.0/8", "2001:db8::/32"; empty: all
  size_t maxConnections = 1024;    // TCP and TLS together
  size_t maxPerAddress = 64;
  int idleTimeoutSeconds = 600;      // a connection silent this long is closed
  int handshakeTimeoutSeconds = 10;  // a TLS handshake not done in this time is dropped
  size_t receiveBuffer = 16u << 20;  // SO_RCVBUF asked for (the kernel doubles it)
  std::string timeZone = "local";    // for timestamps that carry no offset
  int reportSeconds = 60;            // how often dropped and refused messages are reported

  bool Enabled() const { return !udp.empty() || !tcp.empty() || !tls.empty(); }
};

// Sets the option |key| (a configuration-file key such as "syslog_udp", or a command-line
// name without its dashes such as "udp") to |value|. Returns false with *error saying why when
// the key is unknown or the value bad; *config is then unchanged.
bool SetSyslogOption(std::string_view key, std::string_view value, SyslogConfig* config,
                     std::string* error);

// Whether |name| (without dashes) is a command-line option of the receiver.
bool IsSyslogCommandLineOption(std::string_view name);

// Checks the whole: TLS needs a certificate and key, every address and network parses, the
// time zone is known. Returns false with *error naming the first fault.
bool CheckSyslogConfig(const SyslogConfig& config, std::string* error);

}  // namespace logd::syslog

namespace logd::syslog {

// "ADDR:PORT" with ADDR an IPv4 address, a bracketed IPv6 address or "*" (every IPv4 and IPv6
// address). Returns false for anything else.
bool ParseListenAddress(std::string_view text, std::string* address, unsigned short* port);

}  // namespace logd::syslog
