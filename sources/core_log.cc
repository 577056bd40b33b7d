// The log of the module call running on each thread.
#include "sources/core_log.h"

namespace {

const ModuleLog kOutsideCalls = {"QUOR.LogCore"};
thread_local const ModuleLog* current = nullptr;

}  // namespace

LogScope::LogScope(const ModuleLog& log) : previous_(current) { current = &log; }

LogScope::~LogScope() { current = previous_; }

const ModuleLog& CurrentLog() { return current != nullptr ? *current : kOutsideCalls; }
