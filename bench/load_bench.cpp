// Loading the market's snapshot into the core's database (directories
// registered first, as in the terminal), the memory it takes, and SQLite
// inserting the same rows for context.
#include "market.h"
#include "sqlitepeer.h"

#include <database/database.h>

#include <benchmark/benchmark.h>
#include <chrono>

namespace {

void reportMemory(benchmark::State& state)
{
    bench::LoadRun const* first = bench::firstLoad();
    // Only the first load of a process grows the heap from nothing.
    if (!first || bench::firstLoadMode() != bench::LoadMode::Streaming) return;
    bench::Payload p = bench::payloadOf(*bench::coreDatabase());
    double growth = double(first->residentAfter - first->residentBefore);
    double allowance = 1.5 * double(p.bytes) + 16.0 * double(p.indexEntries);
    state.counters["rows"] = double(p.rows);
    state.counters["index_entries"] = double(p.indexEntries);
    state.counters["heap_growth_bytes"] = double(first->heapGrowth);
    state.counters["payload_bytes"] = double(p.bytes);
    state.counters["rss_growth_bytes"] = growth;
    state.counters["rss_growth_after_trim_bytes"] = double(first->residentAfterTrim - first->residentBefore);
    state.counters["allowance_bytes"] = allowance;
    state.counters["rss_per_row"] = growth / double(p.rows);
    state.counters["payload_per_row"] = double(p.bytes) / double(p.rows);
    state.counters["memory_ratio"] = growth / allowance;
    // What the load held at its most against what it keeps.
    state.counters["peak_growth_bytes"] = double(first->peakAfter - first->residentBefore);
    state.counters["peak_over_settled"] = double(first->peakAfter - first->residentBefore) / growth;
}

void loadOurs(benchmark::State& state, bench::LoadMode mode)
{
    int batches = 0;
    for (auto _ : state) {
        bench::LoadRun run = bench::loadMarket(mode);
        batches = run.batches;
        state.SetIterationTime(run.seconds);
    }
    state.counters["batches"] = batches;
    if (mode == bench::LoadMode::Streaming) reportMemory(state);
}

// Every table with its key and the product's secondary indexes, filled in
// one transaction per table through prepared inserts of the already decoded
// rows (no text to parse: the peer skips the decoding our load includes).
void loadPeer(benchmark::State& state)
{
    bench::ensureMarketLoaded();
    Database* db = bench::coreDatabase();
    long long rows = 0;
    sqlite3_int64 bytes = 0;
    for (auto _ : state) {
        sqlite3_int64 before = sqlite3_memory_used();
        double seconds;
        {
            bench::Sqlite peer;
            auto started = std::chrono::steady_clock::now();
            rows = 0;
            for (QString const& name : db->tableNames())
                rows += bench::mirrorTable(peer, *db->table(name), bench::productLayout(name));
            seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
            bytes = sqlite3_memory_used() - before;
        }
        state.SetIterationTime(seconds);
    }
    state.counters["rows"] = double(rows);
    state.counters["sqlite_bytes_per_row"] = double(bytes) / double(rows);
}

int const registered = [] {
    benchmark::RegisterBenchmark("load.ours.loadFile", loadOurs, bench::LoadMode::Streaming)
        ->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(1)->Repetitions(5);
    benchmark::RegisterBenchmark("load.ours.loadFileAtomically", loadOurs, bench::LoadMode::Atomically)
        ->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(1)->Repetitions(5);
    benchmark::RegisterBenchmark("load.peer.sqlite_insert", loadPeer)
        ->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(1)->Repetitions(5);
    return 0;
}();

} // namespace
