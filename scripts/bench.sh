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
SearchExcludeUser BareExcludeUser a user left out, first
SearchNewRows BareNewRows live mode's count of 100 new rows
CASES
}

# A small list (50 of 5,000 rows) in-process beside its two statements run by the bare client
# on a new connection each round (goal: <= 1.2x), and in a new process beside Debian's shell.
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
  # The same list in a new process (quor-webapi call) beside its two statements in Debian's
  # sqlite3 shell, in instructions counted by callgrind (wall clock on shared cores is mostly
  # process start), each beyond its own program's start (quor-webapi help, the shell's SELECT 1).
  local store="$root/var/log/quorlog/.QUORSYSDB" web="$build/bin/quor-webapi"
  local select=" SELECT *, 'system' as orginalLogType, 'System' as logtype FROM logs  WHERE 1=1 ORDER BY time DESC"
  ir() {
    valgrind --tool=callgrind --callgrind-out-file=/dev/null "$@" 2>&1 >/dev/null |
      grep -o "Collected : [0-9]*" | awk '{ print $3 }'
  }
  local list list0 shell shell0
  list=$(ir "$web" call --root "$root" QUOR.Core.SyslogClient.Log 1 list logtype=system limit=50 offset=0)
  list0=$(ir "$web" help)
  shell=$(ir sqlite3 "$store" "$select LIMIT 50" "SELECT count(*) AS count_result FROM ($select) as tempQuery")
  shell0=$(ir sqlite3 "$store" "SELECT 1")
  awk -v a="$list" -v a0="$list0" -v b="$shell" -v b0="$shell0" 'BEGIN {
    printf "%-34s %10.2f M instructions (%.2f M in all)\n", "list, new process", (a - a0) / 1e6, a / 1e6
    printf "%-34s %10.2f M instructions (%.2f M in all)\n", "its two statements, sqlite3 shell", (b - b0) / 1e6, b / 1e6
    printf "%-34s %9.2fx\n", "ratio beyond start", ((b - b0) > 0 ? (a - a0) / (b - b0) : 0)
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

