#!/usr/bin/env bash
# make-certs.sh DIR: a certificate authority (DIR/ca.pem) and a TLS
# certificate it signed for the exchange on 127.0.0.1 and localhost
# (DIR/server.pem, key DIR/server.key), valid for two days, for demos and
# tests: a real exchange's certificate comes from its operator's authority.
set -euo pipefail
dir=$1
mkdir -p "$dir"
cd "$dir"
ec=(-newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes)
printf 'subjectAltName=IP:127.0.0.1,DNS:localhost\nbasicConstraints=CA:FALSE\nkeyUsage=digitalSignature\nextendedKeyUsage=serverAuth\n' >server.ext
{
  openssl req -x509 -days 2 -subj "/CN=Demo exchange authority" -keyout ca.key -out ca.pem "${ec[@]}"
  openssl req -subj "/CN=127.0.0.1" -keyout server.key -out server.csr "${ec[@]}"
  openssl x509 -req -in server.csr -CA ca.pem -CAkey ca.key -CAcreateserial -days 2 -extfile server.ext -out server.pem
} >openssl.log 2>&1 || { cat openssl.log >&2; exit 1; }
chmod 600 ca.key server.key
rm -f server.csr server.ext openssl.log
