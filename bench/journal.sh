#!/usr/bin/env bash
# Asks a journal of 1,000,000 files for a month, in turn with the sqlite3 tool and the same SQL, and prints the best
# time of each. The tool answers 101 times and once, and the difference counts: its start does not.
#   bench/journal.sh [<journal_bench of a release build>]
set -euo pipefail
bench=$(realpath "${1:-$(dirname "$0")/../build/release/bench/journal_bench}")
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

"$bench" "$folder/journal" make
month="at >= unixepoch('2026-11-01', '-30 days')"
columns="id, run, at, source, product, slot, address, path, bytes, seconds, outcome, reason, etag, last_modified"
rows="SELECT $columns FROM files WHERE $month"
newest="ORDER BY at DESC, id DESC LIMIT 500"

# compare NAME LABEL SQL : NAME is that of the question in journal_bench.
compare() {
  local tool
  tool=$(for _ in $(seq 9); do
    echo $((($(time_of 101 "$3") - $(time_of 1 "$3")) / 100))
  done | sort -n | head -n 1)
  "$bench" "$folder/journal" | awk -v name="$1" -v label="$2" -v tool="$tool" '$1 == name {
    printf "| Journal of 1,000,000 files: %s | %.2f ms | sqlite3: %.2f ms | %.2f | <= 20 ms |\n",
           label, $2 / 1000, tool / 1000, $2 / tool }'
}

# time_of TIMES SQL : the microseconds that the tool takes to answer so often.
time_of() {
  local begin=${EPOCHREALTIME/./}
  { echo ".output /dev/null"; for _ in $(seq "$1"); do echo "$2;"; done; } | sqlite3 "$folder/journal"
  echo $((${EPOCHREALTIME/./} - begin))
}

compare first "newest 500 of a month" "$rows $newest"
compare last "last 500 of a month" "$rows AND (at, id) <
  (SELECT at, id FROM files WHERE $month ORDER BY at, id LIMIT 1 OFFSET 500) $newest"
compare source "500 of one source in a month" "$rows AND source = 'org.example.source3' $newest"
compare missed "missed slots of a source in a month" "SELECT product, slot, count(*), max(at) FROM files
  WHERE outcome = 'missing' AND source = 'org.example.source3' AND slot >= unixepoch('2026-11-01', '-30 days')
  GROUP BY slot, product"
