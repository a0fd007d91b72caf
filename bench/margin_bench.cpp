// Variation margin on a generated market of 100k rows per table, half in
// each of two sessions: the sum of a firm's accounts (a key prefix) and the
// settlement-account map rebuilt after a changed batch, each against SQLite
// answering the same question from the same rows with a matching index.
#include "market.h"
#include "sqlitepeer.h"

#include <margin.h>

#include <database/batch.h>
#include <database/database.h>

#include <QMap>
#include <benchmark/benchmark.h>
#include <string>
#include <vector>

namespace {

constexpr int kFirms = 1000;
constexpr int kClientsPerFirm = 50;    // 1000 firms x 50 accounts x 2 sessions = 100k rows
constexpr int kSessions[] = {7301, 7302};

std::string firmCode(int firm) { return std::string(1, char('A' + firm / 100 % 26)) + std::to_string(100 + firm % 100).substr(1) + char('0' + firm / 100 % 10); }
std::string account(int firm, int client) { return firmCode(firm) + std::to_string(1000 + client).substr(1); }

// A margin in cents, spread over both signs.
long long cents(int firm, int client, int session) { return (firm * 7919LL + client * 104729LL + session * 31LL) % 10000000 - 5000000; }
std::string money(long long c)
{
    std::string sign = c < 0 ? "-" : "";
    long long a = c < 0 ? -c : c;
    std::string frac = std::to_string(100 + a % 100).substr(1);
    return sign + std::to_string(a / 100) + "." + frac;
}

struct Fixture
{
    std::vector<QString> firms;
    QByteArray changeA, changeB;   // one settlement account's margin, two values
    std::unique_ptr<bench::Sqlite> peer;
};

Fixture& fixture()
{
    static Fixture f;
    if (f.peer) return f;
    bench::resetDatabase();
    QSingleton<FutVMDirectory>::reset();
    QSingleton<FutVMSADirectory>::reset();
    Database* db = bench::coreDatabase();
    db->loadSchema(bench::options().schema);
    FutVMDirectory::i();
    FutVMSADirectory::i();
    std::string vm = R"({"table":"fut_vm","ops":[)", sa = R"({"table":"fut_vm_sa","ops":[)";
    for (int firm = 0; firm < kFirms; ++firm) {
        f.firms.push_back(QString::fromStdString(firmCode(firm)));
        for (int client = 0; client < kClientsPerFirm; ++client) {
            for (int session : kSessions) {
                std::string sep = vm.back() == '[' ? "" : ",";
                vm += sep + R"({"insert":{"account":")" + account(firm, client) + R"(","sess_id":)" + std::to_string(session) +
                      R"(,"vm":")" + money(cents(firm, client, session)) + "\"}}";
                sa += sep + R"({"insert":{"sess_id":)" + std::to_string(session) + R"(,"settlement_account":")" +
                      firmCode(firm) + "-RK" + std::to_string(100 + client).substr(1) + R"(","vm":")" +
                      money(cents(client, firm, session)) + "\"}}";
            }
        }
    }
    vm += "]}";
    sa += "]}";
    db->apply(BatchDecoder(*db).decode(QByteArray::fromStdString(vm), QStringLiteral("bench:fut_vm")));
    db->apply(BatchDecoder(*db).decode(QByteArray::fromStdString(sa), QStringLiteral("bench:fut_vm_sa")));
    f.changeA = R"({"table":"fut_vm_sa","ops":[{"update":{"sess_id":7302,"settlement_account":"A000-RK07","vm":"1.00"}}]})";
    f.changeB = R"({"table":"fut_vm_sa","ops":[{"update":{"sess_id":7302,"settlement_account":"A000-RK07","vm":"2.00"}}]})";

    f.peer.reset(new bench::Sqlite);
    bench::mirrorTable(*f.peer, *db->table(QStringLiteral("fut_vm")), bench::MirrorLayout());
    bench::mirrorTable(*f.peer, *db->table(QStringLiteral("fut_vm_sa")), bench::MirrorLayout());
    return f;
}

// ---- the sum of a firm's accounts, cold -------------------------------------

xdecimal peerFirmSum(sqlite3_stmt* s, QString const& firm)
{
    std::string low = firm.toStdString(), high = low + "\x7f";
    sqlite3_bind_text(s, 1, low.c_str(), int(low.size()), SQLITE_TRANSIENT);
    sqlite3_bind_text(s, 2, high.c_str(), int(high.size()), SQLITE_TRANSIENT);
    long long sum = 0;
    if (sqlite3_step(s) == SQLITE_ROW) sum = sqlite3_column_int64(s, 0);
    sqlite3_reset(s);
    return xdecimal::fromMantissa(sum, 2);
}

sqlite3_stmt* firmSumStatement(Fixture& f)
{
    return f.peer->prepare("SELECT SUM(vm) FROM " + bench::quoted("fut_vm") + " WHERE account >= ?1 AND account < ?2");
}

