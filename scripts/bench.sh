#!/usr/bin/env bash
# Sets up, builds the benchmarks (Release), generates the markets they need
# and prints every figure next to its peer from the same run and its target.
# BENCH_REPETITIONS (default 5) sets the repetitions; figures are medians.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/setup.sh"
mkdir -p "$root/build"
build="$root/build/bench"
"$root/scripts/build.sh" "$build" -DDIRECTORY_BUILD_BENCH=ON -DDIRECTORY_BUILD_TESTS=OFF -DCMAKE_BUILD_TYPE=Release

markets="$build/markets"
results="$build/results"
mkdir -p "$markets" "$results"
for size in 100k:100000 1m:1000000; do
  dir="$markets/${size%%:*}"
  if [ ! -s "$dir/snapshot.jsonl" ]; then
    mkdir -p "$dir"
    "$build/data/market-generator" --out "$dir" --securities "${size##*:}"
  fi
done

reps=${BENCH_REPETITIONS:-5}
# The figures before the network groups are taken at this load; those groups
# run many processes and raise it themselves.
started_load=$(cut -d' ' -f1-3 /proc/loadavg)
run() {   # run NAME MARKET FILTER: one process per group, so that each starts clean
  echo "== $1: $3 on $2" >&2
  "$build/bench/directory-bench" --market "$markets/$2" --benchmark_filter="$3" \
    --benchmark_repetitions="$reps" --benchmark_report_aggregates_only=true \
    --benchmark_out="$results/$1.json" --benchmark_out_format=json >&2
}
# Loading first, in a process of its own: its resident-memory figure needs a
# heap that no earlier load has grown.
run load 100k '^load\.'
run load-1m 1m '^load\.ours\.loadFile/'
run lookups 100k '^(hit|miss|text|code)\.'
run updates 100k '^update_'
run miss-1m 1m '^miss\.'
run volat 100k '^(engine|volat_result)\.'
run margin 100k '^vm(_sa)?\.'
run encode 100k '^encode\.'
run json 100k '^json\.'
# The key-copy search beside the layouts it was measured against (the
# library's own is the fences).
run layouts 100k '^layout\.'
run layouts-1m 1m '^layout\.'

# Following an exchange over the network: connecting until live against
# loading the same snapshot from its file (and the snapshot's bytes on the
# wire), and one exchange playing the 100k day to 50 followers at full speed.
# The exchange is a process of its own in each.
for size in 100k 1m; do
  echo "== replication: connect on $size" >&2
  "$build/bench/replication-bench" connect --market "$markets/$size" --runs 3 --json "$results/connect-$size.json" >&2
done
echo "== replication: fanout of 50 on 100k" >&2
"$build/bench/replication-bench" fanout --market "$markets/100k" --clients 50 --json "$results/fanout.json" >&2
# Orders over the session: 50 sessions of the 100k market's firms placing
# orders on one exchange, closed loop with its message limit raised (the
# rate it takes them at), then 10 a second each under its default limit
# (send to answer). An exchange process of its own for each.
echo "== replication: orders of 50 sessions on 100k" >&2
"$build/bench/replication-bench" orders --market "$markets/100k" --clients 50 --json "$results/orders.json" >&2
# The terminal's event loop while the 100k market's log replays at full speed
# from its file, and while it follows an exchange playing the same day (each
# a program of its own; the snapshot load is not part of the stall).
echo "== terminal responsiveness on 100k: replay, then following an exchange" >&2
QT_QPA_PLATFORM=offscreen "$build/bench/terminal-stall-bench" --market "$markets/100k" > "$results/terminal-stall.txt"
QT_QPA_PLATFORM=offscreen "$build/bench/terminal-stall-bench" --market "$markets/100k" --follow > "$results/terminal-follow.txt"

echo
echo "Machine: $(nproc) cores, $(lscpu | sed -n 's/^Model name: *//p'); load average $started_load at the start, $(cut -d' ' -f1-3 /proc/loadavg) at the end"
python3 - "$results" <<'EOF'
import json, sys, os, re

def medians(name):
    with open(os.path.join(sys.argv[1], name + ".json")) as f:
        data = json.load(f)
    out = {}
    for b in data["benchmarks"]:
        if b.get("aggregate_name") == "median":
            out[b["run_name"].split("/")[0]] = b
    return out

