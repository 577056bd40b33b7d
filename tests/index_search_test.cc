// The search index against the scan: the search module's answers with the index equal its
// answers without one, on random rows and queries, while a second process writes and while rows
// are cleared or trimmed; a damaged or deleted index is made anew.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <json/value.h>
#include <sqlite3.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <random>

#include "index/search_index.h"
#include "platform/webapi.h"
#include "search/search_methods.h"
#include "tests/support/run_process.h"
#include "tests/support/temp_root.h"
#include "tools/lib/log_schemas.h"

namespace {

const char* const kLevels[] = {"err", "warning", "info", "notice"};
// Pieces of messages: Unicode that folds in full, and every character with a meaning to SQL,
// LIKE, GLOB or the FTS5 query syntax.
const char* const kPieces[] = {
    "disk",   "full",    "Straße",  "STRASSE", "STRAẞE", "ıstanbul", "İstanbul", "\u212Aelvin",
    "日本語", "ΣΊΣΥΦΟΣ", "σίσυφος", "%",       "_",      "[x]",      "*",        "?",
    "\\",     "'",       "\"",      "a\"b",    "NEAR",   "AND",      "-",        "volume 1"};

std::string Quoted(const std::string& text) {
  std::string out = "'";
  for (char c : text) out += c == '\'' ? std::string("''") : std::string(1, c);
  return out + "'";
}

// Random rows for the system log, as an INSERT statement.
std::string RandomRows(std::mt19937* random, int count, int64_t t0) {
  std::string sql = "INSERT INTO logs (time, level, username, msg) VALUES ";
  for (int i = 0; i < count; ++i) {
    std::string msg;
    for (int words = 1 + (*random)() % 4; words > 0; --words) {
      msg += std::string(kPieces[(*random)() % 24]) + ((*random)() % 3 ? " " : "");
    }
    // Times mostly grow with the row, repeat and go back now and then; a few are at the 64-bit
    // ends or not numbers.
    int pick = (*random)() % 200;
    std::string time = pick == 0   ? std::to_string(INT64_MIN)
                       : pick == 1 ? std::to_string(INT64_MAX)
                       : pick == 2 ? "NULL"
                       : pick == 3 ? "'soon'"
                                   : std::to_string(t0 + i * 5 + (*random)() % 3000 - 1500);
    sql += (i ? "," : "") + std::string("(") + time + "," + Quoted(kLevels[(*random)() % 4]) + "," +
           ((*random)() % 40 ? Quoted("u" + std::string(kPieces[(*random)() % 24])) : "NULL") +
           "," + Quoted(msg) + ")";
  }
  return sql + ";";
}

Json::Value Call(void (*method)(QUOR::APIRequest*, QUOR::APIResponse*), const Json::Value& params) {
  QUOR::APIRequest request(params, "admin", "en");
  QUOR::APIResponse response;
  method(&request, &response);
  Json::Value answer = response.GetData();
  if (response.GetErrorCode() != 0) answer["error"] = response.GetErrorCode();
  return answer;
}

// The answer of a call while the index of store cannot be opened: the scan's answer. The
// store's change time is set anew first, so that the worker's counts kept for the store's
// state (the last call's, perhaps the index's) are not reused.
Json::Value Scanned(const std::string& store, void (*method)(QUOR::APIRequest*, QUOR::APIResponse*),
                    const Json::Value& params) {
  static time_t changes = 0;
  struct timespec times[2] = {{0, UTIME_OMIT}, {1000000000 + ++changes, 0}};
  utimensat(AT_FDCWD, store.c_str(), times, 0);
  const std::string side = IndexPathOf(store);
  for (const char* suffix : {"", "-wal", "-shm"}) {
    rename((side + suffix).c_str(), (side + suffix + ".away").c_str());
  }
  mkdir(side.c_str(), 0700);
  Json::Value answer = Call(method, params);
  SleepMs(20);  // the background catch-up this started fails on the folder
  rmdir(side.c_str());
  for (const char* suffix : {"", "-wal", "-shm"}) {
    rename((side + suffix + ".away").c_str(), (side + suffix).c_str());
  }
  return answer;
}

// The query's answer put together from its page without counts and the count method.
Json::Value PageThenCount(const Json::Value& params) {
  Json::Value page = params;
  page["counts"] = false;
  Json::Value answer = Call(QueryMethod, page), counted = Call(CountMethod, params);
  if (answer.isMember("error") || counted.isMember("error")) return counted;
  answer["total"] = counted["total"];
  answer["levels"] = counted["levels"];
  return answer;
}

// Random search parameters, with terms drawn from the pieces and from fragments of them.
Json::Value RandomParams(std::mt19937* random, int64_t t0) {
  Json::Value params(Json::objectValue);
  std::string q;
  for (int terms = (*random)() % 3; terms > 0; --terms) {
    std::string piece = kPieces[(*random)() % 24];
    if ((*random)() % 3 == 0 && piece.size() > 3) piece = piece.substr(1, 3);
    if ((*random)() % 4 == 0) piece = "\"" + piece + " " + kPieces[(*random)() % 24] + "\"";
    q += (q.empty() ? "" : " ") + piece;
  }
  if (!q.empty()) params["q"] = q;
  const char* levels[] = {"", "err", "warn", "info,err", "warn,err"};
  std::string level = levels[(*random)() % 5];
  if (!level.empty()) params["level"] = level;
  if ((*random)() % 3 == 0) params["from"] = Json::Int64(t0 + (*random)() % 20000 - 2000);
  if ((*random)() % 3 == 0) params["to"] = Json::Int64(t0 + (*random)() % 20000);
  if ((*random)() % 10 == 0) params["from"] = Json::Int64(INT64_MIN);
  const char* sorts[] = {"time", "level", "who", "descr"};
  params["sort"] = sorts[(*random)() % 4];
  params["order"] = (*random)() % 2 ? "asc" : "desc";
  params["limit"] = 1 + static_cast<int>((*random)() % 40);
  params["offset"] = static_cast<int>((*random)() % ((*random)() % 2 ? 3000 : 300));
  params["buckets"] = 1 + static_cast<int>((*random)() % 80);
  return params;
}

// Compares the index's answers with the scan's on count random queries, the index caught up
// first unless told otherwise.
void CompareRandomQueries(const std::string& store, std::mt19937* random, int64_t t0, int count,
                          bool catchUp = true) {
  if (catchUp) {
    ASSERT_TRUE(IndexCatchUp(store));
  }
  for (int i = 0; i < count; ++i) {
    Json::Value params = RandomParams(random, t0);
    const std::string text = QUOR::WebAPIUtil::ToText(params);
    for (auto method : {QueryMethod, HistogramMethod}) {
      Json::Value indexed = Call(method, params);
      Json::Value scanned = Scanned(store, method, params);
      ASSERT_EQ(QUOR::WebAPIUtil::ToText(scanned), QUOR::WebAPIUtil::ToText(indexed)) << text;
      if (method == QueryMethod) {
        ASSERT_EQ(QUOR::WebAPIUtil::ToText(scanned),
                  QUOR::WebAPIUtil::ToText(PageThenCount(params)))
            << text;
      }
    }
    // The first pages in time order, which a term search finds without counting.
    params["sort"] = "time";
    params["offset"] = params["offset"].asInt() % 200;
    ASSERT_EQ(QUOR::WebAPIUtil::ToText(Call(QueryMethod, params)),
              QUOR::WebAPIUtil::ToText(PageThenCount(params)))
        << QUOR::WebAPIUtil::ToText(params);
  }
}

struct IndexedLog {
  TempRoot root;
  std::string store = root.At("/var/log/quorlog/.QUORSYSDB");
  std::mt19937 random{20261123};
  const int64_t t0 = 1700000000;
  IndexedLog() {
    // Ids 40 apart, so that the rows span two of the index's id chunks.
    MakeDatabase(store, std::string(QUOR_SYSTEM_LOG_SCHEMA) + RandomRows(&random, 3000, t0) +
                            "UPDATE logs SET id = -id; UPDATE logs SET id = -id * 40;");
  }
};

}  // namespace

