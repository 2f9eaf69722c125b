#!/usr/bin/env bash
# bench/https.sh [rounds]
# The fetch queue against curl, from a local nginx with HTTP/2: 100 MB to a file, 500 files of 20 KB of one host,
# 256 tiles side by side, and six hosts that give 1 MB/s each against the slowest alone. Both write to memory
# (tmpfs). The times are those of whole processes, the middle of all rounds.
set -euo pipefail
cd "$(dirname "$0")/.."
rounds=${1:-15}

cmake --preset release > /dev/null
cmake --build build/release --target https_bench > build/release/https_bench.log ||
  { cat build/release/https_bench.log; exit 1; }
bench=$PWD/build/release/bench/https_bench

if [ -z "${TMPDIR:-}" ] && [ -w /dev/shm ]; then export TMPDIR=/dev/shm; fi
folder=$(mktemp -d)
. scripts/local-servers.sh
. scripts/certificates.sh
trap 'stop_servers; rm -rf "$folder"' EXIT
make_self_signed "$folder" ca
make_certificate "$folder" "*.bench.test"
# Both trust the system's authorities, too: it takes about 25 ms to read them.
cat "$folder/ca.pem" /etc/ssl/certs/ca-certificates.crt > "$folder/all.pem"
mkdir "$folder/www"
head -c 100000000 /dev/urandom > "$folder/www/large"
head -c 3000000 /dev/urandom > "$folder/www/slow"
for ((i = 0; i < 500; ++i)); do head -c 20480 /dev/urandom > "$folder/www/$i"; done
chmod -R a+rX "$folder"
start_nginx "$folder/nginx" "$folder/www" "$(use_certificate "$folder" "*.bench.test")
  keepalive_requests 10000; http2_max_concurrent_streams 128; location /slow { limit_rate 1000k; }" "ssl http2"
hosts=
for n in {0..5}; do hosts+="h$n.bench.test=127.0.0.1:$port,"; done

# list NAME URL... : NAME.urls for us, NAME.curl for curl.
list() {
  local name=$1 n=0 url
  shift
  for url in "$@"; do
    echo "$url" >> "$folder/$name.urls"
    printf 'url = "%s"\noutput = "%s"\n' "$url" "$folder/out/$((n++))" >> "$folder/$name.curl"
  done
}
list large https://h0.bench.test/large
mapfile -t urls < <(printf 'https://h0.bench.test/%d\n' {0..499})
list many "${urls[@]}"
list tiles "${urls[@]:0:256}"
list alone https://h0.bench.test/slow
list side https://h{0..5}.bench.test/slow

own() { "$bench" "$folder/ca.pem" "${hosts%,}" "$folder/out" ${2:-} < "$folder/$1.urls"; }
by_curl() { curl --silent --cacert "$folder/all.pem" --connect-to "h0.bench.test:443:127.0.0.1:$port" -K "$folder/$1.curl" ${2:-} 2> /dev/null; }
# timed FILE COMMAND... : adds the milliseconds that it takes to the file.
timed() {
  local file=$1 start
  shift
  rm -rf "$folder/out"
  mkdir "$folder/out"
  start=${EPOCHREALTIME/./}
  "$@"
  echo $(((${EPOCHREALTIME/./} - start) / 1000)) >> "$folder/$file"
}
middle() { sort -n "$folder/$1" | sed -n "$(($(wc -l < "$folder/$1") / 2 + 1))p"; }
# row WHAT OWN TOOL TOOL_FILE LIMIT
row() {
  awk -v what="$1" -v a="$(middle "$2")" -v tool="$3" -v b="$(middle "$4")" -v limit="$5" 'BEGIN {
    printf "| %s | %d ms | %s: %d ms | %.2f | <= %s |\n", what, a, tool, b, a / b, limit }'
}

for ((i = 0; i < rounds; ++i)); do
  timed large.own own large
  cmp "$folder/out/0" "$folder/www/large"
  timed large.tool by_curl large
  timed many.own own many
  cmp "$folder/out/499" "$folder/www/499"
  timed many.tool by_curl many
  timed tiles.own own tiles group
  cmp "$folder/out/255" "$folder/www/255"
  timed tiles.tool by_curl tiles -Z
done
for i in 1 2 3; do
  timed side.own own side
  timed alone.own own alone
done
row "100 MB over HTTPS to a file, middle of $rounds" large.own curl large.tool 1.05
row "500 files of 20 KB from one secure host" many.own "one curl process" many.tool 1.2
row "256 tiles of 20 KB over HTTP/2" tiles.own "curl -Z" tiles.tool 1.1
row "3 MB from each of 6 hosts that give 1 MB/s, middle of 3" side.own "one of them alone" alone.own 1.15
