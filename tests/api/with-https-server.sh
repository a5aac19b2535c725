#!/usr/bin/env bash
# Runs a test executable beside a scriptable HTTPS server on 127.0.0.1 whose certificates come
# from authorities made for this run only:
#   file      signed by the authority named in SSL_CERT_FILE
#   dir       signed by an authority found in SSL_CERT_DIR
#   stranger  signed by an authority named nowhere
#   late      signed by an authority the tests name themselves (late-ca.pem)
# The executable finds everything under VANTREL_TEST_HTTPS_DIR.
set -euo pipefail

work=$(mktemp -d)
server_pid=""
cleanup() {
  if [ -n "$server_pid" ]; then
    kill "$server_pid" 2>/dev/null || true
    wait "$server_pid" 2>/dev/null || true
  fi
  rm -rf "$work"
}
trap cleanup EXIT

authority() {
  openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 2 \
    -subj "/CN=Vantrel test authority $1" \
    -addext "basicConstraints=critical,CA:TRUE" -addext "keyUsage=critical,keyCertSign,cRLSign" \
    -keyout "$work/$1-ca.key" -out "$work/$1-ca.pem" 2>/dev/null
  openssl req -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -subj "/CN=127.0.0.1" \
    -keyout "$work/$1.key" -out "$work/$1.csr" 2>/dev/null
  printf 'subjectAltName=IP:127.0.0.1\nbasicConstraints=CA:FALSE\nextendedKeyUsage=serverAuth\n' \
    > "$work/$1.ext"
  openssl x509 -req -in "$work/$1.csr" -CA "$work/$1-ca.pem" -CAkey "$work/$1-ca.key" \
    -CAcreateserial -days 2 -extfile "$work/$1.ext" -out "$work/$1.pem" 2>/dev/null
}

listeners=()
for name in file dir stranger late; do
  authority "$name"
  listeners+=(--listen "$name:$work/$name.pem:$work/$name.key")
done
mkdir "$work/certs"
cp "$work/dir-ca.pem" "$work/certs/$(openssl x509 -hash -noout -in "$work/dir-ca.pem").0"

python3 "$(dirname "$0")/https_test_server.py" --dir "$work" "${listeners[@]}" &
server_pid=$!
for _ in $(seq 100); do
  if [ -f "$work/late.port" ]; then break; fi
  sleep 0.1
done
if [ ! -f "$work/late.port" ]; then
  echo "the test HTTPS server did not start" >&2
  exit 1
fi

export SSL_CERT_FILE="$work/file-ca.pem"
export SSL_CERT_DIR="$work/certs"
export VANTREL_TEST_HTTPS_DIR="$work"
"$@"
