#include "cachedindex.h"
#include "frame.h"
#include "index_fixture.h"
#include "masterindex.h"
#include <database/exception.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <tuple>

using namespace indextest;

namespace {

using Abc = std::tuple<int, int, int>;
using Abd = std::tuple<int, int, qint64>;

template <class I, class F>
auto keysInOrder(I const& index, F read)
{
    std::vector<decltype(read(Record()))> keys;
    for (auto it = index.begin(); it != index.end(); ++it) keys.push_back(read(*it));
    return keys;
}

// Random rows with many ties in the leading columns, spread over several
// partitions of the index.
struct RandomRanked : Db
{
    explicit RandomRanked(int rows, unsigned seed = 7)
    {
        std::mt19937 rng(seed);
        QString const alphabet = QStringLiteral("AB\u042F\uE000");
        QJsonArray ops;
        for (int i = 0; i < rows; ++i) {
            QString s;
            for (int n = int(rng() % 13); n > 0; --n) s += alphabet.at(int(rng() % 4));
            qint64 d = qint64(int(rng() % 7) - 3) * (qint64(1) << 40) + qint64(rng() % 5);
            ops.append(op("insert", rankedRow(i, int(rng() % 5) - 2, int(rng() % 5) - 2, int(rng() % 201) - 100, d, s)));
        }
        apply("ranked", ops);
    }
    int col(char const* name) const { return ranked()->columnIndex(name); }
    Abc abc(Record const& r) const
    {
        return Abc(r.data(col("a")).rawInt32(), r.data(col("b")).rawInt32(), r.data(col("c")).rawInt32());
    }
    Abd abd(Record const& r) const
    {
        return Abd(r.data(col("a")).rawInt32(), r.data(col("b")).rawInt32(), r.data(col("d")).rawInt64());
    }
    std::u16string text(Record const& r) const
    {
        QString s = r.data(col("s")).toString();
        std::u16string u(reinterpret_cast<char16_t const*>(s.utf16()), std::size_t(s.size()));
        u.resize(12, u'\0');   // as stored: zero padded to the column's width
        return u;
    }
    template <class F>
    auto sortedRows(F read) const
    {
        auto keys = keysInOrder(*ranked()->masterIndex(), read);
        std::sort(keys.begin(), keys.end());
        return keys;
    }
};

} // namespace

TEST(MasterIndexOrder, TypedAndGeneralIndexesSortLikeAPlainComparison)
{
    RandomRanked t(3000);
    Table* table = t.ranked();
    auto abc = [&](Record const& r) { return t.abc(r); };
    auto abd = [&](Record const& r) { return t.abd(r); };
    auto text = [&](Record const& r) { return t.text(r); };

    Registered<MasterIndex_Struct<int, int, int>> typedAbc(table, QStringList{"a", "b", "c"});
    Registered<MasterIndex_Column> generalAbc(table, QStringList{"a", "b", "c"});
    Registered<MasterIndex_Struct<int, int, long long>> typedAbd(table, QStringList{"a", "b", "d"});
    Registered<MasterIndex_Column> generalAbd(table, QStringList{"a", "b", "d"});
    Registered<MasterIndex_Struct<ucharn<12>>> typedText(table, QStringList{"s"});
    Registered<MasterIndex_Column> generalText(table, QStringList{"s"});

    auto check = [&] {
        EXPECT_EQ(keysInOrder(typedAbc.index, abc), t.sortedRows(abc));
        EXPECT_EQ(keysInOrder(generalAbc.index, abc), t.sortedRows(abc));
        EXPECT_EQ(keysInOrder(typedAbd.index, abd), t.sortedRows(abd));
        EXPECT_EQ(keysInOrder(generalAbd.index, abd), t.sortedRows(abd));
        EXPECT_EQ(keysInOrder(typedText.index, text), t.sortedRows(text));
        EXPECT_EQ(keysInOrder(generalText.index, text), t.sortedRows(text));
    };
    check();
    // Equal keys keep the order their rows came in: here, their ids.
    auto withId = [&](auto read) { return [&, read](Record const& r) { return std::make_pair(read(r), r.data("id").rawInt64()); }; };
    auto abcIds = keysInOrder(typedAbc.index, withId(abc));
    auto textIds = keysInOrder(typedText.index, withId(text));
    EXPECT_TRUE(std::is_sorted(abcIds.begin(), abcIds.end()));
    EXPECT_TRUE(std::is_sorted(textIds.begin(), textIds.end()));

    // Keep the order through a batch that deletes, inserts and moves rows.
    QJsonArray ops;
    for (int id = 0; id < 3000; id += 7) ops.append(op("delete", QJsonObject{{"id", id}}));
    for (int id = 3; id < 3000; id += 11)
        if (id % 7) ops.append(op("update", QJsonObject{{"id", id}, {"a", -id % 5}, {"c", id % 3}, {"s", QStringLiteral("B")}}));
    for (int id = 3000; id < 3400; ++id) ops.append(op("insert", rankedRow(id, id % 3, -(id % 4), id % 17, -id, QStringLiteral("AB"))));
    t.apply("ranked", ops);
    check();
}

