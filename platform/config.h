// The platform's configuration: "/etc/quor.conf" under the appliance root.
#pragma once

#include <string>

// Everything declared below is the platform's exported surface.
#pragma GCC visibility push(default)

// A snapshot of "/etc/quor.conf" taken when the object is made (key="value" lines).
class QuorConf {
 public:
  QuorConf();
  // The value of key, or defaultValue when the file or the key is missing.
  std::string Def(const char* key, const char* defaultValue) const;

 private:
  std::string path_;
};

#pragma GCC visibility pop