TEST(SearchIndex, AnswersAsTheScanOnRandomRowsAndQueries) {
  IndexedLog log;
  CompareRandomQueries(log.store, &log.random, log.t0, 120);
  // Rows written by another process after the index was built are found above its mark.
  ProcessResult wrote =
      RunProcess({"/usr/bin/sqlite3", log.store}, RandomRows(&log.random, 500, log.t0));
  ASSERT_EQ(0, wrote.status) << wrote.err;
  for (int i = 0; i < 20; ++i) {
    Json::Value params = RandomParams(&log.random, log.t0);
    for (auto method : {QueryMethod, HistogramMethod}) {
      ASSERT_EQ(QUOR::WebAPIUtil::ToText(Scanned(log.store, method, params)),
                QUOR::WebAPIUtil::ToText(Call(method, params)));
    }
  }
  // While another indexer holds the index, rows above its mark are read from the store.
  sqlite3* other = nullptr;
  ASSERT_EQ(SQLITE_OK, sqlite3_open(IndexPathOf(log.store).c_str(), &other));
  ASSERT_EQ(SQLITE_OK, sqlite3_exec(other, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr));
  wrote = RunProcess({"/usr/bin/sqlite3", log.store}, RandomRows(&log.random, 300, log.t0));
  ASSERT_EQ(0, wrote.status) << wrote.err;
  for (int i = 0; i < 20; ++i) {
    Json::Value params = RandomParams(&log.random, log.t0);
    for (auto method : {QueryMethod, HistogramMethod}) {
      ASSERT_EQ(QUOR::WebAPIUtil::ToText(Scanned(log.store, method, params)),
                QUOR::WebAPIUtil::ToText(Call(method, params)));
    }
  }
  sqlite3_exec(other, "ROLLBACK", nullptr, nullptr, nullptr);
  sqlite3_close(other);
  CompareRandomQueries(log.store, &log.random, log.t0, 20);
}

