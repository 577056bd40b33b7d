// The export method: every record a list request would show, as an HTML page or a CSV file,
// written as an HTTP attachment straight to standard output, row by row as the source reads.
#include <stdio.h>

#include "api/bundles.h"
#include "api/fetch_logs.h"
#include "api/methods.h"
#include "api/module_log.h"
#include "api/search_params.h"
#include "catalogue/log_types.h"
#include "catalogue/text_helpers.h"
#include "export/csv_export.h"
#include "export/export_layouts.h"
#include "export/html_writer.h"

namespace {

using QUOR::WebAPIUtil::ToText;

struct ExportRequest {
  std::string target;  // carried for the interface; selects nothing
  std::string format;
  std::string language;
};

// Reads the request into the search: the list method's filters, newest first, no page limit.
void ReadExportRequest(const QUOR::APIRequest& request, LogSearch* search, ExportRequest* out) {
  out->target = ReadSearchParams(request, search);
  search->limit = 0;
  out->format = ToText(request.GetParam("format", "html"));
  out->language = request.GetUILanguage();
}

void WriteHtmlExport(const std::string& language, LogSearch* search) {
  std::string type = EffectiveLogType(search->logtype);
  WriteHtmlHead(stdout, MakeExportFileName(type) + ".html",
                ModuleBundle().Text(GetLogTypeTextKey(type).c_str(), ""));
  HtmlRowWriter rows(stdout, type, language);
  LevelCounts counts;
  FetchLogs(search, &rows, &counts);
  rows.Finish(type);
}

}  // namespace

void ExportMethod(QUOR::APIRequest* request, QUOR::APIResponse* response) {
  LogScope scope(kSyslogClientLog);
  response->SetEnableOutput(false);
  try {
    LogSearch search;
    ExportRequest params;
    ReadExportRequest(*request, &search, &params);
    if (params.format == "csv") {
      WriteCsvExport(params.target, params.language, &search);
    } else {
      WriteHtmlExport(params.language, &search);
    }
  } catch (const std::exception& e) {
    // Only memory exhaustion gets here; the download then ends where it stopped, and every
    // connection, statement and list of the request has been released on the way.
    LOG_ERROR_HERE("export failed: %s", e.what());
  }
  fflush(stdout);
}
