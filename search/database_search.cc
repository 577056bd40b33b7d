// Searches over the log databases: the system class and the transfer class merged over their
// databases, and the disk log. The filters are built from fixed fragments; user values enter
// only through the platform's keyword condition, as numbers, or as texts the platform escaped.
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <map>

#include "catalogue/log_levels.h"
#include "search/level_count_cache.h"
#include "search/search_indexes.h"
#include "search/search_result.h"
#include "sources/core_log.h"
#include "sources/log_classes.h"
#include "sources/record_fields.h"
#include "sources/sql_query.h"

namespace {

// The ids of one range's candidates (its table in the sidecar attached as "search_index"),
// narrowed by conditions on rowid (or ""), as a SELECT of a column "id".
std::string RangeCandidates(const std::string& table, const std::string& match,
                            const std::string& conditions) {
  return "SELECT rowid AS id FROM search_index." + table + " WHERE " + table + " MATCH '" +
         EscapeSqlString(match) + "'" + conditions;
}

// The ids of every range's candidates as one compound SELECT; the ranges do not overlap, so no
// id comes twice.
std::string CandidateSelect(const CandidateRows& candidates) {
  std::string sql;
  for (const std::string& table : candidates.tables) {
    sql += (sql.empty() ? "" : " UNION ALL ") + RangeCandidates(table, candidates.match, "");
  }
  return sql;
}

// Adds to the total the counts of the levels the search asks for.
void AddTotal(const SearchRequest& search, QueryResult* result) {
  for (int level = 1; level <= 3; ++level) {
    if (search.levels[level]) result->total += result->levels[level];
  }
}

// The SQL expression that orders key; time for a key the class does not sort by.
std::string SortExpression(const LogClassInfo& info, const std::string& key) {
  const LogColumn* column = FindColumn(info, key);
  return column != nullptr && column->sortBy != nullptr ? column->sortBy : "time";
}

// The condition of ids against a row id of each store ("" when none was given). Every arm
// names its store in orginalLogType, so the bound is one constant in each, and the store is
// read by its row id range.
std::string IdBound(const char* test, const StoreIds& ids, const std::string& otherwise) {
  if (!ids.given) return std::string();
  std::string bound = test + std::string("CASE orginalLogType");
  for (const auto& id : ids.ids)
    bound += " WHEN '" + id.first + "' THEN " + std::to_string(id.second);
  return bound + " ELSE " + otherwise + " END";
}

// The WHERE clause of every arm: terms, users left out and time range (the level filter
// applies outside). A row without a user is not one of the users left out. "" when a text
// could not be escaped.
std::string ArmFilter(const SearchRequest& search, const LogClassInfo& info) {
  std::string filter = " WHERE 1=1";
  if (search.logClass == LogClass::kDisk) filter += " AND SHOW = 1";
  for (const std::string& term : search.terms) filter += " AND " + info.termCondition(info, term);
  for (const Exclusion& exclusion : search.excluded) {
    for (const std::string& value : exclusion.values) {
      std::string text = EscapeSqlString(value);
      if (text.empty() && !value.empty()) return std::string();
      filter += " AND " + exclusion.column + " IS NOT '" + text + "'";
    }
  }
  if (search.hasFrom) filter += " AND time >= " + std::to_string(search.from);
  if (search.hasTo) filter += " AND time <= " + std::to_string(search.to);
  filter += IdBound(" AND id > ", search.after, "0");
  filter += IdBound(" AND id <= ", search.through, std::to_string(INT64_MAX));
  return filter;
}

// " WHERE severity IN (...)" for the levels asked, or nothing when all are.
std::string LevelFilter(const SearchRequest& search) {
  std::string list;
  for (const LogLevel* level = kLogLevels; level->number != 0; ++level) {
    if (!search.levels[level->number]) continue;
    if (!list.empty()) list += ",";
    list += std::to_string(level->number);
  }
  return list == "1,2,3" ? std::string() : " WHERE severity IN (" + list + ")";
}

// The merged select of the search's stores, each row with its severity. Opens the first
// existing store and attaches the others. *empty when no store exists.
class SearchScope {
 public:
  // candidates: the index's narrowing of the terms, or null.
  SearchScope(const SearchRequest& search, const CandidateRows* candidates)
      : search_(search),
        info_(ClassInfo(search.logClass)),
        filter_(ArmFilter(search, info_)),
        merged_(filter_ + (candidates != nullptr ? candidates->filter : "")),
        narrowed_(candidates != nullptr),
        candidates_(candidates != nullptr ? *candidates : CandidateRows()) {}

