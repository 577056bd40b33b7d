// The syslog receiver: the TCP and TLS listeners and their connections on one Boost.Asio
// thread, the UDP listeners on threads of their own, and the periodic report of what was
// dropped or refused.
#include "logd/syslog/receiver.h"

#include <pthread.h>
#include <time.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ip/v6_only.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <map>
#include <optional>
#include <thread>
#include <unordered_set>

#include "logd/syslog/address_filter.h"
#include "logd/syslog/message_text.h"
#include "logd/syslog/syslog_parser.h"
#include "logd/syslog/tcp_framer.h"
#include "logd/syslog/udp_listener.h"

namespace logd::syslog {

namespace asio = boost::asio;
using asio::ip::tcp;
using Clock = std::chrono::steady_clock;

namespace {

constexpr size_t kReadSize = 64 * 1024;

// Resolves "ADDR:PORT" ("*" is every IPv4 and IPv6 address). The address was checked before.
asio::ip::address ListenAddress(const std::string& text, unsigned short* port, bool* dualStack) {
  std::string host;
  ParseListenAddress(text, &host, port);
  *dualStack = host == "*";
  return *dualStack ? asio::ip::address(asio::ip::address_v6::any()) : asio::ip::make_address(host);
}

LogEntry ReceiverRow(int level, std::string message) {
  LogEntry entry;
  entry.time = ::time(nullptr);
  entry.level = level;
  entry.user = kSystemUser;
  entry.message = std::move(message);
  return entry;
}

}  // namespace

// One TCP or TLS connection; lives on the I/O thread only.
class SessionBase {
 public:
  virtual ~SessionBase() = default;
  virtual void Close() = 0;
};

class SyslogReceiver::Impl {
 public:
  Impl(SyslogConfig config, EntrySink* sink, ReceiverCounters* counters)
      : config_(std::move(config)), sink_(sink), counters_(counters) {}

  bool Start(std::vector<unsigned short>* udpPorts, std::vector<unsigned short>* tcpPorts,
             std::vector<unsigned short>* tlsPorts, std::string* error);
  void Stop();

  // Called by sessions on the I/O thread.
  void Deliver(std::string_view frame, bool cut, const std::string& sender, bool* open);
  void Forget(SessionBase* session, const asio::ip::address& address);
  const SyslogConfig& config() const { return config_; }
  ReceiverCounters* counters() { return counters_; }

 private:
  struct Listener {
    explicit Listener(asio::io_context& io) : acceptor(io), retry(io) {}
    tcp::acceptor acceptor;
    asio::steady_timer retry;
    bool tls = false;
  };

  bool Listen(const std::string& text, bool tls, std::vector<unsigned short>* ports,
              std::string* error);
  bool LoadTls(std::string* error);
  void Accept(Listener* listener);
  void Admit(Listener* listener, tcp::socket socket);
  void ScheduleReport();
  void Report();

  SyslogConfig config_;
  EntrySink* sink_;
  ReceiverCounters* counters_;
  AddressFilter filter_;
  TimeZoneSetting zone_;  // the I/O thread's copy
  asio::io_context io_{1};
  std::optional<asio::ssl::context> tls_;
  std::vector<std::unique_ptr<Listener>> listeners_;
  std::vector<std::unique_ptr<UdpListener>> udp_;
  std::unordered_set<SessionBase*> sessions_;
  std::map<asio::ip::address, size_t> perAddress_;
  std::optional<asio::steady_timer> reportTimer_;
  // Set on the I/O thread when Stop begins: a handler already queued then (an accept, a
  // timer that fired before it was cancelled) must start nothing new, or run() never returns.
  bool stopping_ = false;
  // Counts already reported: a report that the full queue refuses is retried with the sum.
  uint64_t reportedDropped_ = 0, reportedRefused_ = 0, reportedConnRefused_ = 0,
           reportedOverLimit_ = 0;
  std::thread thread_;
};

namespace {

// A connection over Stream (a TCP socket or a TLS stream on one): reads, frames, parses and
// pushes, with a deadline for the handshake and then for silence.
template <class Stream>
class Session : public SessionBase, public std::enable_shared_from_this<Session<Stream>> {
 public:
  template <class... StreamArgs>
  Session(SyslogReceiver::Impl* owner, asio::ip::address peer, StreamArgs&&... args)
      : owner_(owner),
        peer_(peer),
        sender_(AddressText(peer)),
        stream_(std::forward<StreamArgs>(args)...),
        timer_(stream_.get_executor()),
        framer_(kMaxMessageBytes),
        buffer_(new char[kReadSize]) {
    onFrame_ = [this](std::string_view frame, bool cut) {
      if (open_) owner_->Deliver(frame, cut, sender_, &open_);
    };
  }
  ~Session() override { owner_->Forget(this, peer_); }

