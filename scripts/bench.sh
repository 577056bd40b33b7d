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
  QUOR_BENCH_ROOT="$root" "$bin" --benchmark_filter="^$name(/|\$)" --benchmark_format=csv \
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
# "sqlite3 -csv" writing the same rows; the *WriterOnly lines time the writers alone on
# records fetched beforehand.
section_export() {
  echo "== export: 1,000,000 system rows to /dev/null"
  local results
  results=$(for b in BM_Sqlite3Csv BM_ExportCsv BM_ExportHtml BM_CsvWriterOnly BM_HtmlWriterOnly; do
    run_bench "$data/export" "$b" rows_per_s peak_MB
  done)
  echo "$results" | awk '
    { rate[$1] = $2; peak[$1] = $3; order[NR] = $1 }
    END {
      ref = rate["BM_Sqlite3Csv"]
      printf "%-16s %14s %10s %16s\n", "benchmark", "rows/s", "peak MB", "vs sqlite3 -csv"
      for (i = 1; i <= NR; i++) {
        b = order[i]
        ratio = ref > 0 ? rate[b] / ref : 0
        printf "%-16s %14.0f %10.1f %15.2fx\n", b, rate[b], peak[b], ratio
      }
    }'
}

# The log sources on a 1,000,000-row system log (with connection and network-backup logs for the
# merged case) and a plain-text backup log of 500 MB, each beside its reference measured the same
# way: the sqlite3 shell running the same statements (paged select and count; the keyword
# condition as LIKE), and "tail -n 15000 FILE | grep -i KEYWORD | sort". The plain-text figures
# include the dispatcher's sort; "small" is the same on a 5 MB log, to show the cost does not
# follow the file's size.
section_sources() {
  echo "== sources: system log of 1,000,000 rows, plain-text log of 500 MB (ms per call)"
  echo "   (the first run lays out $data/sources, about 10 s)"
  local root="$data/sources" ours ref label o r
  printf "%-34s %10s %10s %8s  %s\n" "case" "ours" "reference" "ratio" "reference"
  while read -r ours ref label; do
    o=$(run_bench "$root" "Sources$ours/min_time:2.000/real_time" real_time | awk '{ print $2 }')
    r=$(run_bench "$root" "Sources$ref/min_time:2.000/real_time" real_time | awk '{ print $2 }')
    awk -v o="${o:-0}" -v r="${r:-0}" -v label="$label" -v ref="$ref" 'BEGIN {
      kind = "tail | grep -i | sort"
      if (ref ~ /^Sqlite3/) kind = "sqlite3 shell"
      ratio = 0
      if (r > 0) ratio = o / r
      printf "%-34s %10.2f %10.2f %7.2fx  %s\n", label, o, r, ratio, kind
    }'
  done <<'CASES'
SystemFirstPage Sqlite3FirstPage system: first page + count
SystemDeepPage Sqlite3DeepPage system: page at 500,000 + count
SystemKeyword Sqlite3Keyword system: keyword page + count
SystemMerged Sqlite3Merged three databases merged
ListFirstPage Sqlite3ListPage list call: defaults (100 rows)
ListKeyword Sqlite3ListKeyword list call: keyword
PlainTail500MB TailGrepSort500MB plain text, 500 MB, keyword
PlainTailSmall TailGrepSortSmall plain text, 5 MB, keyword
CASES
}

sections=(section_export section_sources)
for section in "${sections[@]}"; do
  "$section"
  echo
done
