#!/usr/bin/env bash
# bench/decompress.sh [rounds]
# Decodes a synthetic picture of 25,354,344 bytes, noise and zeros of the same size, in turn with the program's
# decoders and with gzip -dc and bzip2 -dc. Prints the best time of each, the ratio (below 1: faster than the
# tool), the peak memory beyond input and output, and the speed of the .Z decoder inside a process.
set -euo pipefail
cd "$(dirname "$0")/.."
rounds=${1:-15}

cmake --preset release > /dev/null
cmake --build build/release --target bench_decompress skyreel_zcat write_pictures > build/release/bench_decompress.log ||
  { cat build/release/bench_decompress.log; exit 1; }
bench=build/release/bench

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
"$bench/write_pictures" "$folder"
for input in picture noise zeros; do
  compress -f -c "$folder/$input" > "$folder/$input.Z" || [ $? -eq 2 ]  # 2: it became larger
  "$bench/skyreel_zcat" "$folder/$input.Z" | cmp - "$folder/$input"
done
bzip2 -c "$folder/picture" > "$folder/picture.bz2"
"$bench/skyreel_zcat" "$folder/picture.bz2" | cmp - "$folder/picture"

# time_of FILE COMMAND... : the microseconds of the command, whose output goes to FILE.
time_of() {
  local out=$1 begin=${EPOCHREALTIME/./}
  shift
  "$@" > "$out"
  echo $((${EPOCHREALTIME/./} - begin))
}
best() { sort -n | head -n 1; }

# compare NAME TOOL FILE TARGET LIMIT: ours writes a target other than /dev/null itself. The target is new each
# time, like a fetched file: when a file is replaced, the file system waits for the disk.
compare() {
  local name=$1 tool=$2 file=$3 target=$4 limit=$5 ours=() theirs=() own=("$bench/skyreel_zcat" "$3") a b
  if [ "$target" != /dev/null ]; then own+=("$target"); fi
  for ((i = 0; i < rounds; ++i)); do
    rm -f "$folder/out"
    ours+=("$(time_of /dev/null "${own[@]}")")
    rm -f "$folder/out"
    theirs+=("$(time_of "$target" "$tool" -dc "$file")")
  done
  a=$(printf '%s\n' "${ours[@]}" | best)
  b=$(printf '%s\n' "${theirs[@]}" | best)
  awk -v name="$name" -v tool="$tool" -v limit="$limit" -v a="$a" -v b="$b" 'BEGIN {
    printf "| %s | %.1f ms | %s -dc: %.1f ms | %.2f | <= %s |\n", name, a / 1000, tool, b / 1000, a / b, limit }'
}

compare "picture.Z to /dev/null" gzip "$folder/picture.Z" /dev/null 0.25
compare "picture.Z to a file" gzip "$folder/picture.Z" "$folder/out" 0.33
compare "noise.Z to /dev/null" gzip "$folder/noise.Z" /dev/null 0.4
compare "zeros.Z to /dev/null" gzip "$folder/zeros.Z" /dev/null 0.4
compare "picture.bz2 to /dev/null" bzip2 "$folder/picture.bz2" /dev/null 1.05

# Compared with the same program when it decodes a single byte.
printf '\x1f\x9d\x90\x41\x00' > "$folder/tiny.Z"
peak() { "$bench/skyreel_zcat" --peak "$1" 2>&1 > /dev/null; }
used=$((($(peak "$folder/picture.Z") - $(peak "$folder/tiny.Z")) * 1024))
echo "| picture.Z, peak memory beyond input and output" \
  "| $(((used - $(stat -c '%s' "$folder/picture.Z") - 25354344) / 1024)) KiB | - | - | <= 2048 KiB |"

# Bytes of output for a second of processor time, the best of five. Run the rest of bench_decompress by hand.
"$bench/bench_decompress" --benchmark_filter=DecodeZ/picture --benchmark_repetitions=5 --benchmark_format=csv \
  2> /dev/null | awk -F, '$1 ~ /picture"?$/ && $5 == "ms" && $6 > best { best = $6 } END {
    printf "| picture.Z in process, best of 5 | %.0f MB/s | - | - | >= 800 MB/s |\n", best / 1e6 }'
