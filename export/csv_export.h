// The CSV download of the export method.
#pragma once

#include <json/value.h>

#include <string>
#include <vector>

#include "api/log_search.h"

// Writes the CSV attachment of search to standard output: header lines and title, then every
// matching record (fetched into *records) in the layout of the search's first log type.
// target is carried for the interface and changes nothing.
void WriteCsvExport(const std::string& target, const std::string& language,
                    std::vector<Json::Value>* records, LogSearch* search);
