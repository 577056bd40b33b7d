// The parsed localized-text files of the process, shared by every bundle.
#pragma once

#include <memory>
#include <string>

#include "texts_file.h"

// The sections of the text file at the real path fileName, parsed once per process and again
// only when the file changes (another inode, size or modification time). A file that cannot
// be read gives empty sections. Safe to call from several threads; what it returns stays valid
// as long as the caller holds it, whatever later calls load.
std::shared_ptr<const TextSections> CachedTextsFile(const std::string& fileName);
