// Reading the snapshot's batch lines: the database's own JSON cursor against
// simdjson's on-demand parser (Debian's libsimdjson-dev), each walking every
// key and value of every line: strings unescaped, literals read, numbers
// read as checked text by ours and converted by simdjson. Neither builds
// rows: this is the parsing alone, the part a parser library would replace.
#include "market.h"
#include "json.h"

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

void walkOurs(JsonCursor& c, std::string& scratch, std::size_t& touched)
{
    switch (c.peek()) {
    case JsonCursor::Object:
        c.expect('{');
        if (c.tryConsume('}')) return;
        do {
            c.readString(scratch);
            touched += scratch.size();
            c.expect(':');
            walkOurs(c, scratch, touched);
        } while (c.tryConsume(','));
        c.expect('}');
        return;
    case JsonCursor::Array:
        c.expect('[');
        if (c.tryConsume(']')) return;
        do walkOurs(c, scratch, touched); while (c.tryConsume(','));
        c.expect(']');
        return;
    case JsonCursor::String:
        c.readString(scratch);
        touched += scratch.size();
        return;
    case JsonCursor::Number: {
        char const* b;
        char const* e;
        c.readNumber(b, e);
        touched += std::size_t(e - b);
        return;
    }
    case JsonCursor::True: case JsonCursor::False: case JsonCursor::Null:
        c.readLiteral(c.peek());
        ++touched;
        return;
    case JsonCursor::End: c.fail(QStringLiteral("unexpected end of line"));
    }
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

void parseOurs(benchmark::State& state)
{
    Lines const& l = snapshotLines();
    if (l.lines.empty()) return state.SkipWithError("no snapshot");
    std::string scratch;
    for (auto _ : state) {
        std::size_t touched = 0;
        for (auto const& [offset, length] : l.lines) {
            JsonCursor c(l.text.data() + offset, l.text.data() + offset + length);
            walkOurs(c, scratch, touched);
        }
        benchmark::DoNotOptimize(touched);
    }
    state.SetBytesProcessed(qint64(state.iterations()) * qint64(l.text.size()));
}
BENCHMARK(parseOurs)->Name("json.ours.cursor_walk")->Unit(benchmark::kMillisecond);

void parsePeer(benchmark::State& state)
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
BENCHMARK(parsePeer)->Name("json.peer.simdjson_ondemand_walk")->Unit(benchmark::kMillisecond);

} // namespace
