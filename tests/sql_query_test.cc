// The SQL text the database sources build from a search.
#include <gtest/gtest.h>

#include "sources/sql_query.h"
#include "tests/support/temp_root.h"

TEST(SqlQuery, FilterClause) {
  LogSearch search;
  search.date_from = "0";
  search.date_to = "0";
  EXPECT_EQ(" WHERE 1=1", BuildFilterClause(search, "msg"));
  search.date_to = "";
  EXPECT_EQ(" WHERE 1=1", BuildFilterClause(search, "msg"));
  search.date_from = "1600000000";
  EXPECT_EQ(" WHERE 1=1 AND time >= '1600000000'", BuildFilterClause(search, "msg"));
  search.date_to = "1700000000' OR '1'='1";
  EXPECT_EQ(" WHERE 1=1 AND time >= '1600000000' AND time <= '1700000000'' OR ''1''=''1'",
            BuildFilterClause(search, "msg"));
  search.date_from = search.date_to = "0";
  search.keyword = "it's";
  // The GLOB part is escaped here; the pattern part is built from the raw keyword.
  EXPECT_EQ(" WHERE ((username GLOB '*it''s*') OR " + GenSQLRegexp("it's", "filename") + ")",
            BuildFilterClause(search, "filename"));
}
