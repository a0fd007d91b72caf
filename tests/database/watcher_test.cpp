// A table's watchers: told once per applied batch of exactly the rows it
// inserted, updated and deleted, after the indexes and dependents ended.
#include "support.h"
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>
#include <tuple>

namespace {
QStringList keysOf(QList<Record> const& rows)
{
    QStringList keys;
    for (Record const& r : rows) keys << QStringLiteral("%1,%2").arg(r.data("grp").rawInt32()).arg(r.data("id").rawInt64());
    return keys;
}

// Every call a watcher received, as text.
struct Seen
{
    QStringList calls;
    Table::Watcher watcher(QString const& name)
    {
        return [this, name](RowChanges const& c) {
            calls << QStringLiteral("%1:%2ins[%3] upd[%4] del[%5]")
                         .arg(name, c.cleared ? QStringLiteral("cleared ") : QString(), keysOf(c.inserted).join(' '),
                              keysOf(c.updated).join(' '), keysOf(c.deleted).join(' '));
        };
    }
};
} // namespace

TEST(RowWatcher, IsToldTheFoldedRowsOfABatchAfterEveryIndexAndDependentEnded)
{
    TestDb t;
    t.apply(R"({"table":"items","ops":[{"insert":{"grp":1,"id":1}},{"insert":{"grp":1,"id":2}},{"insert":{"grp":1,"id":3}}]})");
    RecordingIndex index("idx"), dependent("dep");
    t.items->addIndex(&index);
    t.items->addDependentIndex(&dependent);
    QStringList endedBefore;
    QList<int> deletedQty;
    RowChanges told;
    int calls = 0;
    TableWatch watch(t.items, "test", [&](RowChanges const& c) {
        ++calls;
        told = c;
        endedBefore << index.calls.last() << dependent.calls.last();
        EXPECT_TRUE(t.items->isLockedByCurrentThread());
        // A deleted row is still readable while the watcher runs, as it last stood.
        for (Record const& r : c.deleted) {
            EXPECT_FALSE(r.inTable());
            deletedQty << r.data("qty").rawInt32();
        }
    });
    t.apply(R"({"table":"items","ops":[{"update":{"grp":1,"id":3,"qty":7}}]})");
    ASSERT_EQ(calls, 1);
    EXPECT_EQ(endedBefore, QStringList({"idx.end", "dep.depEnd"}));

    // Row 1 updated twice (one entry), row 2 updated then deleted (deleted
    // only), row 3 deleted, row 4 inserted and updated (inserted only),
    // row 5 inserted then deleted (nowhere).
    t.apply(R"({"table":"items","ops":[
        {"update":{"grp":1,"id":1,"price":"1.50"}}, {"update":{"grp":1,"id":2,"qty":4}}, {"update":{"grp":1,"id":1,"name":"x"}},
        {"delete":{"grp":1,"id":2}}, {"delete":{"grp":1,"id":3}}, {"insert":{"grp":1,"id":4}}, {"update":{"grp":1,"id":4,"qty":1}},
        {"insert":{"grp":1,"id":5}}, {"delete":{"grp":1,"id":5}}]})");
    ASSERT_EQ(calls, 2);
    // The indexes saw the same folded rows, once each, in order; the
    // updated columns' range still counts the deleted row's.
    int const price = t.items->columnIndex("price"), name = t.items->columnIndex("name"), qty = t.items->columnIndex("qty");
    EXPECT_EQ(index.calls.mid(4), QStringList({"idx.begin", "idx.preprocess(1,1,2)",
                                               QStringLiteral("idx.process(1,1,2,%1..%2)").arg(std::min(price, name)).arg(std::max({price, qty, name})),
                                               "idx.end"}));
    EXPECT_EQ(dependent.calls, QStringList({"dep.depBegin", "dep.depEnd", "dep.depBegin", "dep.depEnd"}));
    EXPECT_EQ(told.table, t.items.data());
    EXPECT_EQ(told.origin, "inline:1");
    EXPECT_FALSE(told.cleared);
    EXPECT_EQ(keysOf(told.inserted), QStringList({"1,4"}));
    EXPECT_EQ(keysOf(told.updated), QStringList({"1,1"}));
    EXPECT_EQ(keysOf(told.deleted), QStringList({"1,2", "1,3"}));
    EXPECT_EQ(deletedQty, QList<int>({0, 7}));   // row 2's update left with it
    EXPECT_TRUE(told.inserted[0].inTable());
    EXPECT_EQ(told.inserted[0].data("qty").rawInt32(), 1);
    EXPECT_EQ(told.updated[0].data("name").toString(), "x");
    // The columns of the rows still updated: not the deleted row's "qty";
    // none outside the table's columns or of a second updated row.
    for (auto [row, column, changed] : {std::tuple{-1, price, true}, {-1, name, true}, {-1, qty, false}, {-1, -1, false},
                                        {-1, t.items->columnCount(), false}, {0, price, true}, {0, name, true}, {0, qty, false}, {1, price, false}})
        EXPECT_EQ(row < 0 ? told.columnChanged(column) : told.columnChanged(row, column), changed) << row << ", " << column;
    t.items->removeIndex(&index);
    t.items->removeDependentIndex(&dependent);
}

