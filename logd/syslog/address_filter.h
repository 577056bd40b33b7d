// Which senders the receiver accepts: a list of networks in CIDR notation, IPv4 and IPv6.
#pragma once

#include <boost/asio/ip/address.hpp>
#include <boost/asio/ip/network_v4.hpp>
#include <boost/asio/ip/network_v6.hpp>
#include <string>
#include <string_view>
#include <vector>

namespace logd::syslog {

class AddressFilter {
 public:
  // Adds "ADDR/BITS" or a single address. Returns false with *error for anything else.
  bool Add(std::string_view cidr, std::string* error);
  // True when the list is empty or a network holds |address|. An IPv4 address seen through
  // an IPv6 socket (::ffff:a.b.c.d) is matched as IPv4.
  bool Allows(const boost::asio::ip::address& address) const;

 private:
  std::vector<boost::asio::ip::network_v4> v4_;
  std::vector<boost::asio::ip::network_v6> v6_;
};

// The address as text, an IPv4-mapped IPv6 address as plain IPv4.
std::string AddressText(const boost::asio::ip::address& address);
// Unmaps ::ffff:a.b.c.d to a.b.c.d; other addresses are returned as they are.
boost::asio::ip::address Unmapped(const boost::asio::ip::address& address);

}  // namespace logd::syslog