namespace {
// Every key copy equals the key of the record beside it, each partition's
// last key is its last record's, and every record is found where it lies.
template <class I>
void expectKeyCopiesTrue(I const& index, char const* what)
{
    PartitionList<Record> const& list = index.records();
    ASSERT_EQ(list.keyWidth(), I::keyBytes) << what;
    unsigned char probe[IndexSort::maxKeyCopyWidth];
    int position = 0;
    for (int p = 0; p < list.partitionCount(); ++p) {
        auto const& part = list.partitionAt(p);
        ASSERT_GT(part.count(), 0) << what;
        ASSERT_EQ(std::memcmp(list.lastKeyOf(p), list.keyAt(p, part.count() - 1), std::size_t(list.keyWidth())), 0) << what << " part " << p;
        for (int k = 0; k < part.count(); ++k, ++position) {
            list.extractKey(part.items[std::size_t(k)], probe);
            ASSERT_EQ(std::memcmp(probe, list.keyAt(p, k), std::size_t(list.keyWidth())), 0) << what << " at " << position;
            if (position % 37) continue;
            // The first of its run of equal keys, found by key and by record.
            typename I::Key key = index.key(part.items[std::size_t(k)]);
            int first = index.searchKey(key, -1);
            ASSERT_GE(first, 0) << what << " at " << position;
            ASSERT_LE(first, position) << what;
            EXPECT_EQ(index.compare(index.at(first), part.items[std::size_t(k)]), 0) << what;
            if (first > 0) {
                EXPECT_LT(index.compare(index.at(first - 1), part.items[std::size_t(k)]), 0) << what;
            }
            EXPECT_EQ(index.search(part.items[std::size_t(k)], -1), first) << what;
            EXPECT_EQ(index.indexOf(part.items[std::size_t(k)]), position) << what;
        }
    }
    EXPECT_EQ(position, index.count()) << what;

    // Looked up all at once, as a batch plan does: what find() gives each,
    // for rows spread over every partition and for keys not there.
    std::vector<Record> keys;
    for (int p = 0; p < index.count(); p += 7) keys.push_back(index.at(p));
    Table const* table = index.table();
    for (int k = 0; k < 40; ++k) {
        // A row's key with its last column moved out of every range used.
        Record missing = table->copyRow(index.at(k * 13 % index.count()));
        Field last = table->dataPtr(missing.row(), index.columns().last());
        QString text = QStringLiteral("ZZ%1").arg(k);
        if (last.type() == FieldType::Char) last = QStringRef(&text);
        else if (last.type() == FieldType::Int) last = 1000 + k;
        else last = 1000LL + k;
        keys.push_back(missing);
    }
    std::vector<Record const*> pointers;
    for (Record const& r : keys) pointers.push_back(&r);
    std::vector<Record> each = index.findEach(pointers);
    ASSERT_EQ(each.size(), keys.size()) << what;
    for (std::size_t k = 0; k < keys.size(); ++k) EXPECT_EQ(each[k], index.find(keys[k], -1)) << what << " key " << k;
}
} // namespace

