#include "support.h"
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <thread>

namespace {
constexpr int kQtyValues = 300;   // qty in [0, 300): many duplicates

// Sorted by "qty", optionally keeping key copies of `width` bytes. A copy
// spreads qty over the whole width (qty / 8 in the first word, qty % 8 in
// the last, zeros between), so that every word of a comparison can decide.
class QtyIndex final : public IndexSort
{
public:
    QtyIndex(Table* table, int width) : IndexSort(table), m_qty(table->columnIndex(QStringLiteral("qty"))), m_width(width)
    {
        if (width) keepKeyCopies(width, &QtyIndex::extract, this);
    }
    int qty(Record const& r) const { return r.data(m_qty).rawInt32(); }
    int compare(Record const& a, Record const& b) const override
    {
        int x = qty(a), y = qty(b);
        return x < y ? -1 : (x > y ? 1 : 0);
    }
    QList<int> sortColumns() const override { return {m_qty}; }
    QString getClassName() const override { return QStringLiteral("QtyIndex"); }
    int width() const { return m_width; }

private:
    static void put(unsigned char* out, quint32 v)
    {
        for (int i = 3; i >= 0; --i, v >>= 8) out[i] = static_cast<unsigned char>(v);
    }
    static void extract(void const* owner, Record const& r, unsigned char* out)
    {
        auto const* self = static_cast<QtyIndex const*>(owner);
        auto q = quint32(self->qty(r));
        std::memset(out, 0, std::size_t(self->m_width));
        if (self->m_width == 4) return put(out, q);
        put(out, q / 8);
        put(out + self->m_width - 4, q % 8);
    }
    int m_qty;
    int m_width;
};

Record qtyKey(Table* t, int q)
{
    Record key(t);
    key.data(QStringLiteral("qty")).setRawInt32(q);
    return key;
}

// Every answer of `index` against a sorted vector of the live qty values.
void expectAgrees(QtyIndex const& index, std::vector<int> const& sorted, Table* t)
{
    SCOPED_TRACE(index.width());
    int const n = int(sorted.size());
    ASSERT_EQ(index.count(), n);
    for (int i = 0; i < n; ++i) ASSERT_EQ(index.qty(index.at(i)), sorted[std::size_t(i)]) << "at " << i;
    EXPECT_TRUE(index.at(n).isEmpty());
    EXPECT_TRUE(index.at(-1).isEmpty());
    // A row is found as itself, wherever in its run of equal keys it lies.
    for (int i = 0; i < n; i += 7) {
        ASSERT_EQ(index.indexOf(index.at(i)), i);
        ASSERT_EQ(index.searchFull(index.at(i), -1), i);
        ASSERT_EQ(index.searchFull(index.at(i), i), -1);
    }
    std::vector<Record> keys;
    for (int q = -1; q <= kQtyValues; ++q) {
        keys.push_back(qtyKey(t, q));
        Record const& key = keys.back();
        int lb = int(std::lower_bound(sorted.begin(), sorted.end(), q) - sorted.begin());
        int ub = int(std::upper_bound(sorted.begin(), sorted.end(), q) - sorted.begin());
        bool present = lb < ub;
        ASSERT_EQ(index.search(key, -1), present ? lb : -1) << "qty " << q;
        ASSERT_EQ(index.searchLast(key, -1), present ? ub - 1 : -1) << "qty " << q;
        ASSERT_EQ(index.find(key, -1), present ? index.at(lb) : Record()) << "qty " << q;
        // After a given position: the first (last) equal key beyond it.
        for (int from : {lb - 1, lb, (lb + ub) / 2, ub - 1, ub, n - 1, n, n / 3}) {
            int first = std::max(lb, from + 1);
            ASSERT_EQ(index.search(key, from), first < ub ? first : -1) << "qty " << q << " from " << from;
            ASSERT_EQ(index.searchLast(key, from), present && ub - 1 > from ? ub - 1 : -1) << "qty " << q << " from " << from;
        }
    }
    std::vector<Record const*> pointers;
    for (Record const& k : keys) pointers.push_back(&k);
    std::vector<Record> each = index.findEach(pointers);
    ASSERT_EQ(each.size(), keys.size());
    for (std::size_t k = 0; k < keys.size(); ++k) ASSERT_EQ(each[k], index.find(keys[k], -1)) << "qty " << int(k) - 1;
}

class IndexSearchThread : public ::testing::TestWithParam<unsigned>
{
};
} // namespace

