// Parser of localized-text files.
#include "texts_file.h"

#include <fstream>

namespace {

std::string Trim(const std::string& s) {
  size_t b = s.find_first_not_of(" \t\r");
  if (b == std::string::npos) return std::string();
  size_t e = s.find_last_not_of(" \t\r");
  return s.substr(b, e - b + 1);
}

std::string Unquote(const std::string& raw) {
  if (raw.size() < 2 || raw.front() != '"' || raw.back() != '"') return raw;
  std::string out;
  for (size_t i = 1; i + 1 < raw.size(); ++i) {
    char c = raw[i];
    if (c == '\\' && i + 2 < raw.size()) {
      char n = raw[++i];
      out += n == 'n' ? '\n' : n;
    } else {
      out += c;
    }
  }
  return out;
}

}  // namespace

bool ReadTextsFile(const std::string& fileName, TextSections* sections) {
  std::ifstream in(fileName);
  if (!in) return false;
  std::string section;
  std::string line;
  while (std::getline(in, line)) {
    std::string t = Trim(line);
    if (t.empty() || t[0] == '#' || t[0] == ';') continue;
    if (t.front() == '[' && t.back() == ']') {
      section = Trim(t.substr(1, t.size() - 2));
      continue;
    }
    size_t eq = t.find('=');
    if (eq == std::string::npos) continue;
    (*sections)[section][Trim(t.substr(0, eq))] = Unquote(Trim(t.substr(eq + 1)));
  }
  return true;
}