TEST(SearchIndex, RowsTrimmedOrClearedLeaveEveryAnswerAtOnce) {
  IndexedLog log;
  ASSERT_TRUE(IndexCatchUp(log.store));
  Json::Value all(Json::objectValue);
  auto total = [&] { return Call(QueryMethod, all)["total"].asInt(); };
  EXPECT_EQ(3000, total());
  // Retention by id, then by time (not in id order), while the index is not told: readers
  // answer from it all the same (the lowest chunks read from the store) and never write it.
  MakeDatabase(log.store, "DELETE FROM logs WHERE id <= 40000;");
  EXPECT_EQ(2000, total());
  CompareRandomQueries(log.store, &log.random, log.t0, 15, false);
  std::unique_ptr<IndexReader> reader = IndexReader::Open(log.store, 0);
  ASSERT_TRUE(reader);
  EXPECT_EQ(40040, reader->low());
  reader.reset();
  EXPECT_EQ(std::vector<std::string>{"40"},
            QueryRows(IndexPathOf(log.store), "SELECT low FROM state"));
  MakeDatabase(log.store,
               "DELETE FROM logs WHERE id IN (SELECT id FROM logs ORDER BY time LIMIT 300);");
  Json::Value scanned = Scanned(log.store, QueryMethod, all);
  EXPECT_EQ(1700, scanned["total"].asInt());
  EXPECT_EQ(QUOR::WebAPIUtil::ToText(scanned), QUOR::WebAPIUtil::ToText(Call(QueryMethod, all)));
  CompareRandomQueries(log.store, &log.random, log.t0, 10, false);
  // The removed rows' candidates go with whole ranges of ids: rows written past the first
  // range, then every row of it removed, leave no candidate table for it.
  MakeDatabase(log.store, "UPDATE sqlite_sequence SET seq = 1100000 WHERE name = 'logs'; " +
                              RandomRows(&log.random, 100, log.t0));
  ASSERT_TRUE(IndexCatchUp(log.store));
  CompareRandomQueries(log.store, &log.random, log.t0, 15);  // candidates in two ranges
  // The finished range was merged into one segment (searched newest first, each segment costs).
  EXPECT_EQ(std::vector<std::string>{"0"},
            QueryRows(IndexPathOf(log.store), "SELECT range FROM merged"));
  MakeDatabase(log.store, "DELETE FROM logs WHERE id < 1100000;");
  CompareRandomQueries(log.store, &log.random, log.t0, 15);
  ASSERT_TRUE(IndexCatchUp(log.store));
  EXPECT_EQ(std::vector<std::string>{"terms_1"},
            QueryRows(IndexPathOf(log.store),
                      "SELECT name FROM sqlite_schema WHERE name GLOB 'terms_[0-9]*' AND name "
                      "NOT GLOB 'terms_*_*'"));
  // A clear empties every answer; rows written after it are found.
  MakeDatabase(log.store, "DELETE FROM logs;");
  EXPECT_EQ(0, total());
  MakeDatabase(log.store, RandomRows(&log.random, 200, log.t0));
  CompareRandomQueries(log.store, &log.random, log.t0, 15);
  EXPECT_EQ(std::vector<std::string>{"200"},
            QueryRows(IndexPathOf(log.store), "SELECT sum(n) FROM counts"));
}

