// The rows of an export document as they arrive from the sources, one at a time.
#pragma once

#include <json/value.h>

#include <string>
#include <vector>

#include "export/export_layouts.h"
#include "sources/log_record.h"

// What the document writers share: the layout chosen before the first row, the headings and row
// texts looked up at the first row, and the number of rows seen. Rows of a type without a
// layout are counted but not written.
class ExportRows : public RecordSink {
 public:
  ExportRows(const std::string& effectiveType, const std::string& language);
  void Add(const LogRecord& record) final;
  // Exports want every row, never the total: the sources skip their count query.
  bool WantsTotal() const final { return false; }
  long long rows() const { return rows_; }

 protected:
  const ExportLayout* layout() const { return layout_; }
  const RowTexts& texts() const { return texts_; }
  virtual void WriteHeadings(const std::vector<std::string>& headings) = 0;
  virtual void WriteRow(const LogRecord& record) = 0;

 private:
  const ExportLayout* layout_;
  std::string language_;
  RowTexts texts_;
  long long rows_ = 0;
};

// Sends every Json record of records to sink, in order: the road of callers that hold records
// already fetched.
void AddJsonRecords(const std::vector<Json::Value>& records, RecordSink* sink);
