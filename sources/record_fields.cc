// Small conversions shared by the sources when they turn rows and lines into records.
#include "sources/record_fields.h"

#include "catalogue/text_helpers.h"

std::string FieldText(PQUORDBRESULT result, QUORDBROW row, const char* column) {
  const char* text = QUORDBFetchField(result, row, column);
  return text != nullptr ? text : "";
}

bool LevelKept(const LogSearch& search, int level) {
  return search.level.empty() || ContainsKeyword(search.level, std::to_string(level));
}

const char* CountLevel(int level, LevelCounts* counts) {
  if (level == 3) {
    ++counts->error;
    return "err";
  }
  if (level == 2) {
    ++counts->warn;
    return "warn";
  }
  ++counts->info;
  return "info";
}
