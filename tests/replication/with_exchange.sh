#!/usr/bin/env bash
# Usage: with_exchange.sh EXCHANGE SCHEMA MARKET COMMAND...
# Starts the exchange on a free port of 127.0.0.1, waits until it has played
# its day, runs COMMAND with every @PORT@ replaced by the port, then stops
# the exchange with SIGTERM and gives COMMAND's exit status.
set -euo pipefail
exchange=$1 schema=$2 market=$3
shift 3
out=$(mktemp)
"$exchange" --listen 127.0.0.1:0 --data "$market" --schema "$schema" --pace 0 --lang en >"$out" 2>&1 &
pid=$!
trap 'kill -TERM $pid 2>/dev/null; wait $pid 2>/dev/null; rm -f "$out"' EXIT
for _ in $(seq 300); do grep -q "log is played" "$out" && break; sleep 0.1; done
port=$(grep -o 'listening on 127.0.0.1:[0-9]*' "$out" | cut -d: -f2)
[ -n "$port" ] && grep -q "log is played" "$out" || { cat "$out"; echo "the exchange did not serve its day" >&2; exit 1; }
"${@//@PORT@/$port}"
