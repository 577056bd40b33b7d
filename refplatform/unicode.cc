// Full Unicode upper-casing of UTF-8 text through ICU.
#include <unicode/ucasemap.h>

#include <string.h>

#include "platform/slibc.h"

namespace {

// One case map for the process: ICU case maps are safe to share for reading.
const UCaseMap* RootCaseMap() {
  static UCaseMap* map = [] {
    UErrorCode status = U_ZERO_ERROR;
    UCaseMap* m = ucasemap_open("", 0, &status);
    return U_FAILURE(status) ? nullptr : m;
  }();
  return map;
}

// Maps source into target by one of ICU's UTF-8 case mappings.
template <class Mapping>
int MapCase(Mapping mapping, const char* source, char* target, size_t targetSize) {
  if (source == nullptr || target == nullptr || targetSize == 0) return -1;
  const UCaseMap* map = RootCaseMap();
  if (map == nullptr) return -1;
  size_t length = strlen(source);
  if (length > INT32_MAX || targetSize - 1 > INT32_MAX) return -1;
  UErrorCode status = U_ZERO_ERROR;
  int32_t written = mapping(map, target, static_cast<int32_t>(targetSize - 1), source,
                            static_cast<int32_t>(length), &status);
  if (U_FAILURE(status) || written < 0 || static_cast<size_t>(written) > targetSize - 1) {
    return -1;
  }
  target[written] = '\0';
  return 0;
}

}  // namespace

int SLIBCUnicodeUTF8StrUpper(const char* source, char* target, size_t targetSize) {
  return MapCase(ucasemap_utf8ToUpper, source, target, targetSize);
}

int SLIBCUnicodeUTF8StrFold(const char* source, char* target, size_t targetSize) {
  return MapCase(ucasemap_utf8FoldCase, source, target, targetSize);
}
