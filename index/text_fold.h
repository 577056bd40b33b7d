// Unicode default caseless matching (full case folding) of the search module's terms and of the
// text the search index holds, so that the index and a scan agree on every match.
#pragma once

#include <string>

// The full case folding of the UTF-8 text into *out (ASCII takes a fast path with the same
// result). A text that cannot be folded is kept as it is.
void FoldText(const char* text, size_t length, std::string* out);
inline std::string Folded(const std::string& text) {
  std::string out;
  FoldText(text.data(), text.size(), &out);
  return out;
}

// True when the folding of text contains folded (already folded, not empty).
bool FoldedContains(const char* text, const std::string& folded);
