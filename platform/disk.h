// The storage manager's decoders of disk events and drive slots.
#pragma once

#include <stddef.h>

#include "platform/slibc.h"

// Everything declared below is the platform's exported surface.
#pragma GCC visibility push(default)

namespace QUOR {
namespace SDS {
namespace STORAGE_MANAGER {
namespace Disk {

// Fills buffer with the localized display text of the disk event code msg, its template
// filled from the event's info JSON. Returns 0 or more, or a negative value when the code is
// unknown (the buffer then holds the raw code) or an argument is invalid.
int DiskLogConverter(const char* msg, const char* info, char* buffer, size_t size);

// Pushes into *list the event codes whose display text contains keyword (ignoring letter
// case). Returns the number of codes pushed (above 0 when any matched), or -1 on failure.
int DiskLogKeywordTranform(const char* keyword, PSLIBSZLIST* list);

// Fills buffer with the display form of a drive's slot: "Drive 3" for a drive in the unit
// itself (inThisUnit), "Expansion Unit 1, Drive 3" for one in an expansion unit named by path.
// Returns 0, or a negative value when the slot cannot be read (buffer then holds the raw slot).
int DiskSlotConverter(const char* path, const char* slot, bool inThisUnit, char* buffer,
                      size_t size);

// The reverse: when keyword is a slot in its display form, buffer gets the stored form and
// the result is above 0; otherwise the result is 0 or less.
int DiskSlotReverseConverter(const char* keyword, char* buffer, size_t size);

}  // namespace Disk
}  // namespace STORAGE_MANAGER
}  // namespace SDS
}  // namespace QUOR

#pragma GCC visibility pop
