// One UDP syslog socket and the thread that reads it (batches of datagrams per system call),
// parses each datagram and offers it to the sink without waiting.
#pragma once

#include <boost/asio/ip/udp.hpp>
#include <string>
#include <thread>

#include "logd/log_entry.h"
#include "logd/syslog/address_filter.h"
#include "logd/syslog/receiver.h"
#include "logd/syslog/syslog_time.h"

namespace logd::syslog {

class UdpListener {
 public:
  UdpListener(EntrySink* sink, const AddressFilter* filter, const TimeZoneSetting& zone,
              ReceiverCounters* counters);
  ~UdpListener();  // stops and closes
  UdpListener(const UdpListener&) = delete;
  UdpListener& operator=(const UdpListener&) = delete;

  // Binds |endpoint| with a receive buffer of |receiveBuffer| bytes asked for (beyond
  // net.core.rmem_max only with CAP_NET_ADMIN). Returns false with *error on failure.
  bool Bind(const boost::asio::ip::udp::endpoint& endpoint, bool dualStack, size_t receiveBuffer,
            std::string* error);
  void Start();
  void Stop();  // idempotent

  unsigned short port() const { return port_; }
  size_t receiveBuffer() const { return granted_; }  // what the kernel gave

 private:
  void Run();

  EntrySink* sink_;
  const AddressFilter* filter_;
  TimeZoneSetting zone_;  // this thread's own copy
  ReceiverCounters* counters_;
  int fd_ = -1;
  int stopFd_ = -1;  // an eventfd that wakes the thread to stop
  unsigned short port_ = 0;
  size_t granted_ = 0;
  std::thread thread_;
};

}  // namespace logd::syslog
