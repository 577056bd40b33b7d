// Case-insensitive literal containment as an SQL function, and the conditions that use it.
// ASCII texts and keywords are compared in place, ignoring ASCII case: a per-row trip through
// ICU, or even a per-row upper-cased copy, would dominate a keyword search over a large log.
#include "sql_contains.h"

#include <stdlib.h>
#include <string.h>

#include <string>

#include "platform/logdb.h"
#include "upper_text.h"

namespace {

// The statement's keyword, prepared once: upper-cased (or folded), and whether it is ASCII.
struct PreparedKeyword {
  std::string upper;
  bool ascii = true;
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
    prepared = new PreparedKeyword;
    prepared->ascii = !HasHighByte(keyword);
    if (!convert(keyword, strlen(keyword), &prepared->upper)) {
      delete prepared;
      sqlite3_result_int(context, 0);
      return;
    }
    sqlite3_set_auxdata(context, 1, prepared, DeletePrepared);
    prepared = static_cast<PreparedKeyword*>(sqlite3_get_auxdata(context, 1));
    if (prepared == nullptr) {  // SQLite could not keep it; it has been deleted
      sqlite3_result_error_nomem(context);
      return;
    }
  }
  // An ASCII keyword found ignoring ASCII case is found under full case mapping too: the bytes
  // that matched are ASCII and upper-case in place. Not found, the answer stands only for an
  // ASCII text: other letters can upper-case into ASCII ones ("ß" becomes "SS"). Folding keeps
  // ASCII letters in place too, so the same holds for the folding function.
  if (prepared->ascii) {
    if (strcasestr(text, keyword) != nullptr) {
      sqlite3_result_int(context, 1);
      return;
    }
    if (!HasHighByte(text)) {
      sqlite3_result_int(context, 0);
      return;
    }
  }
  thread_local std::string upperText;
  if (!convert(text, strlen(text), &upperText)) {
    sqlite3_result_int(context, 0);
    return;
  }
  bool found = memmem(upperText.data(), upperText.size(), prepared->upper.data(),
                      prepared->upper.size()) != nullptr;
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
