// The module registry: loads web-API modules through their exported tables and finds the
// checker and handler of one API, version and method.
#pragma once

#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "platform/webapi.h"

// One callable method: its handler, and the checker that runs first (null when the module's
// check table has no row for it; the handler then runs unchecked).
struct MethodEntry {
  QUOR::APIHandler handler = nullptr;
  QUOR::APIChecker checker = nullptr;
  std::string modulePath;  // the file that serves it, for messages
};

class ModuleRegistry {
 public:
  ModuleRegistry() = default;
  ModuleRegistry(const ModuleRegistry&) = delete;
  ModuleRegistry& operator=(const ModuleRegistry&) = delete;
  // Modules stay loaded for the life of the process: handlers may be running in forked
  // children, and unloading would destroy the modules' load-time objects under them.
  ~ModuleRegistry() = default;

  // Loads every "*.so" file of dir in name order. On failure returns false with *error naming
  // the file and the reason; modules loaded before the failure stay registered.
  bool LoadDirectory(const std::string& dir, std::string* error);

  // Loads one module: dlopen, then GetAPITable and GetAPICheckTable, each walked to its
  // all-zero row. The method rows make methods callable; check rows attach checkers to them
  // (a check row without a method row is kept but not callable). Fails, with *error naming the
  // file and dlerror(), when the file cannot be loaded or lacks either symbol, and when it
  // serves a method that an earlier module already serves; nothing of a refused module is
  // registered.
  bool LoadFile(const std::string& path, std::string* error);

  // The method, or null when no loaded module serves this API, version and method.
  const MethodEntry* Find(const std::string& api, int version, const std::string& method) const;

  // Number of callable methods and of check rows seen.
  size_t MethodCount() const { return methods_.size(); }
  size_t CheckRowCount() const { return checkRows_; }

 private:
  using Key = std::tuple<std::string, int, std::string>;
  std::map<Key, MethodEntry> methods_;
  size_t checkRows_ = 0;
  std::vector<void*> handles_;
};