// Key copies travel with their records through inserts one by one and in
// bulk, partition splits, deletions that empty partitions, key changes that
// move records, and direct removals.
TEST(MasterIndexKeyCopies, FollowTheirRecordsThroughEveryChange)
{
    Db t;
    Table* table = t.ranked();
    Registered<MasterIndex_Struct<int, int, int>> abc(table, QStringList{"a", "b", "c"});
    Registered<MasterIndex_Struct<int, int, long long>> abd(table, QStringList{"a", "b", "d"});
    Registered<MasterIndex_Struct<ucharn<12>>> text(table, QStringList{"s"});
    Registered<MasterIndex_Column> general(table, QStringList{"a", "b", "d"});
    auto check = [&](int round) {
        SCOPED_TRACE(round);
        expectKeyCopiesTrue(abc.index, "abc");
        expectKeyCopiesTrue(abd.index, "abd");
        expectKeyCopiesTrue(text.index, "text");
        EXPECT_FALSE(general->keepsKeyCopies());
    };

    std::mt19937 rng(11);
    QString const alphabet = QStringLiteral("AB\u042F");
    auto randomText = [&] {
        QString s;
        for (int n = int(rng() % 6); n > 0; --n) s += alphabet.at(int(rng() % 3));
        return s;
    };
    std::vector<qint64> live;
    qint64 nextId = 0;
    for (int round = 0; round < 30; ++round) {
        QJsonArray ops;
        std::shuffle(live.begin(), live.end(), rng);
        // Early rounds grow the table in bulk merges; later ones insert few
        // rows one by one, all at the end of every order so that the last
        // partition splits, and delete and move rows everywhere.
        bool bulk = round < 8;
        std::size_t deletes = bulk ? 0 : live.size() / 40;
        std::size_t updates = round < 4 ? 0 : std::min<std::size_t>(live.size() - deletes, 120);
        for (std::size_t k = 0; k < deletes; ++k) ops.append(op("delete", QJsonObject{{"id", live[k]}}));
        for (std::size_t k = deletes; k < deletes + updates; ++k)
            ops.append(op("update", QJsonObject{{"id", live[k]}, {"a", int(rng() % 3) - 1}, {"c", int(rng() % 50) - 25},
                                                 {"d", QString::number(qint64(rng() % 9) - 4)}, {"s", randomText()}}));
        live.erase(live.begin(), live.begin() + std::ptrdiff_t(deletes));
        int inserts = bulk ? 600 : 70;
        for (int k = 0; k < inserts; ++k, ++nextId) {
            QJsonObject row = bulk ? rankedRow(nextId, int(rng() % 3) - 1, int(rng() % 2), int(rng() % 50) - 25, qint64(rng() % 9) - 4, randomText())
                                   : rankedRow(nextId, 3, 0, 50 + int(rng() % 50), 5 + qint64(rng() % 50), QStringLiteral("\u042F\u042F\u042F\u042F\u042F\u042F") + alphabet.at(int(rng() % 3)));
            ops.append(op("insert", row));
            live.push_back(nextId);
        }
        t.apply("ranked", ops);
        check(round);
    }
    ASSERT_GT(abd->records().partitionCount(), 2);

    // Removing a whole partition record by record drops its last key too.
    int firstPart = abd->records().partitionAt(0).count();
    for (int k = 0; k < firstPart; ++k) abd->remove(abd->at(0), 0);
    abd->remove(abd->at(abd->count() - 1), abd->count() - 1);
    check(100);
}