  void Begin();
  void Close() override {
    if (closed_) return;
    open_ = false;
    closed_ = true;
    boost::system::error_code ignored;
    stream_.lowest_layer().shutdown(tcp::socket::shutdown_both, ignored);
    stream_.lowest_layer().close(ignored);
    timer_.cancel();
  }

 private:
  void Read() {
    auto self = this->shared_from_this();
    stream_.async_read_some(
        asio::buffer(buffer_.get(), kReadSize),
        [this, self](const boost::system::error_code& ec, size_t n) {
          if (closed_) return;
          if (ec) {
            // The peer's end of the stream (with or without TLS
            // close_notify): a last line without its line end counts.
            if (ec == asio::error::eof || ec == asio::ssl::error::stream_truncated) {
              framer_.Finish(onFrame_);
            }
            Close();
            return;
          }
          lastRead_ = Clock::now();
          framer_.Feed(std::string_view(buffer_.get(), n), onFrame_);
          if (!open_) return Close();
          Read();
        });
  }

  // Handshake deadline first, then the idle deadline measured from the last read.
  void Watch(Clock::time_point deadline) {
    auto self = this->shared_from_this();
    timer_.expires_at(deadline);
    timer_.async_wait([this, self](const boost::system::error_code& ec) {
      if (ec || closed_) return;
      const auto idle = std::chrono::seconds(owner_->config().idleTimeoutSeconds);
      if (ready_ && Clock::now() - lastRead_ < idle) return Watch(lastRead_ + idle);
      owner_->counters()->connectionsTimedOut.fetch_add(1, std::memory_order_relaxed);
      Close();
    });
  }

