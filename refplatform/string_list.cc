// The platform's growable list of owned C strings.
#include <stdlib.h>
#include <string.h>

#include "platform/slibc.h"

PSLIBSZLIST SLIBCSzListAlloc(int initialSize) {
  PSLIBSZLIST list = static_cast<PSLIBSZLIST>(calloc(1, sizeof(SLIBSZLIST)));
  if (list == nullptr) return nullptr;
  list->nCapacity = initialSize > 0 ? initialSize : 1;
  list->pszItem = static_cast<char**>(calloc(list->nCapacity, sizeof(char*)));
  if (list->pszItem == nullptr) {
    free(list);
    return nullptr;
  }
  return list;
}

int SLIBCSzListPush(PSLIBSZLIST* list, const char* item) {
  if (list == nullptr || *list == nullptr || item == nullptr) return -1;
  PSLIBSZLIST l = *list;
  if (l->nItem == l->nCapacity) {
    int capacity = l->nCapacity * 2;
    char** grown = static_cast<char**>(realloc(l->pszItem, capacity * sizeof(char*)));
    if (grown == nullptr) return -1;
    l->pszItem = grown;
    l->nCapacity = capacity;
  }
  char* copy = strdup(item);
  if (copy == nullptr) return -1;
  l->pszItem[l->nItem++] = copy;
  return 0;
}

const char* SLIBCSzListGet(PSLIBSZLIST list, int index) {
  if (list == nullptr || index < 0 || index >= list->nItem) return nullptr;
  return list->pszItem[index];
}

void SLIBCSzListFree(PSLIBSZLIST list) {
  if (list == nullptr) return;
  for (int i = 0; i < list->nItem; ++i) free(list->pszItem[i]);
  free(list->pszItem);
  free(list);
}

int SLIBCStrSep(const char* text, const char* separators, PSLIBSZLIST* list) {
  if (text == nullptr || separators == nullptr || list == nullptr || *list == nullptr) return -1;
  if (text[0] == '\0') return 0;
  int pushed = 0;
  const char* start = text;
  for (;;) {
    size_t length = strcspn(start, separators);
    char* piece = strndup(start, length);
    if (piece == nullptr) return -1;
    int rc = SLIBCSzListPush(list, piece);
    free(piece);
    if (rc != 0) return -1;
    ++pushed;
    if (start[length] == '\0') break;
    start += length + 1;
  }
  return pushed;
}
