// How the server and its commands tell the operator what went wrong: one line on standard
// error, "quor-webapi: <message>".
#pragma once

// printf-style message; the line feed is added. One write per line, so that lines of several
// worker processes do not interleave.
void ReportError(const char* format, ...) __attribute__((format(printf, 1, 2)));
