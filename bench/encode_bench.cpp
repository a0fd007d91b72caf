// Writing a whole table back as batch text, as a snapshot served over the
// network does for every table: bytes of text per second.
#include "market.h"

#include <database/batchencoder.h>
#include <database/database.h>

#include <benchmark/benchmark.h>
#include <algorithm>

namespace {

void encodeTable(benchmark::State& state, char const* name)
{
    bench::ensureMarketLoaded();
    QSharedPointer<Table> table = bench::coreDatabase()->table(QLatin1String(name));
    qint64 bytes = 0;
    for (auto _ : state) {
        QByteArray text = BatchEncoder::encodeTable(*table);
        bytes += text.size();
        benchmark::DoNotOptimize(text.constData());
    }
    state.SetBytesProcessed(bytes);
    state.counters["rows"] = table->rowCount();
    state.counters["row_buffer_bytes"] = table->rowSize();
    state.counters["bytes_per_row"] = double(bytes) / double(state.iterations()) / std::max(1, table->rowCount());
}

void checksumTable(benchmark::State& state, char const* name)
{
    bench::ensureMarketLoaded();
    QSharedPointer<Table> table = bench::coreDatabase()->table(QLatin1String(name));
    for (auto _ : state) benchmark::DoNotOptimize(tableChecksum(*table));
    state.counters["rows"] = table->rowCount();
}

int const registered = [] {
    benchmark::RegisterBenchmark("encode.securities.encodeTable", encodeTable, "securities")->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("encode.securities.tableChecksum", checksumTable, "securities")->Unit(benchmark::kMillisecond);
    return 0;
}();

} // namespace
