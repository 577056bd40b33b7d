// Laying out an appliance root.
#include "tools/lib/root_layout.h"

#include <dirent.h>
#include <errno.h>
#include <string.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

bool MakeParentDirectories(const std::string& path, std::string* error) {
  std::error_code failed;
  std::filesystem::create_directories(std::filesystem::path(path).parent_path(), failed);
  if (failed) *error = "cannot create the folder of " + path + ": " + failed.message();
  return !failed;
}

bool WriteTextFile(const std::string& path, const std::string& content) {
  std::string error;
  if (!MakeParentDirectories(path, &error)) return false;
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << content;
  return static_cast<bool>(out);
}

namespace {

std::vector<std::string> Languages(const std::string& dir) {
  std::vector<std::string> names;
  if (DIR* d = opendir(dir.c_str())) {
    while (dirent* e = readdir(d)) {
      if (e->d_name[0] != '.') names.push_back(e->d_name);
    }
    closedir(d);
  }
  return names;
}

bool CopyTree(const std::string& from, const std::string& to, std::string* error) {
  for (const std::string& language : Languages(from)) {
    std::ifstream in(from + "/" + language + "/strings", std::ios::binary);
    if (!in) {
      *error = "cannot read " + from + "/" + language + "/strings";
      return false;
    }
    std::stringstream content;
    content << in.rdbuf();
    std::string target = to + "/" + language + "/strings";
    if (!WriteTextFile(target, content.str())) {
      *error = "cannot write " + target + ": " + strerror(errno);
      return false;
    }
  }
  return true;
}

}  // namespace

bool InstallTexts(const std::string& root, const std::string& textsDir, std::string* error) {
  if (Languages(textsDir + "/webman").empty()) {
    *error = "no text files in " + textsDir;
    return false;
  }
  return CopyTree(textsDir + "/webman", root + "/usr/quor/quorman/webman/texts", error) &&
         CopyTree(textsDir + "/vellum", root + "/usr/quor/quorman/webman/modules/Vellum/texts",
                  error);
}
