// The appliance root: every fixed platform path is resolved under it.
#pragma once

#include <string>

// Everything declared below is the platform's exported surface.
#pragma GCC visibility push(default)

// The root directory taken from the environment variable QUOR_ROOT; "/" when it is unset or
// empty. Read on every call, so a process (or a test) may switch roots between requests.
std::string QuorRoot();

// Resolves a fixed absolute platform path such as "/var/log/quorlog/.QUORSYSDB" under the root.
// With root "/" the path is returned unchanged. A path that already lies under the root is
// returned unchanged too, so resolving twice is harmless: platform operations that hand out
// paths (log file and database locations) give resolved ones, and operations that take paths
// accept either form.
std::string QuorResolvePath(const std::string& fixedPath);

#pragma GCC visibility pop
