// Lookups by key: the security directory's identity and text-id lookups and
// the board directory's code lookup, each against its peer.
#include "market.h"
#include "sqlitepeer.h"

#include <cachedindex.h>
#include <markets.h>
#include <securities.h>

#include <database/database.h>

#include <QHash>
#include <QMutex>
#include <QMutexLocker>
#include <benchmark/benchmark.h>
#include <string>
#include <vector>

namespace {

using bench::SecurityKey;
using SecurityMaster = MasterIndexCached<MasterIndex_Struct<int, int, long long>>;
using SecurityKeyStruct = MasterKey_Struct<int, int, long long>;

QSharedPointer<Table> securities() { return bench::coreDatabase()->table(QStringLiteral("securities")); }

SecurityMaster const* typedMaster() { return dynamic_cast<SecurityMaster const*>(securities()->masterIndex()); }

// A few keys spread over the table, looked up over and over: every lookup
// hits the cache, and each one moves its entry to the front.
std::vector<SecurityKey> fewKeys()
{
    std::vector<SecurityKey> const& all = bench::securityKeys();
    std::vector<SecurityKey> few;
    for (std::size_t k = 0; k < 8; ++k) few.push_back(all[all.size() * k / 8]);
    return few;
}

// Searches per lookup, so that a figure shows which path it measured.
void reportSearches(benchmark::State& state, quint64 searchesBefore)
{
    if (SecurityMaster const* m = typedMaster())
        state.counters["searches_per_lookup"] = double(m->searchCount() - searchesBefore) / double(state.iterations());
}

// ---- cached hit -------------------------------------------------------------

void hitOurs(benchmark::State& state)
{
    bench::ensureMarketLoaded();
    std::vector<SecurityKey> keys = fewKeys();
    SecurityDirectory const* dir = SecurityDirectory::i();
    for (SecurityKey const& k : keys)
        if (dir->recordById(k.stock, k.board, k.secId).isEmpty()) return state.SkipWithError("a known key was not found");
    if (!typedMaster()) return state.SkipWithError("securities has no typed cached master index");
    quint64 searches = typedMaster()->searchCount();
    std::size_t i = 0;
    for (auto _ : state) {
        SecurityKey const& k = keys[i++ & 7];
        Record r = dir->recordById(k.stock, k.board, k.secId);
        benchmark::DoNotOptimize(r.row());
    }
    reportSearches(state, searches);
}

// The parts of a cached hit, each alone: the cached index's own lookup (its
// mutex, its hash, the record), and the table reference every directory
// lookup takes from its weak pointer first (the table may be gone).
void hitPartCachedIndex(benchmark::State& state)
{
    bench::ensureMarketLoaded();
    SecurityMaster const* master = typedMaster();
    if (!master) return state.SkipWithError("securities has no typed cached master index");
    std::vector<SecurityKeyStruct> keys;
    for (SecurityKey const& k : fewKeys()) keys.emplace_back(k.stock, k.board, k.secId);
    for (auto const& k : keys)
        if (master->findKey(k, -1).isEmpty()) return state.SkipWithError("a known key was not found");
    std::size_t i = 0;
    for (auto _ : state) {
        Record r = master->findKey(keys[i++ & 7], -1);
        benchmark::DoNotOptimize(r.row());
    }
}

void hitPartTableReference(benchmark::State& state)
{
    bench::ensureMarketLoaded();
    QWeakPointer<Table> weak = securities();
    for (auto _ : state) {
        QSharedPointer<Table> t = weak.toStrongRef();
        benchmark::DoNotOptimize(t.data());
    }
}

// A bare hash of every row under a mutex: the least a thread-safe lookup by
// key can cost.
void hitPeerHash(benchmark::State& state)
{
    bench::ensureMarketLoaded();
    QHash<SecurityKeyStruct, Record> hash;
    {
        QSharedPointer<Table> t = securities();
        int stock = t->columnIndex(QStringLiteral("stock_id")), board = t->columnIndex(QStringLiteral("board_id"));
        int sec = t->columnIndex(QStringLiteral("sec_id"));
        hash.reserve(t->rowCount());
        for (auto it = t->masterIndex()->begin(); it != t->masterIndex()->end(); ++it)
            hash.insert(SecurityKeyStruct(t->dataPtr(it->row(), stock).rawInt32(), t->dataPtr(it->row(), board).rawInt32(),
                                          t->dataPtr(it->row(), sec).rawInt64()),
                        *it);
    }
    QMutex mutex;
    std::vector<SecurityKeyStruct> keys;
    for (SecurityKey const& k : fewKeys()) keys.emplace_back(k.stock, k.board, k.secId);
    for (auto const& k : keys)
        if (!hash.contains(k)) return state.SkipWithError("a known key is not in the hash");
    std::size_t i = 0;
    for (auto _ : state) {
        Record r;
        {
            QMutexLocker lock(&mutex);
            r = hash.value(keys[i++ & 7]);
        }
        benchmark::DoNotOptimize(r.row());
    }
}

// ---- cache miss: the typed binary search ---------------------------------------

void missOurs(benchmark::State& state)
{
    bench::ensureMarketLoaded();
    std::vector<SecurityKey> keys = bench::shuffledSecurityKeys();
    SecurityDirectory const* dir = SecurityDirectory::i();
    int isin = securities()->columnIndex(QStringLiteral("isin_id"));
    for (std::size_t k = 0; k < keys.size(); k += 97) {
        Record r = dir->recordById(keys[k].stock, keys[k].board, keys[k].secId);
        if (r.isEmpty() || r.data(isin).rawInt32() != keys[k].isinId) return state.SkipWithError("a known key was not found");
    }
    if (!typedMaster()) return state.SkipWithError("securities has no typed cached master index");
    quint64 searches = typedMaster()->searchCount();
    std::size_t i = 0, n = keys.size();
    for (auto _ : state) {
        SecurityKey const& k = keys[i];
        if (++i == n) i = 0;
        Record r = dir->recordById(k.stock, k.board, k.secId);
        benchmark::DoNotOptimize(r.data(isin).rawInt32());
    }
    reportSearches(state, searches);
    state.counters["rows"] = double(n);
}

// The typed binary search alone, without the cache in front: the share of
// a miss that the search itself takes.
void missSearchOnly(benchmark::State& state)
{
    bench::ensureMarketLoaded();
    std::vector<SecurityKey> keys = bench::shuffledSecurityKeys();
    auto const* search = static_cast<MasterIndex_Struct<int, int, long long> const*>(typedMaster());
    if (!search) return state.SkipWithError("securities has no typed cached master index");
    int isin = securities()->columnIndex(QStringLiteral("isin_id"));
    std::size_t i = 0, n = keys.size();
    for (auto _ : state) {
        SecurityKey const& k = keys[i];
        if (++i == n) i = 0;
        Record r = search->findKey(SecurityKeyStruct(k.stock, k.board, k.secId), -1);
        benchmark::DoNotOptimize(r.data(isin).rawInt32());
    }
}

void missPeer(benchmark::State& state, bench::KeyForm form)
{
    std::vector<SecurityKey> keys = bench::shuffledSecurityKeys();
    bench::Sqlite& db = bench::securitiesMirror(form);
    bool packed = form == bench::KeyForm::PackedRowid;
    sqlite3_stmt* s = db.prepare(packed ? "SELECT isin_id FROM securities WHERE k = ?1"
                                        : "SELECT isin_id FROM securities WHERE stock_id = ?1 AND board_id = ?2 AND sec_id = ?3");
    auto bind = [&](SecurityKey const& k) { bench::bindSecurityKey(s, form, k.stock, k.board, k.secId); };
    for (std::size_t k = 0; k < keys.size(); k += 97) {
        bind(keys[k]);
        if (bench::stepOne(s) != keys[k].isinId) return state.SkipWithError("the peer did not find a known key");
    }
    std::size_t i = 0, n = keys.size();
    for (auto _ : state) {
        SecurityKey const& k = keys[i];
        if (++i == n) i = 0;
        bind(k);
        benchmark::DoNotOptimize(bench::stepOne(s));
    }
    state.counters["rows"] = double(n);
}

// ---- text id ------------------------------------------------------------------

void textOurs(benchmark::State& state)
{
    bench::ensureMarketLoaded();
    std::vector<SecurityKey> keys = bench::shuffledSecurityKeys();
    std::vector<QString> ids;
    ids.reserve(keys.size());
    for (SecurityKey const& k : keys) ids.push_back(SecurityDirectory::textIdById(k.stock, k.board, k.secId));
    SecurityDirectory const* dir = SecurityDirectory::i();
    int isin = securities()->columnIndex(QStringLiteral("isin_id"));
    for (std::size_t k = 0; k < keys.size(); k += 97) {
        Record r = dir->recordByTextId(ids[k]);
        if (r.isEmpty() || r.data(isin).rawInt32() != keys[k].isinId) return state.SkipWithError("a known text id was not found");
    }
    std::size_t i = 0, n = ids.size();
    for (auto _ : state) {
        QString const& id = ids[i];
        if (++i == n) i = 0;
        Record r = dir->recordByTextId(id);
        benchmark::DoNotOptimize(r.data(isin).rawInt32());
    }
}

void textPeer(benchmark::State& state)
{
    std::vector<SecurityKey> keys = bench::shuffledSecurityKeys();
    std::vector<std::string> ids;
    ids.reserve(keys.size());
    for (SecurityKey const& k : keys) ids.push_back(std::to_string(k.stock) + ',' + std::to_string(k.board) + ',' + std::to_string(k.secId));
    bench::Sqlite& db = bench::securitiesMirror(bench::KeyForm::Composite, true);
    sqlite3_stmt* s = db.prepare("SELECT isin_id FROM securities WHERE text_id = ?1");
    for (std::size_t k = 0; k < keys.size(); k += 97) {
        sqlite3_bind_text(s, 1, ids[k].data(), int(ids[k].size()), SQLITE_STATIC);
        if (bench::stepOne(s) != keys[k].isinId) return state.SkipWithError("the peer did not find a known text id");
    }
    std::size_t i = 0, n = ids.size();
    for (auto _ : state) {
        std::string const& id = ids[i];
        if (++i == n) i = 0;
        sqlite3_bind_text(s, 1, id.data(), int(id.size()), SQLITE_STATIC);
        benchmark::DoNotOptimize(bench::stepOne(s));
    }
}

// ---- board by code: a general column index -----------------------------------------

struct BoardCode
{
    int stock;
    QString code;
    std::string utf8;
    int board;
};

std::vector<BoardCode> boardCodes()
{
    QSharedPointer<Table> t = bench::coreDatabase()->table(QStringLiteral("boards"));
    int stock = t->columnIndex(QStringLiteral("stock_id")), board = t->columnIndex(QStringLiteral("board_id"));
    int code = t->columnIndex(QStringLiteral("board_code"));
    std::vector<BoardCode> codes;
    for (auto it = t->masterIndex()->begin(); it != t->masterIndex()->end(); ++it) {
        QString c = t->dataPtr(it->row(), code).toString();
        if (c.isEmpty()) continue;
        codes.push_back({t->dataPtr(it->row(), stock).rawInt32(), c, c.toStdString(), t->dataPtr(it->row(), board).rawInt32()});
    }
    return codes;
}

void codeOurs(benchmark::State& state)
{
    bench::ensureMarketLoaded();
    std::vector<BoardCode> codes = boardCodes();
    if (codes.empty()) return state.SkipWithError("no boards");
    BoardDirectory const* dir = BoardDirectory::i();
    for (BoardCode const& c : codes)
        if (dir->idByCode(c.stock, c.code) != c.board) return state.SkipWithError("a known board code was not found");
    std::size_t i = 0, n = codes.size();
    for (auto _ : state) {
        BoardCode const& c = codes[i];
        if (++i == n) i = 0;
        benchmark::DoNotOptimize(dir->idByCode(c.stock, c.code));
    }
    state.counters["rows"] = double(n);
}

void codePeer(benchmark::State& state)
{
    bench::ensureMarketLoaded();
    std::vector<BoardCode> codes = boardCodes();
    if (codes.empty()) return state.SkipWithError("no boards");
    sqlite3_stmt* s = bench::boardsMirror().prepare("SELECT board_id FROM boards WHERE stock_id = ?1 AND board_code = ?2");
    auto bind = [&](BoardCode const& c) {
        sqlite3_bind_int(s, 1, c.stock);
        sqlite3_bind_text(s, 2, c.utf8.data(), int(c.utf8.size()), SQLITE_STATIC);
    };
    for (BoardCode const& c : codes) {
        bind(c);
        if (bench::stepOne(s) != c.board) return state.SkipWithError("the peer did not find a known board code");
    }
    std::size_t i = 0, n = codes.size();
    for (auto _ : state) {
        BoardCode const& c = codes[i];
        if (++i == n) i = 0;
        bind(c);
        benchmark::DoNotOptimize(bench::stepOne(s));
    }
}

int const registered = [] {
    benchmark::RegisterBenchmark("hit.ours.recordById", hitOurs);
    benchmark::RegisterBenchmark("hit.peer.qhash_qmutex", hitPeerHash);
    benchmark::RegisterBenchmark("hit.part.cached_index", hitPartCachedIndex);
    benchmark::RegisterBenchmark("hit.part.table_reference", hitPartTableReference);
    benchmark::RegisterBenchmark("miss.ours.recordById", missOurs);
    benchmark::RegisterBenchmark("miss.part.search_only", missSearchOnly);
    benchmark::RegisterBenchmark("miss.peer.sqlite_composite_pk", missPeer, bench::KeyForm::Composite);
    benchmark::RegisterBenchmark("miss.peer.sqlite_rowid", missPeer, bench::KeyForm::PackedRowid);
    benchmark::RegisterBenchmark("text.ours.recordByTextId", textOurs);
    benchmark::RegisterBenchmark("text.peer.sqlite_text_index", textPeer);
    benchmark::RegisterBenchmark("code.ours.BoardDirectory_idByCode", codeOurs);
    benchmark::RegisterBenchmark("code.peer.sqlite_text_index", codePeer);
    return 0;
}();

} // namespace