load, lookups, updates, big = medians("load"), medians("lookups"), medians("updates"), medians("miss-1m")
volat = medians("volat")
margin = medians("margin")
scale = {"ns": 1e-9, "us": 1e-6, "ms": 1e-3, "s": 1.0}

def seconds(b):
    return b["real_time"] * scale[b["time_unit"]]

def show(s):
    for unit, f in (("s", 1.0), ("ms", 1e-3), ("us", 1e-6), ("ns", 1e-9)):
        if s >= f:
            return "%.3g %s" % (s / f, unit)
    return "%.3g ns" % (s / 1e-9)

def fastest(group, prefix):
    peers = [(seconds(b), name) for name, b in group.items() if name.startswith(prefix)]
    return min(peers)

rows = []
def faster(figure, group, ours, peerPrefix, times, per=1):
    o = seconds(group[ours]) / per
    p, name = fastest(group, peerPrefix)
    p /= per
    ratio = p / o
    rows.append((figure, show(o), "%s (%s)" % (show(p), name.split(".")[-1]), "%.2fx faster" % ratio,
                 ">= %gx faster" % times, "met" if ratio >= times else "MISSED"))

o, p = seconds(lookups["hit.ours.recordById"]), seconds(lookups["hit.peer.qhash_qmutex"])
rows.append(("recordById, cached hit (100k)", show(o), "%s (qhash_qmutex)" % show(p), "%.2fx the peer" % (o / p),
             "<= 1.3x the peer", "met" if o / p <= 1.3 else "MISSED"))
if "hit.part.cached_index" in lookups:
    print("Cached hit, its parts alone: the cached index's lookup %s, the table reference from the directory's weak pointer %s"
          % (show(seconds(lookups["hit.part.cached_index"])), show(seconds(lookups["hit.part.table_reference"]))))
faster("recordById, cache miss (100k)", lookups, "miss.ours.recordById", "miss.peer.", 4)
faster("recordById, cache miss (1M)", big, "miss.ours.recordById", "miss.peer.", 4)
faster("recordByTextId (100k)", lookups, "text.ours.recordByTextId", "text.peer.", 3)
faster("BoardDirectory::idByCode", lookups, "code.ours.BoardDirectory_idByCode", "code.peer.", 3)
faster("apply 10k updates, bid/ask, per row", updates, "update_prices.ours.apply", "update_prices.peer.", 5, 10000)
faster("apply 10k updates, decimals, per row", updates, "update_static.ours.apply", "update_static.peer.", 5, 10000)
faster("getVMByAccount, firm prefix, cold (100k rows)", margin, "vm.ours.getVMByAccount_firm_cold", "vm.peer.", 3)
faster("VM by settlement account after a changed batch (100k rows)", margin, "vm_sa.ours.changed_batch_rebuild", "vm_sa.peer.", 3)
peer = seconds(load["load.peer.sqlite_insert"])
for name in ("loadFile", "loadFileAtomically"):
    o = seconds(load["load.ours." + name])
    rows.append(("%s, 100k snapshot" % name, show(o), "%s (sqlite_insert, decoded rows)" % show(peer),
                 "%.2fx the peer" % (o / peer), "< 1 s", "met" if o < 1.0 else "MISSED"))
big_load = medians("load-1m")["load.ours.loadFile"]
o, small = seconds(big_load), seconds(load["load.ours.loadFile"])
rows.append(("loadFile, 1M snapshot (%d rows)" % big_load.get("rows", 0), show(o), "%s (the 100k load)" % show(small),
             "%.1fx the 100k load" % (o / small), "< 3 s and <= 10x the 100k load",
             "met" if o < 3.0 and o / small <= 10 else "MISSED"))
if "peak_over_settled" in big_load:
    ratio = big_load["peak_over_settled"]
    rows.append(("peak resident memory while loading 1M", "%.0f MB" % (big_load["peak_growth_bytes"] / 1e6),
                 "%.0f MB settled" % (big_load["rss_growth_bytes"] / 1e6), "%.2fx settled" % ratio, "<= 1.25x settled",
                 "met" if ratio <= 1.25 else "MISSED"))
