// Where the modules' system-log lines go when the machine has no syslog: a container or a
// bare test machine has no socket at /dev/log, and lines sent there would vanish unseen.
#pragma once

// When force is set, or no syslog socket exists, the lines go to standard error, one each:
// "quor-webapi: syslog <priority>: <line as the module formats it>". Otherwise they stay with
// syslog. Call before forking workers: they inherit the choice.
void RouteModuleLog(bool force);
