#include "support.h"
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace {
// A secondary index on (qty), duplicates allowed.
struct QtyIndex : MasterIndex_Column_Pure
{
    explicit QtyIndex(Table* t) : MasterIndex_Column_Pure(t, QStringList{"qty"}) {}
};

QByteArray insertLine(int grp, qint64 id, int qty)
{
    return QStringLiteral(R"({"table":"items","ops":[{"insert":{"grp":%1,"id":%2,"qty":%3}}]})").arg(grp).arg(id).arg(qty).toUtf8();
}
} // namespace

// Sorted index searches against a brute-force scan over random data, while
// rows come and go through batches and updates move rows between positions.
TEST(IndexSort, SearchesAgreeWithBruteForceOracle)
{
    TestDb t;
    QtyIndex qty(t.items.data());
    t.items->addIndex(&qty);
    std::mt19937 rng(12345);
    std::map<std::pair<int, qint64>, int> oracle;   // key -> qty
    for (int round = 0; round < 60; ++round) {
        QStringList ops;
        std::set<std::pair<int, qint64>> touched;
        for (int k = 0; k < 40; ++k) {
            int grp = int(rng() % 5);
            qint64 id = qint64(rng() % 50);
            auto key = std::make_pair(grp, id);
            if (!touched.insert(key).second) continue;
            int q = int(rng() % 20);
            auto it = oracle.find(key);
            if (it == oracle.end()) {
                ops << QStringLiteral(R"({"insert":{"grp":%1,"id":%2,"qty":%3}})").arg(grp).arg(id).arg(q);
                oracle[key] = q;
            } else if (rng() % 2) {
                ops << QStringLiteral(R"({"update":{"grp":%1,"id":%2,"qty":%3}})").arg(grp).arg(id).arg(q);
                it->second = q;
            } else {
                ops << QStringLiteral(R"({"delete":{"grp":%1,"id":%2}})").arg(grp).arg(id);
                oracle.erase(it);
            }
        }
        t.apply(QStringLiteral(R"({"table":"items","ops":[%1]})").arg(ops.join(',')).toUtf8());

        // Master order is the key order.
        QStringList expected;
        for (auto const& [k, q] : oracle) expected << QStringLiteral("%1,%2").arg(k.first).arg(k.second);
        ASSERT_EQ(t.masterKeys(), expected);
        ASSERT_EQ(qty.count(), int(oracle.size()));

        // The qty index is sorted and its searches match a scan.
        std::vector<int> values;
        for (auto it = qty.begin(); it != qty.end(); ++it) values.push_back(it->data("qty").rawInt32());
        ASSERT_TRUE(std::is_sorted(values.begin(), values.end()));
        for (int probe = -1; probe <= 21; ++probe) {
            Record key(t.items.data());
            key.data("qty").setRawInt32(probe);
            auto const [lo, hi] = std::equal_range(values.begin(), values.end(), probe);
            int const first = lo == hi ? -1 : int(lo - values.begin()), last = lo == hi ? -1 : int(hi - values.begin()) - 1;
            ASSERT_EQ(qty.search(key, -1), first) << probe;
            ASSERT_EQ(qty.searchLast(key, -1), last) << probe;
            if (first < 0) continue;
            ASSERT_EQ(qty.find(key, -1), qty.at(first));
            // Starting after the first match finds the next one, if any.
            ASSERT_EQ(qty.search(key, first), first < last ? first + 1 : -1);
        }
        for (int i = 0; i < qty.count(); ++i) ASSERT_EQ(qty.searchFull(qty.at(i), -1), i);
    }
    t.items->removeIndex(&qty);
}

TEST(IndexSort, LargeInsertSpansPartitionsAndIteratorsCrossThem)
{
    TestDb t;
    QStringList ops;
    for (int i = 3000; i > 0; --i) ops << QStringLiteral(R"({"insert":{"grp":1,"id":%1}})").arg(i);
    t.apply(QStringLiteral(R"({"table":"items","ops":[%1]})").arg(ops.join(',')).toUtf8());
    auto* master = t.items->masterIndex();
    ASSERT_EQ(master->count(), 3000);
    EXPECT_GT(master->records().partitionCount(), 1);
    auto it = master->begin();
    it += 1500;
    EXPECT_EQ(it->data("id").rawInt64(), 1501);
    EXPECT_EQ(it - master->begin(), 1500);
    EXPECT_EQ(master->end() - master->begin(), 3000);
    EXPECT_TRUE(master->at(3000).isEmpty());      // past the end: the shared empty record
    EXPECT_TRUE(master->at(-1).isEmpty());
    for (int i = 0; i < 3000; i += 97) EXPECT_EQ(master->at(i).data("id").rawInt64(), i + 1);
    // Small inserts into a large index go row by row and keep the order.
    t.apply(insertLine(0, 5, 1));
    t.apply(insertLine(1, 0, 1));
    EXPECT_EQ(master->toText(master->at(0)), "0,5");
    EXPECT_EQ(master->toText(master->at(1)), "1,0");
}

TEST(IndexSort, RemoveRangesAndMove)
{
    TestDb t;
    QStringList ops;
    for (int i = 0; i < 10; ++i) ops << QStringLiteral(R"({"insert":{"grp":1,"id":%1,"qty":%1}})").arg(i);
    t.apply(QStringLiteral(R"({"table":"items","ops":[%1]})").arg(ops.join(',')).toUtf8());
    QtyIndex qty(t.items.data());
    qty.build();
    ASSERT_EQ(qty.count(), 10);
    RangeSet<int> ranges;
    ranges.add(1, 2);
    ranges.add(5);
    ranges.add(3);   // joins 1..3
    EXPECT_EQ(ranges.ranges().size(), 2u);
    qty.removeRanges(ranges);
    QStringList left;
    for (auto it = qty.begin(); it != qty.end(); ++it) left << it->data("qty").toString();
    EXPECT_EQ(left, QStringList({"0", "4", "6", "7", "8", "9"}));
    qty.move(0, 5, 1);
    EXPECT_EQ(qty.at(5).data("qty").rawInt32(), 0);
    qty.resort();
    EXPECT_EQ(qty.at(0).data("qty").rawInt32(), 0);
}
