// The HTML export document.
#include "export/html_writer.h"

#include "api/module_log.h"
#include "platform/webutils.h"

namespace {

void Put(FILE* out, const char* text) { fputs_unlocked(text, out); }
void Put(FILE* out, const std::string& text) { fwrite_unlocked(text.data(), 1, text.size(), out); }

// Cell text escaped as EncodeHtml does; most cells need no escaping and are written as they are.
void PutEscaped(FILE* out, const char* begin, const char* end) {
  for (const char* p = begin; p != end; ++p) {
    switch (*p) {
      case '&':
      case '<':
      case '>':
      case '"':
      case '\'':
        Put(out, WebUtils::EncodeHtml(std::string(begin, end), false));
        return;
      default:
        break;
    }
  }
  fwrite_unlocked(begin, 1, end - begin, out);
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

HtmlRowWriter::HtmlRowWriter(FILE* out, const std::string& effectiveType,
                             const std::string& language)
    : ExportRows(effectiveType, language), out_(out) {
  flockfile(out_);
}

HtmlRowWriter::~HtmlRowWriter() { funlockfile(out_); }

void HtmlRowWriter::WriteHeadings(const std::vector<std::string>& headings) {
  for (const std::string& heading : headings) {
    Put(out_, "<th>");
    Put(out_, heading);
    Put(out_, "</th>");
  }
  Put(out_, "</tr>\n");
}

void HtmlRowWriter::WriteRow(const LogRecord& record) {
  const ExportLayout& rowLayout = *layout();
  Put(out_, "<tr>");
  for (int i = 0; i < rowLayout.columnCount; ++i) {
    const ExportColumn& column = rowLayout.columns[i];
    const char* begin;
    const char* end;
    CellText(column, record, rowLayout.htmlLevelWords, texts(), &begin, &end);
    Put(out_, "<td align=\"");
    Put(out_, column.align);
    Put(out_, "\" >");
    PutEscaped(out_, begin, end);
    Put(out_, "</td>");
  }
  Put(out_, "</tr>");
}

void HtmlRowWriter::Finish(const std::string& effectiveType) {
  if (rows() == 0) {
    SLIBCSysLog(LOG_ERR, "no log");
  } else if (layout() == nullptr) {
    LOG_ERROR_AT(483, "No such logType: %s", effectiveType.c_str());
  }
  Put(out_, "</table></body></html>");
}

void WriteHtmlBody(FILE* out, const std::string& effectiveType, const std::string& language,
                   const std::vector<Json::Value>& records) {
  HtmlRowWriter writer(out, effectiveType, language);
  AddJsonRecords(records, &writer);
  writer.Finish(effectiveType);
}
