// The CSV download of the export method.
#include "export/csv_export.h"

#include <stdio.h>

#include "api/bundles.h"
#include "api/fetch_logs.h"
#include "catalogue/log_types.h"
#include "catalogue/text_helpers.h"
#include "export/csv_writer.h"

void WriteCsvExport(const std::string& /*target*/, const std::string& language, LogSearch* search) {
  std::string type = EffectiveLogType(search->logtype);
  WriteCsvHead(stdout, MakeExportFileName(type) + ".csv",
               ModuleBundle().Text(GetLogTypeTextKey(type).c_str(), ""));
  CsvRowWriter rows(stdout, type, language);
  LevelCounts counts;
  FetchLogs(search, &rows, &counts);
  rows.Finish(type);
}