walk = seconds(medians("json")["json.part.simdjson_ondemand_walk"])
rows.append(("JSON walk of the 100k snapshot (simdjson, the decoder's parser)", show(walk), "%s (loadFile)" % show(seconds(load["load.ours.loadFile"])),
             "%.0f%% of the load" % (100 * walk / seconds(load["load.ours.loadFile"])), "(reported)", ""))
m = load["load.ours.loadFile"]
if "rss_growth_bytes" in m:
    perRow = m["rss_growth_bytes"] / m["rows"]
    allowance = m["allowance_bytes"] / m["rows"]
    sqlite = load["load.peer.sqlite_insert"].get("sqlite_bytes_per_row", 0)
    rows.append(("resident memory per row (RSS growth)", "%.0f B" % perRow, "%.0f B (sqlite heap)" % sqlite,
                 "%.2fx the allowance" % (perRow / allowance),
                 "<= 1.5x payload + 16 B/index = %.0f B" % allowance, "met" if perRow <= allowance else "MISSED"))
    print("Memory: %d rows, payload %.1f B/row, %.2f index entries/row, RSS growth %.1f MB (%.1f MB after malloc_trim), heap in use +%.1f MB"
          % (m["rows"], m["payload_per_row"], m["index_entries"] / m["rows"], m["rss_growth_bytes"] / 1e6,
             m["rss_growth_after_trim_bytes"] / 1e6, m["heap_growth_bytes"] / 1e6))

if "engine.peer.quantlib_BlackCalculator" in volat:
    faster("calcVolatParamsEx, one option", volat, "engine.ours.calcVolatParamsEx", "engine.peer.", 3)
cold = seconds(volat["volat_result.ours.cold"])
parts = sum(seconds(b) for name, b in volat.items() if name.startswith("volat_result.part."))
rows.append(("getVolatResultBySecId, 1000 options, cold", show(cold), "%s (sum of its parts alone)" % show(parts),
             "%.2fx the parts" % (cold / parts), "<= 1.3x the parts", "met" if cold <= 1.3 * parts else "MISSED"))
shuffled = seconds(volat["volat_result.info.cold_shuffled"])
rows.append(("getVolatResultBySecId, 1000 options anywhere, cold", show(shuffled), "%s (sum of its parts alone)" % show(parts),
             "%.2fx the parts" % (shuffled / parts), "<= 1.8x the parts", "met" if shuffled <= 1.8 * parts else "MISSED"))
warm = seconds(volat["volat_result.ours.warm"])
rows.append(("getVolatResultBySecId, 1000 options, warm", show(warm), "%s (cold)" % show(cold),
             "%.1fx faster" % (cold / warm), ">= 20x faster than cold", "met" if cold / warm >= 20 else "MISSED"))
print("Parts of a cold result, 1000 options: " + ", ".join("%s %s" % (name.split(".")[-1], show(seconds(b)))
                                                         for name, b in sorted(volat.items()) if name.startswith("volat_result.part."))
      + "; cold over 1000 shuffled options %s (%.2fx the parts)" % (show(seconds(volat["volat_result.info.cold_shuffled"])),
                                                                   seconds(volat["volat_result.info.cold_shuffled"]) / parts))

def results(name):
    with open(os.path.join(sys.argv[1], name)) as f:
        return f.read()

for size, label in (("100k", "100k"), ("1m", "1M")):
    c = json.loads(results("connect-%s.json" % size))
    f = c["file_load_s"]
    for key, what in (("connect_first_s", "first connection"), ("connect_second_s", "snapshot already made")):
        r = c[key] / f
        rows.append(("connect to live, %s snapshot, %s" % (label, what), show(c[key]), "%s (loadFile)" % show(f),
                     "%.2fx the file" % r, "<= 1.5x the file", "met" if r <= 1.5 else "MISSED"))
    if c["connections_lost"]:
        print("connect, %s: %d connections lost before live and tried again: %s"
              % (label, len(c["connections_lost"]), "; ".join(c["connections_lost"])))
    wire, text = c["wire_bytes_to_client"], c["snapshot_file_bytes"]
    rows.append(("bytes on the wire, %s snapshot" % label, "%.1f MB" % (wire / 1e6), "%.1f MB (snapshot.jsonl)" % (text / 1e6),
                 "1/%.1f of the JSON" % (text / wire), "<= 1/5 of the JSON", "met" if wire * 5 <= text else "MISSED"))