TEST(MasterIndexSetup, EachCheckThrowsItsMessage)
{
    Db t;
    Table* table = t.ranked();
    using Make = std::function<void()>;
    auto make3 = [table](QStringList c) { return Make([=] { MasterIndex_Struct<int, int, int> i(table, c); }); };
    auto make64 = [table](QStringList c) { return Make([=] { MasterIndex_Struct<int, int, long long> i(table, c); }); };
    auto makeText = [table](QStringList c) { return Make([=] { MasterIndex_Struct<ucharn<12>> i(table, c); }); };
    struct Case
    {
        Make make;
        QString message;
    };
    Case const cases[] = {
        {make3({"a", "b"}), "MasterIndex_Struct: incorrect columns count 3!=2"},
        {make3({"a", "b", "c", "d"}), "MasterIndex_Struct: incorrect columns count 3!=4"},
        {make3({"a", "n", "c"}), "MasterIndex_Struct: column can't be nullable 1:'n'"},
        {make3({"a", "nope", "c"}), "MasterIndex_Struct: column can't be nullable 1:'nope'"},
        {make3({"a", "b", "d"}), "MasterIndex_Struct: incorrect column 2:'d' type: int!=int64"},
        // The last column is checked first.
        {make3({"n", "s", "d"}), "MasterIndex_Struct: incorrect column 2:'d' type: int!=int64"},
        {make64({"a", "b", "c"}), "MasterIndex_Struct: incorrect column 2:'c' type: int64!=int"},
        {makeText({"s16"}), "MasterIndex_Struct: incorrect column 0:'s16' type length: 24!=16"},
        {makeText({"a"}), "MasterIndex_Struct: incorrect column 0:'a' type: char!=int"},
    };
    for (Case const& c : cases) {
        QString thrown;
        try {
            c.make();
        } catch (QString const& message) {
            thrown = message;
        }
        EXPECT_EQ(thrown, c.message);
    }
}

TEST(MasterIndexSetup, CreateFallsBackToTheGeneralIndexWithAWarning)
{
    Db t;
    Table* table = t.ranked();
    t.apply("ranked", QJsonArray{op("insert", rankedRow(1, 1, 2, 3, 4, "X"))});
    QJsonObject withN = rankedRow(2, 5, 6, 7, 8, "Y");
    withN["n"] = 6;
    t.apply("ranked", QJsonArray{op("insert", withN)});

    WarningCapture capture;
    std::unique_ptr<MasterIndex_Column_Pure> fallback(MasterIndex_Struct_Cached<int, int, int>::create(table, {"a", "n", "c"}));
    ASSERT_TRUE(fallback);
    EXPECT_EQ(fallback->getClassName(), "MasterIndex_Column_Cached");
    EXPECT_EQ(capture.warnings(), QStringList({"ThisIndexType : Cannot create optimized MasterIndex for 'ranked': "
                                               "MasterIndex_Struct: column can't be nullable 1:'n'"}));
    // The general index serves the same columns.
    table->addIndex(fallback.get());
    fallback->build();
    auto* general = dynamic_cast<MasterIndex_Column_Cached*>(fallback.get());
    ASSERT_TRUE(general);
    EXPECT_EQ(general->findKey(MasterKey() << 5 << 6 << 7, -1).data("id").rawInt64(), 2);
    EXPECT_TRUE(general->findKey(MasterKey() << 1 << 2 << 3, -1).isEmpty());   // n is null there
    table->removeIndex(fallback.get());

    std::unique_ptr<MasterIndex_Column_Pure> typed(MasterIndex_Struct_Cached<int, int, int>::create(table, {"a", "b", "c"}));
    EXPECT_EQ(typed->getClassName(), "MasterIndex_Struct_Cached");
    EXPECT_EQ(capture.warnings().size(), 1);
}