  // Opens the stores; with candidates, attaches the sidecar and collects them, *tooMany when
  // there are more than their limit (the scope is then of no use: open one without).
  bool Open(SearchFailure* failure, bool* empty, bool* tooMany) {
    *tooMany = false;
    if (filter_.empty()) return Fail("memory allocation failed", failure);
    PSLIBSZLIST split = SLIBCSzListAlloc(8);
    SzList types(split);
    if (types == nullptr) return Fail("memory allocation failed", failure);
    for (const std::string& type : search_.types) SLIBCSzListPush(SzListSlot(&types), type.c_str());
    StoreStamp& stamp = stamp_;
    bool opened = false;
    // Every store that exists must be read: a store that cannot be opened or attached fails the
    // whole search rather than answer with the rows of the others as if they were all.
    auto databaseOf = [&](const char* name, std::string* path) {
      if (!info_.storePath(name, path)) return false;
      stamp.AddFile(*path);
      if (access(path->c_str(), F_OK) == 0) {
        stamp.AddTable(opened ? name : "main");
        opened = true;
      }
      return true;
    };
    if (!merged_.AddTypes(types.get(), databaseOf, true, &failure->store)) {
      return Fail("the database cannot be opened", failure);
    }
    *empty = merged_.connection() == nullptr;
    if (!*empty && narrowed_ && !Collect(failure, tooMany)) return false;
    select_ =
        "SELECT *, " + std::string(info_.severity) + " AS severity FROM (" + merged_.sql() + ")";
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

  // The first column of the first row of sql as an integer (0 when there is no row).
  bool RunInteger(const std::string& sql, SearchFailure* failure, int64_t* value) {
    *value = 0;
    return Run(sql, failure, [&](PQUORDBRESULT rows) {
      QUORDBROW row;
      if (QUORDBFetchRow(rows, &row) == 0) *value = ReadInteger(QUORDBFetchFieldAt(rows, row, 0));
    });
  }

  // Attaches the search index file as "search_index", unless the candidates did.
  bool AttachIndex(const std::string& sidecar, SearchFailure* failure) {
    if (attached_) return true;
    attached_ = Execute("ATTACH '" + EscapeSqlString(sidecar) + "' AS search_index", failure);
    return attached_;
  }

  // Runs statements whose rows are not read. False (logged, *failure set) when one fails.
  bool Execute(const std::string& sql, SearchFailure* failure) {
    if (QUORDBExecute(merged_.connection(), sql.c_str(), nullptr) == 0) return true;
    return Fail(QUORDBErrorGet(merged_.connection()), failure);
  }

  const std::string& select() const { return select_; }
  // Whether the matches are narrowed to the index's candidates.
  bool narrowed() const { return narrowed_; }
  const LogClassInfo& info() const { return info_; }
  // The state of the stores, for the count cache; false when it cannot be read.
  // Read once: the same scope may be asked again.
  bool Stamp(const StoreStamp** stamp) {
    *stamp = &stamp_;
    if (stamped_ == 0) stamped_ = stamp_.ReadRowIds(merged_.connection()) ? 1 : -1;
    return stamped_ == 1;
  }

 private:
  bool Fail(const std::string& reason, SearchFailure* failure) {
    failure->reason = reason;
    const std::string& store = !failure->store.empty() ? failure->store
                               : search_.types.empty() ? std::string()
                                                       : search_.types[0];
    LOG_ERROR_HERE("cannot read the %s logs: %s", store.c_str(), reason.c_str());
    return false;
  }

  // The candidates, collected once into a temporary table that every statement of the search
  // reads: the full-text query runs once, and its count tells whether there are too many.
  bool Collect(SearchFailure* failure, bool* tooMany) {
    PQUORDB db = merged_.connection();
    const std::string limit =
        candidates_.limit == INT64_MAX ? std::string("-1") : std::to_string(candidates_.limit);
    std::string sql = "ATTACH '" + EscapeSqlString(candidates_.sidecar) +
                      "' AS search_index; CREATE TEMP TABLE search_candidates (id INTEGER "
                      "PRIMARY KEY)";
    if (candidates_.limit != 0 && !candidates_.tables.empty()) {
      sql += "; INSERT INTO temp.search_candidates " + CandidateSelect(candidates_) + " LIMIT " +
             limit;
    }
    if (QUORDBExecute(db, sql.c_str(), nullptr) < 0) return Fail(QUORDBErrorGet(db), failure);
    attached_ = true;
    if (candidates_.limit == 0) return true;  // walked in batches by the caller
    int64_t count = 0;
    if (!RunInteger("SELECT count(*) FROM temp.search_candidates", failure, &count)) return false;
    *tooMany = candidates_.limit != INT64_MAX && count >= candidates_.limit;
    return true;
  }

  const SearchRequest& search_;
  const LogClassInfo& info_;
  std::string filter_;
  MergedSelect merged_;
  bool narrowed_;
  CandidateRows candidates_;
  StoreStamp stamp_;
  std::string select_;
  bool attached_ = false;
  int stamped_ = 0;  // 1 read, -1 could not be read
};

// Opens the scope of search, narrowed by the index's candidates where it can be; a term with
// too many candidates is searched by reading the log through. A scope already open (without
// candidates, on stores that exist) serves when the index does not narrow the search.
bool OpenScope(const SearchRequest& search, SearchIndexes* indexes, bool indexed,
               std::unique_ptr<SearchScope>* scope, SearchFailure* failure, bool* empty) {
  CandidateRows candidates;
  bool narrowed = indexed && indexes->Narrowing(search, &candidates);
  if (!narrowed && *scope != nullptr) {
    *empty = false;
    return true;
  }
  bool tooMany = false;
  scope->reset(new SearchScope(search, narrowed ? &candidates : nullptr));
  if (!(*scope)->Open(failure, empty, &tooMany)) return false;
  if (!tooMany) return true;
  scope->reset(new SearchScope(search, nullptr));
  return (*scope)->Open(failure, empty, &tooMany);
}

// A match by its place in time order, as SQLite orders the column: rank 0 for a NULL time,
// 1 for an integer, 2 for a text (after every number, in byte order).
struct TimeKey {
  int rank;
  int64_t time, id;
  std::string text;
};

// Offsets up to which a page of a term search is walked rather than counted (the first pages),
// and the most rows without an integer time that such a walk reads first.
const int64_t kWalkDepth = 500;
const int64_t kWalkOddRows = 10000;

// The page of a one-store term search in time order, found without counting its matches: the
// rows above the index's mark and those without an integer time, then the index's candidates
// in id order (newest first for a descending page), are confirmed batch by batch until the page
// is full and no candidate left can sort into it (the index bounds the times of the rows on
// either side of an id). *walked false: this search is not walked (several stores, no term the
// index narrows, another sort, a deep page, a real or blob time), take the counting path; otherwise
// the answer is the return value, with *failure set on false.
bool WalkPage(const SearchRequest& search, SearchIndexes* indexes, QueryResult* result,
              SearchFailure* failure, bool* walked) {
  *walked = false;
  const int64_t need = search.offset + search.limit;
  if (search.counts || !search.page || search.terms.empty() || need > kWalkDepth ||
      SortExpression(ClassInfo(search.logClass), search.sort) != "time") {
    return false;
  }
  CandidateRows candidates;
  int64_t odd = 0;
  IndexReader* index = indexes->Walking(search, &candidates, &odd);
  if (index == nullptr || odd > kWalkOddRows) return false;
  SearchScope scope(search, &candidates);
  bool empty = false, tooMany = false;
  *walked = true;
  if (!scope.Open(failure, &empty, &tooMany)) return false;
  if (empty) return true;
  const bool up = search.ascending;
  auto before = [up](const TimeKey& a, const TimeKey& b) {
    if (a.rank != b.rank) return up ? a.rank < b.rank : a.rank > b.rank;
    if (a.time != b.time) return up ? a.time < b.time : a.time > b.time;
    if (a.text != b.text) return up ? a.text < b.text : a.text > b.text;
    return up ? a.id < b.id : a.id > b.id;
  };
  const std::string mark = std::to_string(index->mark());
  const std::string confirm =
      "SELECT time, id, typeof(time) FROM (" + scope.select() + ")" + LevelFilter(search);
  // First the rows above the mark and the indexed rows without an integer time (NULLs and
  // texts, found by the time index; a real-valued time leaves the search to the counting path).
  const std::string nulls = "SELECT id FROM logs WHERE time IS NULL AND +id <= " + mark;
  const std::string texts = "SELECT id FROM logs WHERE time >= '' AND +id <= " + mark;
  int64_t oddFound = 0;
  if (odd > 0 && !scope.RunInteger("SELECT (SELECT count(*) FROM (" + nulls +
                                       ")) + (SELECT count(*) FROM (" + texts + "))",
                                   failure, &oddFound)) {
    return false;
  }
  if (oddFound != odd) {
    *walked = false;
    return false;
  }
  std::string fill = "INSERT INTO temp.search_candidates SELECT id FROM logs WHERE id > " + mark +
                     (odd > 0 ? "; INSERT OR IGNORE INTO temp.search_candidates " + nulls +
                                    "; INSERT OR IGNORE INTO temp.search_candidates " + texts
                              : std::string());
  int64_t edge = up ? 0 : index->mark() + 1;  // the walk's next candidates are beyond it
  int64_t batch = 256;
  // The ranges' tables in the walk's order.
  std::vector<std::string> tables = candidates.tables;
  if (up) std::reverse(tables.begin(), tables.end());
  size_t table = 0;
  std::vector<TimeKey> kept;
  for (bool first = true;; first = false) {
    int64_t found = 0, low = INT64_MAX, high = 0;
    bool placed = true;
    auto count = [&](PQUORDBRESULT rows) {
      QUORDBROW row;
      if (QUORDBFetchRow(rows, &row) != 0) return;
      found = ReadInteger(QUORDBFetchFieldAt(rows, row, 0));
      if (found == 0) return;
      low = ReadInteger(QUORDBFetchFieldAt(rows, row, 1));
      high = ReadInteger(QUORDBFetchFieldAt(rows, row, 2));
    };
    const std::string counted = "SELECT count(*), min(id), max(id) FROM temp.search_candidates";
    if (!scope.Execute("DELETE FROM temp.search_candidates", failure) ||
        (first && (!scope.Execute(fill, failure) || !scope.Run(counted, failure, count)))) {
      return false;
    }
    // The next batch of candidates beyond the edge, from as many ranges' tables as it takes.
    for (; !first && table < tables.size(); ++table) {
      const std::string beyond =
          std::string(" AND rowid ") + (up ? ">" : "<") + " " + std::to_string(edge) +
          " AND rowid BETWEEN " + std::to_string(index->low()) + " AND " + mark +
          " ORDER BY rowid " + (up ? "ASC" : "DESC") + " LIMIT " + std::to_string(batch - found);
      if (!scope.Execute("INSERT INTO temp.search_candidates " +
                             RangeCandidates(tables[table], candidates.match, beyond),
                         failure) ||
          !scope.Run(counted, failure, count)) {
        return false;
      }
      if (found == batch) break;  // this table may hold more
    }
    if (!scope.Run(confirm, failure, [&](PQUORDBRESULT rows) {
          QUORDBROW row;
          while (QUORDBFetchRow(rows, &row) == 0) {
            std::string type = QUORDBFetchFieldAt(rows, row, 2);
            int rank = type == "null" ? 0 : type == "integer" ? 1 : 2;
            placed = placed && (rank < 2 || type == "text");
            // The rows without an integer time were all read first.
            if (first || rank == 1) {
              const char* time = QUORDBFetchFieldAt(rows, row, 0);
              kept.push_back({rank, rank == 1 ? ReadInteger(time) : 0,
                              ReadInteger(QUORDBFetchFieldAt(rows, row, 1)),
                              rank == 2 ? time : ""});
            }
          }
        })) {
      return false;
    }
    if (!placed) {
      *walked = false;  // a real or blob time: left to the counting path
      return false;
    }
    std::sort(kept.begin(), kept.end(), before);
    if (static_cast<int64_t>(kept.size()) > need) kept.resize(need);
    if (!first) {
      if (found < batch) break;  // every table was read to its end
      edge = up ? high : low;
      batch = std::min<int64_t>(batch * 4, 16384);
    }
    // Stops when no integer time beyond the edge can sort before the page's last row.
    if (static_cast<int64_t>(kept.size()) == need) {
      const TimeKey& last = kept.back();
      int64_t bound = up ? index->EarliestAbove(edge) : index->LatestBelow(edge);
      if (up ? bound == INT64_MAX || last.rank < 1 || (last.rank == 1 && last.time <= bound)
             : bound == INT64_MIN || last.rank > 1 || (last.rank == 1 && last.time >= bound)) {
        break;
      }
    }
    if (tables.empty()) break;  // no candidate at all
  }
  if (static_cast<int64_t>(kept.size()) <= search.offset) return true;
  std::string ids;
  for (size_t i = static_cast<size_t>(search.offset); i < kept.size(); ++i) {
    ids += (ids.empty() ? "(" : "), (") + std::to_string(kept[i].id);
  }
  // The page's rows in its order; "+" keeps the time index out of a sort of a few rows.
  const char* direction = up ? " ASC" : " DESC";
  return scope.Execute(
             "DELETE FROM temp.search_candidates; INSERT INTO temp.search_candidates "
             "VALUES " +
                 ids + ")",
             failure) &&
         scope.Run(scope.select() + LevelFilter(search) + " ORDER BY +time" + direction + ", +id" +
                       direction,
                   failure, [&](PQUORDBRESULT rows) { AddRecords(search, rows, &result->items); });
}

// Adds the level counts of the scope's matches that meet condition (a WHERE clause on them, or
// "") to levels. Sums rather than GROUP BY severity: no sorter for the matches (severity is 1
// to 3).
bool CountMatches(SearchScope* scope, const std::string& condition, int64_t levels[4],
                  SearchFailure* failure) {
  return scope->Run(
      "SELECT count(*), coalesce(sum(severity = 2), 0), coalesce(sum(severity = 3), 0) FROM (" +
          scope->select() + ")" + condition,
      failure, [&](PQUORDBRESULT rows) {
        QUORDBROW row;
        if (QUORDBFetchRow(rows, &row) != 0) return;
        int64_t all = ReadInteger(QUORDBFetchFieldAt(rows, row, 0));
        int64_t warn = ReadInteger(QUORDBFetchFieldAt(rows, row, 1));
        int64_t err = ReadInteger(QUORDBFetchFieldAt(rows, row, 2));
        levels[1] += all - warn - err;
        levels[2] += warn;
        levels[3] += err;
      });
}

// A read transaction of the scope's connection, ended on every path.
class ReadTransaction {
 public:
  explicit ReadTransaction(SearchScope* scope) : scope_(scope) {}
  bool Begin(SearchFailure* failure) { return open_ = scope_->Execute("BEGIN", failure); }
  ~ReadTransaction() {
    SearchFailure ignored;
    if (open_) scope_->Execute("COMMIT", &ignored);
  }