TEST(RowWatcher, HearsOfClearsButNotOfRejectedOrEmptyBatchesOrOfRebuilds)
{
    TestDb t;
    t.apply(R"({"table":"items","ops":[{"insert":{"grp":1,"id":1}}]})");
    Seen seen;
    TableWatch watch(t.items, "w", seen.watcher("w"));
    EXPECT_THROW(t.apply(R"({"table":"items","ops":[{"insert":{"grp":1,"id":2}},{"insert":{"grp":1,"id":1}}]})"), Exception);
    EXPECT_THROW(t.apply(R"({"table":"items","ops":[{"update":{"grp":1,"id":1,"qty":1}},{"update":{"grp":9,"id":9,"qty":1}}]})"), Exception);
    t.apply(R"({"table":"items","ops":[{"insert":{"grp":2,"id":2}},{"delete":{"grp":2,"id":2}}]})");   // cancels out
    t.items->build();
    t.items->rebuild();
    EXPECT_TRUE(seen.calls.isEmpty()) << seen.calls.join('\n').toStdString();

    // A batch that clears lists what the table holds after it.
    t.apply(R"({"table":"items","ops":[{"insert":{"grp":3,"id":3}},{"clear":true},{"insert":{"grp":4,"id":4}}]})");
    t.items->clear();
    EXPECT_EQ(seen.calls, QStringList({"w:cleared ins[4,4] upd[] del[]", "w:cleared ins[] upd[] del[]"}));
}

TEST(RowWatcher, OneThatThrowsIsReportedWithTheAppliedBatchAndStopsNoOther)
{
    TestDb t;
    Seen seen;
    TableWatch first(t.items, "first", seen.watcher("first"));
    TableWatch broken(t.items, "broken", [](RowChanges const&) { throw Exception("no room"); });
    TableWatch last(t.items, "last", seen.watcher("last"));
    EXPECT_EQ(hookFailureOf([&] { t.apply(R"({"table":"items","ops":[{"insert":{"grp":1,"id":1}}]})"); }),
              "inline:1: applied to table 'items', but watcher 'broken' failed: no room");
    EXPECT_EQ(t.masterKeys(), QStringList({"1,1"}));
    // It stays registered: the next batch reaches all three again.
    EXPECT_THROW(t.apply(R"({"table":"items","ops":[{"delete":{"grp":1,"id":1}}]})"), HookFailure);
    EXPECT_EQ(seen.calls, QStringList({"first:ins[1,1] upd[] del[]", "last:ins[1,1] upd[] del[]", "first:ins[] upd[] del[1,1]",
                                       "last:ins[] upd[] del[1,1]"}));
    EXPECT_TRUE(t.masterKeys().isEmpty());
}

TEST(RowWatcher, ABatchAppliedFromAWatcherIsRejectedAndTheOuterOneStands)
{
    TestDb t;
    TableWatch nested(t.items, "nested", [&](RowChanges const&) {
        t.apply(R"({"table":"items","ops":[{"insert":{"grp":9,"id":9}}]})");
    });
    QString const message = hookFailureOf([&] { t.apply(R"({"table":"items","ops":[{"insert":{"grp":1,"id":1}}]})"); });
    EXPECT_TRUE(message.contains("watcher 'nested' failed: inline:1: not applied to table 'items': a batch cannot be applied while a watcher runs"))
        << message.toStdString();
    EXPECT_EQ(t.masterKeys(), QStringList({"1,1"}));
    nested.reset();
    t.apply(R"({"table":"items","ops":[{"insert":{"grp":9,"id":9}}]})");   // outside a watcher, as ever
    EXPECT_EQ(t.masterKeys(), QStringList({"1,1", "9,9"}));
}

