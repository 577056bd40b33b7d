// The CSV export document: an HTTP attachment of comma-separated lines ended by "\r\n".
#pragma once

#include <json/value.h>
#include <stdio.h>

#include <string>
#include <vector>

#include "export/export_rows.h"

// The HTTP header block and the title line (title printed as given), offered as fileName.
void WriteCsvHead(FILE* out, const std::string& fileName, const char* title);

// The heading line and one line per record in the layout of effectiveType, written as the
// records arrive. Nothing with no records; nothing but a logged message (at Finish) for a type
// without a layout. Only the last field of a record is quoted, and the heading line ends with a
// comma: importers of these files expect both.
class CsvRowWriter : public ExportRows {
 public:
  CsvRowWriter(FILE* out, const std::string& effectiveType, const std::string& language);
  // After the last record.
  void Finish(const std::string& effectiveType);

 private:
  void WriteHeadings(const std::vector<std::string>& headings) override;
  void WriteRow(const LogRecord& record) override;
};