// Duplicates run across partition borders; every search must land on the
// first of its run.
TEST(MasterIndexSearch, FindsTheFirstOfEqualKeys)
{
    Db t;
    Table* table = t.ranked();
    int const counts[] = {700, 1, 900, 530};   // rows with a = 0, 1, 2, 3
    std::vector<int> as;
    for (int a = 0; a < 4; ++a) as.insert(as.end(), std::size_t(counts[a]), a);
    std::shuffle(as.begin(), as.end(), std::mt19937(3));
    QJsonArray ops;
    for (std::size_t i = 0; i < as.size(); ++i) ops.append(op("insert", rankedRow(qint64(i), as[i], 0, 0, 5, "K")));
    t.apply("ranked", ops);

    Registered<MasterIndex_Struct<int, int, int>> typed(table, QStringList{"a", "b", "c"});
    Registered<MasterIndex_Column> general(table, QStringList{"a", "b", "c"});
    ASSERT_GT(typed->records().partitionCount(), 2);

    int first = 0;
    for (int a = 0; a < 4; ++a) {
        int last = first + counts[a] - 1, middle = (first + last) / 2;
        MasterKey_Struct<int, int, int> key(a, 0, 0);
        MasterKey general3 = MasterKey() << a << 0 << 0;
        EXPECT_EQ(typed->searchKey(key, -1), first) << a;
        EXPECT_EQ(general->searchKey(general3, -1), first) << a;
        // After a position inside the run: the next one; after the run: none.
        EXPECT_EQ(typed->searchKey(key, first), counts[a] > 1 ? first + 1 : -1) << a;
        EXPECT_EQ(general->searchKey(general3, middle), middle < last ? middle + 1 : -1) << a;
        EXPECT_EQ(typed->searchKey(key, last), -1) << a;
        EXPECT_EQ(general->searchKey(general3, last), -1) << a;
        first = last + 1;
    }
    // Before, after and between the runs; too few or too many values.
    for (auto key : {MasterKey_Struct<int, int, int>(4, 0, 0), MasterKey_Struct<int, int, int>(-1, 0, 0), MasterKey_Struct<int, int, int>(2, 0, 1)})
        EXPECT_EQ(typed->searchKey(key, -1), -1);
    EXPECT_EQ(general->searchKey(MasterKey() << 2 << 0, -1), -1);
    EXPECT_EQ(general->searchKey(MasterKey() << 2 << 0 << 0 << 0, -1), -1);
}

// Plain values find, without a key row, exactly what a key row finds:
// nulls, texts cut to the column's width, prefixes and misses included.
TEST(MasterIndexSearch, PlainValuesFindWhatAKeyRowFinds)
{
    Db t;
    Table* table = t.ranked();
    QJsonArray ops;
    QStringList const texts{"", "A", "AB", "ABC", "B", "\u042F", "ABCDEFGHIJKL", "ABCDEFGHIJK"};
    qint64 id = 0;
    for (int a = -1; a <= 1; ++a)
        for (QString const& text : texts) {
            QJsonObject row = rankedRow(id++, a, 0, 0, 0, text);
            if (id % 3) row.insert("n", a * 2);   // some rows leave n null
            ops.append(op("insert", row));
        }
    t.apply("ranked", ops);
    Registered<MasterIndex_Column> byAText(table, QStringList{"a", "s"});
    Registered<MasterIndex_Column> byNText(table, QStringList{"n", "s"});
    Registered<MasterIndex_Column> byDecimal(table, QStringList{"d"});
    EXPECT_FALSE(ColumnValuesKey(&byDecimal.index).usable());   // a 64-bit column has no in-place form
    EXPECT_FALSE((ColumnValuesKey(&byAText.index) << QStringLiteral("A") << QStringLiteral("A")).usable());

    QStringList probes = texts;
    probes << "ABCDEFGHIJKLMNOP" << "ABCDEFGHIJKZ" << "AA" << "C" << "\u042F\u042F";
    int found = 0;
    for (auto* index : {&byAText.index, &byNText.index}) {
        int numberColumn = index->columns().first();
        for (int number = -2; number <= 2; ++number)
            for (QString const& text : probes) {
                Record key(table);
                table->dataPtr(key.row(), numberColumn) = number;
                table->dataPtr(key.row(), table->columnIndex("s")) = QStringRef(&text);
                Record expected = index->find(key, -1);
                ColumnValuesKey values(index);
                values << number << text;
                ASSERT_TRUE(values.usable());
                EXPECT_EQ(values.find(), expected) << number << " " << text.toStdString();
                found += !expected.isEmpty();
            }
    }
    EXPECT_GT(found, 20);
}

