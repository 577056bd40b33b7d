// The log-database layer on real SQLite files under a temporary appliance root.
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include <chrono>
#include <thread>

#include "catalogue/text_helpers.h"
#include "platform/logdb.h"
#include "platform/slibc.h"
#include "sources/record_fields.h"
#include "tests/support/temp_root.h"

namespace {

const char kSchema[] =
    "CREATE TABLE logs (id INTEGER PRIMARY KEY AUTOINCREMENT, time INTEGER, level TEXT, "
    "username TEXT, msg TEXT);";

bool Exists(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0;
}

// Every value of one column of a select, in order; "<null>" for NULL.
std::vector<std::string> Column(PQUORDB conn, const std::string& sql, int limit, int offset,
                                const char* column) {
  std::vector<std::string> values;
  PQUORDBRESULT result = nullptr;
  EXPECT_EQ(0, QUORDBSelectLimit(conn, sql.c_str(), limit, offset, &result))
      << QUORDBErrorGet(conn);
  QUORDBROW row;
  while (QUORDBFetchRow(result, &row) == 0) {
    const char* v = QUORDBFetchField(result, row, column);
    values.push_back(v != nullptr ? v : "<null>");
  }
  QUORDBFreeResult(result);
  return values;
}

}  // namespace

TEST(LogDatabase, ConnectsOnlyToExistingDatabases) {
  TempRoot root;
  EXPECT_EQ(nullptr, QUORDBConnect(0, 0, 0, "/var/log/quorlog/.QUORSYSDB"));
  EXPECT_FALSE(Exists(root.At("/var/log/quorlog/.QUORSYSDB")));
  root.Write("/var/log/quorlog/garbage", std::string(4096, 'x'));
  EXPECT_EQ(nullptr, QUORDBConnect(0, 0, 0, "/var/log/quorlog/garbage"));
  EXPECT_EQ(nullptr, QUORDBConnect(0, 0, 0, nullptr));

  MakeDatabase(root.At("/var/log/quorlog/.QUORSYSDB"), kSchema);
  // Both the fixed path and its resolved form name the same file.
  for (const std::string& path :
       {std::string("/var/log/quorlog/.QUORSYSDB"), root.At("/var/log/quorlog/.QUORSYSDB")}) {
    PQUORDB conn = QUORDBConnect(0, 0, 0, path.c_str());
    ASSERT_NE(nullptr, conn) << path;
    // Attaching a missing database is refused rather than creating it.
    std::string attach = "ATTACH \"" + root.At("/var/log/quorlog/.QUORCONNDB") + "\" as c";
    EXPECT_EQ(-1, QUORDBExecute(conn, attach.c_str(), nullptr));
    EXPECT_NE(std::string(), QUORDBErrorGet(conn));
    EXPECT_FALSE(Exists(root.At("/var/log/quorlog/.QUORCONNDB")));
    QUORDBClose(conn);
  }
}

TEST(LogDatabase, PagesWholeCompoundSelectsAndReadsFieldsByName) {
  TempRoot root;
  MakeDatabase(root.At("/var/log/quorlog/a"),
               std::string(kSchema) +
                   "INSERT INTO logs (time, level, username, msg) VALUES "
                   "(1,'err','u1','m1'),(3,'info','u3','m3'),(5,NULL,'u5','m5');");
  MakeDatabase(root.At("/var/log/quorlog/b"),
               std::string(kSchema) +
                   "INSERT INTO logs (time, level, username, msg) VALUES "
                   "(2,'warning','u2','m2'),(4,'info','u4','m4');");
  PQUORDB conn = QUORDBConnect(0, 0, 0, "/var/log/quorlog/a");
  ASSERT_NE(nullptr, conn);
  std::string attach = "ATTACH \"" + root.At("/var/log/quorlog/b") + "\" as b";
  ASSERT_EQ(0, QUORDBExecute(conn, attach.c_str(), nullptr)) << QUORDBErrorGet(conn);
  std::string merged =
      "SELECT *, 'a' as src FROM logs UNION ALL SELECT *, 'b' as src FROM b.logs ORDER BY time "
      "DESC";
  using V = std::vector<std::string>;
  EXPECT_EQ((V{"5", "4", "3", "2", "1"}), Column(conn, merged, 0, 0, "time"));
  EXPECT_EQ((V{"4", "3"}), Column(conn, merged, 2, 1, "time"));
  EXPECT_EQ((V{"2", "1"}), Column(conn, merged, 0, 3, "TIME"));
  EXPECT_EQ((V{"b", "a"}), Column(conn, merged + ";", 2, 1, "src"));
  EXPECT_EQ((V{"<null>", "info", "info"}), Column(conn, merged, 3, 0, "level"));
  EXPECT_EQ((V{"<null>"}), Column(conn, merged, 1, 0, "no_such_column"));
  EXPECT_EQ(V{}, Column(conn, merged, 10, 100, "time"));

  PQUORDBRESULT result = nullptr;
  EXPECT_EQ(-1, QUORDBSelectLimit(conn, "SELECT nonsense FROM logs", 1, 0, &result));
  EXPECT_NE(std::string::npos, std::string(QUORDBErrorGet(conn)).find("nonsense"));
  EXPECT_EQ(-1, QUORDBExecute(conn, "SELECT 1; SELECT 2", &result));
  // Without a result every statement runs.
  EXPECT_EQ(0, QUORDBExecute(conn, "DELETE FROM b.logs; DELETE FROM logs WHERE time = 1", nullptr));
  EXPECT_EQ((V{"5", "3"}), Column(conn, merged, 0, 0, "time"));
  EXPECT_EQ(-1, QUORDBFetchRow(nullptr, nullptr));
  QUORDBClose(conn);
}

