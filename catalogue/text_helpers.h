// Small text helpers shared by the sources and the export writers.
#pragma once

#include <string>

// True when keyword occurs in text ignoring letter case (full Unicode upper-casing of both).
// False when either is empty, or (logged) when a text's upper-case form needs more bytes than
// the text itself: the buffers are sized to the texts, a limit clients have always had.
bool ContainsKeyword(const std::string& text, const std::string& keyword);

// The level code of a stored level text: "err" 3, "warning" 2, anything else or null 1.
int LevelNumber(const char* levelText);

// Local date of seconds as "%Y-%m-%d" in a static buffer shared by all callers: not safe for
// concurrent use; copy the text before the next call. Exported for other platform components.
__attribute__((visibility("default"))) const char* LogConvertTime(long seconds);

// An export's file name without extension: the log type's export base ("filexferlog" for a
// transfer type, "syslog" for an unknown name), "_", then the local time as
// "%d-%d-%d-%d:%d:%d" (year, month, day, hour, minute, second, no padding).
std::string MakeExportFileName(const std::string& logTypeName);
