#!/usr/bin/env bash
# bench/animation.sh [rounds]
# Saves an MP4 of 144 JPEGs of 1808 x 1808 pixels with the program and with ffmpeg alone, in turn, with the same
# encoder settings. Prints the middle of the rounds, and how fast and in how much memory the same pictures are
# decoded for a view.
set -euo pipefail
cd "$(dirname "$0")/.."
rounds=${1:-3}

cmake --preset release > /dev/null
cmake --build build/release --target write_frames animation_bench Skyreel > build/release/bench_animation.log ||
  { cat build/release/bench_animation.log; exit 1; }
bench=build/release/bench

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
export XDG_STATE_HOME=$folder/state XDG_CONFIG_HOME=$folder/config
journal=$XDG_STATE_HOME/Quenmoor/Skyreel
mkdir -p "$journal" "$folder/frames"
"$bench/write_frames" "$folder/frames" 144 1808 "$journal/Journal.sqlite"

# time_of COMMAND... : the milliseconds of the command.
time_of() {
  local begin=${EPOCHREALTIME/./}
  "$@" > /dev/null
  echo $(((${EPOCHREALTIME/./} - begin) / 1000))
}
middle() { sort -n | sed -n "$(((rounds + 1) / 2))p"; }

ours=() theirs=()
for ((i = 0; i < rounds; ++i)); do
  ours+=("$(time_of build/release/src/app/Skyreel --animate clouds --fps 12 --size 1808 \
    --output "$folder/ours.mp4")")
  theirs+=("$(time_of ffmpeg -loglevel error -nostdin -y -framerate 12 -i "$folder/frames/%04d.jpg" \
    -c:v libx264 -crf 20 -pix_fmt yuv420p -movflags +faststart "$folder/theirs.mp4")")
done
a=$(printf '%s\n' "${ours[@]}" | middle)
b=$(printf '%s\n' "${theirs[@]}" | middle)
awk -v a="$a" -v b="$b" -v rounds="$rounds" 'BEGIN {
  printf "| MP4 of 144 JPEGs of 1808 x 1808, middle of %d | %.1f s | ffmpeg alone: %.1f s | %.2f | <= 1.2 |\n",
    rounds, a / 1000, b / 1000, a / b }'

read -r speed peak < <("$bench/animation_bench" "$folder/frames" 900)
echo "| 144 JPEGs of 1808 x 1808 decoded for a view of 900 x 900 | $speed a second | - | - | >= 24 a second |"
echo "| Peak memory of that | $((peak / 1000000)) MB | - | - | <= 400 MB |"
