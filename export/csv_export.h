// The CSV download of the export method.
#pragma once

#include <string>

#include "sources/log_search.h"

// Writes the CSV attachment of search to standard output: header lines and title, then every
// matching record, as it is read, in the layout of the search's first log type. target is
// carried for the interface and changes nothing.
void WriteCsvExport(const std::string& target, const std::string& language, LogSearch* search);
