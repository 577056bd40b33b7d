// Reading key="value" / key=value configuration files (internal to the reference platform).
#pragma once

#include <string>

// Finds key in the file at the real path fileName (already resolved). The last occurrence
// wins; surrounding double quotes are removed. Returns 1 and sets *value when found, 0 when
// the key is absent, -1 when the file cannot be read.
int ReadKeyValue(const std::string& fileName, const std::string& key, std::string* value);
