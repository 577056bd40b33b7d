// What the export writers print for records in hand: the document body of a layout, written
// through the writers' own record interface into memory.
#pragma once

#include <json/value.h>

#include <string>
#include <vector>

// The HTML ("html") or CSV ("csv") body that the export writer of effectiveType prints for
// records, in language.
std::string ExportBody(const std::string& format, const std::string& effectiveType,
                       const std::vector<Json::Value>& records, const std::string& language = "en");
