// Upper-casing and case folding of whole texts for case-insensitive comparisons inside the
// reference platform.
#include "upper_text.h"

#include <string.h>
#include <unicode/uset.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <vector>

#include "platform/slibc.h"

namespace {

// ASCII letters go from one case (first..first+25) to the other by adding shift; the rest of
// the text goes through convert when it is not all ASCII.
bool ConvertText(const char* text, size_t length, std::string* out, char first, int shift,
                 int (*convert)(const char*, char*, size_t)) {
  out->resize(length);
  bool ascii = true;
  for (size_t i = 0; i < length; ++i) {
    unsigned char c = static_cast<unsigned char>(text[i]);
    if (c >= 0x80) {
      ascii = false;
      break;
    }
    (*out)[i] = static_cast<char>(c >= first && c <= first + 25 ? c + shift : c);
  }
  if (ascii) return true;
  // Full case mapping grows a UTF-8 text at most threefold (U+0390 becomes three letters).
  for (size_t factor : {3, 6}) {
    out->resize(length * factor + 1);
    if (convert(text, &(*out)[0], out->size()) == 0) {
      out->resize(strlen(out->c_str()));
      return true;
    }
  }
  return false;
}

bool HasAsciiByte(const std::string& text) {
  return std::any_of(text.begin(), text.end(),
                     [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

// The characters beyond ASCII whose upper case or case folding holds an ASCII byte ("ß" folds
// to "ss", "\u0131" upper-cases to "I", "\ufb01" to "FI"), in order. ICU names the few
// thousand characters that change at all; each of those is converted once.
const std::vector<UChar32>& CharactersMappedIntoAscii() {
  static const std::vector<UChar32> characters = [] {
    std::vector<UChar32> found;
    UErrorCode status = U_ZERO_ERROR;
    static const UChar kPattern[] = u"[[:Changes_When_Casefolded:][:Changes_When_Uppercased:]]";
    USet* changing = uset_openPattern(kPattern, -1, &status);
    if (U_FAILURE(status)) return found;
    std::string converted;
    for (int32_t i = 0; i < uset_getRangeCount(changing); ++i) {
      UChar32 first = 0, last = 0;
      uset_getItem(changing, i, &first, &last, nullptr, 0, &status);
      for (UChar32 c = std::max<UChar32>(first, 0x80); c <= last; ++c) {
        char utf8[U8_MAX_LENGTH + 1] = {};
        int32_t length = 0;
        UBool error = false;
        U8_APPEND(utf8, length, U8_MAX_LENGTH, c, error);
        if (error) continue;
        if ((UpperText(utf8, length, &converted) && HasAsciiByte(converted)) ||
            (FoldText(utf8, length, &converted) && HasAsciiByte(converted))) {
          found.push_back(c);
        }
      }
    }
    uset_close(changing);
    return found;
  }();
  return characters;
}

}  // namespace

bool NonAsciiStaysNonAscii(const char* text, size_t length) {
  const std::vector<UChar32>& mapped = CharactersMappedIntoAscii();
  if (mapped.empty()) return false;  // ICU could not name them: every text is converted
  auto bytes = reinterpret_cast<const uint8_t*>(text);
  int32_t i = 0, n = static_cast<int32_t>(length);
  if (length > INT32_MAX) return false;
  while (i < n) {
    if (bytes[i] < 0x80) {
      ++i;
      continue;
    }
    UChar32 c = 0;
    U8_NEXT(bytes, i, n, c);
    if (c < 0 || std::binary_search(mapped.begin(), mapped.end(), c)) return false;
  }
  return true;
}

bool UpperText(const char* text, size_t length, std::string* out) {
  return ConvertText(text, length, out, 'a', 'A' - 'a', SLIBCUnicodeUTF8StrUpper);
}

bool FoldText(const char* text, size_t length, std::string* out) {
  return ConvertText(text, length, out, 'A', 'a' - 'A', SLIBCUnicodeUTF8StrFold);
}
