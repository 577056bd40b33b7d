#!/usr/bin/env bash
# make run: serves the log center on a demo appliance root until Ctrl-C.
#   scripts/run.sh [BUILD_DIR]
# The demo root (BUILD_DIR/demo-root) is laid out by quor-logdemo once and kept between runs.
# The administrator "admin" is created with a random password printed once, or with the
# password in QUOR_ADMIN_PASSWORD (which also resets it on later runs). PORT changes the port.
set -euo pipefail
build=${1:-build}
src=$(cd "$(dirname "$0")/.." && pwd)
bin="$build/bin"
root="$(cd "$build" && pwd)/demo-root"
port=${PORT:-8080}

if [ ! -f "$root/etc/quor.conf" ]; then
  echo "Laying out the demo appliance root in $root ..."
  "$bin/quor-logdemo" --root "$root"
fi

users="$root/etc/quor-webapi/users"
if [ -n "${QUOR_ADMIN_PASSWORD:-}" ]; then
  printf '%s\n' "$QUOR_ADMIN_PASSWORD" | "$bin/quor-webapi" adduser --root "$root" admin --admin
  echo "Administrator: admin, password from QUOR_ADMIN_PASSWORD"
elif ! grep -q '^admin:' "$users" 2>/dev/null; then
  password=$(head -c 18 /dev/urandom | base64 | tr -d '/+=' | cut -c1-16)
  printf '%s\n' "$password" | "$bin/quor-webapi" adduser --root "$root" admin --admin
  echo "Administrator: admin, password: $password   (shown once; QUOR_ADMIN_PASSWORD sets one)"
else
  echo "Administrator: admin (password unchanged; QUOR_ADMIN_PASSWORD sets a new one)"
fi

echo "Open http://127.0.0.1:$port/ - Ctrl-C stops the server."
exec "$bin/quor-webapi" serve --root "$root" --listen "127.0.0.1:$port" --ui "$src/ui"
