// The dispatcher: normalises a search and routes it to exactly one log source.
#include "api/fetch_logs.h"

#include <algorithm>
#include <cstring>

#include "api/module_log.h"
#include "catalogue/log_levels.h"
#include "catalogue/log_types.h"
#include "catalogue/type_lists.h"
#include "sources/log_classes.h"
#include "sources/log_sources.h"
#include "sources/record_fields.h"

namespace {

// Level names to digits (the level table's search names: "info" 1, "warning" 2, "err" 3). An
// unknown name adds nothing but keeps its separator ("info,warn" gives "1,"): clients have always
// sent such lists and get the same filter as before. A list with nothing recognised means every
// level.
std::string LevelDigits(const std::string& levels) {
  std::string digits;
  SzList items(SLIBCSzListAlloc(256));
  if (items == nullptr) {
    LOG_ERROR_AT(1578, "memory allocation failed");
  } else if (int pieces = SLIBCStrSep(levels.c_str(), ",", SzListSlot(&items)); pieces > 0) {
    for (int i = 0; i < items->nItem; ++i) {
      const char* item = items->pszItem[i];
      for (const LogLevel* level = kLogLevels; level->number != 0; ++level) {
        if (strcmp(item, level->searchName) == 0) digits += static_cast<char>('0' + level->number);
      }
      if (i + 1 < items->nItem) digits += ",";
    }
  }
  return digits.empty() ? "1,2,3" : digits;
}

// Sorts every matching line of a plain-text log, then sends the requested page and counts its
// levels. Offset and limit are taken as unsigned, so a negative offset selects nothing.
int FetchPlainPage(LogSearch* search, RecordSink* sink, LevelCounts* counts) {
  std::vector<PlainLine> all;
  FetchPlainLogs(*search, &all);
  LogCompare compare(search->sort, search->ascending);
  if (!all.empty()) {
    std::sort(all.begin(), all.end(),
              [&](const PlainLine& a, const PlainLine& b) { return compare(a.record, b.record); });
  }

  const uint64_t n = all.size();
  const uint64_t offset = static_cast<uint64_t>(search->offset);
  const uint64_t limit = static_cast<uint64_t>(search->limit);
  const uint64_t end = offset + limit;
  LogRecord record;
  if (!((limit != 0 && end <= offset) || n <= offset)) {
    for (uint64_t i = offset; i < n && (limit == 0 || i < end); ++i) {
      CountLevel(all[i].level, counts);
      record.FromJson(all[i].record);
      sink->Add(record);
    }
  }
  return static_cast<int>(n);
}

}  // namespace

int FetchLogs(LogSearch* search, std::vector<Json::Value>* results, LevelCounts* counts) {
  JsonRecordList sink(results);
  return FetchLogs(search, &sink, counts);
}

int FetchLogs(LogSearch* search, RecordSink* sink, LevelCounts* counts) {
  LogScope scope(kSyslogClientLog);
  search->logtype = MapCategoriesToLogTypes(search->logtype);
  search->level = LevelDigits(search->level);

  PSLIBSZLIST split = nullptr;
  if (SplitLogTypes(search->logtype, &split) < 0) return 0;
  SzList owner(split);
  PSLIBSZLIST types = owner.get();

  const LogClassInfo* logClass = ClassOfTypes(types);
  int total = 0;
  if (logClass == nullptr) {
    // Types of several classes, or none of the catalogue's: nothing found, nothing said.
  } else if (!logClass->merges && types->nItem >= 2) {
    if (logClass->id == LogClass::kPlain) {
      LOG_ERROR_AT(1497, "only supports one logtype per request for plaintext logs");
    } else {
      LOG_ERROR_AT(1505, "only supports one logtype per request for disk logs");
    }
    total = -1;
  } else if (logClass->id == LogClass::kTransfer) {
    total = FetchTransferLogs(*search, types, sink);
  } else if (logClass->id == LogClass::kSystem) {
    total = FetchSystemLogs(*search, types, sink, counts);
  } else if (logClass->id == LogClass::kPlain) {
    total = FetchPlainPage(search, sink, counts);
  } else {
    total = FetchDiskLogs(*search, sink, counts);
  }
  if (total < 0) LOG_ERROR_AT(1511, "fetch %s log failed.", search->logtype.c_str());
  return total;
}
