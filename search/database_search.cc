// Searches over the log databases: the system class and the transfer class merged over their
// databases, and the disk log. The filters are built from fixed fragments; user values enter
// only through the platform's keyword condition or as numbers.
#include <stdlib.h>
#include <unistd.h>

#include "api/module_log.h"
#include "catalogue/log_levels.h"
#include "catalogue/log_types.h"
#include "catalogue/text_helpers.h"
#include "platform/disk.h"
#include "platform/logfiles.h"
#include "platform/root.h"
#include "search/level_count_cache.h"
#include "search/search_result.h"
#include "sources/disk_rows.h"
#include "sources/record_fields.h"
#include "sources/sql_query.h"
#include "sources/transfer_rows.h"

namespace {

namespace Disk = QUOR::SDS::STORAGE_MANAGER::Disk;

const char kStoredSeverity[] = "(CASE level WHEN 'err' THEN 3 WHEN 'warning' THEN 2 ELSE 1 END)";

// What differs between the classes.
struct ClassShape {
  const char* severity;                  // the level number of a row
  const char* const (*sortColumns)[2];   // record key -> SQL expression, ended by a null key
  std::vector<const char*> termColumns;  // where a term may occur
};

const char* const kSystemSort[][2] = {{"time", "time"},       {"level", "severity"},
                                      {"who", "username"},    {"descr", "msg"},
                                      {"logtype", "logtype"}, {"orginalLogType", "orginalLogType"},
                                      {nullptr, nullptr}};
const char* const kTransferSort[][2] = {{"time", "time"},
                                        {"ip", "ip"},
                                        {"username", "username"},
                                        {"cmd", "cmd"},
                                        {"filesize", "CAST(filesize AS INTEGER)"},
                                        {"descr", "filename"},
                                        {"logtype", "logtype"},
                                        {"orginalLogType", "orginalLogType"},
                                        {"isdir", "isdir"},
                                        {nullptr, nullptr}};
const char* const kDiskSort[][2] = {
    {"time", "time"},           {"level", "severity"}, {"model", "model"}, {"serial", "serial"},
    {"container", "container"}, {"slot", "slot"},      {"msg", "msg"},     {nullptr, nullptr}};

ClassShape ShapeOf(LogClass c) {
  switch (c) {
    case LogClass::kTransfer:
      return {"1", kTransferSort, {"username", "filename"}};
    case LogClass::kDisk:
      return {kStoredSeverity, kDiskSort, {"model", "serial", "container", "info"}};
    default:
      return {kStoredSeverity, kSystemSort, {"username", "msg"}};
  }
}

std::string SortExpression(const ClassShape& shape, const std::string& key) {
  for (const char* const* row = shape.sortColumns[0]; row[0] != nullptr; row += 2) {
    if (key == row[0]) return row[1];
  }
  return "time";
}

// One term's condition: it occurs in one of the class's fields. The disk log also finds it in
// the display form of a slot and in the display texts of its event codes.
std::string TermCondition(const SearchRequest& search, const ClassShape& shape,
                          const std::string& term) {
  std::string condition;
  for (const char* column : shape.termColumns) {
    if (!condition.empty()) condition += " OR ";
    condition += GenSQLRegexp(term, column);
  }
  if (search.logClass == LogClass::kDisk) {
    char slot[32] = "";
    std::string slotTerm = term;
    if (Disk::DiskSlotReverseConverter(term.c_str(), slot, sizeof slot) > 0) slotTerm = slot;
    condition += " OR " + GenSQLRegexp(slotTerm, "slot");
    SzList codes(SLIBCSzListAlloc(64));
    if (codes != nullptr && Disk::DiskLogKeywordTranform(term.c_str(), SzListSlot(&codes)) > 0) {
      for (int i = 0; i < codes->nItem; ++i) {
        condition += " OR " + GenSQLRegexp(SLIBCSzListGet(codes.get(), i), "msg");
      }
    }
  }
  return "(" + condition + ")";
}

// The WHERE clause of every arm: terms and time range (the level filter applies outside).
std::string ArmFilter(const SearchRequest& search, const ClassShape& shape) {
  std::string filter = " WHERE 1=1";
  if (search.logClass == LogClass::kDisk) filter += " AND SHOW = 1";
  for (const std::string& term : search.terms)
    filter += " AND " + TermCondition(search, shape, term);
  if (search.hasFrom) filter += " AND time >= " + std::to_string(search.from);
  if (search.hasTo) filter += " AND time <= " + std::to_string(search.to);
  return filter;
}

// " WHERE severity IN (...)" for the levels asked, or nothing when all are.
std::string LevelFilter(const SearchRequest& search) {
  std::string list;
  for (int level = 1; level <= 3; ++level) {
    if (!search.levels[level]) continue;
    if (!list.empty()) list += ",";
    list += std::to_string(level);
  }
  return list == "1,2,3" ? std::string() : " WHERE severity IN (" + list + ")";
}

// The merged select of the search's stores, each row with its severity. Opens the first
// existing store and attaches the others. *empty when no store exists.
class SearchScope {
 public:
  SearchScope(const SearchRequest& search)
      : search_(search), shape_(ShapeOf(search.logClass)), merged_(ArmFilter(search, shape_)) {}

