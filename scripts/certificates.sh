# Sourced by the tests and benchmarks that need a secure server.

# make_self_signed FOLDER HOST : HOST.pem and HOST.key. "ca" for HOST makes the authority of make_certificate.
make_self_signed() {
  openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -keyout "$1/$2.key" -out "$1/$2.pem" \
    -subj "/CN=$2" -days 2 2>/dev/null
}

# make_certificate FOLDER HOST [COMMAND...] : HOST.pem and HOST.key, signed by the authority. COMMAND, if any, runs
# openssl ("faketime 2020-01-01").
make_certificate() {
  local folder=$1 host=$2
  shift 2
  openssl req -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -keyout "$folder/$host.key" \
    -out "$folder/$host.csr" -subj "/CN=$host" 2>/dev/null
  "$@" openssl x509 -req -in "$folder/$host.csr" -CA "$folder/ca.pem" -CAkey "$folder/ca.key" -CAcreateserial \
    -out "$folder/$host.pem" -days 2 -extfile <(echo "subjectAltName=DNS:$host") 2>/dev/null
}

# use_certificate FOLDER HOST : nginx's lines for it.
use_certificate() { echo "ssl_certificate $1/$2.pem; ssl_certificate_key $1/$2.key;"; }
