#!/usr/bin/env bash
# Starts the exchange on a free port of 127.0.0.1, waits until it has played
# its day, lets the Python client follow it to live, then stops the exchange.
set -euo pipefail
exchange=$1 schema=$2 market=$3 client=$4
out=$(mktemp)
"$exchange" --listen 127.0.0.1:0 --data "$market" --schema "$schema" --pace 0 --lang en >"$out" 2>&1 &
pid=$!
trap 'kill -TERM $pid 2>/dev/null; wait $pid 2>/dev/null; rm -f "$out"' EXIT
for _ in $(seq 300); do grep -q "log is played" "$out" && break; sleep 0.1; done
port=$(grep -o 'listening on 127.0.0.1:[0-9]*' "$out" | cut -d: -f2)
[ -n "$port" ] || { cat "$out"; echo "the exchange did not start" >&2; exit 1; }
python3 "$client" --connect "127.0.0.1:$port" --schema "$schema" --timeout 60 \
  --expect-snapshot "$market/snapshot.jsonl" --expect-log "$market/replication.jsonl"
