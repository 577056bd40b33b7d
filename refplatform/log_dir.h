// Directories of the platform's own log files (internal to the reference platform).
#pragma once

#include <string>

// Creates the directories above the real path filePath that are missing (like mkdir -p of
// its parent). Returns false when one cannot be created.
bool MakeParentDirs(const std::string& filePath);
