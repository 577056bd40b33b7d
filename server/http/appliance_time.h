// The appliance's time zone as the page shows it.
#pragma once

#include <string>

// The time zone's name (the TZ variable, else /etc/timezone, else the zoneinfo name that
// /etc/localtime links to, else "UTC") and its current offset east of UTC in seconds; the
// process's local time, which the log times are converted with, uses the same zone.
std::string TimeZoneName();
long UtcOffsetSeconds();