  bool Open(SearchFailure* failure, bool* empty) {
    PSLIBSZLIST split = SLIBCSzListAlloc(8);
    SzList types(split);
    if (types == nullptr) return Fail("memory allocation failed", failure);
    for (const std::string& type : search_.types) SLIBCSzListPush(SzListSlot(&types), type.c_str());
    LogClass logClass = search_.logClass;
    StoreStamp& stamp = stamp_;
    bool opened = false;
    bool connected = merged_.AddTypes(types.get(), [&](const char* name, std::string* path) {
      if (logClass == LogClass::kTransfer) {
        *path = XferlogDBPathGet(name);
      } else {
        const char* file = LogDatabaseFile(name);
        *path = file != nullptr ? QuorResolvePath(file) : std::string();
      }
      if (path->empty()) return false;
      stamp.AddFile(*path);
      if (access(path->c_str(), F_OK) == 0) {
        stamp.AddTable(opened ? name : "main");
        opened = true;
      }
      return true;
    });
    if (!connected) return Fail("the database cannot be opened", failure);
    *empty = merged_.connection() == nullptr;
    select_ =
        "SELECT *, " + std::string(shape_.severity) + " AS severity FROM (" + merged_.sql() + ")";
    return true;
  }

  // Runs sql, handing each row to take. False (logged, *failure set) when it fails.
  template <class Take>
  bool Run(const std::string& sql, SearchFailure* failure, Take take) {
    PQUORDBRESULT rows = nullptr;
    int rc = QUORDBExecute(merged_.connection(), sql.c_str(), &rows);
    QuorDbRows result(rows);
    if (rc < 0) return Fail(QUORDBErrorGet(merged_.connection()), failure);
    take(result.get());
    return true;
  }

  const std::string& select() const { return select_; }
  const ClassShape& shape() const { return shape_; }
  // The state of the stores, for the count cache; false when it cannot be read.
  bool Stamp(const StoreStamp** stamp) {
    *stamp = &stamp_;
    return stamp_.ReadRowIds(merged_.connection());
  }

 private:
  bool Fail(const std::string& reason, SearchFailure* failure) {
    failure->reason = reason;
    SLIBCSysLog(LOG_ERR, "QUOR.LogCenter.Search: cannot read the %s logs: %s",
                search_.types.empty() ? "" : search_.types[0].c_str(), reason.c_str());
    return false;
  }

  const SearchRequest& search_;
  ClassShape shape_;
  MergedSelect merged_;
  StoreStamp stamp_;
  std::string select_;
};

}  // namespace

void AddRecords(const SearchRequest& search, PQUORDBRESULT result, Json::Value* items) {
  LogRecord record;
  TimeTexts times;
  QUORDBROW row;
  if (search.logClass == LogClass::kDisk) {
    DiskRowDecoder decoder(result);
    RowColumns extra(result, {"id"});
    while (QUORDBFetchRow(result, &row) == 0) {
      record.Clear();
      record.Point("level",
                   LogLevelOf(LevelNumber(decoder.Field(row, DiskRowDecoder::kLevel))).recordWord);
      decoder.Decode(row, &record);
      record.Point("id", extra.Field(row, 0));
      items->append(record.ToJson());
    }
    return;
  }
  if (search.logClass == LogClass::kTransfer) {
    TransferRowDecoder decoder(result);
    while (QUORDBFetchRow(result, &row) == 0) {
      record.Clear();
      const char* time = decoder.Field(row, TransferRowDecoder::kTime);
      decoder.Decode(row, ReadInteger(time != nullptr ? time : ""), &record);
      record.Point("id", decoder.Field(row, TransferRowDecoder::kId));
      items->append(record.ToJson());
    }
    return;
  }
  RowColumns columns(result,
                     {"time", "severity", "username", "msg", "orginalLogType", "logtype", "id"});
  while (QUORDBFetchRow(result, &row) == 0) {
    record.Clear();
    const char* time = columns.Field(row, 0);
    times.Convert(ReadInteger(time != nullptr ? time : ""), &record.Set("time"));
    const char* severity = columns.Field(row, 1);
    record.Point("level",
                 LogLevelOf(static_cast<int>(ReadInteger(severity ? severity : "1"))).recordWord);
    record.Point("who", columns.Field(row, 2));
    record.Point("descr", columns.Field(row, 3));
    record.Point("orginalLogType", columns.Field(row, 4));
    record.Point("logtype", columns.Field(row, 5));
    record.Point("id", columns.Field(row, 6));
    items->append(record.ToJson());
  }
}

