// The HTML export document.
#include "export/html_writer.h"

#include "api/module_log.h"
#include "export/export_layouts.h"
#include "platform/webutils.h"

namespace {

void Put(FILE* out, const char* text) { fputs_unlocked(text, out); }
void Put(FILE* out, const std::string& text) { fwrite_unlocked(text.data(), 1, text.size(), out); }

void WriteRow(FILE* out, const ExportLayout& layout, const Json::Value& record,
              const RowTexts& texts, std::string* scratch) {
  Put(out, "<tr>");
  for (int i = 0; i < layout.columnCount; ++i) {
    const ExportColumn& column = layout.columns[i];
    const char* begin;
    const char* end;
    CellText(column, record, layout.htmlLevelWords, texts, scratch, &begin, &end);
    Put(out, "<td align=\"");
    Put(out, column.align);
    Put(out, "\" >");
    Put(out, WebUtils::EncodeHtml(std::string(begin, end), false));
    Put(out, "</td>");
  }
  Put(out, "</tr>");
}

}  // namespace

void WriteHtmlHead(FILE* out, const std::string& fileName, const char* title) {
  fprintf(out, "Content-Type: application/xxx\r\n");
  fprintf(out, "Content-Disposition:attachment; filename=\"%s\"\r\n\r\n", fileName.c_str());
  fprintf(out,
          "<html><head>\n"
          "<meta http-equiv=\"Content-Type\" content=\"text/html; charset=utf-8;\">\n"
          "</head>\n"
          "<body>\n");
  fprintf(out, "<center><h2> %s </h2></center>\n", title);
  fprintf(out, "<table border=1 width=95%%>\n");
  fprintf(out, "<tr>");
}

void WriteHtmlBody(FILE* out, const std::string& effectiveType, const std::string& language,
                   const std::vector<Json::Value>& records) {
  const ExportLayout* layout = nullptr;
  if (records.empty()) {
    SLIBCSysLog(LOG_ERR, "no log");
  } else if ((layout = ChooseExportLayout(effectiveType)) == nullptr) {
    LOG_ERROR_AT(483, "No such logType: %s", effectiveType.c_str());
  }
  if (layout != nullptr) {
    std::vector<std::string> headings = LayoutHeadings(*layout, language);
    RowTexts texts = LoadRowTexts();
    std::string scratch;
    flockfile(out);
    for (const std::string& heading : headings) {
      Put(out, "<th>");
      Put(out, heading);
      Put(out, "</th>");
    }
    Put(out, "</tr>\n");
    for (const Json::Value& record : records) WriteRow(out, *layout, record, texts, &scratch);
    funlockfile(out);
  }
  fprintf(out, "</table></body></html>");
}
