// libFuzzer target: the syslog parser over both formats, and the TCP framer over both framings.
// The first input byte picks the zone, the framer's frame limit and how the rest is split into
// reads; every frame the framer gives is parsed too.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "logd/syslog/message_text.h"
#include "logd/syslog/syslog_parser.h"
#include "logd/syslog/tcp_framer.h"

namespace {

// The parser's promises, checked on every input.
void CheckEntry(const logd::LogEntry& entry) {
  if (entry.level < 1 || entry.level > 3) __builtin_trap();
  if (entry.message.size() > logd::syslog::kMaxMessageBytes) __builtin_trap();
  // Valid UTF-8 without NUL: repairing it again changes nothing.
  std::string again;
  logd::syslog::AppendValidUtf8(entry.message, &again);
  if (again != entry.message) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const uint8_t control = data[0];
  const std::string_view input(reinterpret_cast<const char*>(data + 1), size - 1);

  static const logd::syslog::TimeZoneSetting* zones[3] = {};
  if (zones[0] == nullptr) {
    static logd::syslog::TimeZoneSetting utc, east, local;
    utc.Set("UTC");
    east.Set("+05:45");
    local.Set("local");
    zones[0] = &utc;
    zones[1] = &east;
    zones[2] = &local;
  }
  logd::syslog::ParseContext context{"2001:db8::7", 1795000000 + (control & 0x3F) * 86400 * 7,
                                     zones[control % 3]};

  logd::LogEntry entry;
  logd::syslog::ParseSyslogMessage(input, (control & 0x40) != 0, context, &entry);
  CheckEntry(entry);

  const size_t max_frame = (control & 0x80) ? 16 : logd::syslog::kMaxMessageBytes;
  logd::syslog::TcpFramer framer(max_frame);
  size_t frames = 0;
  const auto handler = [&](std::string_view frame, bool cut) {
    if (frame.size() > max_frame) __builtin_trap();
    ++frames;
    logd::LogEntry e;
    logd::syslog::ParseSyslogMessage(frame, cut, context, &e);
    CheckEntry(e);
  };
  const size_t piece = 1 + (control % 13);
  for (size_t i = 0; i < input.size(); i += piece) framer.Feed(input.substr(i, piece), handler);
  framer.Finish(handler);
  if (frames > input.size()) __builtin_trap();
  return 0;
}
