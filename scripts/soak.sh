#!/usr/bin/env bash
# make soak: the server's load test. Lays out a 1,000,000-row root once (BUILD/bench-data/soak),
# serves it with the default workers and runs quor-soak against it (SOAK_SECONDS, default 30);
# then serves it again with one download slot for the sequential-download figure; then
# quor-logd's kill -9 run (scripts/logd_bench.sh kill).
# SOAK_REFERENCE=PATH/quor-webapi runs the same first, against another build of the server (an
# earlier one), so that both sets of figures come from one run.
set -euo pipefail
build=${1:-build}
bin="$build/bin"
root="$(cd "$build" && pwd)/bench-data/soak"
if [ ! -f "$root/etc/quor.conf" ]; then
  echo "Laying out $root (1,000,000 rows, once) ..."
  "$bin/quor-logdemo" --root "$root" --rows 1000000 >/dev/null
fi
for user in soak soak2; do
  printf 'soak-password\n' | "$bin/quor-webapi" adduser --root "$root" "$user" --admin >/dev/null
done
log="$root/server.log"
server=""
trap '[ -z "$server" ] || { kill $server 2>/dev/null; wait $server 2>/dev/null || true; }' EXIT

# Starts the server with extra options; sets server and port.
serve() {
  "$webapi" serve --root "$root" --listen 127.0.0.1:0 "$@" >"$log.out" 2>"$log" &
  server=$!
  port=""
  for _ in $(seq 100); do
    port=$(grep -o 'http://127.0.0.1:[0-9]*' "$log.out" 2>/dev/null | cut -d: -f3) && [ -n "$port" ] && break
    sleep 0.1
  done
  [ -n "$port" ] || { echo "the server did not start (see $log)"; exit 1; }
}
stop() {
  kill "$server"
  wait "$server" 2>/dev/null || true
  server=""
}

status=0
for webapi in ${SOAK_REFERENCE:-} "$bin/quor-webapi"; do
  echo "== $webapi"
  serve
  "$bin/quor-soak" "$port" "$server" "${SOAK_SECONDS:-30}" || status=1
  stop
  serve --max-downloads 1
  "$bin/quor-soak" --sequential "$port" 40 || status=1
  stop
done

echo "== quor-logd: kill -9 at random moments during a journal burst, exactly once"
"$(dirname "$0")/logd_bench.sh" "$build" kill || status=1
exit $status
