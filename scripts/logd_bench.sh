#!/usr/bin/env bash
# quor-logd's figures, side by side with their references in one run (no timed tests):
#   logd_bench.sh BUILD rate   journal -> store entries/s against journalctl reading the same
#                              files (-o export > /dev/null), on ENTRIES (default 1,000,000)
#   logd_bench.sh BUILD kill   KILLS (default 100) kill -9 at random moments while quor-logd
#                              writes a burst of ENTRIES, restarting each time; then checks
#                              that the store holds every entry exactly once
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

wait_for() {  # wait_for ROOT N: until the system store holds N rows
  while [ "$(count "$1")" -lt "$2" ]; do sleep 0.05; done
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
    kill "$pid"
    wait "$pid" || true
    # Idle latency: one more entry appended while the daemon follows.
    "$bin/quor-logd" --root "$root" --journal-dir "$journal" 2>>"$root/logd.err" &
    pid=$!
    sleep 1
    start=$(now_ms)
    printf '__REALTIME_TIMESTAMP=%s\n__MONOTONIC_TIMESTAMP=1\n_BOOT_ID=0123456789abcdef0123456789abcdef\nMESSAGE=late\n\n' \
      "$(date +%s%6N)" | /lib/systemd/systemd-journal-remote --output="$journal/bench.journal" - 2>/dev/null
    wait_for "$root" $((entries + 1))
    idle_ms=$(($(now_ms) - start))
    kill "$pid"
    wait "$pid" || true
    rm -rf "$data/journal-$entries"  # the appended entry changed it
    printf '%-52s %12s %10s\n' "run ($entries entries)" "entries/s" "vs read"
    awk -v r="$read_ms" -v w="$write_ms" -v n="$entries" 'BEGIN {
      printf "%-52s %12.0f %9.2fx\n", "journalctl -o export > /dev/null (reading only)", n * 1000 / r, 1
      printf "%-52s %12.0f %9.2fx\n", "quor-logd journal -> system store (committed)", n * 1000 / w, r / w
    }'
    echo "entry appended while idle -> in the store after: ${idle_ms} ms (includes journal-remote's own run)"
    grep -h 'stopped' "$root/logd.err" | head -1
    ;;
  kill)
    kills=${KILLS:-100}
    root="$data/logd-kill"
    fresh_root "$root"
    for i in $(seq "$kills"); do
      "$bin/quor-logd" --root "$root" --journal-dir "$journal" 2>/dev/null &
      pid=$!
      sleep "0.$((RANDOM % 300 + 20))"
      kill -9 "$pid"
      wait "$pid" 2>/dev/null || true
    done
    echo "after $kills kill -9: $(count "$root") rows committed; finishing ..."
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
