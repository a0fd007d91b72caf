#include "cachedindex.h"
#include "index_fixture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <random>
#include <set>
#include <thread>

using namespace indextest;

namespace {

using Abc = MasterKey_Struct<int, int, int>;
using CachedAbc = MasterIndexCached<MasterIndex_Struct<int, int, int>>;

// "ranked" rows 0..n-1 with (a, b, c) = (id, 0, 0).
struct Cached : Db
{
    explicit Cached(int rows)
    {
        QJsonArray ops;
        for (int i = 0; i < rows; ++i) ops.append(op("insert", rankedRow(i, i, 0, 0, i, QStringLiteral("K"))));
        apply("ranked", ops);
    }
};

qint64 idOf(Record const& r) { return r.isEmpty() ? -1 : r.data("id").rawInt64(); }

} // namespace

TEST(Cache, EvictsTheLeastRecentlyUsed)
{
    Cached t(200);
    Registered<CachedAbc> index(t.ranked(), QStringList{"a", "b", "c"});
    for (int i = 0; i < 100; ++i) ASSERT_EQ(idOf(index->findKey(Abc(i, 0, 0), -1)), i);
    EXPECT_EQ(index->cachedCount(), 100);
    quint64 searches = index->searchCount();
    EXPECT_EQ(idOf(index->findKey(Abc(0, 0, 0), -1)), 0);   // a hit: no search, 0 becomes the most recent
    EXPECT_EQ(index->searchCount(), searches);

    EXPECT_EQ(idOf(index->findKey(Abc(100, 0, 0), -1)), 100);
    EXPECT_EQ(index->cachedCount(), 100);
    EXPECT_TRUE(index->isCached(Abc(0, 0, 0)));
    EXPECT_FALSE(index->isCached(Abc(1, 0, 0)));
    QList<Abc> keys = index->cachedKeys();
    EXPECT_EQ(keys.first(), Abc(100, 0, 0));
    EXPECT_EQ(keys.at(1), Abc(0, 0, 0));
    EXPECT_EQ(keys.last(), Abc(2, 0, 0));
}

TEST(Cache, InsertReplacesAndRemoveReports)
{
    Cache<QString, int> cache;
    cache.insert("a", 1);
    cache.insert("b", 2);
    cache.insert("a", 3);   // replaces, and is now the most recent
    EXPECT_EQ(cache.keys(), QStringList({"a", "b"}));
    EXPECT_EQ(cache.totalCost(), 2);
    EXPECT_EQ(*cache.object("a"), 3);
    EXPECT_TRUE(cache.remove("a"));
    EXPECT_FALSE(cache.remove("a"));
    EXPECT_EQ(cache.totalCost(), 1);
}

TEST(CachedIndex, AMissIsNeverCached)
{
    Cached t(10);
    MasterIndex_Column_Cached general(t.ranked(), QStringList{"a", "b", "c"});
    t.ranked()->addIndex(&general);
    general.build();
    Registered<CachedAbc> typed(t.ranked(), QStringList{"a", "b", "c"});

    for (int round = 0; round < 2; ++round) {
        EXPECT_TRUE(typed->findKey(Abc(42, 0, 0), -1).isEmpty());
        EXPECT_TRUE(general.findKey(MasterKey() << 42 << 0 << 0, -1).isEmpty());
    }
    EXPECT_EQ(typed->searchCount(), 2u);
    EXPECT_EQ(general.searchCount(), 2u);
    EXPECT_EQ(typed->cachedCount(), 0);
    EXPECT_EQ(general.cachedCount(), 0);

    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(idOf(typed->findKey(Abc(4, 0, 0), -1)), 4);
        EXPECT_EQ(idOf(general.findKey(MasterKey() << 4 << 0 << 0, -1)), 4);
    }
    EXPECT_EQ(typed->searchCount(), 3u);
    EXPECT_EQ(general.searchCount(), 3u);
    // find() by a key record goes through the same cache.
    Record key(t.ranked());
    key.data("a").setRawInt32(4);
    key.data("b").setRawInt32(0);
    key.data("c").setRawInt32(0);
    EXPECT_EQ(idOf(general.find(key, -1)), 4);
    EXPECT_EQ(general.searchCount(), 3u);
    t.ranked()->removeIndex(&general);
}

// Whatever takes a row out of the index (a batch or a direct removal), or
// moves it to another key, takes its key out of the cache.
TEST(CachedIndex, ChangedRowsLeaveTheCache)
{
    Cached t(50);
    Registered<CachedAbc> index(t.ranked(), QStringList{"a", "b", "c"});
    for (int i = 0; i < 10; ++i) ASSERT_EQ(idOf(index->findKey(Abc(i, 0, 0), -1)), i);

    t.apply("ranked", QJsonArray{op("delete", QJsonObject{{"id", 3}})});
    EXPECT_TRUE(index->findKey(Abc(3, 0, 0), -1).isEmpty());
    EXPECT_FALSE(index->isCached(Abc(3, 0, 0)));

    // An update of a key column: the old key no longer finds the row.
    t.apply("ranked", QJsonArray{op("update", QJsonObject{{"id", 5}, {"c", 9}})});
    EXPECT_TRUE(index->findKey(Abc(5, 0, 0), -1).isEmpty());
    EXPECT_EQ(idOf(index->findKey(Abc(5, 0, 9), -1)), 5);

    // An update outside the key keeps the cached answer.
    t.apply("ranked", QJsonArray{op("update", QJsonObject{{"id", 6}, {"v", 1}})});
    EXPECT_TRUE(index->isCached(Abc(6, 0, 0)));
    EXPECT_EQ(idOf(index->findKey(Abc(6, 0, 0), -1)), 6);

    // A row deleted and inserted again under the same key is the new row.
    Record before = index->findKey(Abc(7, 0, 0), -1);
    t.apply("ranked", QJsonArray{op("delete", QJsonObject{{"id", 7}}), op("insert", rankedRow(77, 7, 0, 0, 0, "N"))});
    EXPECT_EQ(idOf(index->findKey(Abc(7, 0, 0), -1)), 77);
    EXPECT_FALSE(before.inTable());

    // A removal straight from the index, outside a batch.
    Record r = index->findKey(Abc(2, 0, 0), -1);
    index->remove(r, index->indexOf(r));
    EXPECT_FALSE(index->isCached(Abc(2, 0, 0)));
    EXPECT_TRUE(index->findKey(Abc(2, 0, 0), -1).isEmpty());

    t.apply("ranked", QJsonArray{QJsonObject{{"clear", true}}});
    EXPECT_EQ(index->cachedCount(), 0);
    EXPECT_TRUE(index->findKey(Abc(1, 0, 0), -1).isEmpty());
}