// The general key matches rows of every column type by value, across the
// spellings that the ordering treats as equal.
TEST(MasterIndexSearch, GeneralKeyMatchesEveryValueKind)
{
    Db t(R"({"tables": [{"name": "kinds", "key": ["id"], "columns": [
        {"name": "id", "type": 1, "nullable": false},
        {"name": "i64", "type": 2}, {"name": "dbl", "type": 3}, {"name": "dec", "type": 4, "scale": 2},
        {"name": "xdec", "type": 5, "scale": 3}, {"name": "fix", "type": 6, "length": 8},
        {"name": "moment", "type": 7}, {"name": "text", "type": 8}]}]})");
    QJsonArray ops;
    QStringList const decs = {"-12.50", "-1.05", "-1", "0", "0.5", "1.05", "12.5", "100"};
    QStringList const texts = {"", "A", "AB", "B", "\u042F", "a"};
    for (int i = 0; i < 48; ++i) {
        QJsonObject row{{"id", i}, {"i64", QString::number((i % 5 - 2) * 1000000000000LL)}, {"dbl", (i % 7 - 3) * 0.75},
                        {"dec", decs.at(i % 8)}, {"xdec", decs.at((i * 3) % 8)}, {"fix", texts.at(i % 6)},
                        {"moment", QStringLiteral("2026-11-%1 10:00:00.000").arg(10 + i % 9)}, {"text", texts.at((i / 6) % 6)}};
        if (i % 11 == 0) row.remove("dbl");   // some nulls too
        ops.append(op("insert", row));
    }
    t.apply("kinds", ops);
    Table* table = t.db.table("kinds").data();
    for (QString column : {"i64", "dbl", "dec", "xdec", "fix", "moment", "text"}) {
        Registered<MasterIndex_Column> index(table, QStringList{column});
        Registered<MasterIndexKey<MasterIndex_Column_Pure>> pure(table, QStringList{column});
        for (int pos = 0; pos < index->count(); ++pos) {
            Record r = index->at(pos);
            MasterKey key(QList<FieldValue>{FieldValue(r.data(column))});
            int expected = pos;
            while (expected > 0 && index->compare(index->at(expected - 1), r) == 0) --expected;
            EXPECT_EQ(index->searchKey(key, -1), expected) << qPrintable(column) << " " << qPrintable(r.data(column).toString());
            EXPECT_EQ(pure->searchKey(key, -1), expected) << qPrintable(column);
        }
    }
    // Equal values spelled differently make one key: 12.500000 finds 12.50,
    // a 64-bit 7 finds a 32-bit 7.
    Record scaled(table);
    scaled.data("dec").setRawDecimal(decimal(QStringLiteral("12.500000")));
    Registered<MasterIndex_Column> dec(table, QStringList{"dec"});
    Record found = dec->findKey(MasterKey(QList<FieldValue>{FieldValue(scaled.data("dec"))}), -1);
    ASSERT_FALSE(found.isEmpty());
    EXPECT_EQ(found.data("dec").rawDecimal().scale(), 2);
    EXPECT_EQ(found.data("dec").rawDecimal().mantissa(), 1250);
    Registered<MasterIndex_Column> id(table, QStringList{"id"});
    EXPECT_EQ(id->findKey(MasterKey() << 7LL, -1).data("id").rawInt32(), 7);
}

// Batches long enough to be looked up all at once fold like their
// operations applied in turn, and a batch with a bad operation is rejected
// whole, naming that operation: over a typed master index (key copies) and
// a general one.
class LargeBatches : public ::testing::TestWithParam<bool> {};

