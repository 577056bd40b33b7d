// Rows of the connection log ("/var/log/quorlog/.QUORCONNDB") written by the platform's own
// services, such as the web server's sign-ins, failed sign-ins, lockouts and sign-outs.
#pragma once

// Everything declared below is the platform's exported surface.
#pragma GCC visibility push(default)

// Adds one row at the current time: level "info", "warning" or "err", user the account it is
// about (empty when none), message in the connection log's phrasing ("User [NAME] signed in
// from [ADDRESS] via [Web]."). Another process may be writing the store: the row waits for it
// only a short while (a quarter of a second), so a caller on a request path is never held
// long. Returns false when the row could not be written (the store is missing, busy or
// broken), after saying why in the system log; the row is then lost, nothing else.
bool QuorConnectionLogAdd(const char* level, const char* user, const char* message);

#pragma GCC visibility pop
