// Splitting a syslog TCP stream into messages (RFC 6587): octet counting ("LEN SP MSG") or
// one message per line, detected from the first byte of the connection. Pure and incremental:
// bytes go in as they arrive, in pieces of any size; whole frames come out.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace logd::syslog {

class TcpFramer {
 public:
  enum class Framing { kUnknown, kOctetCounting, kLineFeed };
  // Called once per frame with the frame's bytes (at most |max_frame| of them) and whether
  // the frame was longer and cut. The view is valid during the call only.
  using FrameHandler = std::function<void(std::string_view frame, bool cut)>;

  explicit TcpFramer(size_t max_frame);

  // Feeds the next bytes of the stream; calls |handler| for every frame they complete.
  // Memory stays below about |max_frame| plus one read, whatever the input.
  void Feed(std::string_view bytes, const FrameHandler& handler);
  // At the end of the stream: a line without its line end is still a message; an octet-counted
  // frame that ended early is delivered as cut. Resets the framer for a new stream.
  void Finish(const FrameHandler& handler);

  Framing framing() const { return framing_; }

 private:
  void FeedLines(std::string_view bytes, const FrameHandler& handler);
  void FeedCounted(std::string_view bytes, const FrameHandler& handler);
  void AddToFrame(std::string_view bytes);

  size_t max_frame_;
  Framing framing_ = Framing::kUnknown;
  std::string frame_;  // the current frame's bytes so far (at most max_frame_)
  bool frame_cut_ = false;
  // Octet counting: reading the length (digits so far) or the body (bytes still to come).
  bool in_length_ = true;
  size_t length_digits_ = 0;
  size_t remaining_ = 0;
};

}  // namespace logd::syslog
