#!/usr/bin/env bash
# make bench: runs the benchmark sections of log_bench and prints each figure beside the
# reference it is compared with, measured in the same run. Add a section as a function named
# section_<name> and list it in "sections" at the end.
set -euo pipefail
build=${1:-build}
bin="$build/bin/log_bench"
data="$(cd "$build" && pwd)/bench-data"  # generated logs, kept between runs
mkdir -p "$data"

# Runs one benchmark (an exact name) in a process of its own, so that its peak memory is its
# own, on the appliance root ROOT (made by the benchmark when missing), and prints
# "name value-of-counter..." for the counters asked.
#   run_bench ROOT NAME COUNTER...
run_bench() {
  local root=$1 name=$2
  shift 2
  QUOR_BENCH_ROOT="$root" "$bin" --benchmark_filter="^$name(/|\$)" --benchmark_format=csv \
    2>/dev/null |
    awk -F, -v want="$*" -v name="$name" '
      NR == 1 { for (i = 1; i <= NF; i++) { gsub(/"/, "", $i); col[$i] = i } ; next }
      $1 ~ name {
        n = split(want, w, " "); line = name
        for (i = 1; i <= n; i++) line = line " " $(col[w[i]])
        print line
      }'
}

# Export of 1,000,000 system rows (CSV and HTML through the export method) against the bare
# SQLite client (bench/sql_timer.c, the same SQLite) writing the export's own statement as
# "sqlite3 -csv" would. Goals: CSV >= 1.0x, HTML >= 0.8x, peak memory <= 32 MB whatever the rows.
section_export() {
  echo "== export: 1,000,000 system rows to /dev/null, against the bare client's CSV (same SQLite)"
  local results
  results=$(for b in BM_BareCsv BM_ExportCsv BM_ExportHtml; do
    run_bench "$data/export" "$b" rows_per_s peak_MB
  done)
  echo "$results" | awk '
    { rate[$1] = $2; peak[$1] = $3; order[NR] = $1 }
    END {
      ref = rate["BM_BareCsv"]
      printf "%-16s %14s %10s %14s\n", "benchmark", "rows/s", "peak MB", "vs bare CSV"
      for (i = 1; i <= NR; i++) {
        b = order[i]
        ratio = ref > 0 ? rate[b] / ref : 0
        printf "%-16s %14.0f %10.1f %13.2fx\n", b, rate[b], peak[b], ratio
      }
    }'
}

# The list method on 1,000,000 system rows (and three merged databases) beside the statements
# it runs (the paged select and the count over the ordered select), run by the bare client on
# the same SQLite and on Debian's; the keyword case gives the bare client LIKE '%keyword%' in
# place of the keyword condition. Goal: list <= 1.2x the same SQLite. Then the plain-text
# source against "tail -n 15000 FILE | grep -i KEYWORD | sort" on 500 MB and 5 MB logs.
section_sources() {
  echo "== list: system log of 1,000,000 rows (ms per call)"
  echo "   (the first run lays out $data/sources, about 10 s)"
  local root="$data/sources" o r d
  printf "%-22s %10s %12s %10s %14s %12s\n" "case" "list" "bare 3.5x" "ratio" "Debian 3.40" "ratio"
  for c in FirstPage Keyword Merged; do
    o=$(run_bench "$root" "List$c/min_time:2.000/real_time" real_time | awk '{ print $2 }')
    r=$(run_bench "$root" "Bare$c/iterations:3/manual_time" real_time | awk '{ print $2 }')
    d=$(run_bench "$root" "Debian$c/iterations:3/manual_time" real_time | awk '{ print $2 }')
    awk -v o="${o:-0}" -v r="${r:-0}" -v d="${d:-0}" -v c="$c" 'BEGIN {
      printf "%-22s %10.2f %12.2f %9.2fx %14.2f %11.2fx\n", c, o, r, (r > 0 ? o / r : 0), d,
             (d > 0 ? o / d : 0)
    }'
  done
  echo "== plain-text source (ms per call)"
  printf "%-34s %10s %10s %8s\n" "case" "ours" "tail|grep|sort" "ratio"
  while read -r ours ref label; do
    o=$(run_bench "$root" "Sources$ours/min_time:2.000/real_time" real_time | awk '{ print $2 }')
    r=$(run_bench "$root" "Sources$ref/min_time:2.000/real_time" real_time | awk '{ print $2 }')
    awk -v o="${o:-0}" -v r="${r:-0}" -v label="$label" 'BEGIN {
      printf "%-34s %10.2f %10.2f %7.2fx\n", label, o, r, (r > 0 ? o / r : 0)
    }'
  done <<'CASES'
PlainTail500MB TailGrepSort500MB plain text, 500 MB, keyword
PlainTailSmall TailGrepSortSmall plain text, 5 MB, keyword
CASES
  # The 2 GiB sparse log (a 256 MB hole before its last 100 lines) against the 5 MB log: the
  # same 15000 lines are read. Goal: <= 2x.
  o=$(run_bench "$root" "ListPlainSparse2GB/min_time:2.000/real_time" real_time | awk '{ print $2 }')
  r=$(run_bench "$root" "ListPlain5MB/min_time:2.000/real_time" real_time | awk '{ print $2 }')
  awk -v o="${o:-0}" -v r="${r:-0}" 'BEGIN {
    printf "%-34s %10.2f %10.2f %7.2fx  (list call; reference: the 5 MB log)\n",
           "plain text, 2 GiB, 256 MB hole", o, r, (r > 0 ? o / r : 0)
  }'
}