// Lookups from a second thread while the updating thread inserts, updates
// and deletes rows: found rows always carry the key asked for, and once the
// updates stop no cache holds an answer that the table contradicts.
TEST(CachedIndexThreads, LookupsRaceWithBatches)
{
    Db t(R"({"tables": [{"name": "quotes", "key": ["stock", "board", "sec"], "columns": [
        {"name": "stock", "type": 1, "nullable": false}, {"name": "board", "type": 1, "nullable": false},
        {"name": "sec", "type": 2, "nullable": false}, {"name": "isin", "type": 1, "nullable": false},
        {"name": "qty", "type": 1}]}]})");
    Table* table = t.db.table("quotes").data();
    using Id = MasterKey_Struct<int, int, long long>;
    using Isin = MasterKey_Struct<int, int, int>;
    MasterIndexCached<MasterIndex_Struct<int, int, long long>> byId(table, QStringList{"stock", "board", "sec"});
    MasterIndexCached<MasterIndex_Struct<int, int, int>> byIsin(table, QStringList{"stock", "board", "isin"});
    table->addIndex(&byId);
    table->addIndex(&byIsin);

    int const secs = 400;
    auto idOfSec = [](int s) { return Id(1 + s % 2, 10 + s % 3, 1000000000000LL + s); };
    auto row = [&](int s, int isin, int qty) {
        Id k = idOfSec(s);
        return QJsonObject{{"stock", k.value}, {"board", k.rest.value}, {"sec", QString::number(k.rest.rest.value)},
                           {"isin", isin}, {"qty", qty}};
    };
    std::map<int, int> present;   // sec -> isin
    int nextIsin = 1;
    QJsonArray ops;
    for (int s = 0; s < secs; s += 2) {
        present[s] = nextIsin;
        ops.append(op("insert", row(s, nextIsin++, 0)));
    }
    t.apply("quotes", ops);

    int const stockCol = table->columnIndex("stock"), boardCol = table->columnIndex("board"), secCol = table->columnIndex("sec");
    std::atomic<bool> stop{false};
    std::atomic<int> wrong{0}, lookups{0};
    std::thread reader([&] {
        std::mt19937 rng(11);
        while (!stop.load()) {
            Id k = idOfSec(int(rng() % secs));
            Record r = byId.findKey(k, -1);
            if (!r.isEmpty()) {
                if (rawColumn<qint32>(r, stockCol) != k.value || rawColumn<qint32>(r, boardCol) != k.rest.value ||
                    rawColumn<qint64>(r, secCol) != k.rest.rest.value)
                    ++wrong;
            }
            byIsin.findKey(Isin(k.value, k.rest.value, int(rng() % 4000)), -1);
            ++lookups;
        }
    });

    std::mt19937 rng(5);
    for (int batch = 0; batch < 300; ++batch) {
        QJsonArray ops;
        std::set<int> touched;
        for (int n = 0; n < 12; ++n) {
            int s = int(rng() % secs);
            if (!touched.insert(s).second) continue;
            auto it = present.find(s);
            if (it == present.end()) {
                present[s] = nextIsin;
                ops.append(op("insert", row(s, nextIsin++, batch)));
            } else if (rng() % 3 == 0) {
                present.erase(it);
                Id k = idOfSec(s);
                ops.append(op("delete", QJsonObject{{"stock", k.value}, {"board", k.rest.value}, {"sec", QString::number(k.rest.rest.value)}}));
            } else {
                it->second = nextIsin;
                ops.append(op("update", row(s, nextIsin++, batch)));
            }
        }
        t.apply("quotes", ops);
    }
    stop = true;
    reader.join();

    EXPECT_GT(lookups.load(), 0);
    EXPECT_EQ(wrong.load(), 0);
    std::set<int> liveIsins;
    for (auto const& p : present) liveIsins.insert(p.second);
    for (int s = 0; s < secs; ++s) {
        Id k = idOfSec(s);
        Record r = byId.findKey(k, -1);
        auto it = present.find(s);
        ASSERT_EQ(r.isEmpty(), it == present.end()) << s;
        if (r.isEmpty()) continue;
        EXPECT_EQ(r.data("isin").rawInt32(), it->second);
        EXPECT_EQ(byIsin.findKey(Isin(k.value, k.rest.value, it->second), -1), r) << s;
    }
    // Retired isins (updated away or deleted) find nothing, cached or not.
    for (int isin = 1; isin < nextIsin; ++isin) {
        if (liveIsins.count(isin)) continue;
        for (int stock : {1, 2})
            for (int board : {10, 11, 12}) EXPECT_TRUE(byIsin.findKey(Isin(stock, board, isin), -1).isEmpty()) << isin;
    }
    table->removeIndex(&byIsin);
    table->removeIndex(&byId);
}
