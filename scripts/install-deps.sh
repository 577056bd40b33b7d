#!/usr/bin/env bash
# Installs the Debian packages the project builds, tests and runs with.
# Idempotent: installs only what is missing. As root it uses apt-get; otherwise
# it prints the exact install line and exits non-zero.
#   install-deps.sh            what building and running the server needs
#   install-deps.sh --test     also the unit-test framework and clang-format
#   install-deps.sh --browser  also Chromium, fonts and Node.js for the page's browser tests
#   install-deps.sh --bench    also the tools the benchmarks compare against
#   install-deps.sh --fuzz     also clang with libFuzzer and the sanitizers (make fuzz)
set -euo pipefail

packages=(build-essential cmake pkg-config ccache libjsoncpp-dev libicu-dev libboost-dev
          libsodium-dev libsystemd-dev libssl-dev curl)
for arg in "$@"; do
  case "$arg" in
    --test) packages+=(libgtest-dev libgmock-dev clang-format systemd-journal-remote) ;;
    --browser)
      packages+=(chromium fonts-noto-cjk sqlite3)
      # Node.js may come from elsewhere, bundling its own npm (which Debian's npm
      # package conflicts with): ask Debian only for what is missing.
      command -v node >/dev/null || packages+=(nodejs)
      command -v npm >/dev/null || packages+=(npm) ;;
    --bench) packages+=(libgtest-dev libbenchmark-dev wrk libsqlite3-dev rsyslog openssl) ;;
    --fuzz) packages+=(clang-14 libclang-rt-14-dev llvm-14) ;;
    *) echo "install-deps.sh: unknown option $arg" >&2; exit 2 ;;
  esac
done

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

line="apt-get install -y --no-install-recommends ${missing[*]}"
if [ "$(id -u)" -ne 0 ]; then
  echo "Missing packages. Install them as root with:" >&2
  echo "  sudo apt-get update && sudo $line" >&2
  exit 1
fi
echo "Installing: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
apt-get update -qq
$line
