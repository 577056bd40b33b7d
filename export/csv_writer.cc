// The CSV export document and its field quoting.
#include "export/csv_writer.h"

#include <string.h>

#include "api/module_log.h"
#include "export/export_layouts.h"

namespace {

void Put(FILE* out, const char* begin, const char* end) {
  fwrite_unlocked(begin, 1, end - begin, out);
}
void Put(FILE* out, const std::string& text) { Put(out, text.data(), text.data() + text.size()); }

// True when the text up to its first NUL holds no quote and no comma and there is no NUL
// before its end: the text can be written bare.
bool IsBareField(const char* begin, const char* end) {
  size_t scanned = strcspn(begin, "\",");
  return begin[scanned] == '\0' && begin + scanned == end;
}

void WriteRecord(FILE* out, const ExportLayout& layout, const Json::Value& record,
                 const RowTexts& texts, std::string* scratch) {
  for (int i = 0; i < layout.columnCount; ++i) {
    const char* begin;
    const char* end;
    CellText(layout.columns[i], record, layout.csvLevelWords, texts, scratch, &begin, &end);
    if (i + 1 < layout.columnCount) {
      Put(out, begin, end);
      putc_unlocked(',', out);
    } else if (IsBareField(begin, end)) {
      Put(out, begin, end);
    } else {
      Put(out, CsvQuote(std::string(begin, end)));
    }
  }
  fputs_unlocked("\r\n", out);
}

}  // namespace

std::string CsvQuote(const std::string& field) {
  const char* text = field.c_str();
  if (IsBareField(text, text + field.size())) return field;
  std::string quoted;
  quoted.reserve(field.size() + 2);
  quoted += '"';
  for (char c : field) {
    if (c == '"') quoted += '"';
    quoted += c;
  }
  quoted += '"';
  return quoted;
}

void WriteCsvHead(FILE* out, const std::string& fileName, const char* title) {
  fprintf(out, "Content-Type: text/csv\r\n");
  fprintf(out, "Content-Disposition:attachment; filename=\"%s\"\r\n\r\n", fileName.c_str());
  fprintf(out, "%s\r\n", title);
}

void WriteCsvBody(FILE* out, const std::string& effectiveType, const std::string& language,
                  const std::vector<Json::Value>& records) {
  if (records.empty()) return;
  const ExportLayout* layout = ChooseExportLayout(effectiveType);
  if (layout == nullptr) {
    LOG_ERROR_AT(616, "No such logType: %s", effectiveType.c_str());
    return;
  }
  std::vector<std::string> headings = LayoutHeadings(*layout, language);
  RowTexts texts = LoadRowTexts();
  std::string scratch;
  flockfile(out);
  for (const std::string& heading : headings) {
    Put(out, heading);
    putc_unlocked(',', out);
  }
  fputs_unlocked("\r\n", out);
  for (const Json::Value& record : records) WriteRecord(out, *layout, record, texts, &scratch);
  funlockfile(out);
}
