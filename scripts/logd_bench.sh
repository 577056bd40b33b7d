#!/usr/bin/env bash
# quor-logd's figures, side by side with their references in one run (no timed tests):
#   logd_bench.sh BUILD rate   journal -> store entries/s against journalctl reading the same
#                              files (-o export > /dev/null), on ENTRIES (default 1,000,000)
#   logd_bench.sh BUILD kill   KILLS (default 100) kill -9 at random moments while quor-logd
#                              writes a burst of ENTRIES, restarting each time; then checks
#                              that the store holds every entry exactly once
#   logd_bench.sh BUILD retention
#                              ENTRIES into a system store that already holds BIG_ROWS (default
#                              10,000,000) rows with a row limit of BIG_ROWS, so that every batch
#                              is followed by trimming: the longest write and retention
#                              transactions (goal <= 25 ms), the most rows over the limit, the
#                              rate beside the same burst into an empty store. REFERENCE_LOGD=PATH
#                              runs the same with another build of quor-logd first.
# Journal files are made once by systemd-journal-remote in BUILD/bench-data/journal-N.
set -euo pipefail
build=${1:-build}
mode=${2:-rate}
entries=${ENTRIES:-1000000}
bin="$(cd "$build" && pwd)/bin"
data="$(cd "$build" && pwd)/bench-data"
journal="$data/journal-$entries"
mkdir -p "$data"
now_ms() { date +%s%3N; }
count() { sqlite3 "$1/var/log/quorlog/.QUORSYSDB" "SELECT count(*) FROM logs" 2>/dev/null || echo 0; }
# The newest row id: rows ever written to a store whose ids start at 1 (cheap at any size,
# unlike count(*), which would compete with the writer for the two cores).
newest() {
  local id
  id=$(sqlite3 "$1/var/log/quorlog/.QUORSYSDB" "SELECT coalesce(max(id), 0) FROM logs" 2>/dev/null)
  echo "${id:-0}"
}

if [ ! -d "$journal" ]; then
  echo "Writing $entries journal entries with systemd-journal-remote (once) ..."
  mkdir -p "$journal"
  awk -v n="$entries" -v t="$(date +%s)000000" 'BEGIN {
    for (i = 0; i < n; i++) {
      printf "__REALTIME_TIMESTAMP=%d\n__MONOTONIC_TIMESTAMP=%d\n", t + i, 1000 + i
      printf "_BOOT_ID=0123456789abcdef0123456789abcdef\nSYSLOG_IDENTIFIER=bench\n_PID=%d\n", 100 + i % 900
      printf "PRIORITY=%d\n_UID=0\nMESSAGE=entry %d: disk sda1 usage checked, nothing to report\n\n", 3 + i % 5, i
    }
  }' | /lib/systemd/systemd-journal-remote --output="$journal/bench.journal" - 2>/dev/null
fi

fresh_root() {
  local root=$1
  rm -rf "$root"
  mkdir -p "$root/etc"
  # No retention limits: the figure is the writer's, not the retention's.
  printf 'system_max_rows=0\nsystem_max_bytes=0\nsystem_max_days=0\nsystem_keep_free_bytes=0\n' \
    >"$root/etc/quor-logd.conf"
}

# The search index's mark: the newest row id of the system store that its index holds.
indexed() {
  local id
  [ -n "${no_index:-}" ] && echo 1000000000000 && return
  [ -s "$1/var/log/quorlog/.QUORSYSDB.search-index" ] || { echo 0 && return; }
  id=$(sqlite3 -readonly "$1/var/log/quorlog/.QUORSYSDB.search-index" "SELECT mark FROM state" \
    2>/dev/null)
  echo "${id:-0}"
}
wait_for_index() {  # wait_for_index ROOT N: until the index holds rows up to id N
  while [ "$(indexed "$1")" -lt "$2" ]; do sleep 0.05; done
}
cpu_ms() {  # cpu_ms PID: user and system CPU time of the process so far
  awk -v hz="$(getconf CLK_TCK)" '{ printf "%d", ($14 + $15) * 1000 / hz }' "/proc/$1/stat"
}
wait_for() {  # wait_for ROOT N: until N rows were written to the system store
  # One connection polled every 20 ms (a sqlite3 process per look took a large share of a core
  # from the daemon measured); the store may not exist yet.
  until "$bin/syslog_load" rows "$1/var/log/quorlog/.QUORSYSDB" "$2" 600 >/dev/null 2>&1; do
    sleep 0.05
  done
}