TEST(LogDatabase, ReadersWaitForAWriter) {
  TempRoot root;
  std::string path = root.At("/var/log/quorlog/.QUORSYSDB");
  MakeDatabase(path, std::string(kSchema) + "INSERT INTO logs (time) VALUES (1);");
  sqlite3* writer = nullptr;
  ASSERT_EQ(SQLITE_OK, sqlite3_open(path.c_str(), &writer));
  ASSERT_EQ(SQLITE_OK, sqlite3_exec(writer, "BEGIN EXCLUSIVE; INSERT INTO logs (time) VALUES (2);",
                                    nullptr, nullptr, nullptr));
  std::thread release([writer] {
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    sqlite3_exec(writer, "COMMIT", nullptr, nullptr, nullptr);
  });
  PQUORDB conn = QUORDBConnect(0, 0, 0, path.c_str());
  EXPECT_NE(nullptr, conn);
  if (conn != nullptr) {
    EXPECT_EQ((std::vector<std::string>{"1", "2"}),
              Column(conn, "SELECT time FROM logs ORDER BY time", 0, 0, "time"));
  }
  release.join();
  QUORDBClose(conn);
  sqlite3_close(writer);
}

TEST(LogDatabase, EscapesAnyText) {
  char* escaped = QUORDBEscapeStrAllocEX2(0, "it's a 'quote' \\ % _ \xff\xfe");
  ASSERT_NE(nullptr, escaped);
  EXPECT_STREQ("it''s a ''quote'' \\ % _ \xff\xfe", escaped);
  free(escaped);
  EXPECT_EQ(nullptr, QUORDBEscapeStrAllocEX2(0, nullptr));
}

