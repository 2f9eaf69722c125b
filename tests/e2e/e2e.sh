#!/usr/bin/env bash
# e2e.sh SKYREEL ARCHIVE http | https | live | ftp PASSIVE: runs the program twice, as cron would, against Debian's nginx or
# vsftpd in a folder of its own, and compares what it leaves with what the server has. ARCHIVE makes the served
# files.
set -euo pipefail
skyreel=$1 archive=$2
shift 2
scripts=$(dirname "${BASH_SOURCE[0]}")/../../scripts
. "$scripts/program-settings.sh"
. "$scripts/local-servers.sh"
. "$scripts/certificates.sh"

place=$(mktemp -d)
archive_process=
trap '[ -z "$archive_process" ] || kill "$archive_process"; stop_servers; rm -rf "$place"' EXIT
root=$place/root whole=$place/whole out=$place/home/Skyreel log=$place/access.log
mkdir "$root" "$whole"
# vsftpd's sessions are another user's.
chmod 755 "$place" "$root"
today=$(date -u +%F) yesterday=$(date -u -d yesterday +%F) before=$(date -u -d "2 days ago" +%F)
ymd=${yesterday//-/} day=$yesterday

fail() {
  [ "$(date -u +%F)" = "$today" ] || { echo "skipped: midnight has passed"; exit 77; }
  echo "FAILED: $*" >&2
  cat "$place/output" >&2
  exit 1
}

serve() { "$archive" --now "$yesterday 23:59" --export "$root" "$1"; }

# expect hh:mm FOLDER NAME SERVER_PATH : the server has a file of $day, and the program files it so, unpacked.
expect() {
  local to="$whole/$2/${day//-//}/$3" from="$root/${4%%\?*}" unpack=cat
  serve "$4"
  case $4 in
    *.Z) unpack="gzip -dc" ;;
    *.bz2) unpack="bzip2 -dc" ;;
    # Where nginx looks for a query's value.
    *=*) mv "$from" "$root/abin/${4##*=}" && from=$root/abin/${4##*=} ;;
  esac
  mkdir -p "$(dirname "$to")"
  $unpack <"$from" >"$to"
  TZ=UTC touch -d "$day $1" "$to"
}

fetched() { grep -E "^GET .*(jpg|gif|tif|name=.*) 200$| c$" "$log"; }
times() { (cd "$1" && TZ=UTC find . -type f -printf '%P %TY-%Tm-%Td %TH:%TM\n' | sort); }

# run SWITCH... : everything has been fetched after it.
run() {
  run_program "$place" "$@" -CLOSE --json "$place/batch.json" >"$place/output" 2>&1 || fail "exit code $?"
  jsonschema -i "$place/batch.json" "$scripts/../docs/report.schema.json" >&2 || fail "another document"
  find "$out" -type d -empty -delete
  diff -r "$whole" "$out" >&2 || fail "other files (expected first)"
  diff <(times "$whole") <(times "$out") >&2 || fail "other times (expected <)"
  tr -d '\r' <"$place/bin/SkyreelReport.txt" >"$place/report"
  # A run without any line leaves the last report.
  [ ! -s "$place/output" ] || diff "$place/output" "$place/report" >&2 || fail "another report"
  grep -q '^Skyreel - V' <(tail -n 1 "$place/report") || fail "the report has no end"
}

# run_twice SWITCH... < settings : the second run fetches no file again.
run_twice() {
  install_program "$place" "$skyreel"
  point_at "$place" "${http_root:-http://127.0.0.1:$port}" "127.0.0.1:$port"
  set_values "$place"
  echo "ctot_12" >"$place/bin/EuArchive.txt"
  run "$@"
  fetched >"$place/fetched" || fail "the server's log is empty"
  run "$@"
  diff "$place/fetched" <(fetched) >&2 || fail "fetched again"
}

https() {
  make_self_signed "$place" ca
  make_certificate "$place" archive.test
  http_root=https://archive.test
  http "$(use_certificate "$place" archive.test)" ssl
}

http() { # [LINES FLAGS]: of a secure server
  echo "demo:{PLAIN}demo" >"$place/passwords"
  start_nginx "$place/nginx" "$root" "${1:-} access_log $log plain;
    location /abin/ {
      auth_basic archive; auth_basic_user_file $place/passwords;
      location = /abin/pdus { try_files /abin/\$arg_name =404; }
    }" "${2:-}"
  serve "/abin/filesorder?s=Date"
  expect 06:00 EumetsatArchive CTOT_12.jpg "/~idds/images/out/SDDI-$ymd-0600-BNW-08-VIS006-00-800.jpg"
  expect 18:00 Bracknell bracka_1800.gif /wz/pics/bracka.gif
  expect 12:00 GOES/goes-w/conus "${ymd:2}1200G15I01.tif" "/goeswest-lzw/conus/vis/${ymd:2}1200G15I01.tif"
  expect 12:00 PDUS "${ymd:2}1200AV.pdu" "/abin/pdus?name=PDUS${ymd:2}1200AV"
  run_twice -MSLP -EUAR -GOES -PDUS <<SETTINGS
CaFile="${1:+$place/ca.pem}"
HostOverrides="${1:+archive.test=127.0.0.1:$port}"
VisibleTabs="\"Weather data\",Eumetsat,GOES,PDUS"
MSLPsources="Bracknell"
EumetsatNewNaming=true
WantedEuArSectors="CTOT"
GsfcSectors="\"GOES-W conus vis\""
GsfcInterval=3
GOESDateInFolder=true
DundeePdusUsername=demo
DundeePdusPassword=">?75"
WantedPdusEurope="\"1200, Meteosat Europe, Visible\""
SETTINGS
}

