// The test-side wrapper of the platform operations that faults are armed on. Code compiled into
// the test binary binds to these definitions; each reaches the platform library's own through
// dlsym(RTLD_NEXT) by its (C++) symbol name.
#include "tests/support/platform_faults.h"

#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>

#include <atomic>
#include <map>
#include <mutex>
#include <new>

#include "platform/logdb.h"
#include "platform/slibc.h"

namespace {

// The platform's definition of the function whose symbol is name.
template <class F>
F Real(const char* name) {
  void* found = dlsym(RTLD_NEXT, name);
  if (found == nullptr) {
    fprintf(stderr, "platform_faults: no platform symbol %s\n", name);
    abort();
  }
  return reinterpret_cast<F>(found);
}

std::mutex gMutex;
std::string gPrefix;
DbFault gFault = DbFault::kNone;
std::map<PQUORDBRESULT, DbFault> gResults;  // results that carry a fault, until freed
std::map<PQUORDB, bool> gFailed;            // connections whose last statement was failed here
std::atomic<int> gAllocCountdown{0};

DbFault TakeDbFault(PQUORDB conn, const char* sql) {
  std::lock_guard<std::mutex> lock(gMutex);
  gFailed.erase(conn);
  if (gFault == DbFault::kNone || sql == nullptr ||
      std::string(sql).compare(0, gPrefix.size(), gPrefix) != 0) {
    return DbFault::kNone;
  }
  DbFault fault = gFault;
  gFault = DbFault::kNone;
  if (fault == DbFault::kFail) gFailed[conn] = true;
  return fault;
}

// Records the fault of a statement that ran, for the reads of its rows.
int Ran(int rc, DbFault fault, PQUORDBRESULT* result) {
  if (rc == 0 && fault != DbFault::kNone && result != nullptr && *result != nullptr) {
    std::lock_guard<std::mutex> lock(gMutex);
    gResults[*result] = fault;
  }
  return rc;
}

DbFault FaultOf(PQUORDBRESULT result) {
  std::lock_guard<std::mutex> lock(gMutex);
  auto found = gResults.find(result);
  return found != gResults.end() ? found->second : DbFault::kNone;
}

}  // namespace

void ArmDbFault(const std::string& sqlPrefix, DbFault fault) {
  std::lock_guard<std::mutex> lock(gMutex);
  gPrefix = sqlPrefix;
  gFault = fault;
}

void ArmStringListAllocFault(int n) { gAllocCountdown.store(n > 0 ? n : 0); }

int QUORDBExecute(PQUORDB conn, const char* sql, PQUORDBRESULT* result) {
  static auto real = Real<int (*)(PQUORDB, const char*, PQUORDBRESULT*)>(
      "_Z13QUORDBExecuteP16QuorDbConnectionPKcPP12QuorDbResult");
  DbFault fault = TakeDbFault(conn, sql);
  if (fault == DbFault::kFail) return -1;
  return Ran(real(conn, sql, result), fault, result);
}

int QUORDBSelectLimit(PQUORDB conn, const char* sql, int limit, int offset, PQUORDBRESULT* result) {
  static auto real = Real<int (*)(PQUORDB, const char*, int, int, PQUORDBRESULT*)>(
      "_Z17QUORDBSelectLimitP16QuorDbConnectionPKciiPP12QuorDbResult");
  DbFault fault = TakeDbFault(conn, sql);
  if (fault == DbFault::kFail) return -1;
  return Ran(real(conn, sql, limit, offset, result), fault, result);
}

const char* QUORDBErrorGet(PQUORDB conn) {
  static auto real = Real<const char* (*)(PQUORDB)>("_Z14QUORDBErrorGetP16QuorDbConnection");
  {
    std::lock_guard<std::mutex> lock(gMutex);
    if (gFailed.count(conn) != 0) return "injected failure";
  }
  return real(conn);
}

int QUORDBFetchRow(PQUORDBRESULT result, QUORDBROW* row) {
  static auto real =
      Real<int (*)(PQUORDBRESULT, QUORDBROW*)>("_Z14QUORDBFetchRowP12QuorDbResultPi");
  DbFault fault = FaultOf(result);
  if (fault == DbFault::kNoRows) return -1;
  if (fault == DbFault::kThrowOnFirstRow) throw std::bad_alloc();
  return real(result, row);
}

const char* QUORDBFetchField(PQUORDBRESULT result, QUORDBROW row, const char* column) {
  static auto real = Real<const char* (*)(PQUORDBRESULT, QUORDBROW, const char*)>(
      "_Z16QUORDBFetchFieldP12QuorDbResultiPKc");
  return FaultOf(result) == DbFault::kNoColumns ? nullptr : real(result, row, column);
}

int QUORDBColumnIndex(PQUORDBRESULT result, const char* column) {
  static auto real =
      Real<int (*)(PQUORDBRESULT, const char*)>("_Z17QUORDBColumnIndexP12QuorDbResultPKc");
  return FaultOf(result) == DbFault::kNoColumns ? -1 : real(result, column);
}

void QUORDBFreeResult(PQUORDBRESULT result) {
  static auto real = Real<void (*)(PQUORDBRESULT)>("_Z16QUORDBFreeResultP12QuorDbResult");
  {
    std::lock_guard<std::mutex> lock(gMutex);
    gResults.erase(result);
  }
  real(result);
}

PSLIBSZLIST SLIBCSzListAlloc(int initialSize) {
  static auto real = Real<PSLIBSZLIST (*)(int)>("_Z16SLIBCSzListAlloci");
  int left = gAllocCountdown.load();
  while (left > 0) {
    if (gAllocCountdown.compare_exchange_weak(left, left - 1)) {
      if (left == 1) return nullptr;
      break;
    }
  }
  return real(initialSize);
}
