// Case-insensitive literal containment as an SQL function, and the conditions that use it.
// An ASCII keyword is looked for in each text lower-cased eight bytes at a time, and a text is
// converted through ICU only when one of its characters beyond ASCII converts into ASCII: a
// per-row trip through ICU would dominate a keyword search over a large log.
#include "sql_contains.h"

#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "platform/logdb.h"
#include "upper_text.h"

namespace {

// The statement's keyword, prepared once: upper-cased (or folded), and when it is all ASCII,
// with its ASCII letters lower-cased for the in-place comparison.
struct PreparedKeyword {
  std::string converted;
  std::string asciiLower;
  bool ascii = true;
  std::string textLower;  // each text lower-cased in turn (one statement runs on one thread)
};

// How a function compares: both texts converted by convert (UpperText or FoldText).
using Converter = bool (*)(const char*, size_t, std::string*);

void DeletePrepared(void* p) { delete static_cast<PreparedKeyword*>(p); }

bool HasHighByte(const char* text) {
  for (; *text != '\0'; ++text) {
    if (static_cast<unsigned char>(*text) >= 0x80) return true;
  }
  return false;
}

// Copies text into out with its ASCII letters lower-cased, eight bytes at a time; returns
// whether any byte is beyond ASCII. A keyword search reads every row's text once this way.
bool LowerAscii(const char* text, size_t length, char* out) {
  const uint64_t kOnes = 0x0101010101010101ull, kHigh = kOnes * 0x80;
  uint64_t seen = 0;
  size_t i = 0;
  for (; i + 8 <= length; i += 8) {
    uint64_t x;
    memcpy(&x, text + i, 8);
    uint64_t low7 = x & ~kHigh;
    // A byte's top bit is set in aboveZ when its low seven bits exceed 'Z', in fromA when they
    // reach 'A'; no byte carries into the next.
    uint64_t aboveZ = low7 + kOnes * (0x7f - 'Z');
    uint64_t fromA = low7 + kOnes * (0x80 - 'A');
    uint64_t upper = fromA & ~aboveZ & ~x & kHigh;
    seen |= x;
    x |= upper >> 2;  // 0x80 >> 2 is the case bit 0x20
    memcpy(out + i, &x, 8);
  }
  for (; i < length; ++i) {
    unsigned char c = static_cast<unsigned char>(text[i]);
    seen |= c;
    out[i] = static_cast<char>(c >= 'A' && c <= 'Z' ? c + ('a' - 'A') : c);
  }
  return (seen & kHigh) != 0;
}

// The keyword prepared and kept with the statement; null, with the function's answer set, when
// it cannot be converted (no text contains it) or kept.
PreparedKeyword* Prepare(sqlite3_context* context, const char* keyword, Converter convert) {
  auto* prepared = new PreparedKeyword;
  prepared->ascii = !HasHighByte(keyword);
  if (!convert(keyword, strlen(keyword), &prepared->converted)) {
    delete prepared;
    sqlite3_result_int(context, 0);
    return nullptr;
  }
  if (prepared->ascii) {
    prepared->asciiLower.resize(strlen(keyword));
    LowerAscii(keyword, prepared->asciiLower.size(), &prepared->asciiLower[0]);
  }
  sqlite3_set_auxdata(context, 1, prepared, DeletePrepared);
  prepared = static_cast<PreparedKeyword*>(sqlite3_get_auxdata(context, 1));
  if (prepared == nullptr) sqlite3_result_error_nomem(context);  // SQLite deleted it
  return prepared;
}

// 1 when text holds the ASCII keyword under full case mapping (or folding), 0 when it cannot,
// -1 when only converting the whole text can tell.
int FindAsciiKeyword(const char* text, size_t length, PreparedKeyword* keyword) {
  std::string& lowered = keyword->textLower;
  if (lowered.size() < length) lowered.resize(length);
  bool beyondAscii = LowerAscii(text, length, &lowered[0]);
  // Found ignoring ASCII case, it is found converted too: those bytes are ASCII and convert in
  // place. Not found, the answer stands while no character beyond ASCII converts into ASCII
  // letters ("ß" folds into "ss").
  if (memmem(lowered.data(), length, keyword->asciiLower.data(), keyword->asciiLower.size()) !=
      nullptr) {
    return 1;
  }
  return !beyondAscii || NonAsciiStaysNonAscii(text, length) ? 0 : -1;
}

void ContainsFunction(sqlite3_context* context, int, sqlite3_value** args) {
  const char* text = reinterpret_cast<const char*>(sqlite3_value_text(args[0]));
  const char* keyword = reinterpret_cast<const char*>(sqlite3_value_text(args[1]));
  if (text == nullptr || keyword == nullptr || text[0] == '\0' || keyword[0] == '\0') {
    sqlite3_result_int(context, 0);
    return;
  }
  // The keyword is a constant of the statement: prepare it once and keep it with it.
  auto convert = reinterpret_cast<Converter>(sqlite3_user_data(context));
  auto* prepared = static_cast<PreparedKeyword*>(sqlite3_get_auxdata(context, 1));
  if (prepared == nullptr) {
    prepared = Prepare(context, keyword, convert);
    if (prepared == nullptr) return;  // the answer is set
  }
  size_t length = strlen(text);
  if (prepared->ascii) {
    int found = FindAsciiKeyword(text, length, prepared);
    if (found >= 0) {
      sqlite3_result_int(context, found);
      return;
    }
  }
  thread_local std::string convertedText;
  if (!convert(text, length, &convertedText)) {
    sqlite3_result_int(context, 0);
    return;
  }
  bool found = memmem(convertedText.data(), convertedText.size(), prepared->converted.data(),
                      prepared->converted.size()) != nullptr;
  sqlite3_result_int(context, found ? 1 : 0);
}

}  // namespace

int RegisterContainsFunction(sqlite3* db) {
  const int flags = SQLITE_UTF8 | SQLITE_DETERMINISTIC | SQLITE_INNOCUOUS;
  int rc = sqlite3_create_function_v2(db, QUOR_CONTAINS_FUNCTION, 2, flags,
                                      reinterpret_cast<void*>(&UpperText), ContainsFunction,
                                      nullptr, nullptr, nullptr);
  if (rc != SQLITE_OK) return rc;
  return sqlite3_create_function_v2(db, QUOR_FOLDED_CONTAINS_FUNCTION, 2, flags,
                                    reinterpret_cast<void*>(&FoldText), ContainsFunction, nullptr,
                                    nullptr, nullptr);
}

namespace {

// "(function(column, 'keyword'))" with the keyword quoted; "0" when it cannot be.
std::string ContainsCondition(const char* function, const std::string& keyword,
                              const std::string& column) {
  // The keyword goes in as a quoted literal, so no character of it has a meaning to SQL or to
  // a pattern syntax: the function compares literal text.
  char* escaped = QUORDBEscapeStrAllocEX2(0, keyword.c_str());
  if (escaped == nullptr) return "0";
  // Parenthesized so that it also joins with a bare "OR" on either side.
  std::string condition = std::string("(") + function + "(" + column + ", '" + escaped + "'))";
  free(escaped);
  return condition;
}

}  // namespace

std::string GenSQLRegexp(const std::string& keyword, const std::string& column) {
  return ContainsCondition(QUOR_CONTAINS_FUNCTION, keyword, column);
}

std::string GenSQLFoldedContains(const std::string& keyword, const std::string& column) {
  return ContainsCondition(QUOR_FOLDED_CONTAINS_FUNCTION, keyword, column);
}
