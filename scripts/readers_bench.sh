#!/usr/bin/env bash
# Readers while quor-logd writes: the page's calls through quor-webapi serve on a 1,000,000-row
# system log, first quiet, then while quor-logd writes syslog lines into the same store at
# READERS_RATE rows/s (default 50,000; syslog_load over TCP, paced). Prints each call's median
# and slowest time beside its quiet median, the goal (2x quiet + 50 ms) and the errors.
# READERS_RETENTION=off lifts the row limit (the store starts at the default 1,000,000), so that
# the writer only adds rows.
#   scripts/readers_bench.sh BUILD
set -euo pipefail
build=${1:-build}
bin="$(cd "$build" && pwd)/bin"
data="$(cd "$build" && pwd)/bench-data"
template="$data/readers-template" root="$data/readers"
rate=${READERS_RATE:-50000} rounds=${READERS_ROUNDS:-15}
# Below the ephemeral range (32768 and up), where the calls' own client ports could hold it.
port=$((20000 + $$ % 12000))
store=var/log/quorlog/.QUORSYSDB
pids=()
cleanup() {
  local p
  for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; done
  for p in "${pids[@]}"; do wait "$p" 2>/dev/null || true; done
}
trap cleanup EXIT

max_id() { sqlite3 -readonly "$1/$store" "SELECT coalesce(max(id), 0) FROM logs"; }

# Starts quor-webapi serve on root (2 workers) and signs in; sets base, cookie, token.
serve() {
  local out="$data/readers-serve.out" login
  printf 'bench-password\n' | "$bin/quor-webapi" adduser --root "$1" bench --admin >/dev/null 2>&1 || true
  rm -f "$out"
  "$bin/quor-webapi" serve --root "$1" --listen 127.0.0.1:0 --workers 2 >"$out" 2>/dev/null &
  pids+=($!)
  base=""
  for _ in $(seq 100); do
    base=$(grep -o 'http://127.0.0.1:[0-9]*' "$out" 2>/dev/null | head -1) && [ -n "$base" ] && break
    sleep 0.1
  done
  login=$(curl -s -i -d 'method=login&account=bench&passwd=bench-password' "$base/webapi/auth")
  cookie=$(echo "$login" | tr -d '\r' | sed -n 's/^Set-Cookie: \([^;]*\).*/\1/ip')
  token=$(echo "$login" | grep -o '"token":"[0-9a-f]*"' | cut -d'"' -f4)
}
stop_all() {
  cleanup
  pids=()
}

# One call: prints its seconds, or "error" when the answer is not a success.
call() {
  local answer="$data/readers-answer.json" t
  t=$(curl -s -o "$answer" -w '%{time_total}' -H "Cookie: $cookie" -H "X-Quor-Token: $token" \
    "$base/webapi?$1") || { echo error; return; }
  if grep -q '"success":true' "$answer"; then echo "$t"; else echo error; fi
}

calls=(
  "api=QUOR.Core.SyslogClient.Log&version=1&method=list&logtype=system&offset=0&limit=50"
  "api=QUOR.LogCenter.Search&version=1&method=query&logtype=system&sort=time&order=desc&offset=0&limit=50"
  "api=QUOR.LogCenter.Search&version=1&method=query&logtype=system&q=synchronized&offset=0&limit=50"
)
labels=("list, first page of 50" "search query, first page of 50" "search query q=synchronized")

# Runs every call rounds times, interleaved; writes "index seconds" lines to file.
measure() {
  local file=$1 r i
  : >"$file"
  for r in $(seq "$rounds"); do
    for i in "${!calls[@]}"; do echo "$i $(call "${calls[$i]}")" >>"$file"; done
  done
}

# Waits until the search index of root's system log covers every row (the server's background
# indexer, which a search starts, catches it up).
index_complete() {
  local want mark
  call "${calls[2]}" >/dev/null
  want=$(max_id "$1")
  for _ in $(seq 1200); do
    mark=$(sqlite3 -readonly "$1/$store.search-index" "SELECT mark FROM state" 2>/dev/null || echo 0)
    [ "${mark:-0}" -ge "$want" ] && return
    sleep 0.5
  done
}

