#!/usr/bin/env bash
# Runs a test executable beside a scriptable HTTPS server on 127.0.0.1 whose certificates come
# from authorities made for this run only: "file" is signed by the authority SSL_CERT_FILE names,
# "dir" by one found in SSL_CERT_DIR, "stranger" by one named nowhere. The executable finds
# everything under VANTREL_TEST_HTTPS_DIR.
set -euo pipefail

work=$(mktemp -d)
server_pid=""
trap '{ kill "$server_pid" && wait "$server_pid"; } 2>/dev/null || true; rm -rf "$work"' EXIT

listeners=()
for name in file dir stranger; do
  openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 2 \
    -subj "/CN=Vantrel test authority $name" \
    -addext "basicConstraints=critical,CA:TRUE" -addext "keyUsage=critical,keyCertSign,cRLSign" \
    -keyout "$work/$name-ca.key" -out "$work/$name-ca.pem" 2>/dev/null
  openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 2 \
    -subj "/CN=127.0.0.1" -CA "$work/$name-ca.pem" -CAkey "$work/$name-ca.key" \
    -addext "subjectAltName=IP:127.0.0.1" -addext "basicConstraints=CA:FALSE" \
    -addext "extendedKeyUsage=serverAuth" -keyout "$work/$name.key" -out "$work/$name.pem" 2>/dev/null
  listeners+=("$name:$work/$name.pem:$work/$name.key")
done
mkdir "$work/certs"
cp "$work/dir-ca.pem" "$work/certs/$(openssl x509 -hash -noout -in "$work/dir-ca.pem").0"

python3 "$(dirname "$0")/https_test_server.py" "$work" "${listeners[@]}" &
server_pid=$!
for _ in $(seq 300); do
  [ -f "$work/stranger.port" ] && break
  sleep 0.1
done
[ -f "$work/stranger.port" ] || { echo "the test HTTPS server did not start" >&2; exit 1; }

export SSL_CERT_FILE="$work/file-ca.pem" SSL_CERT_DIR="$work/certs" VANTREL_TEST_HTTPS_DIR="$work"
"$@"
