// The module-wide localized-text bundles, built when the module is loaded and read-only after.
#pragma once

#include "platform/stringbundle.h"

// Page titles, column headings and the words "folder" and "file" of the export writers:
// sections "common", "log", "pppoe", "tree".
StringBundle& ModuleBundle();
// Column names of disk-log exports: sections "common", "log", "smart", "volume", "kyroption".
StringBundle& DiskBundle();
