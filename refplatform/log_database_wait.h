// Inside the platform library: a log-database connection that waits for another process's
// lock a given while, for writers that must not wait the layer's usual several seconds.
#pragma once

#include "platform/logdb.h"

// QUORDBConnect with busyTimeoutMs as the wait for a busy database, from the first read of
// the schema on.
PQUORDB LogDbConnect(const char* path, int busyTimeoutMs);
