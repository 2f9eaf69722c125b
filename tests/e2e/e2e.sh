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

# serve_http PORT [RATE] : RATE limits the bytes per second of a picture.
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
  limit_rate ${rate:-0};
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
  rate=${1:-0} start_on_free_port serve_http
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
  run_program "$place" "$@" -CLOSE >"$place/output" 2>&1 || code=$?
  [ $code -eq 0 ] || fail "exit code $code"
}

# expect_tree < lines "name yyyy-mm-dd hh:mm" : exactly these files, with these times.
expect_tree() {
  sort >"$place/expected"
  TZ=UTC0 find "$out" -type f -printf '%P %TY-%Tm-%Td %TH:%TM\n' | sort >"$place/found"
  diff "$place/expected" "$place/found" >&2 || fail "other files than expected (expected <, found >)"
}

expect_line() { grep -qxF -- "$1" <(tr -d '\r' <"$place/bin/SkyreelReport.txt") || fail "the report lacks: $1"; }

expect_report() {
  local last
  last=$(tail -n 1 "$place/bin/SkyreelReport.txt" | tr -d '\r')
  [[ "$last" == "Skyreel - V"* ]] || fail "the report ends with: $last"
}

# expect_quiet_second_run PATTERN SWITCH : the server is not asked again for what PATTERN matches.
expect_quiet_second_run() {
  local pattern=$1 before after
  shift
  before=$(grep -cE "$pattern" "$log" || true)
  [ "$before" -gt 0 ] || fail "the server's log holds no $pattern"
  cp "$place/found" "$place/found.first"
  run_batch "$@"
  after=$(grep -cE "$pattern" "$log" || true)
  [ "$after" -eq "$before" ] || fail "the second run asked again ($before, then $after times): $pattern"
  expect_tree <"$place/found.first"
}

export_files() {
  local to=$1
  shift
  "$archive" --now "$yesterday 23:59" --export "$to" "$@"
}

eumetsat_new() {
  export_files "$www" "/~idds/images/out/SDDI-$ymd-0600-BNW-09-VIS006-00-800.jpg" \
    "/~idds/images/out/SDDI-$ymd-1200-RGB-09-AIR-01-1237.jpg"
  start_http
  setup_program <<SETTINGS
EumetsatNewNaming=true
EumetsatMsgName=1
WantedEuArSectors="CTOT"
WantedEuArProducts="M1"
SETTINGS
  echo "ctot_12,M1_24" >"$place/bin/EuArchive.txt"
  run_batch -EUAR
  expect_tree <<TREE
EumetsatArchive/$folder/CTOT_12.jpg $yesterday 06:00
EumetsatArchive/$folder/M1_24.jpg $yesterday 12:00
TREE
  expect_line "/~idds/images/out/SDDI-$ymd-0600-BNW-09-VIS006-00-800.jpg - OK"
  expect_line "/~idds/images/out/SDDI-$ymd-1200-RGB-09-AIR-01-1237.jpg - OK"
  expect_report
  expect_quiet_second_run "$ymd-.* 200$" -EUAR
}

eumetsat_old() {
  export_files "$www" "/IDDS-cgi/listImages?m=7,s=1,c=1,o=0,d=0,f=1" "/~idds/images/out/${ymd}_123000_07_C1D_0.jpg"
  start_http
  setup_program <<SETTINGS
WantedEuArSectors="C1D"
WantedEuArProducts=""
SETTINGS
  echo "C1D_25" >"$place/bin/EuArchive.txt"
  run_batch -EUAR
  expect_tree <<TREE
EumetsatArchive/$folder/C1D_25.jpg $yesterday 12:30
TREE
  expect_line "/~idds/images/out/${ymd}_123000_07_C1D_0.jpg - OK"
  grep -qx "GET /IDDS-cgi/listImages?m=7,s=1,c=1,o=0,d=0,f=1 200" "$log" || fail "the listing was not asked for"
  expect_quiet_second_run "^GET /~idds" -EUAR
}

charts() {
  export_files "$www" /wz/pics/bracka.gif "/data/gss/r-uk${ymd:2}.zip"
  start_http
  setup_program <<SETTINGS
MSLPsources="Bracknell,\"Rain radar (MM) UK\""
BackDays=1
SETTINGS
  run_batch -MSLP
  expect_tree <<TREE
Bracknell/$folder/bracka_1800.gif $yesterday 18:00
Bracknell/$folder/r-uk${ymd:2}.zip $yesterday 00:00
TREE
  expect_line "http://127.0.0.1:$http_port/data/gss/r-uk${ymd:2}.zip - OK"
  expect_report
  expect_quiet_second_run "^GET" -MSLP
}

goes() {
  export_files "$www" "/goeswest-lzw/conus/vis/${ymd:2}1200G15I01.tif" "/goeseast-lzw/antilles/ir3/${ymd:2}1732G13I03.tif"
  start_http
  setup_program <<SETTINGS
GsfcSectors="\"GOES-W conus vis\""
GsfcInterval=3
GoesEsector=1
GoesEslot="17:32"
GOESDateInFolder=true
SETTINGS
  run_batch -GOES
  expect_tree <<TREE
GOES/goes-e/antilles/$folder/${ymd:2}1732G13I03.tif $yesterday 17:32
GOES/goes-w/conus/$folder/${ymd:2}1200G15I01.tif $yesterday 12:00
TREE
  expect_line "/goeswest-lzw/conus/vis/${ymd:2}1200G15I01.tif - OK"
  expect_line "/goeseast-lzw/antilles/vis/${ymd:2}1732G13I01.tif - missing or incomplete"
  expect_quiet_second_run "^GET .* 200$" -GOES
}