# QUOR.LogCenter.Search on the 1,000,000-row system log beside the bare client running the plain
# statements that answer the same question. Goals: errors only, with levels and total, <= 2x the
# error page plus one GROUP BY level; the timeline <= 1.5x one GROUP BY over its buckets; sorting
# by user or message <= 1.5x the same ORDER BY ... LIMIT. "first" is a search whose counts no
# earlier call kept (its reference adds the GROUP BY level); the others are the next page or
# another order of a search already counted.
section_search() {
  echo "== search module: system log of 1,000,000 rows (ms per call)"
  local root="$data/sources" o r
  printf "%-34s %10s %12s %10s\n" "case" "search" "bare" "ratio"
  while read -r ours ref label; do
    o=$(run_bench "$root" "$ours/min_time:2.000/real_time" real_time | awk '{ print $2 }')
    r=$(run_bench "$root" "$ref/iterations:3/manual_time" real_time | awk '{ print $2 }')
    awk -v o="${o:-0}" -v r="${r:-0}" -v label="$label" 'BEGIN {
      printf "%-34s %10.2f %12.2f %9.2fx\n", label, o, r, (r > 0 ? o / r : 0)
    }'
  done <<'CASES'
SearchErrors BareErrors errors only, first
SearchErrorsAgain BareErrorsPage errors only, next page
SearchHistogram BareHistogram timeline, 60 buckets
SearchSortUserAsc BareSortUserAsc by user, ascending
SearchSortUserDesc BareSortUserDesc by user, descending
SearchSortMessageAsc BareSortMessageAsc by message, ascending
SearchSortMessageDesc BareSortMessageDesc by message, descending
SearchSortFreshUserAsc BareSortCountedUserAsc by user, ascending, first
SearchSortFreshMessageDesc BareSortCountedMessageDesc by message, descending, first
SearchContext BareContext show in context, 10 each side
SearchFollow BareFollow live mode's poll (newest id)
CASES
}

# A small list (50 of 5,000 rows) in-process beside its two statements run by the bare client
# on a new connection each round. Goal: <= 1.2x.
section_small_list() {
  echo "== small list: 50 of 5,000 system rows (us per call)"
  local root="$data/server" o r
  o=$(run_bench "$root" BM_ListInProcess real_time | awk '{ print $2 }')
  r=$(run_bench "$root" "BM_ListBareStatements/iterations:3/manual_time" real_time |
    awk '{ print $2 }')
  awk -v o="${o:-0}" -v r="${r:-0}" 'BEGIN {
    printf "%-34s %10.1f\n%-34s %10.1f\n%-34s %9.2fx\n", "list, in-process", o,
           "its two statements, bare client", r, "ratio", (r > 0 ? o / r : 0)
  }'
}

# Requests per second of list (one page of 50 records of a 5,000-row system log) through the
# web-API server under wrk, beside the same call made in-process (checker and handler, no
# HTTP), so the server's own cost per request shows. wrk runs on the same 2 cores.
section_server() {
  echo "== server: list, 50 of 5,000 system rows, in-process vs quor-webapi under wrk"
  local root="$data/server" web="$build/bin/quor-webapi" out="$data/server.out"
  local inproc
  inproc=$(run_bench "$root" BM_ListInProcess calls_per_s | awk '{ print $2 }')
  printf 'bench-password\n' | "$web" adduser --root "$root" bench --admin 2>/dev/null
  rm -f "$out"
  "$web" serve --root "$root" --listen 127.0.0.1:0 --workers 2 >"$out" 2>/dev/null &
  local pid=$!
  local port=""
  for _ in $(seq 100); do
    port=$(grep -o 'http://127.0.0.1:[0-9]*' "$out" 2>/dev/null | cut -d: -f3) && [ -n "$port" ] && break
    sleep 0.1
  done
  local base="http://127.0.0.1:$port"
  local login cookie token
  login=$(curl -s -i -d 'method=login&account=bench&passwd=bench-password' "$base/webapi/auth")
  cookie=$(echo "$login" | tr -d '\r' | sed -n 's/^Set-Cookie: \([^;]*\).*/\1/ip')
  token=$(echo "$login" | grep -o '"token":"[0-9a-f]*"' | cut -d'"' -f4)
  local url="$base/webapi?api=QUOR.Core.SyslogClient.Log&version=1&method=list&logtype=system&limit=50&offset=0"
  if ! curl -s -H "Cookie: $cookie" -H "X-Quor-Token: $token" "$url" | grep -q '"success":true'; then
    echo "server section: the server did not answer list (see $out)"
    kill "$pid" 2>/dev/null
    return
  fi
  local rps1 rps8
  rps1=$(wrk -t1 -c1 -d5s -H "Cookie: $cookie" -H "X-Quor-Token: $token" "$url" |
    awk '/Requests\/sec/ { print $2 }')
  rps8=$(wrk -t2 -c8 -d5s -H "Cookie: $cookie" -H "X-Quor-Token: $token" "$url" |
    awk '/Requests\/sec/ { print $2 }')
  kill "$pid" 2>/dev/null
  wait "$pid" 2>/dev/null || true
  printf '%-44s %12s %10s %12s\n' "run" "calls/s" "us/call" "vs in-proc"
  awk -v i="$inproc" -v a="$rps1" -v b="$rps8" 'BEGIN {
    printf "%-44s %12.0f %10.1f %11.2fx\n", "in-process, 1 thread", i, 1e6 / i, 1
    printf "%-44s %12.0f %10.1f %11.2fx\n", "server, wrk 1 connection", a, 1e6 / a, a / i
    printf "%-44s %12.0f %10.1f %11.2fx\n", "server, wrk 8 connections, 2 workers", b, 1e6 / b, b / i
    printf "server cost per request (1 connection): %.1f us\n", 1e6 / a - 1e6 / i
  }'
}

sections=(section_export section_sources section_search section_small_list section_server)
for section in "${sections[@]}"; do
  "$section"
  echo
done