# The search index on a system log of INDEX_ROWS rows (10,000,000 by default; laid out once
# by quor-logdemo into $data/index, a few minutes): building it (rows/s, size beside the
# store), each search the page makes with the index beside the same search by the scan (the
# index moved aside) in the same run, and clearing the log with its index (the module's clear on
# a copy, beside the same statement run by Debian's sqlite3 shell on another copy). Goals: each
# search <= 50 ms, index <= 1.5x the store, >= 100k rows/s, clear <= 2 s.
section_index() {
  local rows=${INDEX_ROWS:-10000000} root="$data/index"
  if [ ! -s "$root/var/log/quorlog/.QUORSYSDB" ] || [ ! -f "$root/.index-ready" ]; then
    rm -rf "$root"
    echo "   (laying out $root with $rows rows, once)"
    "$build/bin/quor-logdemo" --root "$root" --rows "$rows" --seed 1 --end 1735689600 >/dev/null
    touch "$root/.index-ready"
  fi
  echo "== search index: system log of $rows rows"
  run_bench "$root" BM_IndexBuild real_time rows_per_s index_MB store_MB | awk '{
    printf "build: %.1f s, %.0f rows/s; index %.0f MB beside the store %.0f MB (%.2fx)\n",
           $2 / 1000, $3, $4, $5, ($5 > 0 ? $4 / $5 : 0) }'
  printf "%-22s %12s %12s %10s %12s\n" "case (ms per call)" "index" "scan" "speed-up" "matches"
  # A term's first page without counts (matches: the page's rows) and its count alone, each
  # beside the scan's full query of the same term (measured earlier in this loop).
  local -A scans
  for c in FirstPage OneLevel NextPage LastPage SortUser SortMessage CommonTerm TwoTerms Phrase RareTerms \
    NoMatch Timeline TimelineTerm TimelineRareTerm CommonTermPageOnly TwoTermsPageOnly PhrasePageOnly \
    RareTermsPageOnly CommonTermCountOnly TwoTermsCountOnly PhraseCountOnly RareTermsCountOnly; do
    local i s
    i=$(run_bench "$root" "BM_Indexed$c/iterations:5/real_time" real_time matches)
    local base=${c%PageOnly}
    base=${base%CountOnly}
    if [ "$base" = "$c" ]; then
      s=$(run_bench "$root" "BM_Scanned$c/iterations:1/real_time" real_time)
      scans[$c]=$s
    else
      s=${scans[$base]}
    fi
    awk -v i="$i" -v s="$s" -v c="$c" 'BEGIN {
      split(i, a, " "); split(s, b, " ")
      printf "%-22s %12.1f %12.1f %9.1fx %12s\n", c, a[2], b[2], (a[2] > 0 ? b[2] / a[2] : 0), a[3]
    }'
  done
  # Sorting by message with an index on that column in the store (made here, dropped after):
  # its size beside the store and the first page beside the same page without it. (Sorting by
  # user walks the search index's user order, in the table above.)
  local store="$root/var/log/quorlog/.QUORSYSDB" before
  before=$(stat -c %s "$store")
  sqlite3 "$store" "DROP INDEX IF EXISTS logs_username; CREATE INDEX logs_msg ON logs (msg);"
  sqlite3 "$store" "SELECT name, sum(pgsize) FROM dbstat WHERE name = 'logs_msg' GROUP BY name" |
    awk -F'|' -v s="$before" '{ printf "index on %s: %.0f MB (%.2fx the store)\n", $1, $2 / 1e6, $2 / s }'
  local i
  i=$(run_bench "$root" "BM_IndexedSortMessage/iterations:5/real_time" real_time)
  awk -v i="$i" 'BEGIN { split(i, a, " "); printf "%-22s %12.1f ms with its column index\n", "SortMessage", a[2] }'
  sqlite3 "$store" "DROP INDEX logs_msg; VACUUM;"
  QUOR_BENCH_CLEAR_ROOT="$data/index-clear" run_bench "$root" BM_ClearLog real_time store_ms \
    index_ms shell_ms | awk '{
    printf "clear, index included: %.0f ms (the store %.0f ms, the index %.0f ms); the same DELETE by Debian'"'"'s sqlite3 shell: %.0f ms (%.1fx)\n",
           $2, $3, $4, $5, ($2 > 0 ? $5 / $2 : 0) }'
  rm -rf "$data/index-clear"
}


# quor-logd: journal -> store entries/s against journalctl reading the same journal files, and
# the burst into a 10,000,000-row store at its row limit (longest transactions, rows over the
# limit; a few minutes: the copied store's search index is made first, untimed).
section_logd() {
  echo "== quor-logd: journal files (systemd-journal-remote) into the system store"
  "$(dirname "$0")/logd_bench.sh" "$build" rate
  echo "== quor-logd: the same burst into a store at its row limit"
  "$(dirname "$0")/logd_bench.sh" "$build" retention
}


