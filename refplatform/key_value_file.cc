// Reading key="value" / key=value configuration files.
#include "key_value_file.h"

#include <fstream>

int ReadKeyValue(const std::string& fileName, const std::string& key, std::string* value) {
  std::ifstream in(fileName);
  if (!in) return -1;
  int found = 0;
  std::string line;
  while (std::getline(in, line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    size_t start = line.find_first_not_of(" \t");
    if (start == std::string::npos || line[start] == '#') continue;
    size_t eq = line.find('=', start);
    if (eq == std::string::npos) continue;
    size_t keyEnd = line.find_last_not_of(" \t", eq - 1);
    if (keyEnd == std::string::npos || line.compare(start, keyEnd + 1 - start, key) != 0 ||
        keyEnd + 1 - start != key.size()) {
      continue;
    }
    std::string v = line.substr(eq + 1);
    size_t b = v.find_first_not_of(" \t");
    size_t e = v.find_last_not_of(" \t");
    v = b == std::string::npos ? std::string() : v.substr(b, e - b + 1);
    if (v.size() >= 2 && v.front() == '"' && v.back() == '"') v = v.substr(1, v.size() - 2);
    *value = v;
    found = 1;
  }
  return found;
}