// A term's counts asked again by the same worker read again only the chunks of ids whose rows
// changed: rows added above, rows trimmed below (into the chunks the worker counted before),
// each while the index is told and while it is not.
TEST(SearchIndex, CountsAskedAgainFollowRowsAddedAndTrimmed) {
  TempRoot root;
  const std::string store = root.At("/var/log/quorlog/.QUORSYSDB");
  std::mt19937 random(7);
  const int64_t t0 = 1700000000;
  // Ids 150 apart: seven chunks.
  MakeDatabase(store, std::string(QUOR_SYSTEM_LOG_SCHEMA) + RandomRows(&random, 3000, t0) +
                          "UPDATE logs SET id = -id; UPDATE logs SET id = -id * 150;");
  ASSERT_TRUE(IndexCatchUp(store));
  // Terms shorter than a trigram: the index cannot narrow them, each search reads the log.
  const char* const terms[] = {"%", "_", "?", "'", "-"};
  int64_t trimmed = 0;
  for (int round = 0; round < 8; ++round) {
    Json::Value params(Json::objectValue);
    params["q"] = terms[round % 5];
    if (round % 3 == 1) params["level"] = "err,warn";
    params["limit"] = 5;
    for (int again = 0; again < 2; ++again) {
      Json::Value indexed = Call(QueryMethod, params);
      ASSERT_EQ(QUOR::WebAPIUtil::ToText(Scanned(store, QueryMethod, params)),
                QUOR::WebAPIUtil::ToText(indexed))
          << round << " " << again;
      ASSERT_GT(indexed["total"].asInt(), 0) << round;
      // Between the two: rows from another process, their ids 30,000 past the last ones (so
      // that chunks the index has not wholly seen fill up), half the rows of one of those below
      // the newest, and a trim of the lowest rows that reaches a little further each round
      // (into chunks counted the round before).
      ProcessResult wrote =
          RunProcess({"/usr/bin/sqlite3", store},
                     ".timeout 5000\nUPDATE sqlite_sequence SET seq = seq + 30000;" +
                         RandomRows(&random, 50, t0));
      ASSERT_EQ(0, wrote.status) << wrote.err;
      trimmed += 20000;
      const std::string mark = QueryRows(IndexPathOf(store), "SELECT mark FROM state")[0];
      MakeDatabase(store, "DELETE FROM logs WHERE id <= " + std::to_string(trimmed) +
                              "; DELETE FROM logs WHERE id IN (SELECT id FROM logs WHERE id >= ((" +
                              mark +
                              " + 1) >> 16 << 16) AND id < ((SELECT max(id) FROM logs) >> 16 << "
                              "16) ORDER BY id DESC LIMIT 25 OFFSET 5);");
      if ((round * 2 + again) % 3 == 0) {
        ASSERT_TRUE(IndexCatchUp(store));
      }
    }
  }
}

