// Reading the last lines of a log file from its end.
#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "platform/logfiles.h"

namespace {

// Large enough that a typical 15000-line tail takes one or two reads.
constexpr size_t kBlockSize = 1 << 20;

// Reads exactly size bytes at offset; false on a read error or a file that shrank.
bool ReadAt(int fd, char* buffer, size_t size, off_t offset) {
  while (size > 0) {
    ssize_t n = pread(fd, buffer, size, offset);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    buffer += n;
    size -= static_cast<size_t>(n);
    offset += n;
  }
  return true;
}

// Collects lines newest first as malloc'ed texts, the form the caller releases.
class LineCollector {
 public:
  explicit LineCollector(int maxLines) : maxLines_(maxLines) {}
  bool Full() const { return static_cast<int>(lines_.size()) >= maxLines_; }

  // Adds the line made of head followed by tail, without a trailing carriage return.
  bool Add(const char* head, size_t headSize, const std::string& tail) {
    size_t size = headSize + tail.size();
    char* line = static_cast<char*>(malloc(size + 1));
    if (line == nullptr) return false;
    memcpy(line, head, headSize);
    memcpy(line + headSize, tail.data(), tail.size());
    if (size > 0 && line[size - 1] == '\r') --size;
    line[size] = '\0';
    lines_.push_back(line);
    return true;
  }

  // Hands the lines over in the caller's form; returns their count.
  int Release(char*** lines, int* count) {
    *count = static_cast<int>(lines_.size());
    if (lines_.empty()) return 0;
    *lines = static_cast<char**>(malloc(lines_.size() * sizeof(char*)));
    if (*lines == nullptr) {
      for (char* line : lines_) free(line);
      *count = 0;
      return -1;
    }
    memcpy(*lines, lines_.data(), lines_.size() * sizeof(char*));
    return *count;
  }

 private:
  int maxLines_;
  std::vector<char*> lines_;
};

}  // namespace

int readfileinreverse(FILE* file, char*** lines, int* count, int maxLines) {
  if (file == nullptr || lines == nullptr || count == nullptr) return -1;
  *lines = nullptr;
  *count = 0;
  int fd = fileno(file);
  struct stat st;
  if (fd < 0 || fstat(fd, &st) != 0) return -1;
  LineCollector collector(maxLines);
  off_t end = st.st_size;
  bool ok = true;
  std::vector<char> block(end > 0 ? (end < static_cast<off_t>(kBlockSize) ? end : kBlockSize) : 1);
  // The line end of the last line does not open another, empty line.
  if (end > 0) {
    char last;
    ok = ReadAt(fd, &last, 1, end - 1);
    if (ok && last == '\n') --end;
  }
  std::string carry;  // the end part of a line whose start lies in an earlier block
  bool lineOpen = end > 0 || st.st_size > 0;
  while (ok && end > 0 && !collector.Full()) {
    off_t start = end > static_cast<off_t>(block.size()) ? end - block.size() : 0;
    size_t size = static_cast<size_t>(end - start);
    if (!ReadAt(fd, block.data(), size, start)) {
      ok = false;
      break;
    }
    size_t lineEnd = size;
    while (!collector.Full()) {
      const char* newline = static_cast<const char*>(memrchr(block.data(), '\n', lineEnd));
      if (newline == nullptr) break;
      size_t lineStart = newline - block.data() + 1;
      if (!collector.Add(block.data() + lineStart, lineEnd - lineStart, carry)) ok = false;
      carry.clear();
      lineEnd = lineStart - 1;
      if (!ok) break;
    }
    carry.insert(0, block.data(), lineEnd);
    end = start;
  }
  // The file's first line has no line end before it.
  if (ok && end == 0 && lineOpen && !collector.Full()) ok = collector.Add("", 0, carry);
  if (ferror(file)) ok = false;
  int released = collector.Release(lines, count);
  return ok && released >= 0 ? *count : -1;
}
