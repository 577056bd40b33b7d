// Reading the last lines of a log file from its end.
#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
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

// The start of the hole (an unwritten region of a sparse file, read as NUL bytes) that ends at
// end, or end itself when the byte before end is data or the file system cannot tell.
off_t HoleStartBefore(int fd, off_t end) {
  if (end <= 0) return end;
  off_t data = lseek(fd, end - 1, SEEK_DATA);
  if (data == end - 1 || (data < 0 && errno != ENXIO)) return end;
  // end - 1 lies in a hole. Look back in growing steps for data before it, then walk that
  // region's extents forward to where the last of them ends.
  for (off_t step = kBlockSize;; step *= 2) {
    off_t probe = end - 1 > step ? end - 1 - step : 0;
    off_t found = lseek(fd, probe, SEEK_DATA);
    if (found >= 0 && found < end - 1) {
      for (off_t at = found;;) {
        off_t hole = lseek(fd, at, SEEK_HOLE);
        if (hole < 0 || hole >= end) return end;
        off_t next = lseek(fd, hole, SEEK_DATA);
        if (next < 0 || next >= end) return hole;
        at = next;
      }
    }
    if (found < 0 && errno != ENXIO) return end;
    if (probe == 0) return 0;
  }
}

// The part of a line being assembled from its end towards its start. Only the first kMaxLine
// bytes of a line are kept (its fields come first), so a line of any length, or a region of
// NUL bytes without a line end, costs its bytes read once and no more than kMaxLine of memory.
class LinePart {
 public:
  static constexpr size_t kMaxLine = 64 * 1024;

  // Adds bytes that lie just before what is held.
  void Prepend(const char* data, size_t size) {
    Trim(size);
    text_.insert(0, data, std::min(size, kMaxLine));
  }
  void PrependNuls(off_t count) {
    size_t size = count > static_cast<off_t>(kMaxLine) ? kMaxLine : static_cast<size_t>(count);
    Trim(size);
    text_.insert(0, size, '\0');
  }
  const std::string& text() const { return text_; }
  void Clear() { text_.clear(); }

 private:
  // Keeps of the held text what still fits after size bytes are put before it.
  void Trim(size_t size) {
    text_.resize(size >= kMaxLine ? 0 : std::min(text_.size(), kMaxLine - size));
  }
  std::string text_;
};

// Collects lines newest first as malloc'ed texts, the form the caller releases.
class LineCollector {
 public:
  explicit LineCollector(int maxLines) : maxLines_(maxLines) {}
  ~LineCollector() {
    for (char* line : lines_) free(line);
  }
  bool Full() const { return static_cast<int>(lines_.size()) >= maxLines_; }

  // Adds the line made of head followed by tail, cut to LinePart::kMaxLine bytes, without a
  // trailing carriage return.
  bool Add(const char* head, size_t headSize, const std::string& tail) {
    size_t size = std::min(headSize + tail.size(), LinePart::kMaxLine);
    char* line = static_cast<char*>(malloc(size + 1));
    if (line == nullptr) return false;
    size_t fromHead = std::min(headSize, size);
    memcpy(line, head, fromHead);
    memcpy(line + fromHead, tail.data(), size - fromHead);
    if (size > 0 && line[size - 1] == '\r') --size;
    line[size] = '\0';
    lines_.push_back(line);
    return true;
  }

  // Hands the lines over in the caller's form; returns their count, or -1 (nothing handed
  // over) when memory runs out.
  int Release(char*** lines, int* count) {
    *count = 0;
    if (lines_.empty()) return 0;
    *lines = static_cast<char**>(malloc(lines_.size() * sizeof(char*)));
    if (*lines == nullptr) return -1;
    memcpy(*lines, lines_.data(), lines_.size() * sizeof(char*));
    *count = static_cast<int>(lines_.size());
    lines_.clear();
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
  if (fd < 0 || fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) return -1;
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
  LinePart carry;  // the end part of a line whose start lies in an earlier block
  bool lineOpen = end > 0 || st.st_size > 0;
  while (ok && end > 0 && !collector.Full()) {
    // A hole holds no line end: it joins the line being assembled without being read.
    off_t hole = HoleStartBefore(fd, end);
    if (hole < end) {
      carry.PrependNuls(end - hole);
      end = hole;
      continue;
    }
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
      if (!collector.Add(block.data() + lineStart, lineEnd - lineStart, carry.text())) ok = false;
      carry.Clear();
      lineEnd = lineStart - 1;
      if (!ok) break;
    }
    carry.Prepend(block.data(), lineEnd);
    end = start;
  }
  // The file's first line has no line end before it.
  if (ok && end == 0 && lineOpen && !collector.Full()) ok = collector.Add("", 0, carry.text());
  if (ferror(file)) ok = false;
  int released = collector.Release(lines, count);
  return ok && released >= 0 ? *count : -1;
}
