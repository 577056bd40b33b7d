// The CSV export document and its field quoting.
#include "export/csv_writer.h"

#include <string.h>

#include "api/module_log.h"

namespace {

// True when the text up to its first NUL holds no quote and no comma and there is no NUL
// before its end: the text can be written bare.
bool IsBareField(const char* begin, const char* end) {
  size_t scanned = strcspn(begin, "\",");
  return begin[scanned] == '\0' && begin + scanned == end;
}

}  // namespace

void WriteCsvHead(FILE* out, const std::string& fileName, const char* title) {
  fprintf(out, "Content-Type: text/csv\r\n");
  fprintf(out, "Content-Disposition:attachment; filename=\"%s\"\r\n\r\n", fileName.c_str());
  fprintf(out, "%s\r\n", title);
}

CsvRowWriter::CsvRowWriter(FILE* out, const std::string& effectiveType, const std::string& language)
    : ExportRows(out, effectiveType, language) {}

void CsvRowWriter::WriteHeadings(const std::vector<std::string>& headings) {
  for (const std::string& heading : headings) {
    Put(heading);
    Put(',');
  }
  Put("\r\n");
}

void CsvRowWriter::WriteRow(const LogRecord& record) {
  const ExportLayout& rowLayout = *layout();
  for (int i = 0; i < rowLayout.columnCount; ++i) {
    const char* begin;
    const char* end;
    Cell(i, record, rowLayout.csvLevels, &begin, &end);
    if (i + 1 < rowLayout.columnCount) {
      Put(begin, end);
      Put(',');
    } else if (IsBareField(begin, end)) {
      Put(begin, end);
    } else {
      Put('"');
      for (const char* c = begin; c != end; ++c) {
        if (*c == '"') Put('"');
        Put(*c);
      }
      Put('"');
    }
  }
  Put("\r\n");
}

void CsvRowWriter::Finish(const std::string& effectiveType) {
  if (rows() > 0 && layout() == nullptr) {
    LOG_ERROR_AT(616, "No such logType: %s", effectiveType.c_str());
  }
  Flush();
}
