// Splitting a syslog TCP stream into messages.
#include "logd/syslog/tcp_framer.h"

#include <string.h>

#include <algorithm>

namespace logd::syslog {
namespace {

// A length longer than this many digits is no octet count (a frame is at most 2^31 bytes).
constexpr size_t kMaxLengthDigits = 10;

}  // namespace

TcpFramer::TcpFramer(size_t max_frame) : max_frame_(max_frame) {}

void TcpFramer::AddToFrame(std::string_view bytes) {
  const size_t room = max_frame_ - std::min(max_frame_, frame_.size());
  if (bytes.size() > room) frame_cut_ = true;
  frame_.append(bytes.data(), std::min(room, bytes.size()));
}

void TcpFramer::Feed(std::string_view bytes, const FrameHandler& handler) {
  if (framing_ == Framing::kUnknown) {
    // Skip line ends before the first frame; then a digit starts an octet count.
    size_t i = 0;
    while (i < bytes.size() && (bytes[i] == '\n' || bytes[i] == '\r' || bytes[i] == '\0')) ++i;
    bytes.remove_prefix(i);
    if (bytes.empty()) return;
    framing_ = bytes[0] >= '1' && bytes[0] <= '9' ? Framing::kOctetCounting : Framing::kLineFeed;
  }
  if (framing_ == Framing::kOctetCounting) {
    FeedCounted(bytes, handler);
  } else {
    FeedLines(bytes, handler);
  }
}

void TcpFramer::FeedLines(std::string_view bytes, const FrameHandler& handler) {
  while (!bytes.empty()) {
    // Some senders end messages with NUL instead of LF.
    const void* lf = memchr(bytes.data(), '\n', bytes.size());
    size_t end = lf ? static_cast<const char*>(lf) - bytes.data() : bytes.size();
    if (const void* nul = memchr(bytes.data(), '\0', end)) {
      end = static_cast<const char*>(nul) - bytes.data();
    }
    if (end == bytes.size()) {
      AddToFrame(bytes);
      return;
    }
    std::string_view line = bytes.substr(0, end);
    bytes.remove_prefix(end + 1);
    if (frame_.empty() && !frame_cut_) {
      // The whole line is in this read: no copy.
      const bool cut = line.size() > max_frame_;
      line = line.substr(0, max_frame_);
      if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
      if (!line.empty() || cut) handler(line, cut);
      continue;
    }
    AddToFrame(line);
    if (!frame_.empty() && frame_.back() == '\r') frame_.pop_back();
    if (!frame_.empty() || frame_cut_) handler(frame_, frame_cut_);
    frame_.clear();
    frame_cut_ = false;
  }
}

void TcpFramer::FeedCounted(std::string_view bytes, const FrameHandler& handler) {
  while (!bytes.empty()) {
    if (in_length_) {
      const char c = bytes[0];
      if (c >= '0' && c <= '9' && length_digits_ < kMaxLengthDigits) {
        remaining_ = remaining_ * 10 + static_cast<size_t>(c - '0');
        ++length_digits_;
        bytes.remove_prefix(1);
        continue;
      }
      if (c == ' ' && length_digits_ > 0) {
        bytes.remove_prefix(1);
        in_length_ = false;
        length_digits_ = 0;
        if (remaining_ == 0) in_length_ = true;  // an empty frame
        continue;
      }
      if ((c == '\n' || c == '\r') && length_digits_ == 0) {  // a stray line end between frames
        bytes.remove_prefix(1);
        continue;
      }
      // Not an octet count: the sender frames by lines after all. What was read as a length
      // is the start of that line; nothing is lost.
      std::string digits = std::to_string(remaining_);
      if (length_digits_ == 0) digits.clear();
      framing_ = Framing::kLineFeed;
      in_length_ = true;
      length_digits_ = 0;
      remaining_ = 0;
      AddToFrame(digits);
      FeedLines(bytes, handler);
      return;
    }
    const size_t take = std::min(remaining_, bytes.size());
    if (take == remaining_ && frame_.empty() && !frame_cut_ && take <= max_frame_) {
      handler(bytes.substr(0, take), false);  // the whole frame is in this read: no copy
    } else {
      AddToFrame(bytes.substr(0, take));
      if (take == remaining_) {
        handler(frame_, frame_cut_);
        frame_.clear();
        frame_cut_ = false;
      }
    }
    remaining_ -= take;
    bytes.remove_prefix(take);
    if (remaining_ == 0) in_length_ = true;
  }
}

void TcpFramer::Finish(const FrameHandler& handler) {
  if (framing_ == Framing::kLineFeed) {
    if (!frame_.empty() && frame_.back() == '\r') frame_.pop_back();
    if (!frame_.empty() || frame_cut_) handler(frame_, frame_cut_);
  } else if (framing_ == Framing::kOctetCounting && !in_length_) {
    if (!frame_.empty()) handler(frame_, true);
  }
  frame_.clear();
  frame_cut_ = false;
  framing_ = Framing::kUnknown;
  in_length_ = true;
  length_digits_ = 0;
  remaining_ = 0;
}

}  // namespace logd::syslog
