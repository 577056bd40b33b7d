// The module registry: dlopen, the two table symbols, rows walked to the all-zero row.
#include "server/dispatch/module_registry.h"

#include <dirent.h>
#include <dlfcn.h>

#include <algorithm>

namespace {

bool IsEndRow(const char* api, int version, const char* method) {
  return api == nullptr && version == 0 && method == nullptr;
}

std::string DlError() {
  const char* message = dlerror();
  return message != nullptr ? message : "unknown dynamic-loader error";
}

bool EndsWith(const std::string& text, const std::string& suffix) {
  return text.size() >= suffix.size() &&
         text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

}  // namespace

bool ModuleRegistry::LoadDirectory(const std::string& dir, std::string* error) {
  DIR* handle = opendir(dir.c_str());
  if (handle == nullptr) {
    *error = "cannot open module directory " + dir;
    return false;
  }
  std::vector<std::string> names;
  while (const dirent* entry = readdir(handle)) {
    std::string name = entry->d_name;
    if (EndsWith(name, ".so")) names.push_back(name);
  }
  closedir(handle);
  std::sort(names.begin(), names.end());
  for (const std::string& name : names) {
    if (!LoadFile(dir + "/" + name, error)) return false;
  }
  return true;
}

bool ModuleRegistry::LoadFile(const std::string& path, std::string* error) {
  dlerror();
  void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) {
    *error = "cannot load module " + path + ": " + DlError();
    return false;
  }
  auto getMethods = reinterpret_cast<QUOR::GetAPITableFn>(dlsym(handle, "GetAPITable"));
  if (getMethods == nullptr) {
    *error = "module " + path + " lacks GetAPITable: " + DlError();
    dlclose(handle);
    return false;
  }
  auto getChecks = reinterpret_cast<QUOR::GetAPICheckTableFn>(dlsym(handle, "GetAPICheckTable"));
  if (getChecks == nullptr) {
    *error = "module " + path + " lacks GetAPICheckTable: " + DlError();
    dlclose(handle);
    return false;
  }

  // A row with a gap is a module built wrong: serving the rest would hide a method (or, for a
  // check row, let requests through unchecked), so the module is refused as a whole.
  auto refuseRow = [&](const char* table, int index, const char* needs) {
    *error = "module " + path + ": row " + std::to_string(index) + " of its " + table +
             " table is incomplete (" + needs + " are required before the all-zero end row)";
    dlclose(handle);
    return false;
  };
  std::map<Key, MethodEntry> added;
  int index = 0;
  for (const QUOR::APIMethodEntry* row = getMethods();
       row != nullptr && !IsEndRow(row->api, row->version, row->method); ++row, ++index) {
    if (row->api == nullptr || row->method == nullptr || row->handler == nullptr) {
      return refuseRow("method", index, "API, method and handler");
    }
    Key key(row->api, row->version, row->method);
    if (methods_.count(key) != 0 || added.count(key) != 0) {
      *error = "module " + path + " serves " + row->api + " version " +
               std::to_string(row->version) + " method " + row->method +
               ", which is already served" +
               (methods_.count(key) != 0 ? " by " + methods_[key].modulePath : "");
      dlclose(handle);
      return false;
    }
    MethodEntry entry;
    entry.handler = row->handler;
    entry.modulePath = path;
    added[key] = entry;
  }
  size_t checkRows = 0;
  for (const QUOR::APICheckEntry* row = getChecks();
       row != nullptr && !IsEndRow(row->api, row->version, row->method); ++row) {
    if (row->api == nullptr || row->method == nullptr || row->checker == nullptr) {
      return refuseRow("check", static_cast<int>(checkRows), "API, method and checker");
    }
    ++checkRows;
    auto found = added.find(Key(row->api, row->version, row->method));
    if (found != added.end() && found->second.checker == nullptr) {
      found->second.checker = row->checker;
    }
  }
  methods_.insert(added.begin(), added.end());
  checkRows_ += checkRows;
  handles_.push_back(handle);
  return true;
}

const MethodEntry* ModuleRegistry::Find(const std::string& api, int version,
                                        const std::string& method) const {
  auto found = methods_.find(Key(api, version, method));
  return found != methods_.end() ? &found->second : nullptr;
}
