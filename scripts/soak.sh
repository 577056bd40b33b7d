#!/usr/bin/env bash
# make soak: the server's load test. Lays out a 1,000,000-row root once (BUILD/bench-data/soak),
# serves it with the default workers, and runs quor-soak against it (SOAK_SECONDS, default 30);
# then quor-logd's kill -9 run (scripts/logd_bench.sh kill).
set -euo pipefail
build=${1:-build}
bin="$build/bin"
root="$(cd "$build" && pwd)/bench-data/soak"
if [ ! -f "$root/etc/quor.conf" ]; then
  echo "Laying out $root (1,000,000 rows, once) ..."
  "$bin/quor-logdemo" --root "$root" --rows 1000000 >/dev/null
fi
printf 'soak-password\n' | "$bin/quor-webapi" adduser --root "$root" soak --admin >/dev/null
log="$root/server.log"
"$bin/quor-webapi" serve --root "$root" --listen 127.0.0.1:0 >"$log.out" 2>"$log" &
server=$!
trap 'kill $server 2>/dev/null; wait $server 2>/dev/null || true' EXIT
port=""
for _ in $(seq 100); do
  port=$(grep -o 'http://127.0.0.1:[0-9]*' "$log.out" 2>/dev/null | cut -d: -f3) && [ -n "$port" ] && break
  sleep 0.1
done
[ -n "$port" ] || { echo "the server did not start (see $log)"; exit 1; }
"$bin/quor-soak" "$port" soak soak-password "${SOAK_SECONDS:-30}"

echo "== quor-logd: kill -9 at random moments during a journal burst, exactly once"
"$(dirname "$0")/logd_bench.sh" "$build" kill
