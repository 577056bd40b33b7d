// Where the platform keeps its logs, how it shows times, and reading a log from its end.
#pragma once

#include <stddef.h>
#include <stdio.h>
#include <time.h>

#include <string>

// Everything declared below is the platform's exported surface.
#pragma GCC visibility push(default)

// Local time of seconds as "YYYY/MM/DD HH:MM:SS", zero padded: the text sorts chronologically.
std::string QUORLogConvertTime1(time_t seconds);

// The database of a transfer log type: "/var/log/quorlog/" followed by the catalogue's store
// file of the type, resolved under the appliance root. The empty text for any other type.
std::string XferlogDBPathGet(const char* logType);

// The plain-text log file of a log id (5 "/var/log/quorbackup.log", 6 "/var/log/quorcopy.log",
// 15 "/var/log/quorbackup_server.log"), resolved under the appliance root, into buffer.
// Returns 0, or -1 when the id has no file or the path does not fit.
int QUORLogFilePathGet(int logId, char* buffer, size_t size);

// Reads the last lines of an open regular file, newest first, at most maxLines of them. *lines
// gets a malloc'ed array of *count malloc'ed lines without their line ends; the caller frees
// each line and the array (also after a failure). A line longer than 64 KiB is cut to its first
// 64 KiB. Reads from the end in large blocks and steps over the holes of sparse files unread, so
// the cost follows the bytes of the lines returned, not the file's size. Returns *count (0 or
// more), or -1 on a read failure or a file that is not a regular file.
int readfileinreverse(FILE* file, char*** lines, int* count, int maxLines);

#pragma GCC visibility pop
