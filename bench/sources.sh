#!/usr/bin/env bash
# bench/sources.sh [build folder, default build/release]
# How much processor time the sources take to find out what to fetch.
set -euo pipefail
bench=${1:-$(dirname "$0")/../build/release}/bench

times=$(mktemp)
trap 'rm -f "$times" "$times.log"' EXIT
measure() { # PROGRAM FILTER
  "$bench/$1" --benchmark_filter="$2" --benchmark_format=csv 2>"$times.log" >>"$times" ||
    { cat "$times.log" >&2; exit 1; }
}
# One by one: the library writes no CSV for benchmarks with different counters in one run.
measure bench_http_sources ArchiveWantedList
measure bench_http_sources GoesAllPresent
measure bench_order_page 'OrderPage'
measure bench_catalogue .
measure bench_coverage .

# Milliseconds of one benchmark: the fourth column is the processor time, the fifth its unit.
milliseconds() {
  awk -F, -v name="\"$1\"" '$1 == name && $5 == "ms" { print $4; found = 1 } END { exit !found }' "$times"
}
row() { # WHAT BENCHMARK LIMIT [BENCHMARK OF THE PLAIN WAY]
  local ours plain=
  ours=$(milliseconds "$2")
  if [ $# -gt 3 ]; then plain=$(milliseconds "$4"); fi
  awk -v what="$1" -v a="$ours" -v limit="$3" -v b="$plain" 'BEGIN {
    tool = b == "" ? "-" : sprintf("plain search: %.1f ms", b)
    ratio = b == "" ? "-" : sprintf("%.2f", a / b)
    printf "| %s | %.1f ms | %s | %s | < %s s |\n", what, a, tool, ratio, limit
  }'
}
row "Wanted list of 90 days for 70 items, old naming" BM_ArchiveWantedList/new:0 0.1
row "Wanted list of 90 days for 70 items, new naming" BM_ArchiveWantedList/new:1 0.1
row "GOES run over 90 days, all 77,760 files present" BM_GoesAllPresent/iterations:3 3
row "Order page of 20,000 links for 375 items, all wanted" BM_OrderPage/1 0.2 BM_OrderPagePlainSearch/1
row "Order page of 20,000 links for 375 items, 20 wanted" BM_OrderPage/1000 0.2 BM_OrderPagePlainSearch/1000
row "Plan of 90 days for a described source, all 129,600 files present" BM_PlanAllPresent 1
row "30 descriptions" BM_ReadDescriptions 0.003
row "Coverage of a year at 10 minutes, 52,560 files and as many of 473,040 rows of the journal" BM_CoverageOfAYear 0.5
row "Repaint of a coverage, 1600 x 1000 pixels, 10,080 cells" BM_RepaintCoverage/0 0.016
