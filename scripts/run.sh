#!/usr/bin/env bash
# make run: serves the log center on a demo appliance root until Ctrl-C.
#   scripts/run.sh [BUILD_DIR]
# Environment:
#   HOST, PORT      where to listen (default 127.0.0.1 and 8080); LISTEN=ADDRESS:PORT sets both
#   DEMO_ROWS       system-log rows of the demo root (default 20000); a different number lays
#                   the root out again
#   QUOR_ADMIN_PASSWORD  sets (or resets) the administrator's password; without it a random
#                   one is made on the first run and printed once
# The demo root (BUILD_DIR/demo-root) is laid out by quor-logdemo and kept between runs;
# quor-logd writes the machine's journal into its system and connection logs.
set -euo pipefail
build=${1:-build}
src=$(cd "$(dirname "$0")/.." && pwd)
bin="$build/bin"
root="$(cd "$build" && pwd)/demo-root"
listen=${LISTEN:-${HOST:-127.0.0.1}:${PORT:-8080}}
rows=${DEMO_ROWS:-20000}
case "$rows" in
  '' | *[!0-9]*) echo "run.sh: DEMO_ROWS must be a number of rows, not '$rows'" >&2; exit 2 ;;
esac

if [ ! -f "$root/etc/quor.conf" ] || [ "$(cat "$root/.demo-rows" 2>/dev/null)" != "$rows" ]; then
  echo "Laying out the demo appliance root in $root ($rows system-log rows) ..."
  # The users and sessions of an earlier root are kept.
  rm -rf "$root/var/log" "$root/etc/quor.conf"
  "$bin/quor-logdemo" --root "$root" --rows "$rows"
  echo "$rows" > "$root/.demo-rows"
fi

users="$root/etc/quor-webapi/users"
if [ -n "${QUOR_ADMIN_PASSWORD:-}" ]; then
  printf '%s\n' "$QUOR_ADMIN_PASSWORD" | "$bin/quor-webapi" adduser --root "$root" admin --admin
  echo "Administrator: admin, password from QUOR_ADMIN_PASSWORD"
elif ! grep -q '^admin:' "$users" 2>/dev/null; then
  password=$(head -c 18 /dev/urandom | base64 | tr -d '/+=' | cut -c1-16)
  printf '%s\n' "$password" | "$bin/quor-webapi" adduser --root "$root" admin --admin
  echo "Administrator: admin, password: $password   (shown once)"
else
  echo "Administrator: admin (password unchanged)"
fi

# The log writer beside the server: it follows the machine's journal into the demo stores
# (and says once when the machine keeps none). It stops with the server.
"$bin/quor-logd" --root "$root" --journal &
logd=$!
trap 'kill $logd 2>/dev/null; wait $logd 2>/dev/null || true' EXIT

host=${listen%:*}
[ "$host" = 0.0.0.0 ] && host=$(hostname)
echo "Open http://$host:${listen##*:}/ - Ctrl-C stops the server and the log writer."
"$bin/quor-webapi" serve --root "$root" --listen "$listen" --ui "$src/ui"
