// The column layouts of log exports, their level words, and the choice of a layout by log type.
// Shared by the HTML and the CSV writer; the layouts are constant data walked by the writers.
#pragma once

#include <json/value.h>

#include <string>
#include <vector>

#include "platform/stringbundle.h"
#include "sources/log_record.h"

// What fills a column's cells.
enum class CellRule {
  kField,         // the record's member named by the column, as text
  kLevel,         // the record's member through the layout's level words
  kFolderOrFile,  // the folder text when "isdir" is exactly "true", else the file text
  kSizeOrNA,      // "NA" when "isdir" is exactly "true", else the member named by the column
};

// Where a layout's heading texts come from.
enum class HeadingSource {
  kLanguageFile,  // section "logattr" of the interface-language text file
  kModuleBundle,
  kDiskBundle,
};

struct ExportColumn {
  const char* headingKey;
  const char* recordKey;  // null for kFolderOrFile
  CellRule rule;
  const char* align;  // alignment word of the HTML cell
};

// How a layout's kLevel cells read the record's level: as it is, or through the level table's
// export words, from the stores' spelling ("warning") or the records' ("warn").
enum class LevelWords { kAsIs, kFromStored, kFromRecord };

struct ExportLayout {
  HeadingSource headings;
  const ExportColumn* columns;
  int columnCount;
  LevelWords htmlLevels;
  LevelWords csvLevels;
};

extern const ExportLayout kSyslogLayout;
extern const ExportLayout kGeneralLayout;
extern const ExportLayout kTransferLayout;
extern const ExportLayout kDiskLayout;

// The log type that decides an export's title, file name and layout: the first type of the
// request's list, through the category mapping.
std::string EffectiveLogType(const std::string& logtype);

// The layout of the effective type: syslog for exactly "all", general for database and
// plain-text types, transfer, disk (class tests ignore letter case). Null for any other type.
const ExportLayout* ChooseExportLayout(const std::string& effectiveType);

// The heading texts of layout, in column order. language picks the interface-language file of
// the syslog layout; the other layouts read the module's bundles in their own language.
std::vector<std::string> LayoutHeadings(const ExportLayout& layout, const std::string& language);

// Texts a document needs for every row, looked up once before the first row.
struct RowTexts {
  std::string folder;
  std::string file;
};
RowTexts LoadRowTexts();

// The text of one cell of record: *begin and *end delimit it, valid while record and texts live
// and are unchanged. levelWords maps kLevel cells (a value the level table lacks is printed as
// it is, so nothing is lost). A missing key reads as the empty text.
// *hint remembers where the column's key was found in the last record (start it at -1).
void CellText(const ExportColumn& column, const LogRecord& record, LevelWords levelWords,
              const RowTexts& texts, int* hint, const char** begin, const char** end);
