// The rows of an export document as they arrive from the sources, one at a time.
#pragma once

#include <json/value.h>
#include <stdio.h>
#include <string.h>

#include <string>
#include <vector>

#include "export/export_layouts.h"
#include "sources/log_record.h"

// What the document writers share: the layout chosen before the first row, the headings and row
// texts looked up at the first row, and the number of rows seen. Rows of a type without a
// layout are counted but not written.
// Writes go to out through a buffer of the writer's own, in large blocks; Flush (also at
// destruction) hands them to out.
class ExportRows : public RecordSink {
 public:
  ExportRows(FILE* out, const std::string& effectiveType, const std::string& language);
  ~ExportRows() override { Flush(); }
  ExportRows(const ExportRows&) = delete;
  ExportRows& operator=(const ExportRows&) = delete;
  void Add(const LogRecord& record) final;
  // Exports want every row, never the total: the sources skip their count query.
  bool WantsTotal() const final { return false; }
  long long rows() const { return rows_; }

 protected:
  const ExportLayout* layout() const { return layout_; }
  const RowTexts& texts() const { return texts_; }
  // The text of column i of record (see CellText).
  void Cell(int i, const LogRecord& record, LevelWords levelWords, const char** begin,
            const char** end) {
    CellText(layout_->columns[i], record, levelWords, texts_, &hints_[i], begin, end);
  }
  void Put(const char* begin, const char* end) {
    size_t size = static_cast<size_t>(end - begin);
    if (size > sizeof buffer_ - used_) Flush();
    if (size > sizeof buffer_) {
      fwrite(begin, 1, size, out_);
      return;
    }
    memcpy(buffer_ + used_, begin, size);
    used_ += size;
  }
  void Put(const std::string& text) { Put(text.data(), text.data() + text.size()); }
  void Put(const char* text) { Put(text, text + strlen(text)); }
  void Put(char c) {
    if (used_ == sizeof buffer_) Flush();
    buffer_[used_++] = c;
  }
  void Flush() {
    if (used_ > 0) fwrite(buffer_, 1, used_, out_);
    used_ = 0;
  }
  virtual void WriteHeadings(const std::vector<std::string>& headings) = 0;
  virtual void WriteRow(const LogRecord& record) = 0;

 private:
  static constexpr int kMaxColumns = 16;
  FILE* out_;
  const ExportLayout* layout_;
  std::string language_;
  RowTexts texts_;
  long long rows_ = 0;
  int hints_[kMaxColumns];
  size_t used_ = 0;
  char buffer_[1 << 16];
};
