// The storage manager's table of disk events, shared by its decoders and by tools that write
// realistic disk logs.
#pragma once

// Everything declared below is the platform's exported surface.
#pragma GCC visibility push(default)

// One disk event as the storage manager records it: the code goes into the column msg, the
// values of its template into the column info as a JSON object.
struct DiskEventCode {
  const char* code;    // stored code; also the key of its template in the texts section
  const char* fields;  // the info members its template uses, comma separated ("" for none)
  const char* level;   // the level the event is recorded at: "info", "warning" or "err"
};

// The localized texts section holding the event templates and the slot forms. A template names
// info members in braces ("{temperature}").
#define QUOR_DISK_TEXTS_SECTION "disk_events"

// The events, ended by a row whose code is null. No code is part of another, so a containment
// condition on one code never matches the rows of another.
extern const DiskEventCode kDiskEventCodes[];

#pragma GCC visibility pop
