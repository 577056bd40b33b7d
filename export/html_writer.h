// The HTML export document: an HTTP attachment holding one table of log records.
#pragma once

#include <json/value.h>
#include <stdio.h>

#include <string>
#include <vector>

#include "export/export_rows.h"

// The HTTP header block and the document up to the opened heading row ("<tr>"), titled title
// (printed as given, not escaped), offered as fileName.
void WriteHtmlHead(FILE* out, const std::string& fileName, const char* title);

// The rest of the document for the records of effectiveType, written as they arrive: heading
// cells before the first record and one row per record in the layout of the type (cells
// escaped, headings not), then at Finish the closing tags. With no records, or a type without
// a layout (logged at Finish), the heading row is left open and only the closing tags follow:
// clients of the download expect that exact short document.
class HtmlRowWriter : public ExportRows {
 public:
  HtmlRowWriter(FILE* out, const std::string& effectiveType, const std::string& language);
  // After the last record.
  void Finish(const std::string& effectiveType);

 private:
  void WriteHeadings(const std::vector<std::string>& headings) override;
  void WriteRow(const LogRecord& record) override;
  void PutEscaped(const char* begin, const char* end);
};
