#!/usr/bin/env bash
# bench/http.sh [rounds]
# Fetches 100 MB from a local nginx, in turn with curl --http1.0 and with the program's own HTTP client writing
# to a file. Prints the best and the middle time of each and their ratios (below 1: faster than curl). Does the
# same with a window open; there both count the transfer alone and not the start of the program. Then prints the
# processor share of a transfer that stalls.
set -euo pipefail
cd "$(dirname "$0")/.."
rounds=${1:-15}

cmake --preset release > /dev/null
cmake --build build/release --target bench_http bench_http_window > build/release/bench_http.log ||
  { cat build/release/bench_http.log; exit 1; }
bench=build/release/bench/bench_http

folder=$(mktemp -d)
. scripts/local-servers.sh
trap 'stop_servers; rm -rf "$folder"' EXIT
mkdir "$folder/www"
head -c 100000000 /dev/urandom > "$folder/www/file"
chmod -R a+rX "$folder"
start_nginx "$folder/nginx" "$folder/www"
url=http://127.0.0.1:$port/file

# microseconds COMMAND...: how long it takes
microseconds() {
  local start=${EPOCHREALTIME/./}
  "$@"
  echo $((${EPOCHREALTIME/./} - start))
}
fetch_curl() { curl --silent --http1.0 -o "$folder/by_curl" "$url"; }
fetch_own() { "$bench" get "$url" "$folder/by_own"; }
fetch_window() { QT_QPA_PLATFORM=offscreen "${bench}_window" "$url" "$folder/by_window"; }
curl_transfer() { curl --silent --http1.0 -o "$folder/by_curl" -w '%{time_total}\n' "$url"; }

fetch_curl; fetch_own; fetch_window > /dev/null
cmp "$folder/by_curl" "$folder/www/file"
cmp "$folder/by_own" "$folder/www/file"
cmp "$folder/by_window" "$folder/www/file"
for ((i = 0; i < rounds; ++i)); do
  microseconds fetch_curl >> "$folder/curl"
  microseconds fetch_own >> "$folder/own"
  curl_transfer >> "$folder/curl_transfer"
  fetch_window >> "$folder/window"
done
# compare WHAT OWN CURL FACTOR LIMIT: the files hold one time a line; FACTOR turns it into milliseconds.
compare() {
  paste <(sort -n "$2") <(sort -n "$3") | awk -v what="$1" -v factor="$4" -v limit="$5" -v rounds="$rounds" '
    NR == 1 || NR == int(rounds / 2) + 1 {
      printf "| %s, %s of %d | %.1f ms | curl --http1.0: %.1f ms | %.2f | <= %s |\n", what,
             NR == 1 ? "best" : "middle", rounds, $1 * factor, $2 * factor, $1 / $2, limit
    }'
}
compare "100 MB over HTTP to a file" "$folder/own" "$folder/curl" 0.001 1.0
compare "100 MB over HTTP to a file, with events and progress display of a window" \
  "$folder/window" "$folder/curl_transfer" 1000 1.3
stalled=$("$bench" stall 5000)
echo "stalled transfer: $stalled"
echo "| Processor during a stalled transfer | ${stalled%% *} % of one | - | - | < 2 % |"
