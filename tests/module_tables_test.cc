// The built module as the server sees it: its dynamic symbols and the tables it exports.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <stdio.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <string>

#include "platform/webapi.h"

namespace {

// The demangled names of a library's exported definitions.
std::set<std::string> DynamicSymbols(const std::string& library) {
  std::string command = "nm -D -C --defined-only '" + library + "'";
  FILE* nm = popen(command.c_str(), "r");
  std::set<std::string> names;
  char line[4096];
  while (nm != nullptr && fgets(line, sizeof line, nm) != nullptr) {
    std::string text(line);
    text.erase(text.find_last_not_of("\n") + 1);
    // "<address> <type> <name>"; the name may contain blanks only inside a signature.
    size_t second = text.find(' ', text.find(' ') + 1);
    names.insert(text.substr(second + 1));
  }
  EXPECT_TRUE(nm != nullptr && pclose(nm) == 0) << command;
  return names;
}

std::string FileText(const std::string& path) {
  std::ifstream in(path);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

}  // namespace

TEST(ModuleLibrary, ExportsExactlyItsEntryPoints) {
  std::set<std::string> names = DynamicSymbols(QUOR_MODULE_PATH);
  EXPECT_EQ((std::set<std::string>{"GetAPITable", "GetAPICheckTable", "gCheckTable",
                                   "LogConvertTime(long)"}),
            names);
}

TEST(ModuleLibrary, TablesWalkToTheirTerminators) {
  void* module = dlopen(QUOR_MODULE_PATH, RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(nullptr, module) << dlerror();
  auto getApiTable = reinterpret_cast<QUOR::GetAPITableFn>(dlsym(module, "GetAPITable"));
  auto getCheckTable =
      reinterpret_cast<QUOR::GetAPICheckTableFn>(dlsym(module, "GetAPICheckTable"));
  auto* checkTable = static_cast<const QUOR::APICheckEntry*>(dlsym(module, "gCheckTable"));
  ASSERT_NE(nullptr, getApiTable);
  ASSERT_NE(nullptr, getCheckTable);
  ASSERT_EQ(checkTable, getCheckTable());
  // What the server's registry does not see: the check rows' reserved fields, and the row
  // without a method, whose checker lets everything through.
  const QUOR::APICheckEntry* check = checkTable;
  for (; check->api != nullptr; ++check) {
    EXPECT_EQ(nullptr, check->reserved1);
    EXPECT_EQ(nullptr, check->reserved2);
  }
  EXPECT_EQ(4, check - checkTable);
  QUOR::APIRequest request(Json::Value(), "", "");
  QUOR::APIResponse response;
  EXPECT_TRUE(checkTable[3].checker(&request, &response));
  EXPECT_FALSE(response.IsAnswered());

  using ConvertFn = const char* (*)(long);
  auto convert = reinterpret_cast<ConvertFn>(dlsym(module, "_Z14LogConvertTimel"));
  ASSERT_NE(nullptr, convert);
  EXPECT_EQ(10u, std::string(convert(86400 * 365)).size());
  dlclose(module);
}

// The platform library exports what its headers declare and SQLite's API, nothing for tests;
// its helpers, caches and the standard library's instantiations stay inside.
TEST(PlatformLibrary, ExportsOnlyItsDeclaredOperations) {
  std::string declared;
  for (const auto& entry : std::filesystem::directory_iterator(QUOR_SOURCE_DIR "/platform")) {
    declared += FileText(entry.path().string());
  }
  // The last name of a symbol: "QUOR::APIRequest::GetParam(...) const" gives "GetParam".
  const std::regex kLastName(
      R"(^(?:typeinfo for |typeinfo name for |vtable for )?(?:[\w:]*::)?~?(\w+))");
  size_t sqlite = 0;
  for (const std::string& symbol : DynamicSymbols(QUOR_BUILD_DIR "/lib/libquorplatform.so")) {
    if (symbol.rfind("sqlite3_", 0) == 0) {
      ++sqlite;
      continue;
    }
    std::smatch name;
    ASSERT_TRUE(std::regex_search(symbol, name, kLastName)) << symbol;
    EXPECT_TRUE(std::regex_search(declared, std::regex("\\b" + name[1].str() + "\\b")))
        << symbol << " is exported but declared in no platform header";
  }
  EXPECT_GT(sqlite, 200u);
}

// Every program of the project holds one SQLite, the pinned one inside the platform library:
// two copies in one process would not see each other's file locks.
TEST(ModuleLibrary, OneSqliteInEveryProcess) {
  auto Output = [](const std::string& command) {
    std::string text;
    FILE* pipe = popen(command.c_str(), "r");
    char line[512];
    while (pipe != nullptr && fgets(line, sizeof line, pipe) != nullptr) text += line;
    if (pipe != nullptr) pclose(pipe);
    return text;
  };
  const std::string platform = QUOR_BUILD_DIR "/lib/libquorplatform.so";
  EXPECT_NE(std::string::npos,
            Output("nm -D --defined-only '" + platform + "'").find(" T sqlite3_step"));
  for (const std::string& binary :
       {std::string(QUOR_MODULE_PATH), std::string(QUOR_BUILD_DIR "/bin/quor-webapi"),
        std::string(QUOR_BUILD_DIR "/bin/quor-logdemo"),
        std::string(QUOR_BUILD_DIR "/bin/unit_tests"), platform}) {
    SCOPED_TRACE(binary);
    EXPECT_EQ(std::string::npos, Output("ldd '" + binary + "'").find("libsqlite3"));
    if (binary != platform) {
      EXPECT_EQ(std::string::npos,
                Output("nm --defined-only '" + binary + "' 2>/dev/null").find(" sqlite3_step"));
    }
  }
  EXPECT_STREQ(SQLITE_VERSION, sqlite3_libversion());
  EXPECT_GE(sqlite3_libversion_number(), 3050000);
}
