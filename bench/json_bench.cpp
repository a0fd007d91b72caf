// Reading the snapshot's batch lines with simdjson's on-demand parser, the
// one the batch decoder reads through, walking every key and value of every
// line: strings unescaped, literals read, numbers converted. No rows are
// built: this is the parsing alone, the floor under the decoder's time.
#include "market.h"

#include <QFile>
#include <benchmark/benchmark.h>
#include <simdjson.h>
#include <string>
#include <vector>

namespace {

// The snapshot, with simdjson's padding after it, and where each line starts.
struct Lines
{
    simdjson::padded_string text;
    std::vector<std::pair<std::size_t, std::size_t>> lines;   // offset, length
};

Lines const& snapshotLines()
{
    static Lines const read = [] {
        Lines l;
        QFile f(bench::snapshotPath());
        if (!f.open(QIODevice::ReadOnly)) return l;
        QByteArray const all = f.readAll();
        l.text = simdjson::padded_string(all.constData(), std::size_t(all.size()));
        std::size_t start = 0;
        for (std::size_t i = 0; i < l.text.size(); ++i)
            if (l.text.data()[i] == '\n') {
                if (i > start) l.lines.emplace_back(start, i - start);
                start = i + 1;
            }
        if (start < l.text.size()) l.lines.emplace_back(start, l.text.size() - start);
        return l;
    }();
    return read;
}

void walkSimdjson(simdjson::ondemand::value v, std::size_t& touched)
{
    switch (v.type().value()) {
    case simdjson::ondemand::json_type::object:
        for (auto field : v.get_object()) {
            touched += std::string_view(field.unescaped_key().value()).size();
            walkSimdjson(field.value().value(), touched);
        }
        return;
    case simdjson::ondemand::json_type::array:
        for (auto element : v.get_array()) walkSimdjson(element.value(), touched);
        return;
    case simdjson::ondemand::json_type::string: touched += std::string_view(v.get_string().value()).size(); return;
    case simdjson::ondemand::json_type::number: touched += v.get_double().value() != 0.5 ? 1 : 2; return;
    case simdjson::ondemand::json_type::boolean: touched += v.get_bool().value() ? 1 : 2; return;
    case simdjson::ondemand::json_type::null: touched += v.is_null() ? 1 : 2; return;
    }
}

void parseFloor(benchmark::State& state)
{
    Lines const& l = snapshotLines();
    if (l.lines.empty()) return state.SkipWithError("no snapshot");
    simdjson::ondemand::parser parser;
    for (auto _ : state) {
        std::size_t touched = 0;
        for (auto const& [offset, length] : l.lines) {
            // The next line's bytes (or the padding) stand behind each line.
            simdjson::ondemand::document doc = parser.iterate(l.text.data() + offset, length, l.text.size() + simdjson::SIMDJSON_PADDING - offset);
            walkSimdjson(doc.get_value().value(), touched);
        }
        benchmark::DoNotOptimize(touched);
    }
    state.SetBytesProcessed(qint64(state.iterations()) * qint64(l.text.size()));
}
BENCHMARK(parseFloor)->Name("json.part.simdjson_ondemand_walk")->Unit(benchmark::kMillisecond);

} // namespace