pdus() {
  mkdir -p "$www/abin"
  export_files "$www" "/abin/pdus?name=PDUS${ymd:2}1200AV"
  mv "$www/abin/pdus" "$www/abin/PDUS${ymd:2}1200AV"
  cat >"$www/abin/filesorder" <<PAGE
<html><a href="/abin/pdus?name=PDUS${ymd:2}1200AV&amp;x">a at 1200, Meteosat Europe, Visible</a>
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
  run_batch -PDUS
  expect_tree <<TREE
PDUS/$folder/${ymd:2}1200AV.pdu $yesterday 12:00
TREE
  expect_line "${ymd:2}1200AV.pdu - OK"
  expect_quiet_second_run "^GET /abin/pdus" -PDUS
  # A wrong password is told, and nothing is fetched.
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
  run_batch -MSFC
  expect_tree <<TREE
MSFC/$folder/${file%.Z} $yesterday 12:00
TREE
  [ "$(stat -c %s "$out/MSFC/$folder/${file%.Z}")" -eq 6321008 ] || fail "the uncompressed size"
  gzip -dc "$ftp/Weather/METEOSAT-7/McIDAS_areas/ir1/5km/$file" | cmp - "$out/MSFC/$folder/${file%.Z}" || fail "content"
  expect_line "Get: $file"
  expect_report
  expect_quiet_second_run "${file}.* c$" -MSFC
}

eumetsat_data() {
  local name="FES_${day_before}_1200_M7_IR"
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
  run_batch -EUAD
  expect_tree <<TREE
EumetsatArchiveDirect/${day_before//-//}/$name.GIF $day_before 12:00
EumetsatArchiveDirect/${day_before//-//}/$name.OPEN_MTP $day_before 12:00
TREE
  bzip2 -dc "$ftp/M7/$name.OPEN_MTP.bz2" | cmp - "$out/EumetsatArchiveDirect/${day_before//-//}/$name.OPEN_MTP" || fail "content"
  expect_quiet_second_run "FES_.* c$" -EUAD
}
eumetsat_data_passive() { eumetsat_data true; }
eumetsat_data_active() { eumetsat_data false; }

# A connection to the HTTP server stands.
is_connected() {
  [ -n "$(awk -v port=":$(printf %04X "$http_port")\$" '$3 ~ port && $4 == "01"' /proc/net/tcp)" ]
}

# The picture under way is finished, and no further one is begun.
stopped() {
  local first=${ymd:2}1200G15I01.tif pid code=0
  export_files "$www" "/goeswest-lzw/conus/vis/$first" "/goeswest-lzw/conus/vis/${ymd:2}1500G15I01.tif"
  start_http 150000
  setup_program <<SETTINGS
GsfcSectors="\"GOES-W conus vis\""
GsfcInterval=3
SETTINGS
  run_program "$place" -GOES -CLOSE >"$place/output" 2>&1 &
  pid=$!
  # The server logs a request at its end; so the first picture is under way when the one before it is logged
  # and a connection stands.
  for _ in $(seq 300); do
    grep -q "${ymd:2}0900G15I01.tif" "$log" 2>/dev/null && is_connected && break
    sleep 0.1
  done
  pkill -TERM -P "$pid" Skyreel || fail "the program is not running"
  wait "$pid" || code=$?
  [ $code -eq 0 ] || fail "exit code $code after SIGTERM"
  expect_tree <<TREE
GOES/goes-w/conus/$first $yesterday 12:00
TREE
  cmp "$www/goeswest-lzw/conus/vis/$first" "$out/GOES/goes-w/conus/$first" || fail "the picture is not whole"
  expect_report
  grep -q '^GsfcInterval=3$' "$place/home/.config/Quenmoor/Skyreel.conf" || fail "the settings were lost"
}

unplugged() {
  export_files "$www" "/goeswest-lzw/conus/vis/${ymd:2}1200G15I01.tif"
  setup_program <<SETTINGS
GsfcSectors="\"GOES-W conus vis\""
GsfcInterval=3
SETTINGS
  run_batch -GOES
  expect_line "/goeswest-lzw/conus/vis/${ymd:2}1200G15I01.tif - timed out"
  expect_report
  [ -z "$(find "$out" -type f 2>/dev/null)" ] || fail "files came from nowhere"
}

unplugged_ftp() {
  setup_program <<SETTINGS
MSFCchannel="IR"
MSFCslots="1200"
SETTINGS
  run_batch -MSFC
  expect_line "Connection failed to: 127.0.0.1"
  expect_report
  [ -z "$(find "$out" -type f 2>/dev/null)" ] || fail "files came from nowhere"
}

today=$(date -u +%F)
yesterday=$(date -u -d "$today - 1 day" +%F)
day_before=$(date -u -d "$today - 2 days" +%F)
ymd=${yesterday//-/}
folder=${yesterday//-//}
"$case_name"
