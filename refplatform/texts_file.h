// The localized-text file format shared by string bundles and the interface-language files:
//   [section]
//   key="text"          (or key=text; \" \\ \n inside quotes are unescaped)
// Blank lines and lines starting with '#' or ';' are ignored.
#pragma once

#include <map>
#include <string>

using TextSections = std::map<std::string, std::map<std::string, std::string>>;

// Parses the file at the real path fileName. Returns false when it cannot be read.
bool ReadTextsFile(const std::string& fileName, TextSections* sections);
