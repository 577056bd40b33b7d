// The CSV download of the export method.
#include "export/csv_export.h"

#include <stdio.h>

#include "api/bundles.h"
#include "api/fetch_logs.h"
#include "catalogue/log_types.h"
#include "catalogue/text_helpers.h"
#include "export/csv_writer.h"
#include "export/export_layouts.h"

void WriteCsvExport(const std::string& /*target*/, const std::string& language,
                    std::vector<Json::Value>* records, LogSearch* search) {
  std::string type = EffectiveLogType(search->logtype);
  WriteCsvHead(stdout, MakeExportFileName(type) + ".csv",
               ModuleBundle().Text(GetLogTypeTextKey(type).c_str(), ""));
  LevelCounts counts;
  FetchLogs(search, records, &counts);
  WriteCsvBody(stdout, type, language, *records);
}
