// The syslog receiver's settings.
#include "logd/syslog/receiver_config.h"

#include <boost/asio/ip/address.hpp>
#include <cstdlib>

#include "logd/syslog/address_filter.h"
#include "logd/syslog/syslog_time.h"

namespace logd::syslog {
namespace {

bool ParseCount(std::string_view text, size_t min, size_t* out) {
  if (text.empty() || text.size() > 12) return false;
  size_t value = 0;
  size_t i = 0;
  for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i)
    value = value * 10 + (text[i] - '0');
  if (i == 0) return false;
  if (i + 1 == text.size()) {  // a size suffix
    switch (text[i]) {
      case 'K':
        value <<= 10;
        break;
      case 'M':
        value <<= 20;
        break;
      case 'G':
        value <<= 30;
        break;
      default:
        return false;
    }
  } else if (i != text.size()) {
    return false;
  }
  if (value < min) return false;
  *out = value;
  return true;
}

bool AddList(std::vector<std::string>* list, std::string_view value) {
  // Several values may be given at once, separated by commas or spaces.
  size_t start = 0;
  bool any = false;
  while (start <= value.size()) {
    size_t end = value.find_first_of(", ", start);
    if (end == std::string_view::npos) end = value.size();
    if (end > start) {
      list->emplace_back(value.substr(start, end - start));
      any = true;
    }
    start = end + 1;
  }
  return any;
}

enum class Kind { kList, kText, kCount, kSeconds };

// One row per option: the configuration-file key, the command-line name (or null), its kind
// and the member it sets.
struct Option {
  const char* key;
  const char* flag;
  Kind kind;
  std::vector<std::string> SyslogConfig::*list;
  std::string SyslogConfig::*text;
  size_t SyslogConfig::*count;
  int SyslogConfig::*seconds;
};

const Option kOptions[] = {
    {"syslog_udp", "udp", Kind::kList, &SyslogConfig::udp, nullptr, nullptr, nullptr},
    {"syslog_tcp", "tcp", Kind::kList, &SyslogConfig::tcp, nullptr, nullptr, nullptr},
    {"syslog_tls", "tls", Kind::kList, &SyslogConfig::tls, nullptr, nullptr, nullptr},
    {"syslog_tls_cert", "cert", Kind::kText, nullptr, &SyslogConfig::certFile, nullptr, nullptr},
    {"syslog_tls_key", "key", Kind::kText, nullptr, &SyslogConfig::keyFile, nullptr, nullptr},
    {"syslog_tls_ca", "ca", Kind::kText, nullptr, &SyslogConfig::caFile, nullptr, nullptr},
    {"syslog_allow", nullptr, Kind::kList, &SyslogConfig::allow, nullptr, nullptr, nullptr},
    {"syslog_max_connections", nullptr, Kind::kCount, nullptr, nullptr,
     &SyslogConfig::maxConnections, nullptr},
    {"syslog_max_per_address", nullptr, Kind::kCount, nullptr, nullptr,
     &SyslogConfig::maxPerAddress, nullptr},
    {"syslog_idle_timeout", nullptr, Kind::kSeconds, nullptr, nullptr, nullptr,
     &SyslogConfig::idleTimeoutSeconds},
    {"syslog_handshake_timeout", nullptr, Kind::kSeconds, nullptr, nullptr, nullptr,
     &SyslogConfig::handshakeTimeoutSeconds},
    {"syslog_receive_buffer", nullptr, Kind::kCount, nullptr, nullptr, &SyslogConfig::receiveBuffer,
     nullptr},
    {"syslog_time_zone", nullptr, Kind::kText, nullptr, &SyslogConfig::timeZone, nullptr, nullptr},
    {"syslog_report_seconds", nullptr, Kind::kSeconds, nullptr, nullptr, nullptr,
     &SyslogConfig::reportSeconds},
    {nullptr, nullptr, Kind::kText, nullptr, nullptr, nullptr, nullptr},
};

}  // namespace

bool ParseListenAddress(std::string_view text, std::string* address, unsigned short* port) {
  const size_t colon = text.rfind(':');
  if (colon == std::string_view::npos || colon + 1 == text.size()) return false;
  std::string_view host = text.substr(0, colon);
  if (host.size() >= 2 && host.front() == '[' && host.back() == ']') {
    host = host.substr(1, host.size() - 2);
  } else if (host.find(':') != std::string_view::npos) {
    return false;  // an IPv6 address needs its brackets
  }
  size_t value = 0;
  for (char c : text.substr(colon + 1)) {
    if (c < '0' || c > '9' || value > 65535) return false;
    value = value * 10 + (c - '0');
  }
  if (value > 65535) return false;
  if (host != "*") {
    boost::system::error_code ec;
    boost::asio::ip::make_address(std::string(host), ec);
    if (ec) return false;
  }
  *address = std::string(host);
  *port = static_cast<unsigned short>(value);
  return true;
}

bool IsSyslogCommandLineOption(std::string_view name) {
  for (const Option* o = kOptions; o->key != nullptr; ++o) {
    if (o->flag != nullptr && name == o->flag) return true;
  }
  return false;
}

bool SetSyslogOption(std::string_view key, std::string_view value, SyslogConfig* config,
                     std::string* error) {
  for (const Option* o = kOptions; o->key != nullptr; ++o) {
    if (key != o->key && (o->flag == nullptr || key != o->flag)) continue;
    bool ok = true;
    switch (o->kind) {
      case Kind::kList:
        ok = AddList(&(config->*o->list), value);
        break;
      case Kind::kText:
        ok = !value.empty();
        if (ok) config->*o->text = std::string(value);
        break;
      case Kind::kCount:
        ok = ParseCount(value, 1, &(config->*o->count));
        break;
      case Kind::kSeconds: {
        size_t seconds = 0;
        ok = ParseCount(value, 1, &seconds) && seconds <= 86400 * 7;
        if (ok) config->*o->seconds = static_cast<int>(seconds);
        break;
      }
    }
    if (!ok) *error = "bad value for " + std::string(key) + ": " + std::string(value);
    return ok;
  }
  *error = "unknown option " + std::string(key);
  return false;
}

bool CheckSyslogConfig(const SyslogConfig& config, std::string* error) {
  std::string address;
  unsigned short port;
  for (const auto* list : {&config.udp, &config.tcp, &config.tls}) {
    for (const std::string& text : *list) {
      if (!ParseListenAddress(text, &address, &port)) {
        *error = "not a listening address (ADDR:PORT, [IPv6]:PORT or *:PORT): " + text;
        return false;
      }
    }
  }
  if (!config.tls.empty() && (config.certFile.empty() || config.keyFile.empty())) {
    *error = "TLS needs a certificate and a key (--cert FILE --key FILE)";
    return false;
  }
  AddressFilter filter;
  for (const std::string& network : config.allow) {
    if (!filter.Add(network, error)) return false;
  }
  TimeZoneSetting zone;
  if (!zone.Set(config.timeZone)) {
    *error = "unknown time zone " + config.timeZone + " (local, UTC or +HH:MM)";
    return false;
  }
  return true;
}

}  // namespace logd::syslog