case "$mode" in
  rate)
    start=$(now_ms)
    journalctl -D "$journal" -o export >/dev/null
    read_ms=$(($(now_ms) - start))
    root="$data/logd-rate"
    fresh_root "$root"
    start=$(now_ms)
    "$bin/quor-logd" --root "$root" --journal-dir "$journal" 2>"$root/logd.err" &
    pid=$!
    wait_for "$root" "$entries"
    write_ms=$(($(now_ms) - start))
    write_cpu=$(cpu_ms "$pid")
    wait_for_index "$root" "$entries"
    index_ms=$(($(now_ms) - start))
    index_cpu=$(cpu_ms "$pid")
    kill "$pid"
    wait "$pid" || true
    # Idle latency: one more entry appended while the daemon follows.
    "$bin/quor-logd" --root "$root" --journal-dir "$journal" 2>>"$root/logd.err" &
    pid=$!
    sleep 1
    start=$(now_ms)
    printf '__REALTIME_TIMESTAMP=%s\n__MONOTONIC_TIMESTAMP=999999999999\n_BOOT_ID=0123456789abcdef0123456789abcdef\nMESSAGE=late\n\n' \
      "$(date +%s%6N)" | /lib/systemd/systemd-journal-remote --output="$journal/late.journal" - 2>/dev/null
    wait_for "$root" $((entries + 1))
    idle_ms=$(($(now_ms) - start))
    kill "$pid"
    wait "$pid" || true
    rm -f "$journal/late.journal"  # the burst's files stay as they were
    printf '%-52s %12s %10s\n' "run ($entries entries)" "entries/s" "vs read"
    awk -v r="$read_ms" -v w="$write_ms" -v x="$index_ms" -v n="$entries" 'BEGIN {
      printf "%-52s %12.0f %9.2fx\n", "journalctl -o export > /dev/null (reading only)", n * 1000 / r, 1
      printf "%-52s %12.0f %9.2fx\n", "quor-logd journal -> system store (committed)", n * 1000 / w, r / w
      printf "%-52s %12.0f %9.2fx\n", "  ... and in its search index (same run)", n * 1000 / x, r / x
    }'
    echo "entry appended while idle -> in the store after: ${idle_ms} ms (includes journal-remote's own run)"
    # CPU time, which other work on the machine disturbs far less than the wall-clock rates.
    echo "quor-logd CPU time: ${write_cpu} ms until committed, ${index_cpu} ms until indexed"
    grep -h 'stopped' "$root/logd.err" | head -1
    ;;
  retention)
    big=${BIG_ROWS:-10000000}
    store="$data/store-$big.db"
    if [ ! -f "$store" ]; then
      echo "Writing a system store of $big rows (once) ..."
      sqlite3 "$store.tmp" <<EOF >/dev/null
PRAGMA auto_vacuum=INCREMENTAL; PRAGMA journal_mode=WAL; PRAGMA synchronous=OFF;
CREATE TABLE logs (id INTEGER PRIMARY KEY AUTOINCREMENT, time INTEGER, level TEXT,
  username TEXT, msg TEXT);
CREATE INDEX logs_time ON logs (time);
WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT i + 1 FROM n WHERE i < $big - 1)
INSERT INTO logs (time, level, username, msg)
SELECT 1700000000 + i / 100, CASE i % 5 WHEN 0 THEN 'err' WHEN 1 THEN 'warning' ELSE 'info' END,
  'SYSTEM', 'bench[' || (100 + i % 900) || ']: entry ' || i || ': disk sda1 usage checked'
FROM n;
PRAGMA wal_checkpoint(TRUNCATE);
EOF
      mv "$store.tmp" "$store"
    fi
    # run NAME BINARY ROWS: ENTRIES into a store of ROWS rows (0: empty) capped at ROWS.
    run() {
      local root="$data/logd-retention" rows=$3
      fresh_root "$root"
      if [ "$rows" -gt 0 ]; then
        mkdir -p "$root/var/log/quorlog"
        cp "$store" "$root/var/log/quorlog/.QUORSYSDB"
        printf 'system_max_rows=%s\n' "$rows" >>"$root/etc/quor-logd.conf"
        # The search index is tied to the store's file: made here by quor-logd with no input
        # (it only indexes), not timed.
        "$2" --root "$root" 2>/dev/null &
        pid=$!
        local since
        since=$(now_ms)
        wait_for_index "$root" "$rows"
        echo "  (indexed the copied store in $((($(now_ms) - since) / 1000)) s)"
        kill "$pid"
        wait "$pid" || true
      fi
      local start
      start=$(now_ms)
      "$2" --root "$root" --journal-dir "$journal" 2>"$root/logd.err" &
      pid=$!
      wait_for "$root" $((rows + entries))
      local ms=$(($(now_ms) - start))
      kill "$pid"
      wait "$pid" || true
      printf '%-44s %9.0f entries/s; rows now %s, file %s MiB\n' "$1" \
        "$((entries * 1000 / ms))" "$(count "$root")" \
        "$(($(stat -c %s "$root/var/log/quorlog/.QUORSYSDB") >> 20))"
      grep -ho 'stopped.*' "$root/logd.err" | head -1
      rm -rf "$root"
    }
    if [ -n "${REFERENCE_LOGD:-}" ]; then  # NO_INDEX=1 for a build that keeps no index
      no_index=${NO_INDEX:-} run "reference: $big-row store at its limit" "$REFERENCE_LOGD" "$big"
    fi
    run "empty store, no limit" "$bin/quor-logd" 0
    run "$big-row store at its limit" "$bin/quor-logd" "$big"
    ;;
  kill)
    kills=${KILLS:-100}
    root="$data/logd-kill"
    fresh_root "$root"
    for i in $(seq "$kills"); do
      "$bin/quor-logd" --root "$root" --journal-dir "$journal" 2>/dev/null &
      pid=$!
      # Short lives, so that most kills land while the burst is still being written.
      sleep "$(printf '0.%03d' $((RANDOM % 80 + 10)))"  # 10-89 ms
      kill -9 "$pid"
      wait "$pid" 2>/dev/null || true
      [ "$(newest "$root")" -lt "$entries" ] && during=$((${during:-0} + 1))
    done
    echo "after $kills kill -9 (${during:-0} of them during the burst): $(count "$root") rows" \
      "committed; finishing ..."
    "$bin/quor-logd" --root "$root" --journal-dir "$journal" 2>/dev/null &
    pid=$!
    wait_for "$root" "$entries"
    sleep 1
    kill "$pid"
    wait "$pid" || true
    sqlite3 "$root/var/log/quorlog/.QUORSYSDB" \
      "SELECT count(*) || ' rows, ' || count(DISTINCT msg) || ' distinct entries (want ' || $entries || ' of each)' FROM logs"
    ;;
esac
