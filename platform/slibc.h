// The platform's C helpers: string lists, files, key-value configuration files, Unicode.
#pragma once

#include <stddef.h>

#include <memory>

// Everything declared below is the platform's exported surface.
#pragma GCC visibility push(default)

// A growable list of owned C strings: a count and the items in order. Created by
// SLIBCSzListAlloc, released with SLIBCSzListFree by whoever created it, on every path.
typedef struct _SLIBSZLIST {
  int nItem;       // number of items
  int nCapacity;   // slots allocated in pszItem
  char** pszItem;  // the items; each is owned by the list
} SLIBSZLIST, *PSLIBSZLIST;

// A new empty list with room for initialSize items (it grows past that on demand).
// Returns null when memory runs out.
PSLIBSZLIST SLIBCSzListAlloc(int initialSize);

// Appends a copy of item. The list grows as needed; *list may change address.
// Returns 0, or -1 (list unchanged) on a null argument or when memory runs out.
int SLIBCSzListPush(PSLIBSZLIST* list, const char* item);

// The item at index, or null when the list is null or the index is out of range.
const char* SLIBCSzListGet(PSLIBSZLIST list, int index);

// Releases the list and its items; a null list is ignored.
void SLIBCSzListFree(PSLIBSZLIST list);

// Owner of a string list: frees it on every path. Functions that may grow a list take the
// address of the owned pointer, so use SzListSlot below with them.
struct SzListFreer {
  void operator()(PSLIBSZLIST list) const { SLIBCSzListFree(list); }
};
using SzList = std::unique_ptr<SLIBSZLIST, SzListFreer>;

// Lends an owned list to a function that takes PSLIBSZLIST* and may move the list (growing
// it): when the slot ends, the owner follows the list to wherever it now lives.
class SzListSlot {
 public:
  explicit SzListSlot(SzList* owner) : owner_(owner), list_(owner->get()) {}
  ~SzListSlot() {
    if (list_ == owner_->get()) return;
    (void)owner_->release();  // the old address was given up by the callee
    owner_->reset(list_);
  }
  SzListSlot(const SzListSlot&) = delete;
  SzListSlot& operator=(const SzListSlot&) = delete;
  operator PSLIBSZLIST*() { return &list_; }

 private:
  SzList* owner_;
  PSLIBSZLIST list_;
};

// Splits text at every occurrence of any character of separators and appends the pieces to
// *list as they stand: empty pieces are kept ("a,,b" gives "a", "", "b"), nothing is trimmed.
// An empty text gives no piece at all. Returns the number of pieces appended, or -1 on a null
// argument or when memory runs out (pieces appended before the failure stay).
int SLIBCStrSep(const char* text, const char* separators, PSLIBSZLIST* list);

// 1 when the path (resolved under the appliance root) names an existing file, else 0.
int SLIBCFileExist(const char* path);

// Reads the value of key from a configuration file of lines key="value" or key=value (resolved
// under the appliance root; blank lines and lines starting with '#' are ignored; the last
// occurrence of a key wins). Copies the value, truncated to size-1 bytes, into value.
// Returns the value's length plus one (1 or more) when the key was found, 0 when it was not,
// and -1 when the file cannot be read or an argument is invalid. flags is reserved (pass 0).
int SLIBCFileGetKeyValue(const char* path, const char* key, char* value, size_t size, int flags);

// Writes the full Unicode upper-case form of the UTF-8 text source (for example "ß" becomes
// "SS") into target, NUL-terminated. Byte sequences that are not valid UTF-8 are copied
// unchanged. Returns 0, or -1 when an argument is null or the result with its terminating
// NUL does not fit in targetSize bytes.
int SLIBCUnicodeUTF8StrUpper(const char* source, char* target, size_t targetSize);

// Writes the full Unicode case folding of the UTF-8 text source (default caseless matching:
// "STRAẞE", "Straße" and "strasse" all become "strasse", the Kelvin sign becomes "k", "İ"
// becomes "i̇" and "ı" stays) into target, NUL-terminated, on the same terms as
// SLIBCUnicodeUTF8StrUpper.
int SLIBCUnicodeUTF8StrFold(const char* source, char* target, size_t targetSize);

#pragma GCC visibility pop