# The 1,000,000-row root, laid out once. Each run works on a copy, whose index is made anew
# (the index knows its store's file: a copy is another store).
if [ ! -f "$template/$store" ]; then
  echo "   (laying out $template, about 10 s)"
  rm -rf "$template"
  "$bin/quor-logdemo" --root "$template" --rows 1000000 >/dev/null
fi

rm -rf "$root"
cp -a "$template" "$root"
rm -f "$root/$store.search-index"*
serve "$root"
index_complete "$root"
measure "$data/readers-warm.txt"  # fills the page cache and the workers' statements
measure "$data/readers-quiet.txt"

[ "${READERS_RETENTION:-on}" = off ] && echo "system_max_rows = 0" >>"$root/etc/quor-logd.conf"
"$bin/quor-logd" --root "$root" --tcp "127.0.0.1:$port" 2>"$data/readers-logd.err" &
pids+=($!)
for _ in $(seq 100); do
  (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null && break
  sleep 0.1
done
if ! kill -0 "${pids[-1]}" 2>/dev/null; then
  echo "readers: quor-logd did not start:" >&2
  cat "$data/readers-logd.err" >&2
  exit 1
fi
"$bin/syslog_load" tcp "$port" $((rate * 600)) "$rate" >/dev/null &
pids+=($!)
sleep 2  # the writer at its pace, retention included (the store is at its 1,000,000-row limit)
id0=$(max_id "$root")
t0=$(date +%s.%N)
measure "$data/readers-loaded.txt"
id1=$(max_id "$root")
t1=$(date +%s.%N)
mark=$(sqlite3 -readonly "$root/$store.search-index" "SELECT mark FROM state" 2>/dev/null || echo 0)
stop_all

echo "== readers while quor-logd writes: 1,000,000 system rows, quor-webapi serve, ms per call"
awk -v a="$t0" -v b="$t1" -v n=$((id1 - id0)) -v r="$rate" 'BEGIN {
  printf "   quor-logd wrote %.0f rows/s during the loaded calls (paced sender: %d/s)\n", n / (b - a), r
}'
echo "   the search index was $((id1 - ${mark:-0})) rows behind the store at the end"
echo "   retention: ${READERS_RETENTION:-on} (system_max_rows $([ "${READERS_RETENTION:-on}" = off ] && echo 0 || echo 1000000))"
printf "%-32s %9s %9s %9s %7s %9s %7s\n" "call ($rounds each)" "quiet" "writing" "slowest" "ratio" \
  "goal" "errors"
for i in "${!calls[@]}"; do
  awk -v i="$i" -v label="${labels[$i]}" '
    function median(a, n,   j, k, t) {
      for (j = 2; j <= n; j++) { t = a[j]; for (k = j - 1; k >= 1 && a[k] > t; k--) a[k + 1] = a[k]; a[k + 1] = t }
      return n % 2 ? a[(n + 1) / 2] : (a[n / 2] + a[n / 2 + 1]) / 2
    }
    FILENAME ~ /quiet/ && $1 == i { if ($2 == "error") qe++; else q[++nq] = $2 * 1000 }
    FILENAME ~ /loaded/ && $1 == i {
      if ($2 == "error") le++; else { l[++nl] = $2 * 1000; if (l[nl] > worst) worst = l[nl] }
    }
    END {
      qm = median(q, nq); lm = median(l, nl); goal = 2 * qm + 50
      printf "%-32s %9.1f %9.1f %9.1f %6.2fx %9.1f %7d %s\n", label, qm, lm, worst, lm / qm, goal,
             qe + le, (worst <= goal && qe + le == 0) ? "" : "(over the goal)"
    }' "$data/readers-quiet.txt" "$data/readers-loaded.txt"
done