TEST(SearchIndex, DamagedOrDeletedIndexIsMadeAnew) {
  IndexedLog log;
  ASSERT_TRUE(IndexCatchUp(log.store));
  const std::string side = IndexPathOf(log.store);
  // Garbage over the sidecar: answers stay right, and the next catch-up builds it again.
  FILE* file = fopen(side.c_str(), "r+");
  ASSERT_NE(nullptr, file);
  for (int i = 0; i < 4096; ++i) fputc(i * 7 % 251, file);
  fclose(file);
  unlink((side + "-wal").c_str());
  unlink((side + "-shm").c_str());
  CompareRandomQueries(log.store, &log.random, log.t0, 10);
  unlink(side.c_str());
  unlink((side + "-wal").c_str());
  unlink((side + "-shm").c_str());
  CompareRandomQueries(log.store, &log.random, log.t0, 10);
  // A store replaced by another file (ids start again) is not answered from the old index.
  unlink(log.store.c_str());
  MakeDatabase(log.store, std::string(QUOR_SYSTEM_LOG_SCHEMA) +
                              "INSERT INTO logs (time, level, username, msg) VALUES "
                              "(1, 'err', 'a', 'new');");
  Json::Value all(Json::objectValue);
  EXPECT_EQ(1, Call(QueryMethod, all)["total"].asInt());
  ASSERT_TRUE(IndexCatchUp(log.store));
  EXPECT_EQ(1, Call(QueryMethod, all)["total"].asInt());
  // An index made anew (here: ids went back) is emptied in place, never deleted: a process
  // that holds it open reads the new index, not a deleted file.
  MakeDatabase(log.store,
               "INSERT INTO logs (time, level, username, msg) VALUES "
               "(3, 'err', 'c', 'more'), (4, 'err', 'd', 'more');");
  ASSERT_TRUE(IndexCatchUp(log.store));
  sqlite3* raw = nullptr;
  ASSERT_EQ(SQLITE_OK, sqlite3_open_v2(side.c_str(), &raw, SQLITE_OPEN_READONLY, nullptr));
  std::unique_ptr<sqlite3, int (*)(sqlite3*)> held(raw, sqlite3_close_v2);
  auto heldRows = [&] {
    sqlite3_stmt* stmt = nullptr;
    sqlite3_prepare_v2(held.get(), "SELECT sum(n) FROM counts", -1, &stmt, nullptr);
    int64_t n = sqlite3_step(stmt) == SQLITE_ROW ? sqlite3_column_int64(stmt, 0) : -1;
    sqlite3_finalize(stmt);
    return n;
  };
  EXPECT_EQ(3, heldRows());
  MakeDatabase(log.store,
               "DELETE FROM logs; UPDATE sqlite_sequence SET seq = 0 WHERE name = "
               "'logs'; INSERT INTO logs (time, level, username, msg) VALUES "
               "(2, 'info', 'b', 'again');");
  ASSERT_TRUE(IndexCatchUp(log.store));
  EXPECT_EQ(1, Call(QueryMethod, all)["total"].asInt());
  EXPECT_EQ(1, heldRows());
}

TEST(SearchIndex, CommonTermsReadTheLogThroughAndRareOnesTheirCandidates) {
  TempRoot root;
  const std::string store = root.At("/var/log/quorlog/.QUORSYSDB");
  // 120,000 rows: a term in a tenth of them (more candidates than the index looks up), one in
  // a two-thousandth, and a word whose trigrams all occur in other rows without it.
  MakeDatabase(store, std::string(QUOR_SYSTEM_LOG_SCHEMA) +
                          "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE "
                          "i < 120000) INSERT INTO logs (time, level, username, msg) SELECT "
                          "1700000000 + i / 7, CASE i % 3 WHEN 0 THEN 'err' WHEN 1 THEN 'warning' "
                          "ELSE 'info' END, 'u' || (i % 13), CASE WHEN i % 10 = 0 THEN 'Package "
                          "stopped ' || i WHEN i % 2000 = 1 THEN 'STRASSE voll ' || i WHEN i % "
                          "2000 = 3 THEN 'strass asse pack ackage' ELSE 'other ' || i END FROM n;");
  ASSERT_TRUE(IndexCatchUp(store));
  for (const char* q : {"package", "package stopped", "straße", "\"sse voll 4\"", "ackage"}) {
    for (const char* level : {"", "err"}) {
      Json::Value params(Json::objectValue);
      params["q"] = q;
      if (level[0] != '\0') params["level"] = level;
      params["offset"] = 40;
      for (auto method : {QueryMethod, HistogramMethod}) {
        Json::Value scanned = Scanned(store, method, params);
        ASSERT_EQ(QUOR::WebAPIUtil::ToText(scanned), QUOR::WebAPIUtil::ToText(Call(method, params)))
            << q;
        if (method == QueryMethod) {
          ASSERT_EQ(QUOR::WebAPIUtil::ToText(scanned),
                    QUOR::WebAPIUtil::ToText(PageThenCount(params)))
              << q;
        }
      }
    }
  }
}