  SyslogReceiver::Impl* owner_;
  asio::ip::address peer_;
  std::string sender_;
  Stream stream_;
  asio::steady_timer timer_;
  TcpFramer framer_;
  std::unique_ptr<char[]> buffer_;
  TcpFramer::FrameHandler onFrame_;
  Clock::time_point lastRead_ = Clock::now();
  bool ready_ = false;  // handshake done (always, without TLS)
  bool open_ = true;    // frames are still delivered
  bool closed_ = false;
};

template <>
void Session<tcp::socket>::Begin() {
  ready_ = true;
  Watch(lastRead_ + std::chrono::seconds(owner_->config().idleTimeoutSeconds));
  Read();
}

template <>
void Session<asio::ssl::stream<tcp::socket>>::Begin() {
  Watch(Clock::now() + std::chrono::seconds(owner_->config().handshakeTimeoutSeconds));
  auto self = shared_from_this();
  stream_.async_handshake(
      asio::ssl::stream_base::server, [this, self](const boost::system::error_code& ec) {
        if (closed_) return;
        if (ec) {
          owner_->counters()->handshakesFailed.fetch_add(1, std::memory_order_relaxed);
          return Close();
        }
        ready_ = true;
        lastRead_ = Clock::now();
        Read();
      });
}

}  // namespace

bool SyslogReceiver::Impl::LoadTls(std::string* error) {
  tls_.emplace(asio::ssl::context::tls_server);
  boost::system::error_code ec;
  tls_->set_options(asio::ssl::context::default_workarounds | asio::ssl::context::no_sslv2 |
                        asio::ssl::context::no_sslv3 | asio::ssl::context::no_tlsv1 |
                        asio::ssl::context::no_tlsv1_1 | asio::ssl::context::single_dh_use,
                    ec);
  const auto fail = [&](const std::string& what) {
    *error = what + ": " + ec.message();
    return false;
  };
  if (tls_->use_certificate_chain_file(config_.certFile, ec)) {
    return fail("cannot load the TLS certificate " + config_.certFile);
  }
  if (tls_->use_private_key_file(config_.keyFile, asio::ssl::context::pem, ec)) {
    return fail("cannot load the TLS key " + config_.keyFile);
  }
  if (!config_.caFile.empty()) {
    if (tls_->load_verify_file(config_.caFile, ec)) {
      return fail("cannot load the client CA " + config_.caFile);
    }
    tls_->set_verify_mode(asio::ssl::verify_peer | asio::ssl::verify_fail_if_no_peer_cert, ec);
  }
  return true;
}

bool SyslogReceiver::Impl::Listen(const std::string& text, bool tls,
                                  std::vector<unsigned short>* ports, std::string* error) {
  unsigned short port = 0;
  bool dualStack = false;
  const asio::ip::address address = ListenAddress(text, &port, &dualStack);
  const tcp::endpoint endpoint(address, port);
  auto listener = std::make_unique<Listener>(io_);
  listener->tls = tls;
  tcp::acceptor& a = listener->acceptor;
  boost::system::error_code ec;
  a.open(endpoint.protocol(), ec);
  if (!ec && endpoint.address().is_v6()) a.set_option(asio::ip::v6_only(!dualStack), ec);
  if (!ec) a.set_option(tcp::acceptor::reuse_address(true), ec);
  if (!ec) a.bind(endpoint, ec);
  if (!ec) a.listen(asio::socket_base::max_listen_connections, ec);
  if (ec) {
    *error = "cannot listen on " + text + (tls ? " (tls): " : " (tcp): ") + ec.message();
    return false;
  }
  ports->push_back(a.local_endpoint(ec).port());
  listeners_.push_back(std::move(listener));
  return true;
}

bool SyslogReceiver::Impl::Start(std::vector<unsigned short>* udpPorts,
                                 std::vector<unsigned short>* tcpPorts,
                                 std::vector<unsigned short>* tlsPorts, std::string* error) {
  if (!CheckSyslogConfig(config_, error)) return false;
  for (const std::string& network : config_.allow) filter_.Add(network, error);
  zone_.Set(config_.timeZone);
  if (!config_.tls.empty() && !LoadTls(error)) return false;
  std::string where;
  for (const std::string& text : config_.udp) {
    unsigned short port = 0;
    bool dualStack = false;
    const asio::ip::address address = ListenAddress(text, &port, &dualStack);
    auto udp = std::make_unique<UdpListener>(sink_, &filter_, zone_, counters_);
    if (!udp->Bind(asio::ip::udp::endpoint(address, port), dualStack, config_.receiveBuffer,
                   error)) {
      return false;
    }
    udpPorts->push_back(udp->port());
    where +=
        " udp " + text + " (receive buffer " + std::to_string(udp->receiveBuffer() >> 10) + " KiB";
    // The kernel reports twice what it grants as payload room; less than asked means
    // net.core.rmem_max capped it.
    if (udp->receiveBuffer() < config_.receiveBuffer * 2) {
      where += ", asked for " + std::to_string(config_.receiveBuffer >> 10) +
               " KiB: raise net.core.rmem_max";
    }
    where += ")";
    udp_.push_back(std::move(udp));
  }
  for (const std::string& text : config_.tcp) {
    if (!Listen(text, false, tcpPorts, error)) return false;
    where += " tcp " + text;
  }
  for (const std::string& text : config_.tls) {
    if (!Listen(text, true, tlsPorts, error)) return false;
    where += " tls " + text;
  }
  sink_->Push(ReceiverRow(1, "syslog receiver listening on" + where));
  for (auto& listener : listeners_) Accept(listener.get());
  reportTimer_.emplace(io_);
  ScheduleReport();
  for (auto& udp : udp_) udp->Start();
  thread_ = std::thread([this] {
    pthread_setname_np(pthread_self(), "syslog-tcp");  // for top -H and the benchmarks
    io_.run();
  });
  return true;
}

void SyslogReceiver::Impl::Accept(Listener* listener) {
  listener->acceptor.async_accept(
      [this, listener](const boost::system::error_code& ec, tcp::socket socket) {
        if (ec == asio::error::operation_aborted || stopping_) return;
        if (!ec) {
          Admit(listener, std::move(socket));
          Accept(listener);
          return;
        }
        // Out of descriptors or a similar passing fault: try again shortly rather than spin.
        listener->retry.expires_after(std::chrono::milliseconds(100));
        listener->retry.async_wait([this, listener](const boost::system::error_code& wait) {
          if (!wait && !stopping_) Accept(listener);
        });
      });
}

void SyslogReceiver::Impl::Admit(Listener* listener, tcp::socket socket) {
  boost::system::error_code ec;
  const asio::ip::address peer = Unmapped(socket.remote_endpoint(ec).address());
  if (ec) return;  // already gone
  if (!filter_.Allows(peer)) {
    counters_->connectionsRefused.fetch_add(1, std::memory_order_relaxed);
    return;  // the socket closes as it goes out of scope
  }
  size_t& fromPeer = perAddress_[peer];
  if (sessions_.size() >= config_.maxConnections || fromPeer >= config_.maxPerAddress) {
    if (fromPeer == 0) perAddress_.erase(peer);
    counters_->connectionsOverLimit.fetch_add(1, std::memory_order_relaxed);
    return;
  }
  ++fromPeer;
  std::shared_ptr<SessionBase> session;
  if (listener->tls) {
    auto s = std::make_shared<Session<asio::ssl::stream<tcp::socket>>>(this, peer,
                                                                       std::move(socket), *tls_);
    sessions_.insert(s.get());
    s->Begin();
  } else {
    auto s = std::make_shared<Session<tcp::socket>>(this, peer, std::move(socket));
    sessions_.insert(s.get());
    s->Begin();
  }
}

void SyslogReceiver::Impl::Forget(SessionBase* session, const asio::ip::address& address) {
  sessions_.erase(session);
  auto it = perAddress_.find(address);
  if (it != perAddress_.end() && --it->second == 0) perAddress_.erase(it);
}

void SyslogReceiver::Impl::Deliver(std::string_view frame, bool cut, const std::string& sender,
                                   bool* open) {
  LogEntry entry;
  ParseSyslogMessage(frame, cut, ParseContext{sender, ::time(nullptr), &zone_}, &entry);
  if (sink_->Push(std::move(entry))) {
    counters_->received.fetch_add(1, std::memory_order_relaxed);
  } else {
    *open = false;  // the sink closed: the daemon stops
  }
}

void SyslogReceiver::Impl::ScheduleReport() {
  reportTimer_->expires_after(std::chrono::seconds(config_.reportSeconds));
  reportTimer_->async_wait([this](const boost::system::error_code& ec) {
    if (ec || stopping_) return;
    Report();
    ScheduleReport();
  });
}

// One warning row for what was dropped or refused since the last row, if anything was.
void SyslogReceiver::Impl::Report() {
  const uint64_t dropped = counters_->udpDropped.load();
  const uint64_t refused = counters_->udpRefused.load();
  const uint64_t connRefused = counters_->connectionsRefused.load();
  const uint64_t overLimit = counters_->connectionsOverLimit.load();
  std::string text;
  const auto add = [&text](uint64_t now, uint64_t before, const char* what) {
    if (now == before) return;
    text += (text.empty() ? " " : ", ") + std::to_string(now - before) + what;
  };
  add(dropped, reportedDropped_, " UDP messages dropped because the queue was full");
  add(refused, reportedRefused_, " UDP messages from senders outside syslog_allow ignored");
  add(connRefused, reportedConnRefused_, " connections from outside syslog_allow refused");
  add(overLimit, reportedOverLimit_, " connections over the connection limits refused");
  if (text.empty()) return;
  if (!sink_->TryPush(ReceiverRow(2, "syslog receiver:" + text))) return;  // next time, summed
  reportedDropped_ = dropped;
  reportedRefused_ = refused;
  reportedConnRefused_ = connRefused;
  reportedOverLimit_ = overLimit;
}

void SyslogReceiver::Impl::Stop() {
  for (auto& udp : udp_) udp->Stop();
  if (thread_.joinable()) {
    asio::post(io_, [this] {
      stopping_ = true;
      for (auto& listener : listeners_) {
        boost::system::error_code ignored;
        listener->acceptor.close(ignored);
        listener->retry.cancel();
      }
      if (reportTimer_) reportTimer_->cancel();
      // Close() may end a session at once: iterate over a copy.
      const std::vector<SessionBase*> open(sessions_.begin(), sessions_.end());
      for (SessionBase* session : open) session->Close();
    });
    thread_.join();
  }
  Report();
}

SyslogReceiver::SyslogReceiver(SyslogConfig config, EntrySink* sink)
    : impl_(std::make_unique<Impl>(std::move(config), sink, &counters_)), sink_(sink) {}

SyslogReceiver::~SyslogReceiver() { Stop(); }

bool SyslogReceiver::Start(std::string* error) {
  if (impl_->Start(&udpPorts_, &tcpPorts_, &tlsPorts_, error)) return true;
  impl_ = std::make_unique<Impl>(impl_->config(), sink_, &counters_);  // closes what opened
  return false;
}

void SyslogReceiver::Stop() { impl_->Stop(); }

}  // namespace logd::syslog
