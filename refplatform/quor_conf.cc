// The platform's configuration file "/etc/quor.conf" (key="value" lines).
#include "platform/config.h"

#include "key_value_file.h"
#include "platform/root.h"

// The root is taken when the object is made, so one object reads one appliance's file even if
// the process switches roots later.
QuorConf::QuorConf() : path_(QuorResolvePath("/etc/quor.conf")) {}

std::string QuorConf::Def(const char* key, const char* defaultValue) const {
  std::string fallback = defaultValue != nullptr ? defaultValue : "";
  if (key == nullptr) return fallback;
  std::string value;
  return ReadKeyValue(path_, key, &value) > 0 ? value : fallback;
}