# quor-logd's syslog receiver (each run on a fresh root). TCP: SYSLOG_COUNT lines (default
# 1,000,000, about 110 bytes each) over one connection into the system-log store, beside Debian's
# rsyslogd receiving the same stream over TCP into a plain file (imtcp to omfile), same run;
# goal >= 1.0x. TLS: the same stream over TLS; goal >= 0.5x TCP. UDP: 3-s bursts at 100k/s
# (goal: 0 lost) and at 200k/s, with the receive buffer the daemon asks for (16 MiB; the kernel
# doubles it; net.core.rmem_max must allow it or the daemon run as root).
section_syslog() {
  echo "== syslog receiver: messages/s into the store vs rsyslogd into a file, UDP loss"
  local load="$build/bin/syslog_load" logd="$build/bin/quor-logd" dir="$data/syslog"
  local count=${SYSLOG_COUNT:-1000000} port=$((20000 + $$ % 12000))
  rm -rf "$dir" && mkdir -p "$dir/work"
  (cd "$dir" && openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes \
    -days 1 -subj /CN=127.0.0.1 -keyout key.pem -out cert.pem 2>/dev/null)

  # The last rowid of root's system log: rows are only added during a run.
  rows() { sqlite3 -readonly "$1/var/log/quorlog/.QUORSYSDB" "SELECT coalesce(max(rowid), 0) FROM logs" 2>/dev/null || echo 0; }
  # Starts quor-logd on a fresh root with the given receiver options; sets logd_pid, root, base.
  start_logd() {
    root="$dir/root-$1"
    shift
    mkdir -p "$root/var/log/quorlog" "$root/etc"
    "$logd" --root "$root" "$@" 2>"$root.err" &
    logd_pid=$!
    # The receiver's first row ("syslog receiver listening on ...") says it runs.
    for _ in $(seq 100); do
      [ "$(rows "$root")" -ge 1 ] && break
      sleep 0.1
    done
    base=$(rows "$root")
  }
  stop_logd() { kill "$logd_pid" 2>/dev/null; wait "$logd_pid" 2>/dev/null || true; }
  # Seconds until root's store holds want more rows than base (polled every 20 ms on one open
  # connection, as cheap as rsyslogd's file is to watch: a sqlite3 process per look took a
  # third of a core from the daemon measured).
  wait_rows() {
    local want=$1 start=$2 now
    "$load" rows "$root/var/log/quorlog/.QUORSYSDB" $((base + want)) 120 >/dev/null || true
    now=$(date +%s.%N)
    awk -v a="$start" -v b="$now" 'BEGIN { printf "%.3f", b - a }'
  }

  # CPU seconds of the process pid's threads named comm (all threads without comm), read
  # before the process ends.
  cpu_of() {
    local pid=$1 comm=${2:-} tick t sum=0
    tick=$(getconf CLK_TCK)
    for t in /proc/"$pid"/task/*; do
      [ -z "$comm" ] || [ "$(cat "$t/comm")" = "$comm" ] || continue
      sum=$((sum + $(awk '{ print $14 + $15 }' "$t/stat")))
    done
    awk -v s="$sum" -v t="$tick" 'BEGIN { printf "%.2f", s / t }'
  }
  # The newest row id the system store's search index holds (0 when it has none yet).
  indexed() {
    local id
    id=$(sqlite3 -readonly "$1/var/log/quorlog/.QUORSYSDB.search-index" "SELECT mark FROM state" 2>/dev/null)
    echo "${id:-0}"
  }
  # Runs one quor-logd measurement: NAME SENDER-ARGS -- LOGD-ARGS; prints "seconds cpu-receiver
  # cpu-rest cpu-writer index-behind index-seconds": the rest is every thread but the receiver's
  # (the writer's, the index's and the checkpoint's; the main thread only waits), the writer's
  # alone where the build names its thread ("-" otherwise); the rows the index lacked when the
  # burst was in the store, and the seconds it took then to catch up with the writer idle
  # (up to 120; CATCH_UP=0 skips the wait).
  logd_run() {
    local name=$1 t0 secs send=()
    shift
    while [ "$1" != "--" ]; do send+=("$1"); shift; done
    shift
    start_logd "$name" "$@"
    t0=$(date +%s.%N)
    "$load" "${send[@]}" >/dev/null &
    local send_pid=$!
    secs=$(wait_rows "$count" "$t0")
    wait "$send_pid" || true
    local all recv writer newest behind caught=-
    all=$(cpu_of "$logd_pid")
    recv=$(cpu_of "$logd_pid" syslog-tcp)
    writer=$(cpu_of "$logd_pid" logd-writer)
    [ "$writer" = 0.00 ] && writer=-
    newest=$(rows "$root")
    behind=$((newest - $(indexed "$root")))
    if [ "${CATCH_UP:-1}" != 0 ]; then
      local t1
      t1=$(date +%s.%N)
      for _ in $(seq 1200); do
        [ "$(indexed "$root")" -ge "$newest" ] && break
        sleep 0.1
      done
      caught=$(awk -v a="$t1" -v b="$(date +%s.%N)" 'BEGIN { printf "%.1f", b - a }')
    fi
    stop_logd
    echo "$secs $recv $(awk -v a="$all" -v r="$recv" 'BEGIN { printf "%.2f", a - r }') $writer $behind $caught"
  }

  # rsyslogd: imtcp into a plain file, nothing else loaded.
  cat >"$dir/rsyslog.conf" <<CONF
global(workDirectory="$dir/work")
module(load="imtcp")
input(type="imtcp" address="127.0.0.1" port="$((port + 2))")
*.* action(type="omfile" file="$dir/rsyslog.out")
CONF
  # One rsyslogd run into a fresh file; prints "seconds cpu".
  rsyslog_run() {
    rm -f "$dir/rsyslog.out"
    rsyslogd -n -f "$dir/rsyslog.conf" -i "$dir/rsyslog.pid" 2>"$dir/rsyslog.err" &
    local rs_pid=$! rs_s rs_cpu
    for _ in $(seq 100); do
      (exec 3<>"/dev/tcp/127.0.0.1/$((port + 2))") 2>/dev/null && break
      sleep 0.1
    done
    # The probe connection above sends nothing, so the file starts empty (or absent).
    "$load" tcp "$((port + 2))" "$count" >/dev/null &
    local send_pid=$!
    rs_s=$("$load" lines "$dir/rsyslog.out" "$count" 300 | awk '{ print $2 }')
    wait "$send_pid" || true
    rs_cpu=$(cpu_of "$rs_pid")
    kill "$rs_pid" 2>/dev/null
    wait "$rs_pid" 2>/dev/null || true
    echo "$rs_s $rs_cpu"
  }

  # The receiver alone (frame, parse, hand over to a sink that discards), in syslog_load.
  local alone
  "$load" receive "$((port + 4))" "$count" 300 >"$dir/alone.out" &
  local alone_pid=$!
  for _ in $(seq 100); do
    (exec 3<>"/dev/tcp/127.0.0.1/$((port + 4))") 2>/dev/null && break
    sleep 0.1
  done
  "$load" tcp "$((port + 4))" "$count" >/dev/null || true
  wait "$alone_pid" || true
  alone=$(cat "$dir/alone.out")

  # TCP: SYSLOG_ROUNDS (default 3) pairs of rsyslogd then quor-logd, each pair side by side,
  # and the median of the pairs' ratios: either's rate moves by up to 2x between runs on the
  # shared cores. The index's catch-up is waited for after the last round only.
  local rounds=${SYSLOG_ROUNDS:-3} r rs tcp tls ref="" ratios=()
  # REFERENCE_LOGD=PATH: another build's TCP run first.
  if [ -n "${REFERENCE_LOGD:-}" ]; then
    ref=$(logd=$REFERENCE_LOGD logd_run ref-tcp tcp "$port" "$count" -- --tcp "127.0.0.1:$port")
  fi
  printf "%-38s %10s %8s %9s %26s\n" "run ($count lines, one connection)" "msg/s" "seconds" "ratio" \
    "CPU s: recv/writer+upkeep"
  for r in $(seq "$rounds"); do
    rs=$(rsyslog_run)
    tcp=$(CATCH_UP=$([ "$r" = "$rounds" ] && echo 1 || echo 0) logd_run "tcp$r" tcp "$port" "$count" -- \
      --tcp "127.0.0.1:$port")
    ratios+=("$(awk -v r="$rs" -v t="$tcp" 'BEGIN { split(r, R, " "); split(t, T, " "); printf "%.3f", R[1] / T[1] }')")
    awk -v n="$count" -v r="$rs" -v t="$tcp" -v k="$r" 'BEGIN {
      split(r, R, " "); split(t, T, " ")
      printf "%-38s %10.0f %8.2f %8s %26s\n", "round " k ": rsyslogd, TCP into a file", n / R[1], R[1], "1.00x", R[2] " (all)"
      printf "%-38s %10.0f %8.2f %7.2fx %26s  (vs rsyslogd)\n", "round " k ": quor-logd, TCP into the store",
             n / T[1], T[1], R[1] / T[1], T[2] " / " T[3] " (writer " T[4] ")"
    }'
  done
  printf "%s\n" "${ratios[@]}" | sort -n | awk '{ a[NR] = $1 } END {
    printf "quor-logd TCP against rsyslogd: median of %d rounds %.2fx (lowest %.2fx, highest %.2fx)\n", NR, a[int((NR + 1) / 2)], a[1], a[NR] }'
  tls=$(CATCH_UP=0 logd_run tls tls "$((port + 1))" "$count" "$dir/cert.pem" -- \
    --tls "127.0.0.1:$((port + 1))" --cert "$dir/cert.pem" --key "$dir/key.pem")
  awk -v n="$count" -v a="$alone" -v t="$tcp" -v s="$tls" -v f="$ref" -v r="$rs" 'BEGIN {
    split(a, A, " "); split(t, T, " "); split(s, S, " "); split(f, F, " "); split(r, R, " ")
    printf "%-38s %10.0f %8.2f %7.2fx %26s  (vs the last rsyslogd)\n", "receiver alone, TCP, no store",
           n / A[2], A[2], R[1] / A[2], A[3] " (all)"
    if (f != "")
      printf "%-38s %10.0f %8.2f %7.2fx %26s  (vs the last rsyslogd)\n", "reference quor-logd, TCP into the store",
             n / F[1], F[1], R[1] / F[1], F[2] " / " F[3]
    printf "%-38s %10.0f %8.2f %7.2fx %26s  (vs the last quor-logd TCP)\n", "quor-logd, TLS into the store",
           n / S[1], S[1], T[1] / S[1], S[2] " / " S[3]
    if (f != "")
      printf "index behind when the rows were in: reference %d rows, caught up %s s later; this build %d, %s s\n",
             F[5], F[6], T[5], T[6]
    else
      printf "index behind when the rows were in: %d rows, caught up %s s later\n", T[5], T[6]
  }'

  # UDP bursts: rows stored against datagrams sent; the kernel's receive-buffer drops beside.
  local rate sent got errs0 errs1
  printf "%-40s %12s %12s %10s %14s\n" "UDP burst, 3 s" "sent" "stored" "lost" "rcvbuf drops"
  for rate in 100000 200000; do
    start_logd "udp$rate" --udp "127.0.0.1:$((port + 3))"
    errs0=$(awk '/^Udp:/ { if (++n == 2) print $6 }' /proc/net/snmp)
    sent=$("$load" udp "$((port + 3))" "$rate" 3 | awk '{ print $1 }')
    local last=-1 now_rows
    for _ in $(seq 100); do
      sleep 0.2
      now_rows=$(rows "$root")
      [ "$now_rows" -eq "$last" ] && break
      last=$now_rows
    done
    errs1=$(awk '/^Udp:/ { if (++n == 2) print $6 }' /proc/net/snmp)
    got=$(sqlite3 -readonly "$root/var/log/quorlog/.QUORSYSDB" "SELECT count(*) FROM logs WHERE msg LIKE '% seq=%'")
    stop_logd
    awk -v r="$rate" -v s="$sent" -v g="$got" -v e=$((errs1 - errs0)) 'BEGIN {
      printf "%-40s %12d %12d %9.2f%% %14d\n", r "/s", s, g, 100 * (s - g) / s, e
    }'
  done
  sqlite3 "$root/var/log/quorlog/.QUORSYSDB" \
    "SELECT 'quor-logd: ' || msg FROM logs WHERE msg LIKE 'syslog receiver%'"
}

# Instructions per message (callgrind, user space, noise-free), SYSLOG_CG_COUNT lines (default
# 200,000) over TCP: quor-logd into the store (the receiver's thread and the writer's apart)
# beside rsyslogd into a file.
section_syslog_callgrind() {
  echo "== syslog receiver: instructions per message under callgrind, vs rsyslogd (same stream)"
  local load="$build/bin/syslog_load" dir="$data/syslog-callgrind" n=${SYSLOG_CG_COUNT:-200000}
  local port=$((20000 + $$ % 12000)) pid
  rm -rf "$dir" && mkdir -p "$dir/root/var/log/quorlog" "$dir/root/etc" "$dir/work"
  listening() {
    for _ in $(seq 300); do
      (exec 3<>"/dev/tcp/127.0.0.1/$1") 2>/dev/null && return
      sleep 0.2
    done
  }
  valgrind --tool=callgrind --callgrind-out-file="$dir/logd.cg" "$build/bin/quor-logd" \
    --root "$dir/root" --tcp "127.0.0.1:$port" 2>/dev/null &
  pid=$!
  listening "$port"
  "$load" tcp "$port" "$n" >/dev/null
  for _ in $(seq 2400); do
    [ "$(sqlite3 -readonly "$dir/root/var/log/quorlog/.QUORSYSDB" \
      "SELECT count(*) FROM logs WHERE msg LIKE '% seq=%'" 2>/dev/null || echo 0)" -ge "$n" ] && break
    sleep 0.25
  done
  kill "$pid" && wait "$pid" || true
  cat >"$dir/rsyslog.conf" <<CONF
global(workDirectory="$dir/work")
module(load="imtcp")
input(type="imtcp" address="127.0.0.1" port="$((port + 1))")
*.* action(type="omfile" file="$dir/rsyslog.out")
CONF
  valgrind --tool=callgrind --callgrind-out-file="$dir/rsyslog.cg" rsyslogd -n \
    -f "$dir/rsyslog.conf" -i "$dir/rsyslog.pid" 2>/dev/null &
  pid=$!
  listening $((port + 1))
  "$load" tcp $((port + 1)) "$n" >/dev/null
  "$load" lines "$dir/rsyslog.out" "$n" 600 >/dev/null || true
  kill "$pid" && wait "$pid" || true
  # Inclusive counts of the two threads' entry points.
  local total writer recv rs
  total=$(awk '/^totals:/ { print $2 }' "$dir/logd.cg")
  writer=$(callgrind_annotate --inclusive=yes "$dir/logd.cg" 2>/dev/null |
    awk '/logd::Writer::Run\(\)/ && !done { gsub(",", "", $1); print $1; done = 1 }')
  recv=$(callgrind_annotate --inclusive=yes "$dir/logd.cg" 2>/dev/null |
    awk '/^ *[0-9,]+ .*scheduler::run\(/ && !done { gsub(",", "", $1); print $1; done = 1 }')
  rs=$(awk '/^totals:/ { print $2 }' "$dir/rsyslog.cg")
  printf "%-44s %14s %12s %10s\n" "run ($n lines, one TCP connection)" "instructions" "per message" "ratio"
  awk -v n="$n" -v t="$total" -v w="$writer" -v r="$recv" -v s="$rs" 'BEGIN {
    printf "%-44s %14.0f %12.0f %9s\n", "rsyslogd, into a file (whole process)", s, s / n, "1.00x"
    printf "%-44s %14.0f %12.0f %8.2fx\n", "quor-logd, into the store (whole process)", t, t / n, t / s
    printf "%-44s %14.0f %12.0f %8.2fx\n", "  of which the receiver thread", r, r / n, r / s
    printf "%-44s %14.0f %12.0f %8.2fx\n", "  of which the writer thread", w, w / n, w / s
  }'
}

# The page's list and search query on 1,000,000 rows through the server, quiet and while
# quor-logd writes 50,000 rows/s into the same store. Goal: each within 2x quiet + 50 ms, no error.
section_readers() {
  "$(dirname "$0")/readers_bench.sh" "$build"
}

sections=(section_export section_sources section_search section_small_list section_server
  section_index section_logd section_syslog section_syslog_callgrind section_readers)
# scripts/bench.sh BUILD [SECTION...] runs only the sections named (for example syslog).
if [ $# -gt 1 ]; then
  sections=()
  for name in "${@:2}"; do sections+=("section_$name"); done
fi
for section in "${sections[@]}"; do
  "$section"
  echo
done
