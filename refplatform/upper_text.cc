// Upper-casing and case folding of whole texts for case-insensitive comparisons inside the
// reference platform.
#include "upper_text.h"

#include <string.h>

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

}  // namespace

bool UpperText(const char* text, size_t length, std::string* out) {
  return ConvertText(text, length, out, 'a', 'A' - 'a', SLIBCUnicodeUTF8StrUpper);
}

bool FoldText(const char* text, size_t length, std::string* out) {
  return ConvertText(text, length, out, 'A', 'a' - 'A', SLIBCUnicodeUTF8StrFold);
}