void firmSumOurs(benchmark::State& state)
{
    Fixture& f = fixture();
    FutVMDirectory* dir = FutVMDirectory::i();
    sqlite3_stmt* peer = firmSumStatement(f);
    for (int k = 0; k < kFirms; k += 97)
        if (dir->calculateVM(f.firms[std::size_t(k)]).compare(peerFirmSum(peer, f.firms[std::size_t(k)])) != 0)
            return state.SkipWithError("a firm's sum differs from the peer's");
    std::size_t i = 0;
    for (auto _ : state) {
        dir->clear();   // cold: nothing cached for this batch yet
        xdecimal sum = dir->getVMByAccount(f.firms[i++ % f.firms.size()]);
        benchmark::DoNotOptimize(sum.bytes());
    }
    state.counters["rows_per_firm"] = 2 * kClientsPerFirm;
}

void firmSumPeer(benchmark::State& state)
{
    Fixture& f = fixture();
    sqlite3_stmt* peer = firmSumStatement(f);
    std::size_t i = 0;
    for (auto _ : state) {
        xdecimal sum = peerFirmSum(peer, f.firms[i++ % f.firms.size()]);
        benchmark::DoNotOptimize(sum.bytes());
    }
}

// ---- the settlement-account map after a changed batch -----------------------

void settlementOurs(benchmark::State& state)
{
    Fixture& f = fixture();
    Database* db = bench::coreDatabase();
    Batch a = BatchDecoder(*db).decode(f.changeA, QStringLiteral("bench:a"));
    Batch b = BatchDecoder(*db).decode(f.changeB, QStringLiteral("bench:b"));
    FutVMSADirectory* dir = FutVMSADirectory::i();
    std::size_t i = 0;
    for (auto _ : state) {
        db->apply(i++ % 2 ? b : a);   // the end of the batch rebuilds the map
        benchmark::DoNotOptimize(dir->getVMbySettlementAccount(QStringLiteral("A000-RK07")).bytes());
    }
    state.counters["rows"] = double(db->table(QStringLiteral("fut_vm_sa"))->rowCount());
}

QMap<QString, xdecimal> peerLatestSession(sqlite3_stmt* query)
{
    QMap<QString, xdecimal> map;
    while (sqlite3_step(query) == SQLITE_ROW) {
        QString sa = QString::fromUtf8(reinterpret_cast<char const*>(sqlite3_column_text(query, 0)), sqlite3_column_bytes(query, 0));
        map.insert(map.constEnd(), sa, xdecimal::fromMantissa(sqlite3_column_int64(query, 1), 2));
    }
    sqlite3_reset(query);
    return map;
}

void settlementPeer(benchmark::State& state)
{
    Fixture& f = fixture();
    std::string table = bench::quoted("fut_vm_sa");
    sqlite3_stmt* update = f.peer->prepare("UPDATE " + table + " SET vm = ?1 WHERE sess_id = 7302 AND settlement_account = 'A000-RK07'");
    sqlite3_stmt* query = f.peer->prepare(
        "SELECT settlement_account, SUM(vm) FROM " + table + " WHERE sess_id = (SELECT MAX(sess_id) FROM " + table +
        " WHERE settlement_account <> '') AND settlement_account <> '' GROUP BY settlement_account ORDER BY settlement_account");
    // The same answer as the directory's, checked once, from the same rows
    // (the other benchmark may have left either value in the changed row).
    Table* t = bench::coreDatabase()->table(QStringLiteral("fut_vm_sa")).data();
    sqlite3_bind_int64(update, 1, Record(t, QStringLiteral("7302,A000-RK07")).data(QStringLiteral("vm")).toDecimal().mantissa());
    bench::stepDone(update);
    QMap<QString, xdecimal> ours = calcVM(t, FutVMSADirectory::FutVMSAColumns{0, 1, 2});
    QMap<QString, xdecimal> theirs = peerLatestSession(query);
    if (ours.size() != theirs.size() || ours.keys() != theirs.keys()) return state.SkipWithError("the maps differ from the peer's");
    for (auto it = ours.constBegin(); it != ours.constEnd(); ++it)
        if (it.value().compare(theirs.value(it.key())) != 0) return state.SkipWithError("a sum differs from the peer's");
    std::size_t i = 0;
    for (auto _ : state) {
        sqlite3_bind_int64(update, 1, i++ % 2 ? 200 : 100);
        bench::stepDone(update);
        QMap<QString, xdecimal> map = peerLatestSession(query);
        benchmark::DoNotOptimize(map.size());
    }
}

int const registered = [] {
    benchmark::RegisterBenchmark("vm.ours.getVMByAccount_firm_cold", firmSumOurs);
    benchmark::RegisterBenchmark("vm.peer.sqlite_sum_prefix", firmSumPeer);
    benchmark::RegisterBenchmark("vm_sa.ours.changed_batch_rebuild", settlementOurs)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("vm_sa.peer.sqlite_update_group_by", settlementPeer)->Unit(benchmark::kMillisecond);
    return 0;
}();

} // namespace