# ends CODE ARGUMENT... : the program ends with this exit code.
ends() {
  local code=$1 got=0
  shift
  run_program "$place" "$@" >"$place/output" 2>&1 || got=$?
  [ "$got" -eq "$code" ] || fail "exit code $got instead of $code: $*"
}

# Described sources on the terminal, over HTTPS from the demo archive.
live() {
  "$archive" >"$place/ports" &
  archive_process=$!
  until grep -q '^ftp_port=' "$place/ports"; do sleep 0.05; done
  value() { sed -n "s/^$1=//p" "$place/ports"; }
  local at=127.0.0.1:$(value https_port) sources=$place/home/.local/share/Quenmoor/Skyreel/sources
  install_program "$place" "$skyreel"
  set_values "$place" <<SETTINGS
CaFile=$(value ca_file)
HostOverrides="charts.weather.example=$at,maps.weather.example=$at,pictures.weather.example=$at"
SETTINGS
  cp -r "$place/home/.config" "$place/config"
  mkdir -p "$sources"
  cp "$scripts"/../demo/sources/*.toml "$sources"
  echo 'format = 2' >"$sources/newer.toml"
  local ids=example.weather.analysis,example.weather.disc,example.weather.europe
  ends 0 --list-sources
  grep -q 'newer.toml:1:1: this file needs a newer Skyreel' "$place/output" || fail "a faulty description"
  ends 0 --run $ids --dry-run
  [ ! -e "$out/Live" ] || fail "a plan has fetched"
  ends 0 --run $ids --json "$place/batch.json"
  jsonschema -i "$place/batch.json" "$scripts/../docs/report.schema.json" >&2 || fail "another document"
  [ "$(find "$out/Live" -type f | wc -l)" -eq 5 ] || fail "other files"
  grep -q '^Batch: 5 new, ' "$place/bin/SkyreelReport.txt" || fail "another report"
  # A new slot may begin between two runs, but not twice.
  ends 0 --run $ids
  grep -q '^Batch: 0 new, 5 present, ' "$place/output" || ends 0 --run $ids
  grep -q '^Batch: 0 new, 5 present, ' "$place/output" || fail "fetched again"
  ends 0 --try-source example.weather.disc
  ends 1 --run nobody,example.weather.disc
  ends 1 --check-source "$sources/newer.toml"
  ends 0 --check-source "$sources/disc.toml"
  sed 's/^min_size.*/min_size = "9MB"/' "$sources/disc.toml" >"$sources/large.toml"
  ends 3 --try-source "$sources/large.toml"
  sed 's/pictures.weather/nowhere.weather/' "$sources/disc.toml" >"$sources/away.toml"
  ends 4 --try-source "$sources/away.toml"
  ends 0 --animate example.weather.disc --output "$place/disc.mp4"
  [[ $(ffprobe -v error -show_entries stream=codec_name -of csv "$place/disc.mp4") == stream,h264 ]] ||
    fail "no animation"
  diff -r "$place/config" "$place/home/.config" >&2 || fail "the settings were written"
}

ftp() { # passive: true or false
  [ "$(id -u)" -eq 0 ] || { echo "skipped: vsftpd needs root"; exit 77; }
  start_vsftpd "$place/vsftpd" "$root" "$log"
  local area=ME7-${ymd}1200.ir1.ara data=FES_${before}_1200_M7_IR
  expect 12:00 MSFC "$area" "/Weather/METEOSAT-7/McIDAS_areas/ir1/5km/$area.Z"
  day=$before
  expect 12:00 EumetsatArchiveDirect "$data.OPEN_MTP" "/M7/$data.OPEN_MTP.bz2"
  run_twice -EUAD -MSFC <<SETTINGS
MSFCchannel="IR"
MSFCslots="1200"
MSFCUncompres=true
MSFCpassive=$1
EuDAUsername=anonymous
EuDAPassword=guest
EuDASatellites="M7"
EuDAChannel="IR"
EuDAFormats="OPEN_MTP.bz2"
EuDAmet7start=23
EuDAmet7interval=6
EuDAUncompres=true
EuDA%20passive=$1
SETTINGS
}

"$@"
