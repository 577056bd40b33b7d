// The appliance's time zone.
#include "server/http/appliance_time.h"

#include <limits.h>
#include <stdlib.h>
#include <time.h>
#include <unistd.h>

#include <fstream>

std::string TimeZoneName() {
  const char* tz = getenv("TZ");
  if (tz != nullptr && tz[0] != '\0') return tz[0] == ':' ? tz + 1 : tz;
  std::ifstream file("/etc/timezone");
  std::string name;
  if (std::getline(file, name) && !name.empty()) return name;
  char link[PATH_MAX];
  ssize_t length = readlink("/etc/localtime", link, sizeof link - 1);
  if (length > 0) {
    std::string target(link, length);
    size_t zoneinfo = target.find("zoneinfo/");
    if (zoneinfo != std::string::npos) return target.substr(zoneinfo + 9);
  }
  return "UTC";
}

long UtcOffsetSeconds() {
  time_t now = time(nullptr);
  tm local;
  if (localtime_r(&now, &local) == nullptr) return 0;
  return local.tm_gmtoff;
}
