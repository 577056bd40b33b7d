// The two exported entry points of a test module, returning its method and check tables.
#pragma once

#include "platform/webapi.h"

#define QUOR_TEST_MODULE_TABLES(methods, checks)                                         \
  extern "C" {                                                                           \
  __attribute__((visibility("default"))) const QUOR::APIMethodEntry* GetAPITable() {     \
    return methods;                                                                      \
  }                                                                                      \
  __attribute__((visibility("default"))) const QUOR::APICheckEntry* GetAPICheckTable() { \
    return checks;                                                                       \
  }                                                                                      \
  }
