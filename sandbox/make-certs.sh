#!/usr/bin/env bash
# make-certs.sh DIR: a throw-away CA (DIR/ca.pem) and a server certificate for localhost and
# 127.0.0.1 signed by it (DIR/server.pem, DIR/server.key).
set -euo pipefail
dir=$1
mkdir -p "$dir"
cd "$dir"
curve=(-newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes)
openssl req -x509 "${curve[@]}" -keyout ca.key -out ca.pem -days 30 -subj "/CN=kps test CA" 2>/dev/null
openssl req "${curve[@]}" -keyout server.key -out server.csr -subj "/CN=localhost" 2>/dev/null
printf 'subjectAltName=DNS:localhost,IP:127.0.0.1\nbasicConstraints=CA:FALSE\n' > server.ext
openssl x509 -req -in server.csr -CA ca.pem -CAkey ca.key -CAcreateserial -out server.pem \
  -days 30 -extfile server.ext 2>/dev/null