fan = json.loads(results("fanout.json"))
n = fan["clients"]
rows.append(("fan-out, %d followers of the 100k day: batches/s" % n, "%.1f" % fan["batches_per_s"],
             "%d batches in %s" % (fan["batches"], show(fan["seconds"])), "", "(reported)", ""))
rows.append(("fan-out: exchange applied -> follower applied, p99", show(fan["latency_p99_ms"] / 1e3),
             "p50 %s, max %s" % (show(fan["latency_p50_ms"] / 1e3), show(fan["latency_max_ms"] / 1e3)), "", "< 50 ms",
             "met" if fan["latency_p99_ms"] < 50 else "MISSED"))
rows.append(("fan-out: exchange's peak memory (VmHWM)", "%.0f MB" % (fan["server_peak_bytes"] / 1e6),
             "%.0f MB (loaded, no follower)" % (fan["server_loaded_peak_bytes"] / 1e6),
             "+%.0f MB serving" % ((fan["server_peak_bytes"] - fan["server_loaded_peak_bytes"]) / 1e6), "(reported)", ""))
rows.append(("fan-out: followers identical to the exchange", "%d of %d" % (fan["identical"], n), "", "", "all",
             "met" if fan["identical"] == n else "MISSED"))
orders = json.loads(results("orders.json"))
closed, steady = orders["closed_loop"], orders["open_loop"]
n = orders["clients"]
rows.append(("orders: accepted/s, %d sessions, %d awaiting each, limit raised" % (n, orders["outstanding"]), "%.0f/s" % closed["accepted_per_s"],
             "%d/s (the default limit: %d x %d)" % (orders["default_limit_ceiling_per_s"], n, steady["messages_per_second"]),
             "%.1fx the limit" % (closed["accepted_per_s"] / orders["default_limit_ceiling_per_s"]), "(reported)", ""))
rows.append(("orders at %d/s (%d/s a session): send -> answer, p99" % (n * orders["rate_per_session"], orders["rate_per_session"]),
             show(steady["latency_p99_ms"] / 1e3),
             "p50 %s, max %s" % (show(steady["latency_p50_ms"] / 1e3), show(steady["latency_max_ms"] / 1e3)), "", "(reported)", ""))
rows.append(("orders at %d/s: send -> batch at the firm's other sessions, p99" % (n * orders["rate_per_session"]),
             show(steady["second_session_p99_ms"] / 1e3),
             "p50 %s, max %s" % (show(steady["second_session_p50_ms"] / 1e3), show(steady["second_session_max_ms"] / 1e3)), "", "(reported)", ""))
rejected = closed["rejected"] + steady["rejected"]
rows.append(("orders rejected", "%d of %d" % (rejected, closed["accepted"] + steady["accepted"] + rejected), "", "", "0",
             "met" if rejected == 0 else "MISSED"))

def longest(name):
    m = re.search(r"longest ([0-9.]+) ms", results(name))
    return float(m.group(1)) if m else float("nan")

live, replay = longest("terminal-follow.txt"), longest("terminal-stall.txt")
rows.append(("terminal's longest stall following the 100k day live", show(live / 1e3), "%s (replaying it from file)" % show(replay / 1e3),
             "%.2fx the replay" % (live / replay), "< 50 ms", "met" if live < 50 else "MISSED"))

small, large = medians("layouts"), medians("layouts-1m")
print("Search layouts, one lookup (100k / 1M): " + ", ".join(
    "%s %s / %s" % (name.split(".")[1], show(seconds(small[name])), show(seconds(large[name])))
    for name in sorted(small, key=lambda n: seconds(large.get(n, small[n]))) if name in large))

head = ("figure", "ours", "peer", "ratio", "target", "")
widths = [max(len(str(r[i])) for r in rows + [head]) for i in range(len(head))]
for r in [head] + rows:
    print("  ".join(str(c).ljust(w) for c, w in zip(r, widths)).rstrip())
EOF

echo
echo "Terminal responsiveness (100k market, log replayed at full speed):"
cat "$results/terminal-stall.txt"
echo
echo "Terminal responsiveness (100k market, following an exchange playing the day at full speed):"
cat "$results/terminal-follow.txt"
