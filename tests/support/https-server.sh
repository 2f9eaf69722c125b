#!/usr/bin/env bash
# https-server.sh FOLDER UPSTREAM : an authority, FOLDER/ca.pem, and secure nginx servers for the tests, until the
# input ends. FOLDER/hosts then says where they are. UPSTREAM, a host and port, makes the replies of /cut/.
set -euo pipefail
folder=$1 upstream=$2 scripts=$(dirname "${BASH_SOURCE[0]}")/../../scripts
. "$scripts/local-servers.sh"
. "$scripts/certificates.sh"
trap stop_servers EXIT
make_self_signed "$folder" ca
make_self_signed "$folder" self.test
make_certificate "$folder" good.test
make_certificate "$folder" other.test
make_certificate "$folder" expired.test faketime 2020-01-01
hosts=
for host in other expired self; do
  hosts+="} server { listen 127.0.0.1:@PORT@ ssl http2; server_name $host.test;
    $(use_certificate "$folder" $host.test) return 200 \"key=\$http_authorization\$http_cookie\";"
done
start_nginx "$folder/nginx" "$folder" "server_name good.test; $(use_certificate "$folder" good.test)
  absolute_redirect off; location /cut/ { proxy_pass http://$upstream; proxy_buffering off; }
  location /key { return 200 \"key=\$http_authorization\$http_cookie\"; } location /same { return 307 /key; }
  location /other { return 302 https://other.test/; } location /insecure { return 302 http://good.test/; }
  $hosts" "ssl http2"
for host in good other expired self wrong; do echo "$host.test=127.0.0.1:$port"; done >"$folder/all"
start_nginx "$folder/old" "$folder" "ssl_protocols TLSv1; ssl_ciphers ALL:@SECLEVEL=0;
  $(use_certificate "$folder" good.test)" ssl
echo "old.test=127.0.0.1:$port" >>"$folder/all"
mv "$folder/all" "$folder/hosts"
read -r _ || true
