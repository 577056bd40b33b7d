#!/usr/bin/env bash
# Fails when a tracked C++ file differs from what clang-format makes of it (.clang-format);
# `make format` rewrites them.
set -euo pipefail
cd "$(dirname "$0")/.."
mapfile -t files < <(git ls-files '*.cc' '*.h' '*.c')
if ! clang-format --dry-run --Werror "${files[@]}" 2>/tmp/quor-format.$$; then
  head -40 /tmp/quor-format.$$ >&2
  rm -f /tmp/quor-format.$$
  echo "check-format.sh: C++ not formatted; run make format" >&2
  exit 1
fi
rm -f /tmp/quor-format.$$
