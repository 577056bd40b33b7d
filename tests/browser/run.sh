#!/usr/bin/env bash
# Runs the page's browser tests against the build in $1: installs
# playwright-core from the lock file when it is missing, then node's test
# runner, one test file at a time (each starts its own server and Chromium).
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
build=$(cd "${1:?usage: run.sh BUILD_DIR}" && pwd)
if [ ! -d "$here/node_modules/playwright-core" ]; then
  (cd "$here" && npm ci --no-audit --no-fund --loglevel=error)
fi
export QUOR_BUILD_DIR="$build"
export QUOR_SOURCE_DIR
QUOR_SOURCE_DIR=$(cd "$here/../.." && pwd)
cd "$here"
exec node --test --test-concurrency=1 ./*.test.js
