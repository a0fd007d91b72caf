#!/usr/bin/env bash
# Usage: run_lookups.sh CONSOLE SCHEMA MARKET PORT CA (the password on standard input)
# The directories of a console that followed the exchange on PORT to the end
# of its day answer every lookup exactly as those of a console that loaded
# the same files and replayed the same log.
set -euo pipefail
console=$1 schema=$2 market=$3 port=$4 ca=$5
export QT_QPA_PLATFORM=offscreen LANG=C
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
lookups=(--security 1,1,100001 --sec-code VLT-1226 --board 1,14 --market 1 --option-board VLT --time
         --login FA01U01 --account FA01001)
# What follows the loading: the lookups' answers (notifications differ: a
# snapshot taken after the day raises only what is still open; the
# terminal's clock runs, so its milliseconds, and the exchange time it
# derives, differ between two runs).
answers() {
  awk '/^(Loaded|Replayed)/ {keep=NR} {line[NR]=$0} END {for (i=keep+1; i<=NR; ++i) print line[i]}' | grep -v '^notification' |
    sed -E 's/([0-9]{2}:[0-9]{2}:[0-9]{2})\.[0-9]{3}/\1/g; s/exchange time [0-9.]+ [0-9:]+ /exchange time (by the running clock) /'
}
"$console" --data "$market" --schema "$schema" --lang en --quiet --connect "127.0.0.1:$port" --ca "$ca" --until-live "${lookups[@]}" >"$work/connected"
"$console" --data "$market" --schema "$schema" --lang en --quiet --replay "${lookups[@]}" </dev/null >"$work/files"
answers <"$work/connected" >"$work/a"
answers <"$work/files" >"$work/b"
[ "$(wc -l <"$work/a")" -gt 40 ] || { cat "$work/connected"; echo "too few answers" >&2; exit 1; }
diff "$work/b" "$work/a" && echo "identical: $(wc -l <"$work/a") lines of answers"
