#!/usr/bin/env bash
# 2,000 files of 20 KB from one nginx on 127.0.0.1: the program's own fetch against
# wget --no-http-keep-alive, fifteen rounds of each in turn. Prints both medians and their ratio, and what 5,000
# files add to the memory. All files are in memory (tmpfs): on ext4 the creation of a file takes from 0.1 to 1.2 ms,
# by the number of files deleted lately, and hides all else.
#   bench/fetch_many.sh [<fetch_many of a release build>]
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
fetch_many=$(realpath "${1:-$here/../build/release/bench/fetch_many}")
count=2000
if [ -z "${TMPDIR:-}" ] && [ -w /dev/shm ]; then export TMPDIR=/dev/shm; fi
work=$(mktemp -d)
nginx_pid=
cleanup() {
  if [ -n "$nginx_pid" ]; then kill "$nginx_pid" 2>/dev/null || true; wait "$nginx_pid" 2>/dev/null || true; fi
  rm -rf "$work"
}
trap cleanup EXIT

mkdir "$work/www" "$work/nginx"
many=5000
for ((i = 0; i < many; i++)); do head -c 20480 /dev/urandom > "$work/www/$i.jpg"; done
chmod 755 "$work" "$work/www"

start_nginx() { # <port>
  cat > "$work/nginx.conf" <<CONF
daemon off;
worker_processes 1;
pid $work/nginx/pid;
error_log $work/nginx/error.log;
events { worker_connections 512; }
http {
  access_log off;
  sendfile on;
  client_body_temp_path $work/nginx/body;
  proxy_temp_path $work/nginx/proxy;
  fastcgi_temp_path $work/nginx/fastcgi;
  uwsgi_temp_path $work/nginx/uwsgi;
  scgi_temp_path $work/nginx/scgi;
  server { listen 127.0.0.1:$1; root $work/www; }
}
CONF
  nginx -p "$work/nginx" -c "$work/nginx.conf" 2>/dev/null &
  nginx_pid=$!
  for _ in {1..50}; do
    kill -0 "$nginx_pid" 2>/dev/null || return 1
    wget -q -O /dev/null "http://127.0.0.1:$1/0.jpg" 2>/dev/null && return 0
    sleep 0.1
  done
  return 1
}
# nginx cannot be told to take any free port.
for _ in {1..10}; do
  port=$((20000 + RANDOM % 20000))
  start_nginx "$port" && break
  nginx_pid=
done
[ -n "$nginx_pid" ] || { echo "nginx does not start" >&2; exit 1; }
root="http://127.0.0.1:$port"
for ((i = 0; i < count; i++)); do echo "$root/$i.jpg"; done > "$work/list"

# A new folder each time, and nothing deleted before the end.
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
