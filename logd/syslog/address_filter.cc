// Which senders the receiver accepts.
#include "logd/syslog/address_filter.h"

namespace logd::syslog {

namespace ip = boost::asio::ip;

ip::address Unmapped(const ip::address& address) {
  if (address.is_v6() && address.to_v6().is_v4_mapped()) {
    return ip::make_address_v4(ip::v4_mapped, address.to_v6());
  }
  return address;
}

std::string AddressText(const ip::address& address) { return Unmapped(address).to_string(); }

bool AddressFilter::Add(std::string_view cidr, std::string* error) {
  std::string text(cidr);
  if (text.find('/') == std::string::npos) {
    boost::system::error_code ec;
    const ip::address address = ip::make_address(text, ec);
    if (!ec) text += address.is_v4() ? "/32" : "/128";
  }
  boost::system::error_code ec;
  if (text.find(':') == std::string::npos) {
    const ip::network_v4 network = ip::make_network_v4(text, ec);
    if (!ec) {
      v4_.push_back(network.canonical());
      return true;
    }
  } else {
    const ip::network_v6 network = ip::make_network_v6(text, ec);
    if (!ec) {
      v6_.push_back(network.canonical());
      return true;
    }
  }
  *error = "not a network (ADDR/BITS): " + std::string(cidr);
  return false;
}

bool AddressFilter::Allows(const ip::address& address) const {
  if (v4_.empty() && v6_.empty()) return true;
  const ip::address a = Unmapped(address);
  if (a.is_v4()) {
    const ip::address_v4 v4 = a.to_v4();
    for (const ip::network_v4& n : v4_) {
      if ((v4.to_uint() & n.netmask().to_uint()) == n.network().to_uint()) return true;
    }
    return false;
  }
  const ip::address_v6 v6 = a.to_v6();
  for (const ip::network_v6& n : v6_) {
    if (ip::network_v6(v6, n.prefix_length()).canonical() == n) return true;
  }
  return false;
}

}  // namespace logd::syslog
