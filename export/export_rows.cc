// The rows of an export document as they arrive from the sources.
#include "export/export_rows.h"

ExportRows::ExportRows(FILE* out, const std::string& effectiveType, const std::string& language)
    : out_(out), layout_(ChooseExportLayout(effectiveType)), language_(language) {
  for (int& hint : hints_) hint = -1;
  if (layout_ != nullptr && layout_->columnCount > kMaxColumns) layout_ = nullptr;
}

void ExportRows::Add(const LogRecord& record) {
  if (rows_++ == 0 && layout_ != nullptr) {
    texts_ = LoadRowTexts();
    WriteHeadings(LayoutHeadings(*layout_, language_));
  }
  if (layout_ != nullptr) WriteRow(record);
}
