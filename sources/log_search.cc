// Ordering of result records by one key.
#include "sources/log_search.h"

#include <cstring>

namespace {

// The key's text without copying: records hold only texts, but anything else reads as "".
void KeyText(const Json::Value& record, const std::string& key, const char** begin,
             const char** end) {
  static const char kEmpty[] = "";
  *begin = *end = kEmpty;
  if (!record.isObject()) return;
  const Json::Value* member = record.find(key.data(), key.data() + key.size());
  if (member != nullptr && member->isString()) member->getString(begin, end);
}

}  // namespace

bool LogCompare::operator()(const Json::Value& a, const Json::Value& b) const {
  const char *aBegin, *aEnd, *bBegin, *bEnd;
  KeyText(a, key_, &aBegin, &aEnd);
  KeyText(b, key_, &bBegin, &bEnd);
  size_t aLen = aEnd - aBegin, bLen = bEnd - bBegin;
  int c = memcmp(aBegin, bBegin, aLen < bLen ? aLen : bLen);
  if (c == 0) c = aLen < bLen ? -1 : aLen > bLen ? 1 : 0;
  return ascending_ ? c < 0 : c > 0;
}
