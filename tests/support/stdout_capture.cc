// Capture of standard output for tests.
#include "tests/support/stdout_capture.h"

#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

StdoutCapture::StdoutCapture() {
  char pattern[] = "/tmp/quor-stdout-XXXXXX";
  file_ = mkstemp(pattern);
  if (file_ < 0) {
    ADD_FAILURE() << "mkstemp failed";
    return;
  }
  unlink(pattern);
  fflush(stdout);
  saved_ = dup(1);
  dup2(file_, 1);
}

StdoutCapture::~StdoutCapture() {
  Restore();
  if (file_ >= 0) close(file_);
}

void StdoutCapture::Restore() {
  if (saved_ < 0) return;
  fflush(stdout);
  dup2(saved_, 1);
  close(saved_);
  saved_ = -1;
}

std::string StdoutCapture::Text() {
  Restore();
  std::string text;
  if (file_ < 0) return text;
  char buffer[65536];
  ssize_t n;
  off_t offset = 0;
  while ((n = pread(file_, buffer, sizeof buffer, offset)) > 0) {
    text.append(buffer, n);
    offset += n;
  }
  return text;
}
