#!/usr/bin/env bash
# Compares the FTP client with curl on the same vsftpd: one file of 100 MB, and 500 files of 20 KB over one
# session, passive and active. Prints the best of several rounds, which alternate between the two.
#   bench/ftp.sh [<ftp_get of a release build>] [rounds]
# All files are in memory (tmpfs), where creating a file always takes the same time. Needs vsftpd and curl, and
# must be run as root (vsftpd changes its user).
set -euo pipefail

get=$(realpath "${1:-$(dirname "$0")/../build/release/bench/ftp_get}")
rounds=${2:-5}
if [ -z "${TMPDIR:-}" ] && [ -w /dev/shm ]; then export TMPDIR=/dev/shm; fi
work=$(mktemp -d)
. "$(dirname "$0")/../scripts/local-servers.sh"
trap 'stop_servers; rm -rf "$work"' EXIT

mkdir "$work/www" "$work/out"
chmod 755 "$work" "$work/www"
head -c 100000000 /dev/urandom >"$work/www/large"
names=()
for n in $(seq 500); do
  names+=("small$n")
  head -c 20000 /dev/urandom >"$work/www/small$n"
done

start_vsftpd "$work/vsftpd" "$work/www"

# curl's list of transfers, all over one connection.
for name in "${names[@]}"; do
  printf 'url = "ftp://127.0.0.1:%s/%s"\noutput = "%s"\n' "$port" "$name" "$work/out/$name"
done >"$work/small.curl"
printf 'url = "ftp://127.0.0.1:%s/large"\noutput = "%s"\n' "$port" "$work/out/large" >"$work/large.curl"

# Seconds that the command takes.
seconds() {
  local begin end
  begin=$(date +%s%N)
  "$@" || { echo "failed: $1" >&2; exit 1; }
  end=$(date +%s%N)
  echo "$((end - begin))" | awk '{ printf "%.3f\n", $1 / 1e9 }'
}

for what in large small; do
  if [ $what = large ]; then list=(large); else list=("${names[@]}"); fi
  for mode in passive active; do
    if [ $mode = active ]; then port_option=(--ftp-port -); else port_option=(); fi
    : >"$work/ours" >"$work/curls"
    for _ in $(seq "$rounds"); do
      rm -f "$work"/out/*
      seconds "$get" "127.0.0.1:$port" $mode "$work/out" "${list[@]}" >>"$work/ours"
      for name in "${list[@]}"; do cmp -s "$work/www/$name" "$work/out/$name"; done
      rm -f "$work"/out/*
      seconds curl -s "${port_option[@]}" -K "$work/$what.curl" >>"$work/curls"
    done
    ours=$(sort -n "$work/ours" | head -1)
    curls=$(sort -n "$work/curls" | head -1)
    label=$([ $what = large ] && echo "100 MB over FTP" || echo "500 files of 20 KB in one FTP session")
    awk -v l="$label, $mode, best of $rounds" -v o="$ours" -v c="$curls" \
      'BEGIN { printf "| %s | %.3f s | curl: %.3f s | %.2f | <= 1.0 |\n", l, o, c, o / c }'
  done
done
