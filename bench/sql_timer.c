/* A bare SQLite client, the reference the benchmarks compare the module with: it runs the given
 * statements the way the module's sources do, with nothing around them, and prints the time
 * per round. Built twice: against the project's SQLite and against Debian's.
 *
 *   sql_timer [--csv] DB ROUNDS STATEMENT...
 *
 * Each round opens DB (a new connection, as each request does), runs every statement, steps
 * every row and reads every column as text, then closes. With --csv, the rows of the last
 * statement are written to standard output as "sqlite3 -csv" writes them. Prints
 * "ms_per_round=X rows_per_round=N" on standard error. Exit status 1 on any SQLite failure. */
#include <sqlite3.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

static double NowMs(void) {
  struct timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return ts.tv_sec * 1e3 + ts.tv_nsec / 1e6;
}

/* A field as the shell's CSV mode writes it: quoted when it holds a quote, a separator, a
 * control character or a byte above 126, quotes doubled; NULL is empty. */
static void PutCsvField(const unsigned char* text, int size, FILE* out) {
  int quote = 0;
  for (int i = 0; i < size && !quote; ++i) {
    unsigned char c = text[i];
    quote = c == '"' || c == ',' || c < 32 || c > 126;
  }
  if (!quote) {
    fwrite(text, 1, (size_t)size, out);
    return;
  }
  putc('"', out);
  for (int i = 0; i < size; ++i) {
    if (text[i] == '"') putc('"', out);
    putc(text[i], out);
  }
  putc('"', out);
}

static long RunStatement(sqlite3* db, const char* sql, FILE* csv) {
  sqlite3_stmt* stmt = NULL;
  if (sqlite3_prepare_v2(db, sql, -1, &stmt, NULL) != SQLITE_OK) {
    fprintf(stderr, "sql_timer: %s\n", sqlite3_errmsg(db));
    exit(1);
  }
  long rows = 0;
  int columns = sqlite3_column_count(stmt);
  int rc;
  while ((rc = sqlite3_step(stmt)) == SQLITE_ROW) {
    for (int i = 0; i < columns; ++i) {
      const unsigned char* text = sqlite3_column_text(stmt, i);
      if (csv != NULL) {
        if (i > 0) putc(',', csv);
        if (text != NULL) PutCsvField(text, sqlite3_column_bytes(stmt, i), csv);
      }
    }
    if (csv != NULL) fputs("\r\n", csv);
    ++rows;
  }
  if (rc != SQLITE_DONE) {
    fprintf(stderr, "sql_timer: %s\n", sqlite3_errmsg(db));
    exit(1);
  }
  sqlite3_finalize(stmt);
  return rows;
}

int main(int argc, char** argv) {
  int csv = argc > 1 && strcmp(argv[1], "--csv") == 0;
  if (argc < 4 + csv) {
    fprintf(stderr, "usage: sql_timer [--csv] DB ROUNDS STATEMENT...\n");
    return 2;
  }
  const char* path = argv[1 + csv];
  int rounds = atoi(argv[2 + csv]);
  long rows = 0;
  double start = NowMs();
  for (int r = 0; r < rounds; ++r) {
    sqlite3* db = NULL;
    if (sqlite3_open_v2(path, &db, SQLITE_OPEN_READWRITE, NULL) != SQLITE_OK) {
      fprintf(stderr, "sql_timer: cannot open %s\n", path);
      return 1;
    }
    sqlite3_busy_timeout(db, 5000);
    rows = 0;
    for (int i = 3 + csv; i < argc; ++i) {
      rows += RunStatement(db, argv[i], csv && i == argc - 1 ? stdout : NULL);
    }
    sqlite3_close(db);
  }
  double elapsed = NowMs() - start;
  fflush(stdout);
  fprintf(stderr, "ms_per_round=%.4f rows_per_round=%ld sqlite=%s\n",
          rounds > 0 ? elapsed / rounds : 0.0, rows, sqlite3_libversion());
  return 0;
}