TEST_P(LargeBatches, FoldLikeTheirOperationsInTurn)
{
    Database db;
    if (GetParam()) db.setMasterIndexFactory("pairs", &MasterIndex_Struct_Cached<int, int, long long>::create);
    db.loadSchemaJson(R"({"tables": [{"name": "pairs", "key": ["a", "b", "c"], "columns": [
        {"name": "a", "type": 1, "nullable": false}, {"name": "b", "type": 1, "nullable": false},
        {"name": "c", "type": 2, "nullable": false}, {"name": "qty", "type": 1}, {"name": "note", "type": 8}]}]})",
                      QStringLiteral("pairs-schema"));
    Table* table = db.table("pairs").data();
    ASSERT_EQ(table->masterIndex()->keepsKeyCopies(), GetParam());

    using Key = std::tuple<int, int, qint64>;
    using Values = std::pair<int, QString>;   // qty, note
    std::map<Key, Values> model;
    auto contents = [&] {
        std::map<Key, Values> out;
        for (auto it = table->masterIndex()->begin(); it != table->masterIndex()->end(); ++it)
            out[Key(it->data("a").rawInt32(), it->data("b").rawInt32(), it->data("c").rawInt64())] =
                Values(it->data("qty").rawInt32(), it->data("note").toString());
        return out;
    };
    std::mt19937 rng(17);
    int rejected = 0;
    for (int round = 0; round < 60; ++round) {
        std::map<Key, Values> next = model;
        QJsonArray ops;
        int firstBad = 0;
        int count = 16 + int(rng() % 30);
        for (int k = 1; k <= count; ++k) {
            Key key(int(rng() % 2) - 1, int(rng() % 3), qint64(rng() % 12) - 6);
            QJsonObject row{{"a", std::get<0>(key)}, {"b", std::get<1>(key)}, {"c", QString::number(std::get<2>(key))}};
            bool there = next.count(key) > 0;
            // Mostly operations that fit the rows as they stand; now and
            // then (one round in four) one that does not.
            bool bad = !firstBad && round % 4 == 3 && rng() % 8 == 0;
            int kind = bad ? (there ? 0 : 1 + int(rng() % 2)) : (there ? 1 + int(rng() % 2) : 0);
            if (kind == 0) {
                int qty = int(rng() % 1000);
                row.insert("qty", qty);
                row.insert("note", QStringLiteral("n%1").arg(qty));
                ops.append(op("insert", row));
                if (!there) next[key] = Values(qty, QStringLiteral("n%1").arg(qty));
            } else if (kind == 1) {
                // One column or the other or both, so that updates of one
                // row fold column lists that differ.
                int qty = int(rng() % 1000), which = int(rng() % 3);
                if (which != 1) row.insert("qty", qty);
                if (which != 0) row.insert("note", QStringLiteral("u%1").arg(qty));
                ops.append(op("update", row));
                if (there) {
                    if (which != 1) next[key].first = qty;
                    if (which != 0) next[key].second = QStringLiteral("u%1").arg(qty);
                }
            } else {
                ops.append(op("delete", row));
                next.erase(key);
            }
            if (bad) firstBad = k;
        }
        QJsonObject batch{{"table", "pairs"}, {"ops", ops}};
        try {
            db.apply(BatchDecoder(db).decode(QJsonDocument(batch).toJson(QJsonDocument::Compact), QStringLiteral("t")));
            ASSERT_EQ(firstBad, 0) << "round " << round << " accepted a bad operation";
            model = next;
        } catch (Exception const& e) {
            ASSERT_NE(firstBad, 0) << "round " << round << ": " << e.message().toStdString();
            EXPECT_TRUE(e.message().contains(QStringLiteral("row %1:").arg(firstBad))) << e.message().toStdString();
            ++rejected;
        }
        ASSERT_EQ(contents(), model) << "round " << round;
        ASSERT_EQ(table->masterIndex()->count(), int(model.size()));
    }
    EXPECT_GT(rejected, 3);
    EXPECT_GT(model.size(), 10u);
}

INSTANTIATE_TEST_SUITE_P(MasterIndexes, LargeBatches, ::testing::Bool(),
                         [](::testing::TestParamInfo<bool> const& info) { return info.param ? "typed" : "general"; });

