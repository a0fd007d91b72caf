// One replicated batch of 10k updates to "securities", applied with every
// index and directory of the product registered, against SQLite updating the
// same rows by key in one transaction.
#include "market.h"
#include "sqlitepeer.h"

#include <securities.h>

#include <database/batch.h>
#include <database/database.h>
#include <database/decimal.h>

#include <benchmark/benchmark.h>
#include <string>
#include <vector>

namespace {

using bench::SecurityKey;

constexpr std::size_t kRows = 10000;

enum class Change { Prices, Static };

// Two variants of every value, so that applying the batches in turn always
// changes the rows.
long long bidMantissa(std::size_t row, int variant) { return 10000000 + 100 * static_cast<long long>(row % 5000) + variant; }   // scale 5
long long askMantissa(std::size_t row, int variant) { return bidMantissa(row, variant) + 500; }
int decimalsValue(int variant) { return 3 + variant; }

std::string decimalText(long long mantissa)
{
    std::string digits = std::to_string(mantissa);
    return digits.substr(0, digits.size() - 5) + '.' + digits.substr(digits.size() - 5);
}

// The rows a batch touches: spread over the table in no particular order.
std::vector<SecurityKey> batchKeys()
{
    std::vector<SecurityKey> keys = bench::shuffledSecurityKeys();
    keys.resize(std::min(kRows, keys.size()));
    return keys;
}

QByteArray batchLine(std::vector<SecurityKey> const& keys, Change change, int variant)
{
    std::string line = R"({"table":"securities","ops":[)";
    for (std::size_t r = 0; r < keys.size(); ++r) {
        SecurityKey const& k = keys[r];
        if (r) line += ',';
        line += R"({"update":{"stock_id":)" + std::to_string(k.stock) + R"(,"board_id":)" + std::to_string(k.board) +
                R"(,"sec_id":)" + std::to_string(k.secId);
        if (change == Change::Prices)
            line += R"(,"bid":")" + decimalText(bidMantissa(r, variant)) + R"(","ask":")" + decimalText(askMantissa(r, variant)) + "\"";
        else
            line += R"(,"decimals":)" + std::to_string(decimalsValue(variant));
        line += "}}";
    }
    line += "]}";
    return QByteArray::fromStdString(line);
}

void applyOurs(benchmark::State& state, Change change)
{
    bench::ensureMarketLoaded();
    bench::registerDirectories();
    Database* db = bench::coreDatabase();
    std::vector<SecurityKey> keys = batchKeys();
    BatchDecoder decoder(*db);
    Batch batches[2] = {decoder.decode(batchLine(keys, change, 0), QStringLiteral("bench:1")),
                        decoder.decode(batchLine(keys, change, 1), QStringLiteral("bench:2"))};
    // Both batches once, and a check that the second one landed.
    db->apply(batches[0]);
    db->apply(batches[1]);
    SecurityDirectory const* dir = SecurityDirectory::i();
    Record first = dir->recordById(keys[0].stock, keys[0].board, keys[0].secId);
    bool landed = change == Change::Prices ? first.data(QStringLiteral("bid")).rawDecimal().mantissa() == bidMantissa(0, 1)
                                           : first.data(QStringLiteral("decimals")).rawInt32() == decimalsValue(1);
    if (!landed) return state.SkipWithError("the batch did not change the row");
    first = Record();
    int next = 0;
    for (auto _ : state) {
        db->apply(batches[next]);
        next ^= 1;
    }
    state.SetItemsProcessed(state.iterations() * qint64(keys.size()));
    state.counters["rows"] = double(keys.size());
}

void applyPeer(benchmark::State& state, Change change, bench::KeyForm form)
{
    std::vector<SecurityKey> keys = batchKeys();
    bench::Sqlite& db = bench::securitiesMirror(form);
    bool packed = form == bench::KeyForm::PackedRowid;
    std::string where = packed ? " WHERE k = ?1" : " WHERE stock_id = ?1 AND board_id = ?2 AND sec_id = ?3";
    std::string set = change == Change::Prices ? "UPDATE securities SET bid = ?4, ask = ?5" : "UPDATE securities SET decimals = ?4";
    sqlite3_stmt* s = db.prepare(set + where);
    auto run = [&](int variant) {
        db.exec("BEGIN");
        long long changed = 0;
        for (std::size_t r = 0; r < keys.size(); ++r) {
            SecurityKey const& k = keys[r];
            bench::bindSecurityKey(s, form, k.stock, k.board, k.secId);
            if (change == Change::Prices) {
                sqlite3_bind_int64(s, 4, bidMantissa(r, variant));
                sqlite3_bind_int64(s, 5, askMantissa(r, variant));
            } else {
                sqlite3_bind_int(s, 4, decimalsValue(variant));
            }
            bench::stepDone(s);
            changed += sqlite3_changes(db.handle());
        }
        db.exec("COMMIT");
        return changed;
    };
    if (run(0) != qint64(keys.size()) || run(1) != qint64(keys.size())) return state.SkipWithError("the peer missed rows");
    int next = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(run(next));
        next ^= 1;
    }
    state.SetItemsProcessed(state.iterations() * qint64(keys.size()));
    state.counters["rows"] = double(keys.size());
}

int const registered = [] {
    for (auto change : {Change::Prices, Change::Static}) {
        std::string figure = change == Change::Prices ? "update_prices" : "update_static";
        benchmark::RegisterBenchmark((figure + ".ours.apply").c_str(), applyOurs, change)->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark((figure + ".peer.sqlite_composite_pk").c_str(), applyPeer, change, bench::KeyForm::Composite)
            ->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark((figure + ".peer.sqlite_rowid").c_str(), applyPeer, change, bench::KeyForm::PackedRowid)
            ->Unit(benchmark::kMillisecond);
    }
    return 0;
}();

} // namespace