bool QueryDatabases(const SearchRequest& search, QueryResult* result, SearchFailure* failure) {
  SearchScope scope(search);
  bool empty = false;
  if (!scope.Open(failure, &empty)) return false;
  if (empty) return true;
  // One scan counts every level, kept while the stores do not change; the total is the count
  // of the levels asked for.
  const StoreStamp* stamp = nullptr;
  bool stamped = scope.Stamp(&stamp);
  if (!stamped || !FindLevelCounts(search, *stamp, result->levels)) {
    bool ok =
        scope.Run("SELECT severity, count(*) AS n FROM (" + scope.select() + ") GROUP BY severity",
                  failure, [&](PQUORDBRESULT rows) {
                    QUORDBROW row;
                    while (QUORDBFetchRow(rows, &row) == 0) {
                      int level = static_cast<int>(ReadInteger(QUORDBFetchFieldAt(rows, row, 0)));
                      if (level < 1 || level > 3) level = 1;
                      result->levels[level] += ReadInteger(QUORDBFetchFieldAt(rows, row, 1));
                    }
                  });
    if (!ok) return false;
    if (stamped) KeepLevelCounts(search, *stamp, result->levels);
  }
  for (int level = 1; level <= 3; ++level) {
    if (search.levels[level]) result->total += result->levels[level];
  }
  // Ties are broken by store and row id, so pages never overlap. One store needs no store key,
  // and without it the time index (which holds the row id) gives the order without a sort.
  const std::string direction = search.ascending ? " ASC" : " DESC";
  std::string order = SortExpression(scope.shape(), search.sort) + direction;
  if (search.types.size() > 1) order += ", orginalLogType" + direction;
  order += ", id" + direction;
  std::string page = scope.select() + LevelFilter(search) + " ORDER BY " + order + " LIMIT " +
                     std::to_string(search.limit) + " OFFSET " + std::to_string(search.offset);
  return scope.Run(page, failure,
                   [&](PQUORDBRESULT rows) { AddRecords(search, rows, &result->items); });
}

bool HistogramOfDatabases(const SearchRequest& search, Histogram* histogram,
                          SearchFailure* failure) {
  SearchScope scope(search);
  bool empty = false;
  if (!scope.Open(failure, &empty)) return false;
  std::string matches = scope.select() + LevelFilter(search);
  // Rows whose time is not a number (a damaged row) sort before every other row and count in
  // the first bucket, so that the buckets add up to the query's total.
  const std::string readable = "typeof(time) IN ('integer', 'real')";
  int64_t from = search.from, to = search.to;
  bool any = search.hasFrom && search.hasTo;
  if (!empty && !any) {
    std::string bounds = "SELECT min(t), max(t), count(*) FROM (SELECT CASE WHEN " + readable +
                         " THEN time END AS t FROM (" + matches + "))";
    bool ok = scope.Run(bounds, failure, [&](PQUORDBRESULT rows) {
      QUORDBROW row;
      if (QUORDBFetchRow(rows, &row) != 0) return;
      const char* count = QUORDBFetchFieldAt(rows, row, 2);
      if (count == nullptr || ReadInteger(count) == 0) return;
      any = true;
      const char* low = QUORDBFetchFieldAt(rows, row, 0);
      const char* high = QUORDBFetchFieldAt(rows, row, 1);
      if (!search.hasFrom) from = low != nullptr ? ReadInteger(low) : search.hasTo ? search.to : 0;
      if (!search.hasTo) to = high != nullptr ? ReadInteger(high) : from;
    });
    if (!ok) return false;
  }
  if (!any) {
    histogram->from = search.hasFrom ? from : 0;
    histogram->to = search.hasTo ? to : 0;
    if (search.hasFrom && search.hasTo) LayOutBuckets(from, to, search.buckets, histogram);
    return true;
  }
  LayOutBuckets(from, to, search.buckets, histogram);
  if (empty || to < from) return true;
  const std::string first = std::to_string(from), width = std::to_string(histogram->bucket);
  std::string sql = "SELECT CASE WHEN " + readable + " THEN " + first + " + (time - " + first +
                    ") / " + width + " * " + width + " ELSE " + first +
                    " END AS start, severity, count(*) FROM (" + matches +
                    ") GROUP BY start, severity";
  return scope.Run(sql, failure, [&](PQUORDBRESULT rows) {
    QUORDBROW row;
    while (QUORDBFetchRow(rows, &row) == 0) {
      CountInBucket(ReadInteger(QUORDBFetchFieldAt(rows, row, 0)),
                    static_cast<int>(ReadInteger(QUORDBFetchFieldAt(rows, row, 1))),
                    ReadInteger(QUORDBFetchFieldAt(rows, row, 2)), histogram);
    }
  });
}
