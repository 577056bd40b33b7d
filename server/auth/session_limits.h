// How long sessions live and how failed logins lock an account and address pair, or a whole
// address, out.
#pragma once

#include <stdint.h>

struct SessionLimits {
  int64_t idleMs = 30 * 60 * 1000;          // a session ends after this long unused
  int64_t failureWindowMs = 5 * 60 * 1000;  // failed logins counted over this span
  int64_t lockoutMs = 5 * 60 * 1000;        // how long a locked account or address stays so
  int maxFailures = 5;          // failures of one account from one address that lock the pair
  int maxAddressFailures = 20;  // failures from one address, any accounts, that lock it
};
