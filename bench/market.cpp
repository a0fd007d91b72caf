#include "market.h"
#include "process.h"

#include <core/icore.h>
#include <database/database.h>
#include <database/index.h>
#include <database/table.h>
#include <markets.h>
#include <securities.h>

#include <QDir>
#include <algorithm>
#include <chrono>
#include <memory>
#include <cstdio>
#include <malloc.h>
#include <random>
#include <unistd.h>

namespace bench {

namespace {
bool g_loaded = false;
std::vector<SecurityKey> g_keys;
std::unique_ptr<LoadRun> g_first;
LoadMode g_firstMode = LoadMode::Streaming;
} // namespace

Options& options()
{
    static Options o;
    return o;
}

QString snapshotPath() { return QDir(options().market).filePath(QStringLiteral("snapshot.jsonl")); }

Database* coreDatabase() { return ICore::instance()->database(); }

void registerDirectories()
{
    SecurityDirectory::i();
    StockSecDirectory::i();
    BoardDirectory::i();
}

void resetDatabase()
{
    // Directories first: they unregister their indexes from tables that
    // still exist.
    QSingleton<SecurityDirectory>::reset();
    QSingleton<StockSecDirectory>::reset();
    QSingleton<BoardDirectory>::reset();
    QSingleton<StockDirectory>::reset();
    Database* db = coreDatabase();
    for (QString const& name : db->tableNames()) db->dropTable(name);
    g_loaded = false;
    g_keys.clear();
}

LoadRun loadMarket(LoadMode mode)
{
    resetDatabase();
    Database* db = coreDatabase();
    db->loadSchema(options().schema);
    registerDirectories();
    LoadRun run;
    run.residentBefore = residentNowBytes();
    std::size_t heapBefore = mallinfo2().uordblks;
    auto started = std::chrono::steady_clock::now();
    run.batches = mode == LoadMode::Streaming ? db->loadFile(snapshotPath()) : db->loadFileAtomically(snapshotPath());
    run.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    run.residentAfter = residentNowBytes();
    run.peakAfter = peakResidentBytes();
    run.heapGrowth = qint64(mallinfo2().uordblks) - qint64(heapBefore);
    g_loaded = true;
    if (!g_first) {
        malloc_trim(0);
        run.residentAfterTrim = residentNowBytes();
        g_first.reset(new LoadRun(run));
        g_firstMode = mode;
    }
    return run;
}

LoadRun const* firstLoad() { return g_first.get(); }
LoadMode firstLoadMode() { return g_firstMode; }

void ensureMarketLoaded()
{
    if (!g_loaded) loadMarket(LoadMode::Streaming);
}

std::vector<SecurityKey> const& securityKeys()
{
    if (!g_keys.empty()) return g_keys;
    ensureMarketLoaded();
    QSharedPointer<Table> t = coreDatabase()->table(QStringLiteral("securities"));
    int stock = t->columnIndex(QStringLiteral("stock_id")), board = t->columnIndex(QStringLiteral("board_id"));
    int sec = t->columnIndex(QStringLiteral("sec_id")), isin = t->columnIndex(QStringLiteral("isin_id"));
    g_keys.reserve(std::size_t(t->rowCount()));
    auto* master = t->masterIndex();
    for (auto it = master->begin(); it != master->end(); ++it) {
        unsigned char* row = it->row();
        g_keys.push_back({t->dataPtr(row, stock).rawInt32(), t->dataPtr(row, board).rawInt32(),
                          t->dataPtr(row, sec).rawInt64(), t->dataPtr(row, isin).rawInt32()});
    }
    return g_keys;
}

std::vector<SecurityKey> shuffledSecurityKeys()
{
    std::vector<SecurityKey> keys = securityKeys();
    std::mt19937_64 rng(20261120);
    std::shuffle(keys.begin(), keys.end(), rng);
    return keys;
}


Payload payloadOf(Database const& db)
{
    Payload p;
    for (QString const& name : db.tableNames()) {
        QSharedPointer<Table> t = db.table(name);
        qint64 rows = t->rowCount();
        qint64 fixed = 0;
        std::vector<int> strings;
        for (int c = 0; c < t->columnCount(); ++c) {
            fixed += t->columnDef(c).length;
            if (t->columnDef(c).typeCode() == FieldType::VarChar) strings.push_back(c);
        }
        p.rows += rows;
        p.bytes += rows * fixed;
        if (!strings.empty()) {
            auto* master = t->masterIndex();
            for (auto it = master->begin(); it != master->end(); ++it)
                for (int c : strings) p.bytes += 2 * qint64(t->dataPtr(it->row(), c).asStaticString().size());
        }
        // One entry per row in every sorted list, and in the stock-security
        // directory's map, the one directory that mirrors its table row by row.
        int perRow = 0;
        for (Index* i : t->indexes())
            if (dynamic_cast<IndexList*>(i) || dynamic_cast<StockSecDirectory*>(i)) ++perRow;
        p.indexEntries += rows * perRow;
    }
    return p;
}

} // namespace bench
