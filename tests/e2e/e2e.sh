#!/usr/bin/env bash
# e2e.sh CASE SKYREEL ARCHIVE: runs the program against real servers in a folder of its own and looks at what
# it leaves: the files with their times, the report, the exit code, and what a second run asks for.
# ARCHIVE makes the served files.
set -euo pipefail
case_name=$1 skyreel=$2 archive=$3
. "$(dirname "${BASH_SOURCE[0]}")/../../scripts/program-settings.sh"

place=$(mktemp -d)
www=$place/www ftp=$place/ftp out=$place/home/Skyreel log=$place/access.log
mkdir -p "$www" "$ftp" "$place/empty"
# nginx's workers, which root's nginx runs as another user, read them.
chmod 755 "$place" "$www" "$ftp"
servers=()
cleanup() {
  [ ${#servers[@]} -eq 0 ] || kill "${servers[@]}" 2>/dev/null || true
  wait
  rm -rf "$place"
}
trap cleanup EXIT

fail() {
  # A case that midnight passed through is run again.
  if [ "$(date -u +%F)" != "$today" ]; then
    cleanup
    exec "$0" "$case_name" "$skyreel" "$archive"
  fi
  echo "FAILED: $*" >&2
  echo "--- output of the last run" >&2
  cat "$place/output" >&2 || true
  exit 1
}

is_open() { (exec 3<>"/dev/tcp/127.0.0.1/$1") 2>/dev/null; }

# start_on_free_port COMMAND... : runs it with PORT in its arguments replaced; sets $port.
start_on_free_port() {
  local try pid
  for try in $(seq 10); do
    port=$((20000 + RANDOM % 12000))
    is_open "$port" && continue
    "$@" "$port" >"$place/server.$port" 2>&1 &
    pid=$!
    for _ in $(seq 50); do
      kill -0 "$pid" 2>/dev/null || break
      if is_open "$port"; then
        servers+=("$pid")
        return
      fi
      sleep 0.1
    done
    kill "$pid" 2>/dev/null || true
  done
  cat "$place/server.$port" >&2
  fail "no server came up in $try tries"
}

serve_http() {
  mkdir -p "$place/nginx"
  echo "demo:{PLAIN}demo" >"$place/passwords"
  cat >"$place/nginx.conf" <<NGINX
daemon off;
master_process off;
pid $place/nginx/pid;
error_log $place/nginx/error.log;
events {}
http {
  client_body_temp_path $place/nginx; proxy_temp_path $place/nginx; fastcgi_temp_path $place/nginx;
  uwsgi_temp_path $place/nginx; scgi_temp_path $place/nginx;
  log_format plain '\$request_method \$request_uri \$status';
  access_log $log plain;
  server {
    listen 127.0.0.1:$1;
    root $www;
    location /abin/ {
      auth_basic "archive"; auth_basic_user_file $place/passwords;
      location = /abin/pdus { try_files /abin/\$arg_name =404; }
    }
  }
}
NGINX
  exec "$(command -v nginx || echo /usr/sbin/nginx)" -e "$place/nginx/error.log" -p "$place/nginx" -c "$place/nginx.conf"
}

serve_ftp() {
  cat >"$place/vsftpd.conf" <<VSFTPD
listen=YES
listen_address=127.0.0.1
listen_port=$1
background=NO
anonymous_enable=YES
no_anon_password=YES
anon_root=$ftp
secure_chroot_dir=$place/empty
anon_world_readable_only=NO
connect_from_port_20=NO
seccomp_sandbox=NO
xferlog_enable=YES
xferlog_std_format=YES
xferlog_file=$log
VSFTPD
  exec "$(command -v vsftpd || echo /usr/sbin/vsftpd)" "$place/vsftpd.conf"
}

setup_program() {
  install_program "$place" "$skyreel"
  point_at "$place" "http://127.0.0.1:${http_port:-1}" "127.0.0.1:${ftp_port:-1}"
  set_values "$place"
}

start_http() {
  start_on_free_port serve_http
  http_port=$port
}

start_ftp() {
  # The sources ask for absolute paths, so vsftpd has to confine its sessions to the folder, as root alone may.
  if [ "$(id -u)" -ne 0 ]; then
    echo "skipped: vsftpd needs root"
    exit 77
  fi
  start_on_free_port serve_ftp
  ftp_port=$port
}

run_batch() {
  local code=0
  run_program "$place" "$1" -CLOSE >"$place/output" 2>&1 || code=$?
  [ $code -eq 0 ] || fail "exit code $code"
  grep -q '^Skyreel - V' <(tail -n 1 "$place/bin/SkyreelReport.txt") || fail "the report has no end"
}

# expect_tree < lines "name yyyy-mm-dd hh:mm" : exactly these files, with these times.
expect_tree() {
  sort >"$place/expected"
  TZ=UTC0 find "$out" -type f -printf '%P %TY-%Tm-%Td %TH:%TM\n' | sort >"$place/found"
  diff "$place/expected" "$place/found" >&2 || fail "other files than expected (expected <, found >)"
}

# expect SWITCH LINE PATTERN < lines for expect_tree : runs the batch, which reports LINE and leaves these files;
# a second run leaves the same, and does not ask the server again for what PATTERN matches.
expect() {
  local tree before after
  tree=$(cat)
  run_batch "$1"
  expect_tree <<<"$tree"
  grep -qxF -- "$2" <(tr -d '\r' <"$place/bin/SkyreelReport.txt") || fail "the report lacks: $2"
  before=$(grep -cE "$3" "$log") || fail "the server's log holds no $3"
  run_batch "$1"
  after=$(grep -cE "$3" "$log")
  [ "$after" -eq "$before" ] || fail "the second run asked again ($before, then $after times): $3"
  expect_tree <<<"$tree"
}

export_files() { "$archive" --now "$yesterday 23:59" --export "$@"; }

eumetsat_new() {
  local name="/~idds/images/out/SDDI-$ymd-0600-BNW-09-VIS006-00-800.jpg"
  export_files "$www" "$name" "/~idds/images/out/SDDI-$ymd-1200-RGB-09-AIR-01-1237.jpg"
  start_http
  setup_program <<SETTINGS
EumetsatNewNaming=true
EumetsatMsgName=1
WantedEuArSectors="CTOT"
WantedEuArProducts="M1"
SETTINGS
  echo "ctot_12,M1_24" >"$place/bin/EuArchive.txt"
  expect -EUAR "$name - OK" "$ymd-.* 200$" <<TREE
EumetsatArchive/$folder/CTOT_12.jpg $yesterday 06:00
EumetsatArchive/$folder/M1_24.jpg $yesterday 12:00
TREE
}

eumetsat_old() {
  local listing="/IDDS-cgi/listImages?m=7,s=1,c=1,o=0,d=0,f=1" name="/~idds/images/out/${ymd}_123000_07_C1D_0.jpg"
  export_files "$www" "$listing" "$name"
  start_http
  setup_program <<SETTINGS
WantedEuArSectors="C1D"
WantedEuArProducts=""
SETTINGS
  echo "C1D_25" >"$place/bin/EuArchive.txt"
  expect -EUAR "$name - OK" "^GET /~idds" <<TREE
EumetsatArchive/$folder/C1D_25.jpg $yesterday 12:30
TREE
  grep -qxF "GET $listing 200" "$log" || fail "the listing was not asked for"
}

charts() {
  export_files "$www" /wz/pics/bracka.gif "/data/gss/r-uk${ymd:2}.zip"
  start_http
  setup_program <<SETTINGS
MSLPsources="Bracknell,\"Rain radar (MM) UK\""
BackDays=1
SETTINGS
  expect -MSLP "http://127.0.0.1:$http_port/data/gss/r-uk${ymd:2}.zip - OK" "^GET" <<TREE
Bracknell/$folder/bracka_1800.gif $yesterday 18:00
Bracknell/$folder/r-uk${ymd:2}.zip $yesterday 00:00
TREE
}

goes() {
  local name="/goeswest-lzw/conus/vis/${ymd:2}1200G15I01.tif"
  export_files "$www" "$name" "/goeseast-lzw/antilles/ir3/${ymd:2}1732G13I03.tif"
  start_http
  setup_program <<SETTINGS
GsfcSectors="\"GOES-W conus vis\""
GsfcInterval=3
GoesEsector=1
GoesEslot="17:32"
GOESDateInFolder=true
SETTINGS
  expect -GOES "$name - OK" "^GET .* 200$" <<TREE
GOES/goes-e/antilles/$folder/${ymd:2}1732G13I03.tif $yesterday 17:32
GOES/goes-w/conus/$folder/${ymd:2}1200G15I01.tif $yesterday 12:00
TREE
}

pdus() {
  local name="PDUS${ymd:2}1200AV"
  mkdir -p "$www/abin"
  export_files "$www" "/abin/pdus?name=$name"
  mv "$www/abin/pdus" "$www/abin/$name"
  cat >"$www/abin/filesorder" <<PAGE
<html><a href="/abin/pdus?name=$name&amp;x">a at 1200, Meteosat Europe, Visible</a>
<a href="/abin/pdus?name=../../evil">b at 1200, Meteosat Europe, Visible</a>
<a href="/abin/pdus?name=PDUS${ymd:2}1230AV">c at 1230, Meteosat Europe, Visible</a></html>
PAGE
  start_http
  setup_program <<SETTINGS
VisibleTabs="PDUS"
DundeePdusUsername=demo
DundeePdusPassword=">?75"
WantedPdusEurope="\"1200, Meteosat Europe, Visible\""
SETTINGS
  expect -PDUS "${name:4}.pdu - OK" "^GET /abin/pdus" <<TREE
PDUS/$folder/${name:4}.pdu $yesterday 12:00
TREE
  set_values "$place" <<<'DundeePdusPassword="x"'
  run_batch -PDUS
  grep -qi "password" "$place/output" || fail "the refused password is not told"
}

msfc() {
  local file="ME7-${ymd}1200.ir1.ara.Z"
  export_files "$ftp" "/Weather/METEOSAT-7/McIDAS_areas/ir1/5km/$file"
  start_ftp
  setup_program <<SETTINGS
MSFCchannel="IR"
MSFCslots="1200"
MSFCUncompres=true
MSFCpassive=true
SETTINGS
  expect -MSFC "Get: $file" "${file}.* c$" <<TREE
MSFC/$folder/${file%.Z} $yesterday 12:00
TREE
  gzip -dc "$ftp/Weather/METEOSAT-7/McIDAS_areas/ir1/5km/$file" | cmp - "$out/MSFC/$folder/${file%.Z}" || fail "content"
}

eumetsat_data() {
  local name="FES_${day_before}_1200_M7_IR" to="EumetsatArchiveDirect/${day_before//-//}"
  export_files "$ftp" "/M7/$name.OPEN_MTP.bz2" "/M7/$name.GIF"
  start_ftp
  setup_program <<SETTINGS
EuDAUsername=anonymous
EuDAPassword=guest
EuDASatellites="M7"
EuDAChannel="IR"
EuDAFormats="GIF,OPEN_MTP.bz2"
EuDAmet7start=23
EuDAmet7interval=6
EuDAUncompres=true
EuDA%20passive=$1
SETTINGS
  echo "$name.GIF,$name.OPEN_MTP.bz2" >"$place/bin/EuDAFiles.txt"
  expect -EUAD "Get: $name.GIF" "FES_.* c$" <<TREE
$to/$name.GIF $day_before 12:00
$to/$name.OPEN_MTP $day_before 12:00
TREE
  bzip2 -dc "$ftp/M7/$name.OPEN_MTP.bz2" | cmp - "$out/$to/$name.OPEN_MTP" || fail "content"
}
eumetsat_data_passive() { eumetsat_data true; }
eumetsat_data_active() { eumetsat_data false; }

today=$(date -u +%F)
yesterday=$(date -u -d "$today - 1 day" +%F)
day_before=$(date -u -d "$today - 2 days" +%F)
ymd=${yesterday//-/}
folder=${yesterday//-//}
"$case_name"