// The SQL condition and the sources' keyword test must agree with the module's in-memory
// keyword test, whatever the keyword.
TEST(LogDatabase, KeywordConditionAgreesWithContainsKeyword) {
  TempRoot root;
  const std::vector<std::string> texts = {
      "Disk Full", "it's 100% done_now", "C:\\path\\file", "a*b[c]d?",      "Straße gesperrt",
      "STRASSE",   "ÉCOLE été",          "ǅemal",          "Ärger über Öl", "plain ascii text",
      "",          "ﬁle ligature",       "abcabd"};
  const std::vector<std::string> keywords = {
      "full", "'", "%",   "_",     "\\path", "*",  "[c]", "?",       "straße",
      "ss",   "é", "ÉTÉ", "ǆ",     "über",   "ÖL", "x",   "it's",    "100%",
      "FI",   "ﬁ", "a*b", "DONE_", "ä",      "e",  "S",   "ascii t", "abd"};
  std::string sql = "CREATE TABLE t (id INTEGER PRIMARY KEY, v TEXT);";
  for (size_t i = 0; i < texts.size(); ++i) {
    char* e = QUORDBEscapeStrAllocEX2(0, texts[i].c_str());
    sql += "INSERT INTO t VALUES (" + std::to_string(i) + ", '" + e + "');";
    free(e);
  }
  sql += "INSERT INTO t VALUES (100, NULL);";
  MakeDatabase(root.At("/var/log/quorlog/k"), sql);
  PQUORDB conn = QUORDBConnect(0, 0, 0, "/var/log/quorlog/k");
  ASSERT_NE(nullptr, conn);
  for (const std::string& keyword : keywords) {
    std::string condition = GenSQLRegexp(keyword, "v");
    std::vector<std::string> expected;
    for (size_t i = 0; i < texts.size(); ++i) {
      if (ContainsKeyword(texts[i], keyword)) expected.push_back(std::to_string(i));
      EXPECT_EQ(ContainsKeyword(texts[i], keyword), KeywordFound(texts[i].c_str(), keyword))
          << texts[i] << " / " << keyword;
    }
    EXPECT_EQ(expected,
              Column(conn, "SELECT id FROM t WHERE (" + condition + ") ORDER BY id", 0, 0, "id"))
        << keyword << " -> " << condition;
    // It stands alone and joins with OR.
    EXPECT_EQ(expected, Column(conn,
                               "SELECT id FROM t WHERE (0 OR " + condition + " OR " +
                                   GenSQLRegexp(keyword, "NULL") + ") ORDER BY id",
                               0, 0, "id"));
  }
  QUORDBClose(conn);
  // A text whose upper case grows is no match for either (the SQL function matches it).
  EXPECT_FALSE(KeywordFound("ǰ", "ǰ"));
  EXPECT_FALSE(ContainsKeyword("ǰ", "ǰ"));
}

// Both SQL functions answer what converting both texts whole and comparing the bytes answers,
// also for texts whose characters beyond ASCII convert into ASCII letters, and for texts that
// are not UTF-8.
TEST(LogDatabase, KeywordFunctionsAgreeWithConvertedTexts) {
  TempRoot root;
  const std::vector<std::string> texts = {"ıstanbul",
                                          "Kelvin",
                                          "ſtop now",
                                          "eﬃcient",
                                          "ẞ groß",
                                          "İzmir",
                                          "ǰob",
                                          "café Bar",
                                          "\xff\xfe ABC",
                                          "日本 text",
                                          "QUIET été ZONE!0123456789"};
  const std::vector<std::string> keywords = {"istanbul", "kelvin",   "stop",  "ffi", "ss",
                                             "iz",       "job",      "j",     "e b", "abc",
                                             "TEXT",     "e zone!0", "56789", "@",   "é b"};

  std::string sql = "CREATE TABLE t (id INTEGER PRIMARY KEY, v TEXT);";
  for (size_t i = 0; i < texts.size(); ++i) {
    char* e = QUORDBEscapeStrAllocEX2(0, texts[i].c_str());
    sql += "INSERT INTO t VALUES (" + std::to_string(i) + ", '" + e + "');";
    free(e);
  }
  MakeDatabase(root.At("/var/log/quorlog/k"), sql);
  PQUORDB conn = QUORDBConnect(0, 0, 0, "/var/log/quorlog/k");
  ASSERT_NE(nullptr, conn);
  using Convert = int (*)(const char*, char*, size_t);
  auto contains = [](Convert convert, const std::string& text, const std::string& keyword) {
    std::string t(text.size() * 6 + 1, '\0'), k(keyword.size() * 6 + 1, '\0');
    if (convert(text.c_str(), &t[0], t.size()) != 0) return false;
    if (convert(keyword.c_str(), &k[0], k.size()) != 0) return false;
    return strstr(t.c_str(), k.c_str()) != nullptr;
  };
  int found = 0;
  for (const std::string& keyword : keywords) {
    for (bool fold : {false, true}) {
      std::vector<std::string> expected;
      for (size_t i = 0; i < texts.size(); ++i) {
        if (contains(fold ? SLIBCUnicodeUTF8StrFold : SLIBCUnicodeUTF8StrUpper, texts[i],
                     keyword)) {
          expected.push_back(std::to_string(i));
        }
      }
      found += static_cast<int>(expected.size());
      std::string condition =
          fold ? GenSQLFoldedContains(keyword, "v") : GenSQLRegexp(keyword, "v");
      EXPECT_EQ(expected,
                Column(conn, "SELECT id FROM t WHERE " + condition + " ORDER BY id", 0, 0, "id"))
          << keyword << (fold ? " folded" : " upper-cased");
    }
  }
  EXPECT_GT(found, 15);  // the texts are found, not only missed
  QUORDBClose(conn);
}
