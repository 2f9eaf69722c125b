#!/usr/bin/env bash
# 2,000 files of 20 KB from one nginx on 127.0.0.1: the program's own fetch against wget --no-http-keep-alive,
# fifteen rounds of each in turn. Prints both medians and their ratio, and what 5,000 files add to the memory.
# All files are in memory (tmpfs): on ext4 it takes from 0.1 to 1.2 ms to create a file, depending on how many
# were deleted lately, and that would hide everything else.
#   bench/fetch_many.sh [<fetch_many of a release build>]
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
fetch_many=$(realpath "${1:-$here/../build/release/bench/fetch_many}")
count=2000
if [ -z "${TMPDIR:-}" ] && [ -w /dev/shm ]; then export TMPDIR=/dev/shm; fi
work=$(mktemp -d)
. "$here/../scripts/local-servers.sh"
trap 'stop_servers; rm -rf "$work"' EXIT

mkdir "$work/www"
many=5000
for ((i = 0; i < many; i++)); do head -c 20480 /dev/urandom > "$work/www/$i.jpg"; done
chmod 755 "$work" "$work/www"

start_nginx "$work/nginx" "$work/www"
root="http://127.0.0.1:$port"
for ((i = 0; i < count; i++)); do echo "$root/$i.jpg"; done > "$work/list"

# Each round gets a new folder; nothing is deleted before the end.
folders=0
fresh() { out=$work/out$((++folders)); mkdir "$out"; }
elapsed() { awk -v a="$1" -v b="$EPOCHREALTIME" 'BEGIN { printf "%.3f\n", b - a }'; }
for _ in {1..15}; do
  fresh
  begin=$EPOCHREALTIME
  (cd "$out" && wget -q --no-http-keep-alive -i "$work/list")
  elapsed "$begin" >> "$work/wget"
  fresh
  begin=$EPOCHREALTIME
  "$fetch_many" "$root" "$count" "$out" > /dev/null
  elapsed "$begin" >> "$work/own"
  cmp -s "$work/www/$((count - 1)).jpg" "$out/$((count - 1)).jpg" || { echo "files differ" >&2; exit 1; }
done
median() { sort -n "$1" | sed -n 8p; }
own=$(median "$work/own")
wget=$(median "$work/wget")
awk -v count="$count" -v a="$own" -v b="$wget" 'BEGIN {
  printf "| %d files of 20 KB over HTTP, middle of 15 | %.2f s | wget --no-http-keep-alive: %.2f s | %.2f | <= 0.9 |\n",
         count, a, b, a / b
}'

fresh
grown=$("$fetch_many" "$root" "$many" "$out" | tail -n 1)
echo "| Memory grown from the 1,000th to the last of $many files over HTTP | $grown KiB | - | - | flat |"
