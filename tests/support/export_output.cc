// Export bodies of records in hand.
#include "tests/support/export_output.h"

#include <stdio.h>
#include <stdlib.h>

#include "export/csv_writer.h"
#include "export/html_writer.h"

namespace {

template <class Writer>
void WriteAll(FILE* out, const std::string& type, const std::string& language,
              const std::vector<Json::Value>& records) {
  Writer writer(out, type, language);
  LogRecord record;
  for (const Json::Value& json : records) {
    record.FromJson(json);
    writer.Add(record);
  }
  writer.Finish(type);
}

}  // namespace

std::string ExportBody(const std::string& format, const std::string& effectiveType,
                       const std::vector<Json::Value>& records, const std::string& language) {
  char* data = nullptr;
  size_t size = 0;
  FILE* out = open_memstream(&data, &size);
  if (format == "csv") {
    WriteAll<CsvRowWriter>(out, effectiveType, language, records);
  } else {
    WriteAll<HtmlRowWriter>(out, effectiveType, language, records);
  }
  fclose(out);
  std::string text(data, size);
  free(data);
  return text;
}
