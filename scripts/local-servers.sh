# Sourced by the tests and benchmarks that need nginx or vsftpd of their own on 127.0.0.1. A script that
# starts one calls stop_servers at its end.

servers=()
stop_servers() {
  [ ${#servers[@]} -eq 0 ] || kill "${servers[@]}" 2>/dev/null || true
  [ ${#servers[@]} -eq 0 ] || wait "${servers[@]}" 2>/dev/null || true
  servers=()
}

# start_on_free_port COMMAND... : runs it with a port as its last argument until one comes up; sets $port. The
# servers cannot be told to take any free port.
start_on_free_port() {
  local pid log
  log=$(mktemp)
  for port in $(shuf -i 20000-32000 -n 10); do
    "$@" "$port" >"$log" 2>&1 &
    pid=$!
    # Up to 5 s a try.
    for _ in $(seq 100); do
      kill -0 "$pid" 2>/dev/null || break
      if (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null; then
        # Another program's port would answer too, but then this server ends.
        sleep 0.05
        kill -0 "$pid" 2>/dev/null || break
        servers+=("$pid")
        rm -f "$log"
        return
      fi
      sleep 0.05
    done
    kill "$pid" 2>/dev/null || true
  done
  cat "$log" >&2
  rm -f "$log"
  echo "no server came up: $*" >&2
  return 1
}

# start_nginx WORK ROOT [LINES [FLAGS]] : serves ROOT over HTTP; sets $port. WORK is for the server's own files,
# LINES are added to its configuration of the server with @PORT@ as the port, FLAGS to its listen line ("ssl").
start_nginx() {
  mkdir -p "$1"
  start_on_free_port run_nginx "$1" "$2" "${3:-}" "${4:-}"
}
run_nginx() {
  local work=$1 root=$2 lines=${3//@PORT@/$5} flags=$4 port=$5
  cat >"$work/nginx.conf" <<NGINX
daemon off;
master_process off;
pid $work/pid;
error_log $work/error.log;
events { worker_connections 512; }
http {
  client_body_temp_path $work; proxy_temp_path $work; fastcgi_temp_path $work; uwsgi_temp_path $work;
  scgi_temp_path $work;
  log_format plain '\$request_method \$request_uri \$status';
  access_log off;
  sendfile on;
  server {
    listen 127.0.0.1:$port $flags;
    root $root;
    $lines
  }
}
NGINX
  exec "$(command -v nginx || echo /usr/sbin/nginx)" -e "$work/error.log" -p "$work" -c "$work/nginx.conf"
}

# start_vsftpd WORK ROOT [LOG] : serves ROOT over FTP to anonymous users; sets $port. Needs root: clients ask
# for absolute paths, so vsftpd has to confine its sessions to the folder.
start_vsftpd() {
  mkdir -p "$1/empty"
  start_on_free_port run_vsftpd "$1" "$2" "${3:-$1/log}"
}
run_vsftpd() {
  cat >"$1/vsftpd.conf" <<VSFTPD
listen=YES
listen_address=127.0.0.1
listen_port=$4
background=NO
anonymous_enable=YES
no_anon_password=YES
anon_root=$2
secure_chroot_dir=$1/empty
anon_world_readable_only=NO
connect_from_port_20=NO
seccomp_sandbox=NO
xferlog_enable=YES
xferlog_std_format=YES
xferlog_file=$3
VSFTPD
  exec "$(command -v vsftpd || echo /usr/sbin/vsftpd)" "$1/vsftpd.conf"
}
