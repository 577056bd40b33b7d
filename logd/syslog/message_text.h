// Turning received bytes into storable message text: valid UTF-8, bounded length.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace logd::syslog {

// The longest message stored, in bytes, before the mark is added.
constexpr size_t kMaxMessageBytes = 64 * 1024;
// Appended to a message that was cut.
constexpr std::string_view kCutMark = " [cut]";

// Appends |bytes| to |out| with every byte that does not start a valid UTF-8 character, and
// every NUL, replaced by U+FFFD. Never fails.
void AppendValidUtf8(std::string_view bytes, std::string* out);

// Cuts |text| to at most kMaxMessageBytes on a character boundary and adds kCutMark when
// |text| is longer or when |already_cut| (the input was cut before it reached the parser).
void BoundMessage(std::string* text, bool already_cut);

}  // namespace logd::syslog
