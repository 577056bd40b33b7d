// Full case folding of texts and terms.
#include "index/text_fold.h"

#include <string.h>

#include "platform/slibc.h"

void FoldText(const char* text, size_t length, std::string* out) {
  out->assign(text, length);
  bool ascii = true;
  for (char& c : *out) {
    if (static_cast<unsigned char>(c) >= 0x80) {
      ascii = false;
      break;
    }
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  if (ascii) return;
  // Folding grows a UTF-8 text at most threefold (U+0390 becomes three letters).
  std::string source(text, length);
  for (size_t factor : {3, 6}) {
    out->resize(length * factor + 1);
    if (SLIBCUnicodeUTF8StrFold(source.c_str(), &(*out)[0], out->size()) == 0) {
      out->resize(strlen(out->c_str()));
      return;
    }
  }
  out->assign(text, length);
}

bool FoldedContains(const char* text, const std::string& folded) {
  if (text == nullptr || text[0] == '\0' || folded.empty()) return false;
  thread_local std::string buffer;
  FoldText(text, strlen(text), &buffer);
  return buffer.find(folded) != std::string::npos;
}
