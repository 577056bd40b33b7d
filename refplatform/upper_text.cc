// Upper-casing whole texts for case-insensitive comparisons inside the reference platform.
#include "upper_text.h"

#include <string.h>

#include "platform/slibc.h"

bool UpperText(const char* text, size_t length, std::string* out) {
  out->resize(length);
  bool ascii = true;
  for (size_t i = 0; i < length; ++i) {
    unsigned char c = static_cast<unsigned char>(text[i]);
    if (c >= 0x80) {
      ascii = false;
      break;
    }
    (*out)[i] = static_cast<char>(c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c);
  }
  if (ascii) return true;
  // Full case mapping grows a UTF-8 text at most threefold (U+0390 becomes three letters).
  for (size_t factor : {3, 6}) {
    out->resize(length * factor + 1);
    if (SLIBCUnicodeUTF8StrUpper(text, &(*out)[0], out->size()) == 0) {
      out->resize(strlen(out->c_str()));
      return true;
    }
  }
  return false;
}
