// The syslog receiver of quor-logd: listens on UDP (RFC 5426), TCP (RFC 6587, octet counting
// or lines) and TLS (RFC 5425), parses each message and hands it to an EntrySink.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "logd/log_entry.h"
#include "logd/syslog/receiver_config.h"

namespace logd::syslog {

struct ReceiverCounters {
  std::atomic<uint64_t> received{0};            // messages handed to the sink
  std::atomic<uint64_t> udpDropped{0};          // refused by a full (or closed) queue
  std::atomic<uint64_t> udpRefused{0};          // datagrams from senders outside the allow-list
  std::atomic<uint64_t> connectionsRefused{0};  // connections from outside the allow-list
  std::atomic<uint64_t> connectionsOverLimit{0};
  std::atomic<uint64_t> connectionsTimedOut{0};  // idle, or a TLS handshake not finished
  std::atomic<uint64_t> handshakesFailed{0};
};

// Threads: one per UDP address (it parses and uses TryPush, so it never waits for the writer:
// when the queue is full, datagrams are counted as dropped and reported in a system-log row
// every reportSeconds), and one for every TCP and TLS connection together (it uses Push: when
// the queue is full it stops reading, so the senders' TCP windows close and they wait).
//
// What a stop guarantees: every message read whole from a connection or a datagram before
// Stop() has been handed to the sink when Stop() returns; a frame cut by the stop and
// whatever the kernel still held are dropped. TCP has no acknowledgement above the transport:
// data a sender wrote but the receiver never read is the sender's to send again.
class SyslogReceiver {
 public:
  // |sink| must outlive the receiver.
  SyslogReceiver(SyslogConfig config, EntrySink* sink);
  ~SyslogReceiver();  // stops
  SyslogReceiver(const SyslogReceiver&) = delete;
  SyslogReceiver& operator=(const SyslogReceiver&) = delete;

  // Checks the settings, loads the TLS files and binds every address. Returns false with
  // *error naming the faulty setting or address; nothing is left open then. On success the
  // receiver runs and a system-log row lists where it listens.
  bool Start(std::string* error);
  // Closes the listeners and connections and joins the threads. Waits while a connection's
  // Push waits for room (the writer must still run, or the sink be closed). Idempotent.
  void Stop();

  // The ports bound, in the order of the configuration's lists (port 0 asks the kernel).
  const std::vector<unsigned short>& udpPorts() const { return udpPorts_; }
  const std::vector<unsigned short>& tcpPorts() const { return tcpPorts_; }
  const std::vector<unsigned short>& tlsPorts() const { return tlsPorts_; }
  const ReceiverCounters& counters() const { return counters_; }

  class Impl;  // the listeners and connections, in receiver.cc

 private:
  std::unique_ptr<Impl> impl_;
  EntrySink* sink_;
  std::vector<unsigned short> udpPorts_, tcpPorts_, tlsPorts_;
  ReceiverCounters counters_;
};

}  // namespace logd::syslog