 private:
  SearchScope* scope_;
  bool open_ = false;
};

// The level counts of a one-store search by chunk of row ids, in one read transaction: a chunk
// that holds the rows it held when the worker last counted this search is taken from the
// worker's cache, the others and the newest are read from the store. A chunk's rows are
// counted by the index from the third lowest chunk up to its last whole one, and by the store's
// `count(*)` of the chunk's ids (no row's text read) elsewhere: retention may have taken rows
// of the lowest two since the index last looked. For a search that reads the log through (no
// candidates). *used false: count the usual way.
bool CountByChunks(const SearchRequest& search, SearchIndexes* indexes, SearchScope* scope,
                   int64_t levels[4], SearchFailure* failure, bool* used) {
  *used = false;
  std::string sidecar, store;
  // Candidates are counted at once: each chunk's statement would look up all of them.
  if (scope->narrowed() || indexes->OneStore(search, &sidecar, &store) == nullptr) return true;
  ReadTransaction transaction(scope);
  if (!scope->AttachIndex(sidecar, failure) || !transaction.Begin(failure)) return false;
  int64_t minId = 0, maxId = 0, mark = 0, low = 0, fits = 0;
  if (!scope->Run(IndexStateSql("search_index", store), failure, [&](PQUORDBRESULT rows) {
        QUORDBROW row;
        if (QUORDBFetchRow(rows, &row) != 0) return;
        int64_t* values[] = {&minId, &maxId, &mark, &low, &fits};
        for (int i = 0; i < 5; ++i) *values[i] = ReadInteger(QUORDBFetchFieldAt(rows, row, i));
      })) {
    return false;
  }
  const int bits = kIndexChunkBits;
  const int64_t first = std::max((minId >> bits) + 2, low >> bits);
  const int64_t last = ((mark + 1) >> bits) - 1;
  // Another store's index, ids that went back, or no whole chunk to take: the usual way.
  if (fits != 1 || maxId < mark || minId > mark || first > last) return true;
  std::map<int64_t, int64_t> rows;  // of the chunks first..last, by the index
  if (!scope->Run(ChunkRowsSql("search_index", first, last), failure, [&](PQUORDBRESULT result) {
        QUORDBROW row;
        while (QUORDBFetchRow(result, &row) == 0) {
          rows[ReadInteger(QUORDBFetchFieldAt(result, row, 0))] =
              ReadInteger(QUORDBFetchFieldAt(result, row, 1));
        }
      })) {
    return false;
  }
  const int64_t lowest = minId >> bits, newest = maxId >> bits;
  ChunkLevelMap* kept = ChunkLevelsOf(search, std::to_string(StoreIdentity(store)));
  kept->erase(kept->begin(), kept->lower_bound(lowest));  // their rows are gone
  int64_t counted[4] = {0, 0, 0, 0};
  auto between = [](int64_t a, int64_t b) {
    return " WHERE id BETWEEN " + std::to_string(a) + " AND " + std::to_string(b);
  };
  // The chunks below the index's (the lowest two) and above its last whole one, but for the
  // newest (rows are still added to it), are checked against their rows in the store: a chunk
  // below the newest only loses rows.
  for (int64_t chunk = lowest; chunk < newest; chunk = chunk + 1 == first ? last + 1 : chunk + 1) {
    int64_t n = 0;
    if (!scope->RunInteger(
            "SELECT count(*) FROM main.logs" + between(chunk << bits, ((chunk + 1) << bits) - 1),
            failure, &n)) {
      return false;
    }
    if (n > 0) rows[chunk] = n;
  }
  for (const auto& [chunk, n] : rows) {
    ChunkLevels& levelsOf = (*kept)[chunk];
    if (levelsOf.rows != n || n == 0) {
      levelsOf = ChunkLevels();
      if (!CountMatches(scope, between(chunk << bits, ((chunk + 1) << bits) - 1), levelsOf.levels,
                        failure)) {
        kept->erase(chunk);
        return false;
      }
      levelsOf.rows = n;
    }
    for (int level = 1; level <= 3; ++level) counted[level] += levelsOf.levels[level];
  }
  const int64_t above = std::max(last + 1, newest) << bits;
  if (!CountMatches(scope, " WHERE id >= " + std::to_string(above), counted, failure)) {
    return false;
  }
  for (int level = 1; level <= 3; ++level) levels[level] += counted[level];
  *used = true;
  return true;
}

// The page statement of a one-store search sorted by user, from the index's user order
// rather than a sort of every match: the indexed rows in user order, each looked up in the
// store and kept when it matches (the store's own filters, so rows removed since drop out),
// merged with the matches above the index's mark, sorted here; the page's ids chosen from that,
// then their rows. *page stays empty when the index cannot order this search.
bool UserOrderedPage(const SearchRequest& search, SearchIndexes* indexes, SearchScope* scope,
                     const std::string& direction, int64_t limit, int64_t offset, std::string* page,
                     SearchFailure* failure) {
  std::string sidecar;
  IndexReader* index = nullptr;
  if (SortExpression(scope->info(), search.sort) != "username" ||
      (index = indexes->UserOrder(search, &sidecar)) == nullptr) {
    return true;
  }
  if (!scope->AttachIndex(sidecar, failure)) return false;
  const std::string mark = std::to_string(index->mark());
  const std::string matches = "(" + scope->select() + LevelFilter(search) + ") AS m";
  // CROSS JOIN keeps the user order as the outer loop; each arm delivers its rows in order
  // and the compound merges them, stopping after the page.
  const std::string ids =
      "SELECT u.username AS k, u.id AS i FROM search_index.users AS u CROSS JOIN " + matches +
      " ON m.id = u.id WHERE u.id <= " + mark + " UNION ALL SELECT m.username, m.id FROM " +
      matches + " WHERE m.id > " + mark + " ORDER BY 1" + direction + ", 2" + direction +
      " LIMIT " + std::to_string(limit) + " OFFSET " + std::to_string(offset);
  *page = "SELECT * FROM (" + scope->select() + ") WHERE id IN (SELECT i FROM (" + ids +
          ")) ORDER BY username" + direction + ", id" + direction;
  return true;
}

}  // namespace

void AddRecords(const SearchRequest& search, PQUORDBRESULT result, Json::Value* items) {
  std::unique_ptr<RowDecoder> decoder = ClassInfo(search.logClass).decoder(result);
  LogRecord record;
  QUORDBROW row;
  while (QUORDBFetchRow(result, &row) == 0) {
    record.Clear();
    decoder->Decode(row, LogLevelOf(decoder->Level(row)).recordWord, &record);
    record.Point("id", decoder->Id(row));
    items->append(record.ToJson());
  }
}

bool QueryDatabases(const SearchRequest& search, QueryResult* result, SearchFailure* failure) {
  // The stores' indexes count without reading rows and narrow terms to candidate rows; where
  // one cannot answer now, the search scans. Rows between two row ids are read by id, which no
  // index narrows further.
  SearchIndexes indexes;
  bool indexed = !search.after.given && indexes.Open(search);
  bool walked = false;
  if (indexed) {
    bool ok = WalkPage(search, &indexes, result, failure, &walked);
    if (walked) return ok;
  }
  // A term's count asked again while the stores are unchanged (the page asks it with every
  // page it shows) comes from the worker's cache before the index narrows anything; missed,
  // the scope opened to look serves a term the index does not narrow.
  std::unique_ptr<SearchScope> opened;
  if (!search.page && indexed && !search.terms.empty()) {
    opened.reset(new SearchScope(search, nullptr));
    bool none = false, unused = false;
    const StoreStamp* stamp = nullptr;
    if (!opened->Open(failure, &none, &unused)) return false;
    if (none) return true;
    if (opened->Stamp(&stamp) && FindLevelCounts(search, *stamp, result->levels)) {
      AddTotal(search, result);
      return true;
    }
  }
  bool empty = false;
  if (!OpenScope(search, &indexes, indexed, &opened, failure, &empty)) return false;
  SearchScope& scope = *opened;
  if (empty) return true;
  // Without an index, one scan counts every level, kept while the stores do not change; the
  // total is the count of the levels asked for.
  bool counted = indexed && indexes.CountLevels(search, result->levels);
  const StoreStamp* stamp = nullptr;
  bool stamped = !counted && scope.Stamp(&stamp);
  if (!counted && (!stamped || !FindLevelCounts(search, *stamp, result->levels))) {
    bool byChunks = false;
    if (indexed && !CountByChunks(search, &indexes, &scope, result->levels, failure, &byChunks)) {
      return false;
    }
    if (!byChunks && !CountMatches(&scope, "", result->levels, failure)) return false;
    if (stamped) KeepLevelCounts(search, *stamp, result->levels);
  }
  AddTotal(search, result);
  if (!search.page) return true;
  // Ties are broken by store and row id, so pages never overlap. One store needs no store key,
  // and without it the time index (which holds the row id) gives the order without a sort.
  // A page in the second half is read from the other end (the order is total, so reversed it
  // is the same sequence backwards): the last page costs what the first does.
  int64_t offset = search.offset, limit = search.limit;
  bool reversed = offset > result->total / 2 && offset < result->total;
  if (reversed) {
    int64_t end = std::min(result->total, offset + limit);
    offset = result->total - end;
    limit = end - search.offset;
  }
  const std::string direction = search.ascending != reversed ? " ASC" : " DESC";
  std::string order = SortExpression(scope.info(), search.sort) + direction;
  if (search.types.size() > 1) order += ", orginalLogType" + direction;
  order += ", id" + direction;
  std::string page;
  if (indexed &&
      !UserOrderedPage(search, &indexes, &scope, direction, limit, offset, &page, failure)) {
    return false;
  }
  if (page.empty()) {
    page = scope.select() + LevelFilter(search) + " ORDER BY " + order + " LIMIT " +
           std::to_string(limit) + " OFFSET " + std::to_string(offset);
  }
  bool ok = scope.Run(page, failure,
                      [&](PQUORDBRESULT rows) { AddRecords(search, rows, &result->items); });
  if (ok && reversed) {
    Json::Value forward(Json::arrayValue);
    for (Json::ArrayIndex i = result->items.size(); i > 0; --i) {
      forward.append(std::move(result->items[i - 1]));
    }
    result->items = std::move(forward);
  }
  return ok;
}

bool HistogramOfDatabases(const SearchRequest& search, Histogram* histogram,
                          SearchFailure* failure) {
  SearchIndexes indexes;
  bool indexed = indexes.Open(search);
  if (indexed && indexes.FillHistogram(search, histogram, failure)) return !failure->wideRange;
  *histogram = Histogram();
  std::unique_ptr<SearchScope> opened;
  bool empty = false;
  if (!OpenScope(search, &indexes, indexed, &opened, failure, &empty)) return false;
  SearchScope& scope = *opened;
  std::string matches = scope.select() + LevelFilter(search);
  // Rows whose time is not a number (a damaged row) sort before every other row and count in
  // the first bucket, so that the buckets add up to the query's total.
  const std::string readable = "typeof(time) IN ('integer', 'real')";
  int64_t from = search.from, to = search.to;
  bool bounded = search.hasFrom && search.hasTo;
  // A range too wide for bucket arithmetic is narrowed to the matches' own first and last time.
  bool narrow = bounded && !SpanFits(from, to);
  bool any = bounded && !narrow;
  if (!empty && !any) {
    // The first and last readable time of the matches, and whether there is a match at all:
    // one pass over the index's candidates; reading the log through, each time the first match
    // of a walk down the time index from its end (a common term stops after a few rows).
    const std::string times = "SELECT time FROM (" + matches + ") WHERE " + readable;
    std::string bounds = scope.narrowed()
                             ? "SELECT min(t), max(t), count(*) FROM (SELECT CASE WHEN " +
                                   readable + " THEN time END AS t FROM (" + matches + "))"
                             : "SELECT (" + times + " ORDER BY time ASC LIMIT 1), (" + times +
                                   " ORDER BY time DESC LIMIT 1), EXISTS (" + matches + ")";
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
      if (!SpanFits(from, to) && low != nullptr && high != nullptr) {
        from = std::max<int64_t>(from, ReadInteger(low));
        to = std::min<int64_t>(to, ReadInteger(high));
      }
    });
    if (!ok) return false;
  }
  if (!any) {
    histogram->from = search.hasFrom ? from : 0;
    histogram->to = search.hasTo ? to : 0;
    if (bounded && !narrow) LayOutBuckets(from, to, search.buckets, histogram);
    return true;
  }
  if (!SpanFits(from, to)) {
    failure->wideRange = true;
    return false;
  }
  LayOutBuckets(from, to, search.buckets, histogram);
  if (empty || to < from) return true;
  // The statement only groups the matches finely enough that no group spans two buckets; which
  // bucket a time falls in, and where an unreadable time counts, CountInBucket alone decides.
  const std::string first = std::to_string(from), width = std::to_string(histogram->bucket);
  std::string sql = "SELECT min(t), severity, count(*) FROM (SELECT CASE WHEN " + readable +
                    " THEN time END AS t, severity FROM (" + matches + ")) GROUP BY (t - " + first +
                    ") / " + width + ", severity";
  return scope.Run(sql, failure, [&](PQUORDBRESULT rows) {
    QUORDBROW row;
    while (QUORDBFetchRow(rows, &row) == 0) {
      const char* time = QUORDBFetchFieldAt(rows, row, 0);
      CountInBucket(time != nullptr, time != nullptr ? ReadInteger(time) : 0,
                    static_cast<int>(ReadInteger(QUORDBFetchFieldAt(rows, row, 1))),
                    ReadInteger(QUORDBFetchFieldAt(rows, row, 2)), histogram);
    }
  });
}
