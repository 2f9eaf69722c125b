#!/usr/bin/env bash
# bench/pictures.sh [rounds]
# Loads a JPEG of 10848 x 10848 pixels for a view of 1356 x 1356 in turn with djpeg, which reduces it to the same
# size; and makes the thumbnails of 144 JPEG pictures of 1600 x 1200 in turn with vipsthumbnail, each in one process
# and into an empty folder. Prints the best time of each, and the peak of the memory.
set -euo pipefail
cd "$(dirname "$0")/.."
rounds=${1:-7}

cmake --preset release > /dev/null
cmake --build build/release --target picture_bench > build/release/bench_pictures.log ||
  { cat build/release/bench_pictures.log; exit 1; }
bench=$PWD/build/release/bench/picture_bench

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder"
"$bench" large large.jpg
for i in $(seq 0 143); do
  vips crop large.jpg "$i.jpg" $((i % 12 * 800)) $((i / 12 * 800)) 1600 1200
done

# time_of COMMAND... : its milliseconds. Ours measures itself: the program that shows pictures has started before.
time_of() {
  local begin=${EPOCHREALTIME/./}
  "$@" > /dev/null 2>&1
  echo $(((${EPOCHREALTIME/./} - begin) / 1000))
}
best() { sort -n | head -n 1; }

ours=() theirs=()
for ((i = 0; i < rounds; ++i)); do
  ours+=("$("$bench" scale large.jpg 1356 2> /dev/null | cut -d . -f 1)")
  theirs+=("$(time_of djpeg -scale 1/8 large.jpg)")
done
a=$(printf '%s\n' "${ours[@]}" | best)
b=$(printf '%s\n' "${theirs[@]}" | best)
echo "$a $b" | awk '{ printf "| JPEG of 10848 x 10848 scaled to 1356 x 1356 | %d ms | djpeg -scale 1/8: %d ms | %.2f | <= 1.2, <= 250 ms |\n", $1, $2, $1 / $2 }'
peak=$("$bench" scale large.jpg 1356 2> /dev/null | cut -d ' ' -f 2)
echo "| the same, peak memory of the process | $((peak / 1024)) MiB | - | - | <= 60 MB |"

ours=() theirs=()
for ((i = 0; i < rounds; ++i)); do
  rm -rf ours theirs
  mkdir theirs
  ours+=("$("$bench" thumbnails ours [0-9]*.jpg | cut -d . -f 1)")
  theirs+=("$(time_of vipsthumbnail -s 128 -o "$folder/theirs/%s.png" [0-9]*.jpg)")
done
a=$(printf '%s\n' "${ours[@]}" | best)
b=$(printf '%s\n' "${theirs[@]}" | best)
echo "$a $b" | awk '{ printf "| 144 thumbnails of 1600 x 1200 JPEG pictures | %d ms | vipsthumbnail: %d ms | %.2f | <= 1.5 |\n", $1, $2, $1 / $2 }'