// Searches of a sorted index, with key copies of every width (and none),
// against a sorted vector, while batches insert, delete, move and clear rows
// so that partitions split and empty. A reader on another thread searches
// under the table's lock meanwhile and must see a consistent index.
TEST_P(IndexSearchThread, EveryAnswerEqualsSortedVectorOracle)
{
    TestDb t;
    Table* table = t.items.data();
    std::vector<std::unique_ptr<QtyIndex>> indexes;
    for (int width : {0, 4, 8, 12, 16, 24, 28}) {
        indexes.emplace_back(new QtyIndex(table, width));
        table->addIndex(indexes.back().get());
    }
    ASSERT_FALSE(indexes[0]->keepsKeyCopies());
    ASSERT_TRUE(indexes[6]->keepsKeyCopies());

    std::atomic<bool> done{false};
    std::atomic<int> readerChecks{0}, readerFaults{0};
    std::thread reader([&] {
        std::mt19937 rng(GetParam() + 1000);
        while (!done.load()) {
            std::lock_guard<Table const> lock(*table);
            QtyIndex const& index = *indexes[rng() % indexes.size()];
            int q = int(rng() % kQtyValues);
            int first = -1, last = -1, previous = -1;
            for (int i = 0; i < index.count(); ++i) {
                int v = index.qty(index.at(i));
                if (v < previous) readerFaults.fetch_add(1);
                previous = v;
                if (v == q) { if (first < 0) first = i; last = i; }
            }
            Record key = qtyKey(table, q);
            if (index.search(key, -1) != first || index.searchLast(key, -1) != last) readerFaults.fetch_add(1);
            readerChecks.fetch_add(1);
        }
    });

    std::mt19937 rng(GetParam());
    std::map<qint64, int> live;   // id -> qty
    qint64 nextId = 0;
    int mostParts = 0;
    auto qtyValue = [&] {
        // Half of the values fall in a narrow band: long runs of equal keys
        // that span partitions, and inserts that keep splitting one.
        return rng() % 2 ? int(rng() % kQtyValues) : 140 + int(rng() % 6);
    };
    for (int round = 0; round < 70; ++round) {
        SCOPED_TRACE(round);
        QStringList ops;
        int kind = int(rng() % 10);
        std::vector<qint64> ids;
        for (auto const& [id, q] : live) ids.push_back(id);
        std::shuffle(ids.begin(), ids.end(), rng);
        if (round == 35 || (kind == 0 && round > 10)) {
            ops << QStringLiteral(R"({"clear":true})");
            live.clear();
            ids.clear();
        }
        // Bulk inserts early (merged), few at a time later (placed one by one).
        int inserts = round < 6 || kind == 1 ? 400 + int(rng() % 800) : int(rng() % 40);
        std::size_t deletes = kind == 2 ? ids.size() / 2 : std::min<std::size_t>(ids.size(), rng() % 30);
        std::size_t keyUpdates = std::min<std::size_t>(ids.size() - deletes, kind == 3 ? 300 : rng() % 20);
        bool otherColumnsOnly = kind == 4;
        for (std::size_t k = 0; k < deletes; ++k) {
            ops << QStringLiteral(R"({"delete":{"grp":1,"id":%1}})").arg(ids[k]);
            live.erase(ids[k]);
        }
        for (std::size_t k = deletes; k < deletes + keyUpdates; ++k) {
            if (otherColumnsOnly) {
                ops << QStringLiteral(R"({"update":{"grp":1,"id":%1,"code":"C%2","price":"%2.50"}})").arg(ids[k]).arg(rng() % 100);
                continue;
            }
            int q = qtyValue();
            ops << QStringLiteral(R"({"update":{"grp":1,"id":%1,"qty":%2}})").arg(ids[k]).arg(q);
            live[ids[k]] = q;
        }
        for (int k = 0; k < inserts; ++k, ++nextId) {
            int q = qtyValue();
            ops << QStringLiteral(R"({"insert":{"grp":1,"id":%1,"qty":%2,"code":"N"}})").arg(nextId).arg(q);
            live[nextId] = q;
        }
        t.apply(QStringLiteral(R"({"table":"items","ops":[%1]})").arg(ops.join(',')).toUtf8());

        std::vector<int> sorted;
        for (auto const& [id, q] : live) sorted.push_back(q);
        std::sort(sorted.begin(), sorted.end());
        mostParts = std::max(mostParts, indexes[3]->records().partitionCount());
        for (auto const& index : indexes) {
            expectAgrees(*index, sorted, table);
            if (HasFatalFailure()) break;
        }
        if (HasFatalFailure()) break;
    }
    done.store(true);
    reader.join();
    EXPECT_GT(mostParts, 3);
    EXPECT_GT(readerChecks.load(), 0);
    EXPECT_EQ(readerFaults.load(), 0);
    for (auto const& index : indexes) table->removeIndex(index.get());
}

INSTANTIATE_TEST_SUITE_P(Seeds, IndexSearchThread, ::testing::Values(1u, 2u, 3u));
