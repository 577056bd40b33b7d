// Turning received bytes into storable message text.
#include "logd/syslog/message_text.h"

#include <string.h>

#include <cstdint>

namespace logd::syslog {
namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";

// Length of the valid UTF-8 sequence at |p| (1 to 4), or 0 when the bytes there are not one.
size_t ValidSequenceLength(const unsigned char* p, size_t left) {
  const unsigned char c = p[0];
  if (c < 0x80) return c == 0 ? 0 : 1;
  size_t n;
  unsigned char lo = 0x80, hi = 0xBF;
  if (c >= 0xC2 && c <= 0xDF) {
    n = 2;
  } else if (c >= 0xE0 && c <= 0xEF) {
    n = 3;
    if (c == 0xE0) lo = 0xA0;  // overlong
    if (c == 0xED) hi = 0x9F;  // surrogates
  } else if (c >= 0xF0 && c <= 0xF4) {
    n = 4;
    if (c == 0xF0) lo = 0x90;  // overlong
    if (c == 0xF4) hi = 0x8F;  // beyond U+10FFFF
  } else {
    return 0;
  }
  if (left < n) return 0;
  if (p[1] < lo || p[1] > hi) return 0;
  for (size_t i = 2; i < n; ++i) {
    if (p[i] < 0x80 || p[i] > 0xBF) return 0;
  }
  return n;
}

}  // namespace

void AppendValidUtf8(std::string_view bytes, std::string* out) {
  const auto* p = reinterpret_cast<const unsigned char*>(bytes.data());
  const size_t size = bytes.size();
  size_t i = 0;
  size_t run_start = 0;  // start of the valid bytes not yet copied
  while (i < size) {
    // The common case, printable ASCII, eight bytes at a time: no byte below 0x20 (the
    // subtraction borrows into its top bit) and none from 0x80 up.
    constexpr uint64_t kOnes = 0x0101010101010101ull;
    uint64_t word;
    if (size - i >= 8 &&
        (memcpy(&word, p + i, 8), ((word - 0x20 * kOnes) | word) & (0x80 * kOnes)) == 0) {
      i += 8;
      continue;
    }
    if (p[i] >= 0x20 && p[i] < 0x80) {
      ++i;
      continue;
    }
    const size_t n = ValidSequenceLength(p + i, size - i);
    if (n > 0) {
      i += n;
      continue;
    }
    out->append(bytes.data() + run_start, i - run_start);
    out->append(kReplacement);
    run_start = ++i;
  }
  out->append(bytes.data() + run_start, size - run_start);
}

void BoundMessage(std::string* text, bool already_cut) {
  if (text->size() > kMaxMessageBytes) {
    size_t end = kMaxMessageBytes - kCutMark.size();
    // Back up to the start of a character (never more than three continuation bytes).
    while (end > 0 && (static_cast<unsigned char>((*text)[end]) & 0xC0) == 0x80) --end;
    text->resize(end);
    already_cut = true;
  }
  if (already_cut) text->append(kCutMark);
}

}  // namespace logd::syslog
