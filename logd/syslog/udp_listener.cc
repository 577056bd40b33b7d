// One UDP syslog socket and the thread that reads it.
#include "logd/syslog/udp_listener.h"

#include <errno.h>
#include <netinet/in.h>
#include <poll.h>
#include <pthread.h>
#include <string.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <memory>
#include <vector>

#include "logd/syslog/syslog_parser.h"

namespace logd::syslog {
namespace {

constexpr int kBatch = 16;           // datagrams per recvmmsg
constexpr size_t kDatagram = 65536;  // more than the largest UDP payload (65507)

}  // namespace

UdpListener::UdpListener(EntrySink* sink, const AddressFilter* filter, const TimeZoneSetting& zone,
                         ReceiverCounters* counters)
    : sink_(sink), filter_(filter), zone_(zone), counters_(counters) {}

UdpListener::~UdpListener() {
  Stop();
  if (fd_ >= 0) close(fd_);
  if (stopFd_ >= 0) close(stopFd_);
}

bool UdpListener::Bind(const boost::asio::ip::udp::endpoint& endpoint, bool dualStack,
                       size_t receiveBuffer, std::string* error) {
  const auto fail = [&](const char* what) {
    *error = std::string(what) + " " + endpoint.address().to_string() + ":" +
             std::to_string(endpoint.port()) + " (udp): " + strerror(errno);
    return false;
  };
  fd_ = socket(endpoint.protocol().family(), SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (fd_ < 0) return fail("cannot open a socket for");
  stopFd_ = eventfd(0, EFD_CLOEXEC);
  if (stopFd_ < 0) return fail("cannot make an eventfd for");
  const int on = 1, off = 0;
  setsockopt(fd_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  if (endpoint.address().is_v6()) {
    setsockopt(fd_, IPPROTO_IPV6, IPV6_V6ONLY, dualStack ? &off : &on, sizeof on);
  }
  const int asked = static_cast<int>(receiveBuffer);
  // SO_RCVBUFFORCE passes net.core.rmem_max for a privileged daemon; otherwise the capped ask.
  if (setsockopt(fd_, SOL_SOCKET, SO_RCVBUFFORCE, &asked, sizeof asked) != 0) {
    setsockopt(fd_, SOL_SOCKET, SO_RCVBUF, &asked, sizeof asked);
  }
  int granted = 0;
  socklen_t length = sizeof granted;
  getsockopt(fd_, SOL_SOCKET, SO_RCVBUF, &granted, &length);
  granted_ = static_cast<size_t>(granted);
  if (bind(fd_, endpoint.data(), static_cast<socklen_t>(endpoint.size())) != 0) {
    return fail("cannot listen on");
  }
  boost::asio::ip::udp::endpoint bound;
  socklen_t size = static_cast<socklen_t>(bound.capacity());
  getsockname(fd_, bound.data(), &size);
  port_ = bound.port();
  return true;
}

void UdpListener::Start() {
  thread_ = std::thread([this] { Run(); });
}

void UdpListener::Stop() {
  if (!thread_.joinable()) return;
  const uint64_t one = 1;
  if (write(stopFd_, &one, sizeof one) < 0) {
    // An eventfd write fails only on overflow, which a single stop cannot reach.
  }
  thread_.join();
}

void UdpListener::Run() {
  pthread_setname_np(pthread_self(), "syslog-udp");  // for top -H and the benchmarks
  std::vector<char> buffers(kBatch * kDatagram);
  mmsghdr messages[kBatch];
  iovec vectors[kBatch];
  sockaddr_storage senders[kBatch];
  // The last sender's address as bytes, its text and whether it may send: datagrams come in
  // runs from one sender, so the address is rarely converted twice.
  sockaddr_storage lastSender{};
  socklen_t lastLength = 0;
  std::string senderText;
  bool senderAllowed = false;
  LogEntry entry;
  for (;;) {
    pollfd fds[2] = {{fd_, POLLIN, 0}, {stopFd_, POLLIN, 0}};
    if (poll(fds, 2, -1) < 0 && errno != EINTR) break;
    if (fds[1].revents != 0) break;
    for (;;) {
      for (int i = 0; i < kBatch; ++i) {
        vectors[i] = {buffers.data() + i * kDatagram, kDatagram};
        messages[i].msg_hdr = {};
        messages[i].msg_hdr.msg_name = &senders[i];
        messages[i].msg_hdr.msg_namelen = sizeof senders[i];
        messages[i].msg_hdr.msg_iov = &vectors[i];
        messages[i].msg_hdr.msg_iovlen = 1;
      }
      const int count = recvmmsg(fd_, messages, kBatch, MSG_DONTWAIT, nullptr);
      if (count <= 0) break;
      const int64_t now = time(nullptr);
      for (int i = 0; i < count; ++i) {
        const socklen_t length = messages[i].msg_hdr.msg_namelen;
        if (length != lastLength || memcmp(&senders[i], &lastSender, length) != 0) {
          boost::asio::ip::udp::endpoint from;
          memcpy(from.data(), &senders[i], length);
          from.resize(length);
          lastSender = senders[i];
          lastLength = length;
          senderText = AddressText(from.address());
          senderAllowed = filter_->Allows(from.address());
        }
        if (!senderAllowed) {
          counters_->udpRefused.fetch_add(1, std::memory_order_relaxed);
          continue;
        }
        const bool cut = (messages[i].msg_hdr.msg_flags & MSG_TRUNC) != 0;
        const std::string_view datagram(buffers.data() + i * kDatagram, messages[i].msg_len);
        ParseSyslogMessage(datagram, cut, ParseContext{senderText, now, &zone_}, &entry);
        if (sink_->TryPush(std::move(entry))) {
          counters_->received.fetch_add(1, std::memory_order_relaxed);
        } else {
          counters_->udpDropped.fetch_add(1, std::memory_order_relaxed);
        }
        entry = LogEntry();
      }
    }
  }
}

}  // namespace logd::syslog
