// The log of QUOR.Core.SyslogClient.Log: the name its lines carry, installed by its entry points.
#pragma once

#include "sources/core_log.h"

inline constexpr ModuleLog kSyslogClientLog = {"QUOR.Core.SyslogClient.Log"};
