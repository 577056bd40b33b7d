#!/usr/bin/env bash
# make bench: runs the benchmark sections of log_bench and prints each figure beside the
# reference it is compared with, measured in the same run. Add a section as a function named
# section_<name> and list it in "sections" at the end.
set -euo pipefail
build=${1:-build}
bin="$build/bin/log_bench"
data="$(cd "$build" && pwd)/bench-data"  # generated logs, kept between runs
mkdir -p "$data"

# Runs one benchmark (an exact name) in a process of its own, so that its peak memory is its
# own, on the appliance root ROOT (made by the benchmark when missing), and prints
# "name value-of-counter..." for the counters asked.
#   run_bench ROOT NAME COUNTER...
run_bench() {
  local root=$1 name=$2
  shift 2
  QUOR_BENCH_ROOT="$root" "$bin" --benchmark_filter="^$name\$" --benchmark_format=csv \
    2>/dev/null |
    awk -F, -v want="$*" -v name="$name" '
      NR == 1 { for (i = 1; i <= NF; i++) { gsub(/"/, "", $i); col[$i] = i } ; next }
      $1 ~ name {
        n = split(want, w, " "); line = name
        for (i = 1; i <= n; i++) line = line " " $(col[w[i]])
        print line
      }'
}

# Export of 1,000,000 system rows (CSV and HTML through the export method) against
# "sqlite3 -csv" writing the same rows.
section_export() {
  echo "== export: 1,000,000 system rows to /dev/null"
  local results
  results=$(for b in BM_Sqlite3Csv BM_ExportCsv BM_ExportHtml; do
    run_bench "$data/export" "$b" rows_per_s peak_MB
  done)
  echo "$results" | awk '
    { rate[$1] = $2; peak[$1] = $3; order[NR] = $1 }
    END {
      ref = rate["BM_Sqlite3Csv"]
      printf "%-16s %14s %10s %16s\n", "benchmark", "rows/s", "peak MB", "vs sqlite3 -csv"
      for (i = 1; i <= NR; i++) {
        b = order[i]
        printf "%-16s %14.0f %10.1f %15.2fx\n", b, rate[b], peak[b], ref > 0 ? rate[b] / ref : 0
      }
    }'
}

sections=(section_export)
for section in "${sections[@]}"; do
  "$section"
  echo
done