// A directory's key picks the fastest search its index allows: a cached or
// plain typed master index's own key, a column index compared in place, or
// a key row. Each finds what a scan of the rows finds; a text its column
// cannot hold, a value of the wrong type or a gone table finds nothing, and
// nothing throws.
TEST(DirectoryKeySearch, EveryPathFindsWhatAScanFinds)
{
    auto t = std::make_unique<Db>();
    QSharedPointer<Table> shared = t->db.table(QStringLiteral("ranked"));
    Table* table = shared.data();
    QStringList const texts{"", "A", "AB", "ABCDEFGH", "ABCDEFGHI", "ABCDEFGHIJKL", "\u042F"};
    std::mt19937 rng(11);
    QJsonArray ops;
    for (int id = 0; id < 300; ++id)
        ops.append(op("insert", rankedRow(id, int(rng() % 5) - 2, int(rng() % 3), 0, qint64(rng() % 7) - 3,
                                          texts.at(int(rng() % texts.size())))));
    t->apply("ranked", ops);
    int const a = table->columnIndex("a"), b = table->columnIndex("b"), d = table->columnIndex("d");
    int const s = table->columnIndex("s"), s16 = table->columnIndex("s16");
    Registered<MasterIndex_Struct_Cached<int, int, long long>> cached(table, QStringList{"a", "b", "d"});
    Registered<MasterIndex_Struct<int, int, long long>> typed(table, QStringList{"a", "b", "d"});
    Registered<MasterIndex_Column> general(table, QList<int>{a, b, d});
    Registered<MasterIndex_Column> inPlace(table, QList<int>{a, s16});
    Registered<MasterIndex_Struct<ucharn<12>>> typedText(table, QStringList{"s"});

    auto exists = [&](std::function<bool(Record const&)> match) {
        for (auto it = table->masterIndex()->begin(); it != table->masterIndex()->end(); ++it)
            if (match(*it)) return true;
        return false;
    };
    auto text = [&](Record const& r, int c) { return FieldText(table->dataPtr(r.row(), c)).toString(); };
    int found = 0;
    for (auto* index : std::initializer_list<IndexSort const*>{&cached.index, &typed.index, &general.index}) {
        DirectoryKey<int, int, long long> key(shared, index, {a, b, d});
        for (int x = -3; x <= 3; ++x)
            for (int y = 0; y <= 3; ++y)
                for (long long z = -4; z <= 4; ++z) {
                    Record r = key.find(x, y, z);
                    bool expected = exists([&](Record const& row) {
                        return row.data("a").toInteger() == x && row.data("b").toInteger() == y && row.data("d").toInteger64() == z;
                    });
                    ASSERT_EQ(!r.isEmpty(), expected) << x << " " << y << " " << z;
                    int position = key.search(x, y, z);
                    EXPECT_EQ(position < 0 ? Record() : static_cast<IndexSort const*>(index)->at(position), r);
                    found += expected;
                }
    }
    EXPECT_GT(found, 100);

    QStringList probes = texts;
    probes << "ABCDEFGHIJKLM" << "ABC" << "\u042F\u042F";
    DirectoryKey<int, QString> byAText(shared, &inPlace.index, {a, s16});
    DirectoryKey<QString> byText(shared, &typedText.index, {s});
    DirectoryKey<QString> byTextRow(shared, &general.index, {s});   // not the index's columns: a key row
    for (QString const& p : probes) {
        bool inS16 = p.size() <= 8 && exists([&](Record const& row) { return text(row, s16) == p && row.data("a").toInteger() == 1; });
        EXPECT_EQ(!byAText.find(1, p).isEmpty(), inS16) << p.toStdString();
        bool inS = p.size() <= 12 && exists([&](Record const& row) { return text(row, s) == p; });
        Record r = byText.find(p);
        EXPECT_EQ(!r.isEmpty(), inS) << p.toStdString();
        if (!r.isEmpty()) {
            EXPECT_EQ(text(r, s), p);
        }
        EXPECT_NO_THROW(byTextRow.find(p));
    }
    // A text for a number column, a missing column, a table gone.
    EXPECT_TRUE((DirectoryKey<QString>(shared, &general.index, {a}).find("1").isEmpty()));
    EXPECT_TRUE((DirectoryKey<int>(shared, nullptr, {-1}).find(1).isEmpty()));
    Db other;
    other.apply("ranked", QJsonArray{op("insert", rankedRow(7, 1, 0, 0, 0, "A"))});
    DirectoryKey<long long> byId(other.db.table(QStringLiteral("ranked")), nullptr, {0});
    EXPECT_FALSE(byId.find(7).isEmpty());
    other.db.dropTable(QStringLiteral("ranked"));
    EXPECT_TRUE(byId.find(7).isEmpty());
}
