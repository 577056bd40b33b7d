// Captures what the process writes to standard output (file descriptor 1, through stdio or
// not) while it lives, for tests of handlers that print their own downloads.
#pragma once

#include <string>

class StdoutCapture {
 public:
  StdoutCapture();   // flushes stdout, then sends descriptor 1 to a temporary file
  ~StdoutCapture();  // restores descriptor 1 if Text() was not called
  StdoutCapture(const StdoutCapture&) = delete;
  StdoutCapture& operator=(const StdoutCapture&) = delete;

  // Flushes stdout, restores descriptor 1 and returns everything written meanwhile.
  std::string Text();

 private:
  void Restore();
  int saved_ = -1;
  int file_ = -1;
};
