#!/usr/bin/env bash
# How long the program takes to its first paint and how much memory it holds when idle, compared with an empty Qt
# main window with a tab bar. Runs both in turn under Xvfb and prints medians. Then the same for 500 sources of the
# page Live.
#
#   bench/startup.sh [build folder, default build/release] [runs, default 9]
set -eu
build=${1:-$(dirname "$0")/../build/release}
runs=${2:-9}
program=$build/bench/bench_startup
[ -x "$program" ] || { echo "build bench_startup first: cmake --build $build --target bench_startup" >&2; exit 1; }
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

if [ -z "${DISPLAY:-}" ]; then
  exec xvfb-run -a -s '-screen 0 1024x768x24' "$0" "$build" "$runs"
fi

median() { sort -n | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }

for _ in $(seq "$runs"); do
  for mode in empty form; do
    begin=$(date +%s%N)
    { read -r painted; read -r memory; } < <("$program" "$mode" "$folder" 2>/dev/null)
    echo $(((painted - begin) / 1000)) >>"$folder/$mode.time"
    echo "$memory" >>"$folder/$mode.memory"
  done
done

awk -v a="$(median <"$folder/form.time")" -v b="$(median <"$folder/empty.time")" \
    -v c="$(median <"$folder/form.memory")" -v d="$(median <"$folder/empty.memory")" -v runs="$runs" 'BEGIN {
  printf "| First paint, middle of %d | %.0f ms | empty Qt window: %.0f ms | %.2f | <= 1.8 |\n",
         runs, a / 1000, b / 1000, a / b
  printf "| Memory when idle (proportional set) | %.1f MiB | empty Qt window: %.1f MiB | +%.1f MiB | <= +12 MB |\n",
         c / 1024, d / 1024, (c - d) / 1024
}'

mkdir "$folder/sources"
read -r sources read show search < <("$program" tree "$folder/sources" 2>/dev/null)
echo "| Reading $sources descriptions in the background, middle of 9 | $read ms | - | - | - |"
echo "| Showing $sources sources with their health | $show ms | - | - | <= 50 ms |"
echo "| Searching $sources sources, the slowest of 7 texts | $search ms | - | - | <= 10 ms |"
