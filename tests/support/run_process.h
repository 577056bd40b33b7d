// Runs a program to completion and collects what it wrote, for tests of command-line tools.
#pragma once

#include <string>
#include <vector>

struct ProcessResult {
  int status = -1;  // exit status; 128 + signal number when killed; -1 when it could not start
  std::string out;  // standard output
  std::string err;  // standard error
};

// Runs argv (argv[0] is a path) with input on its standard input. The child dies with the
// test process, so a failed test never leaves it behind.
ProcessResult RunProcess(const std::vector<std::string>& argv, const std::string& input = "");