TEST(RowWatcher, RemovedOrAddedInsideACallTakesEffectAtOnceOrFromTheNextBatch)
{
    TestDb t;
    Seen seen;
    Table::WatcherId self = 0, later = 0, added = 0;
    int selfCalls = 0;
    self = t.items->addWatcher("self", [&](RowChanges const&) {
        ++selfCalls;
        t.items->removeWatcher(self);    // its own call goes on to its end
        t.items->removeWatcher(later);   // not yet called for this batch: never is
        added = t.items->addWatcher("added", seen.watcher("added"));
    });
    later = t.items->addWatcher("later", seen.watcher("later"));
    t.apply(R"({"table":"items","ops":[{"insert":{"grp":1,"id":1}}]})");
    EXPECT_EQ(selfCalls, 1);
    EXPECT_TRUE(seen.calls.isEmpty()) << seen.calls.join('\n').toStdString();
    EXPECT_EQ(t.items->watcherCount(), 1);

    t.apply(R"({"table":"items","ops":[{"insert":{"grp":1,"id":2}}]})");
    EXPECT_EQ(selfCalls, 1);
    EXPECT_EQ(seen.calls, QStringList({"added:ins[1,2] upd[] del[]"}));
    t.items->removeWatcher(added);
    EXPECT_EQ(t.items->watcherCount(), 0);
}

TEST(RowWatcher, AHolderOutlivingItsTableLetsGoQuietly)
{
    auto t = std::make_unique<TestDb>();
    Seen seen;
    TableWatch watch(t->items, "w", seen.watcher("w"));
    TableWatch moved = std::move(watch);
    EXPECT_FALSE(watch.isActive());
    EXPECT_TRUE(moved.isActive());
    t->apply(R"({"table":"items","ops":[{"insert":{"grp":1,"id":1}}]})");
    EXPECT_EQ(seen.calls.size(), 1);
    t.reset();   // the table goes first
    EXPECT_FALSE(moved.isActive());
    moved.reset();
}

// A watcher added on another thread together with a read of the rows, in
// one hold of the table's lock, hears of every batch after that read and
// of none before; one removed on another thread is not running once the
// removal returns, and is not called again.
TEST(RowWatcherThreads, AddedWithAReadOfTheRowsItCountsEveryRowOnceAndRemovalWaitsForARunningCall)
{
    TestDb t;
    std::atomic<bool> ready{false};
    std::atomic<int> running{0};
    int readThen = 0;
    int heard = 0;   // written on the updating thread only
    Table::WatcherId id = 0;
    std::thread worker([&] {
        t.items->lock();
        readThen = t.items->rowCount();
        id = t.items->addWatcher("counter", [&](RowChanges const& c) {
            running.store(1);
            heard += c.inserted.size();
            std::this_thread::sleep_for(std::chrono::microseconds(200));
            running.store(0);
        });
        t.items->unlock();
        ready.store(true);
    });
    int batch = 0;
    auto insert = [&] {
        ++batch;
        t.apply(QStringLiteral(R"({"table":"items","ops":[{"insert":{"grp":1,"id":%1}},{"insert":{"grp":2,"id":%1}}]})").arg(batch).toUtf8());
    };
    while (!ready.load()) insert();
    for (int k = 0; k < 20; ++k) insert();
    worker.join();
    EXPECT_EQ(readThen + heard, t.items->rowCount());

    int const heardBefore = heard;
    std::atomic<bool> removed{false};
    std::thread remover([&] {
        while (running.load() == 0) std::this_thread::yield();
        t.items->removeWatcher(id);
        EXPECT_EQ(running.load(), 0);
        removed.store(true);
    });
    while (!removed.load()) insert();
    remover.join();
    int const heardAtRemoval = heard;
    EXPECT_GT(heardAtRemoval, heardBefore);
    insert();
    EXPECT_EQ(heard, heardAtRemoval);
    EXPECT_EQ(t.items->watcherCount(), 0);
}
