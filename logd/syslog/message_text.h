// Turning received bytes into storable message text: valid UTF-8, bounded length.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "logd/journal_mapping.h"  // kMaxMessageBytes, the same bound for every input

namespace logd::syslog {

using logd::kMaxMessageBytes;
// Ends a message that was cut, as the journal's rows do.
constexpr std::string_view kCutMark = " [cut]";

// Appends |bytes| to |out| with every byte that does not start a valid UTF-8 character, and
// every NUL, replaced by U+FFFD. Never fails.
void AppendValidUtf8(std::string_view bytes, std::string* out);

// Cuts |text| on a character boundary so that, with kCutMark added, it holds at most
// kMaxMessageBytes, when it is longer than that or when |already_cut| (the input was cut before
// it reached the parser).
void BoundMessage(std::string* text, bool already_cut);

}  // namespace logd::syslog
