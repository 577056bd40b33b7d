// The HTML export document.
#include "export/html_writer.h"

#include "api/module_log.h"
#include "platform/webutils.h"

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
    : ExportRows(out, effectiveType, language) {}

void HtmlRowWriter::WriteHeadings(const std::vector<std::string>& headings) {
  for (const std::string& heading : headings) {
    Put("<th>");
    Put(heading);
    Put("</th>");
  }
  Put("</tr>\n");
}

// Cell text escaped as EncodeHtml does; most cells need no escaping and are written as they are.
void HtmlRowWriter::PutEscaped(const char* begin, const char* end) {
  for (const char* p = begin; p != end; ++p) {
    switch (*p) {
      case '&':
      case '<':
      case '>':
      case '"':
      case '\'':
        Put(WebUtils::EncodeHtml(std::string(begin, end), false));
        return;
      default:
        break;
    }
  }
  Put(begin, end);
}

void HtmlRowWriter::WriteRow(const LogRecord& record) {
  const ExportLayout& rowLayout = *layout();
  Put("<tr>");
  for (int i = 0; i < rowLayout.columnCount; ++i) {
    const char* begin;
    const char* end;
    Cell(i, record, rowLayout.htmlLevels, &begin, &end);
    Put("<td align=\"");
    Put(rowLayout.columns[i].align);
    Put("\" >");
    PutEscaped(begin, end);
    Put("</td>");
  }
  Put("</tr>");
}

void HtmlRowWriter::Finish(const std::string& effectiveType) {
  if (rows() == 0) {
    SLIBCSysLog(LOG_ERR, "no log");
  } else if (layout() == nullptr) {
    LOG_ERROR_AT(483, "No such logType: %s", effectiveType.c_str());
  }
  Put("</table></body></html>");
  Flush();
}
