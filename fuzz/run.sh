#!/usr/bin/env bash
# Runs every libFuzzer target of a fuzz build for a given time each (make fuzz).
#   fuzz/run.sh BUILD_DIR SECONDS
# Each target starts from its seed corpus fuzz/corpus/NAME (never written to) and keeps what
# it finds in BUILD_DIR/fuzz-corpus/NAME; a crash or sanitizer report leaves its input in
# BUILD_DIR/fuzz-artifacts/ and makes the run fail.
set -euo pipefail
build=${1:?build dir}
seconds=${2:-60}
src=$(cd "$(dirname "$0")" && pwd)
status=0
for target in "$build"/fuzz/*_fuzz; do
  name=$(basename "$target")
  work="$build/fuzz-corpus/$name"
  artifacts="$build/fuzz-artifacts/"
  mkdir -p "$work" "$artifacts"
  echo "== $name for ${seconds}s"
  if ! "$target" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 \
       -artifact_prefix="$artifacts" "$work" "$src/corpus/$name" 2>"$build/$name.log"; then
    status=1
    echo "$name: FAILED (see $build/$name.log and $artifacts)"
  fi
  grep -E '^(stat::number_of_executed_units|stat::peak_rss_mb|#[0-9]+ +DONE)' "$build/$name.log" || true
  grep -m1 -E 'ERROR: (AddressSanitizer|libFuzzer)|runtime error:' "$build/$name.log" || true
done
exit $status
