// Laying out an appliance root: directories, files and the localized texts.
#pragma once

#include <string>

// Creates the folders above the file path that are missing. Returns false with *error set
// when one cannot be created.
bool MakeParentDirectories(const std::string& path, std::string* error);

// Writes content to path (under nothing: path is real), creating parent directories.
bool WriteTextFile(const std::string& path, const std::string& content);

// Copies the project's text files (textsDir holds webman/<lang>/strings and
// vellum/<lang>/strings) to their platform places under root:
// "/usr/quor/quorman/webman/texts/<lang>/strings" and
// "/usr/quor/quorman/webman/modules/Vellum/texts/<lang>/strings".
// Returns false with *error set when a file cannot be read or written.
bool InstallTexts(const std::string& root, const std::string& textsDir, std::string* error);
