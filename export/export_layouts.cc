// The four export column layouts, their level words and the choice of a layout.
#include "export/export_layouts.h"

#include <string.h>

#include "api/bundles.h"
#include "catalogue/log_levels.h"
#include "catalogue/log_types.h"
#include "catalogue/type_lists.h"
#include "platform/webapi.h"
#include "platform/webutils.h"

namespace {

const char kCenter[] = "center";
const char kLeft[] = "left";
const char kRight[] = "right";
const char kLanguageTextsDir[] = "/usr/quor/quorman/webman/modules/Vellum/texts/";

const ExportColumn kSyslogColumns[] = {
    {"attr_date", "ldate", CellRule::kField, kCenter},
    {"attr_time", "ltime", CellRule::kField, kCenter},
    {"attr_priority", "prio", CellRule::kLevel, kCenter},
    {"attr_host", "host", CellRule::kField, kCenter},
    {"attr_facility", "fac", CellRule::kField, kCenter},
    {"attr_program", "prog", CellRule::kField, kCenter},
    {"attr_msg", "msg", CellRule::kField, kCenter},
};

const ExportColumn kGeneralColumns[] = {
    {"logattr", "level", CellRule::kLevel, kCenter},
    {"leaf_log", "logtype", CellRule::kField, kCenter},
    {"log_time", "time", CellRule::kField, kCenter},
    {"log_account", "who", CellRule::kField, kCenter},
    {"log_action", "descr", CellRule::kField, kLeft},
};

const ExportColumn kTransferColumns[] = {
    {"leaf_log", "logtype", CellRule::kField, kCenter},
    {"log_time", "time", CellRule::kField, kCenter},
    {"pppoe_IP", "ip", CellRule::kField, kCenter},
    {"log_account", "username", CellRule::kField, kCenter},
    {"log_action", "cmd", CellRule::kField, kCenter},
    {"log_file_folder", nullptr, CellRule::kFolderOrFile, kCenter},
    {"log_filesize", "filesize", CellRule::kSizeOrNA, kRight},
    {"log_filename", "descr", CellRule::kField, kLeft},
};

const ExportColumn kDiskColumns[] = {
    {"logattr", "level", CellRule::kLevel, kCenter},
    {"log_time", "time", CellRule::kField, kCenter},
    {"volume_diskmodel", "model", CellRule::kField, kCenter},
    {"smart_disk_serial", "serial", CellRule::kField, kCenter},
    {"volume_e_unit", "container", CellRule::kField, kCenter},
    {"login_logo_position", "slot", CellRule::kField, kCenter},
    {"log_action", "msg", CellRule::kField, kLeft},
};

template <size_t N>
constexpr int Count(const ExportColumn (&)[N]) {
  return static_cast<int>(N);
}

// A record's text of key; a missing key reads as the empty text.
void MemberText(const LogRecord& record, const char* key, int* hint, const char** begin,
                const char** end) {
  static const char kEmpty[] = "";
  std::string_view text;
  if (!record.Find(key, &text, hint)) text = std::string_view(kEmpty, 0);
  *begin = text.data();
  *end = text.data() + text.size();
}

bool TextIs(const char* begin, const char* end, const char* word) {
  size_t length = strlen(word);
  return static_cast<size_t>(end - begin) == length && memcmp(begin, word, length) == 0;
}

void PointAt(const char* text, const char** begin, const char** end) {
  *begin = text;
  *end = text + strlen(text);
}

}  // namespace

// The syslog layout reads the stores' spelling of levels ("warning"), the others the records'
// ("warn"); the syslog CSV prints the level as it is.
const ExportLayout kSyslogLayout = {HeadingSource::kLanguageFile, kSyslogColumns,
                                    Count(kSyslogColumns), LevelWords::kFromStored,
                                    LevelWords::kAsIs};
const ExportLayout kGeneralLayout = {HeadingSource::kModuleBundle, kGeneralColumns,
                                     Count(kGeneralColumns), LevelWords::kFromRecord,
                                     LevelWords::kFromRecord};
const ExportLayout kTransferLayout = {HeadingSource::kModuleBundle, kTransferColumns,
                                      Count(kTransferColumns), LevelWords::kFromRecord,
                                      LevelWords::kFromRecord};
const ExportLayout kDiskLayout = {HeadingSource::kDiskBundle, kDiskColumns, Count(kDiskColumns),
                                  LevelWords::kFromRecord, LevelWords::kFromRecord};

std::string EffectiveLogType(const std::string& logtype) {
  return MapCategoriesToLogTypes(GetFirstLogType(logtype));
}

const ExportLayout* ChooseExportLayout(const std::string& effectiveType) {
  const char* type = effectiveType.c_str();
  if (effectiveType == "all") return &kSyslogLayout;
  if (IsDbLogType(type) || IsPlainLogType(type)) return &kGeneralLayout;
  if (IsXferLogType(type)) return &kTransferLayout;
  if (IsDiskLogType(type)) return &kDiskLayout;
  return nullptr;
}

std::vector<std::string> LayoutHeadings(const ExportLayout& layout, const std::string& language) {
  std::vector<std::string> headings;
  headings.reserve(layout.columnCount);
  if (layout.headings == HeadingSource::kLanguageFile) {
    Json::Value texts = QUOR::SDS::LocalizedStringParser::ParseTexts(kLanguageTextsDir + language);
    const Json::Value* section = texts.isObject() ? texts.find("logattr", "logattr" + 7) : nullptr;
    for (int i = 0; i < layout.columnCount; ++i) {
      const char* key = layout.columns[i].headingKey;
      const Json::Value* text = section != nullptr && section->isObject()
                                    ? section->find(key, key + strlen(key))
                                    : nullptr;
      headings.push_back(text != nullptr ? QUOR::WebAPIUtil::ToText(*text) : std::string());
    }
    return headings;
  }
  StringBundle& bundle =
      layout.headings == HeadingSource::kDiskBundle ? DiskBundle() : ModuleBundle();
  for (int i = 0; i < layout.columnCount; ++i) {
    headings.push_back(bundle.Text(layout.columns[i].headingKey, ""));
  }
  return headings;
}

RowTexts LoadRowTexts() {
  RowTexts texts;
  texts.folder = ModuleBundle().Text("folder", "");
  texts.file = ModuleBundle().Text("file", "");
  return texts;
}

void CellText(const ExportColumn& column, const LogRecord& record, LevelWords levelWords,
              const RowTexts& texts, int* hint, const char** begin, const char** end) {
  if (column.rule == CellRule::kFolderOrFile || column.rule == CellRule::kSizeOrNA) {
    MemberText(record, "isdir", nullptr, begin, end);
    bool isDir = TextIs(*begin, *end, "true");
    if (column.rule == CellRule::kFolderOrFile) {
      const std::string& text = isDir ? texts.folder : texts.file;
      *begin = text.data();
      *end = *begin + text.size();
      return;
    }
    if (isDir) {
      PointAt("NA", begin, end);
      return;
    }
  }
  MemberText(record, column.recordKey, hint, begin, end);
  if (column.rule != CellRule::kLevel || levelWords == LevelWords::kAsIs) return;
  // Level texts are short: compare them as NUL-ended texts only when they hold no NUL.
  std::string_view text(*begin, *end - *begin);
  if (text.size() > 16 || text.find('\0') != std::string_view::npos) return;
  char word[17];
  memcpy(word, *begin, text.size());
  word[text.size()] = '\0';
  const LogLevel* level =
      levelWords == LevelWords::kFromStored ? LogLevelByStored(word) : LogLevelByRecordWord(word);
  if (level != nullptr) PointAt(level->exportWord, begin, end);
}
