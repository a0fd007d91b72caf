#!/usr/bin/env bash
# Usage: with_exchange.sh EXCHANGE SCHEMA MARKET COMMAND...
# Makes a certificate authority and a server certificate for 127.0.0.1 and
# a users file (FA01U01, password pw-FA01U01), starts the exchange with TLS
# on a free port of 127.0.0.1, waits until it has played its day, runs
# COMMAND with every @PORT@ replaced by the port and @CA@ by the authority's
# certificate, the password on its standard input, then stops the exchange
# with SIGTERM and gives COMMAND's exit status.
set -euo pipefail
exchange=$1 schema=$2 market=$3
shift 3
work=$(mktemp -d)
out=$work/exchange.out
pid=
trap '[ -n "$pid" ] && { kill -TERM $pid 2>/dev/null; wait $pid 2>/dev/null; }; rm -rf "$work"' EXIT
"$(dirname "$0")/../../scripts/make-certs.sh" "$work"
echo pw-FA01U01 | "$exchange" --users "$work/users" --add-user FA01U01 >/dev/null
"$exchange" --listen 127.0.0.1:0 --data "$market" --schema "$schema" --pace 0 --lang en --users "$work/users" \
  --cert "$work/server.pem" --key "$work/server.key" >"$out" 2>&1 &
pid=$!
for _ in $(seq 300); do grep -q "log is played" "$out" && break; sleep 0.1; done
port=$(grep -o 'listening on 127.0.0.1:[0-9]*' "$out" | cut -d: -f2)
[ -n "$port" ] && grep -q "log is played" "$out" || { cat "$out"; echo "the exchange did not serve its day" >&2; exit 1; }
args=("${@//@PORT@/$port}")
echo pw-FA01U01 | "${args[@]//@CA@/$work/ca.pem}"
