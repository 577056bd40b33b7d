// The module-wide bundles. Being namespace-scope objects of this file, they are constructed
// when the module is loaded (after the standard streams, moduleBundle before diskBundle) and
// destroyed in reverse order when it is unloaded.
#include "api/bundles.h"

#include <iostream>

namespace {
StringBundle moduleBundle("common", "log", "pppoe", "tree");
StringBundle diskBundle("common", "log", "smart", "volume", "kyroption");
}  // namespace

StringBundle& ModuleBundle() { return moduleBundle; }
StringBundle& DiskBundle() { return diskBundle; }
