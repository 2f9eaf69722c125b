#!/usr/bin/env bash
# https-server.sh FOLDER UPSTREAM : an authority and secure nginx servers for the tests, until the input ends.
# FOLDER/ports then holds the ports: all hosts with HTTP/2, one with TLS 1.0 alone. UPSTREAM, a host and port, makes
# the replies of /cut/.
set -euo pipefail
folder=$1 upstream=$2
scripts=$(dirname "${BASH_SOURCE[0]}")/../../scripts
. "$scripts/local-servers.sh"
. "$scripts/certificates.sh"
trap stop_servers EXIT
make_self_signed "$folder" ca
make_certificate "$folder" good.test
make_certificate "$folder" other.test
make_certificate "$folder" expired.test faketime 2020-01-01
make_self_signed "$folder" self.test
mkdir "$folder/root" && echo -n whole >"$folder/root/a"
hosts=
for host in other.test expired.test self.test; do
  hosts+="} server { listen 127.0.0.1:@PORT@ ssl http2; server_name $host; $(use_certificate "$folder" $host)
    location / { return 200 \"key=\$http_authorization\$http_cookie\"; }"
done
start_nginx "$folder/nginx" "$folder/root" "server_name good.test; $(use_certificate "$folder" good.test)
  absolute_redirect off;
  add_header Connection-Number \$connection;
  location /cut/ { proxy_pass http://$upstream; proxy_buffering off; }
  location /insecure { return 302 http://good.test/a; }
  location /other { return 302 https://other.test/; }
  location /key { return 200 \"key=\$http_authorization\$http_cookie\"; }
  location /same { return 307 /key; }
  $hosts" "ssl http2"
echo "$port" >"$folder/all"
start_nginx "$folder/old" "$folder/root" "ssl_protocols TLSv1; ssl_ciphers ALL:@SECLEVEL=0;
  $(use_certificate "$folder" good.test)" ssl
echo "$port" >>"$folder/all"
mv "$folder/all" "$folder/ports"
read -r _ || true
