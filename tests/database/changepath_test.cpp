#include "support.h"
#include <gtest/gtest.h>

namespace {
struct Registered
{
    explicit Registered(TestDb& t) : t(t), index("idx"), dependent("dep")
    {
        t.items->addIndex(&index);
        t.items->addDependentIndex(&dependent);
    }
    ~Registered()
    {
        t.items->removeIndex(&index);
        t.items->removeDependentIndex(&dependent);
    }
    QStringList all() const { return dependent.calls + index.calls; }
    TestDb& t;
    RecordingIndex index;
    RecordingIndex dependent;
};
} // namespace

TEST(ChangePath, OneBatchDrivesEachIndexOnceInTheDocumentedOrder)
{
    TestDb t;
    t.apply(R"({"table":"items","ops":[{"insert":{"grp":1,"id":1}},{"insert":{"grp":1,"id":2}}]})");
    Registered r(t);
    t.apply(R"({"table":"items","ops":[
        {"insert":{"grp":1,"id":3}},
        {"update":{"grp":1,"id":1,"price":"1.5"}},
        {"update":{"grp":1,"id":2,"qty":4}},
        {"update":{"grp":1,"id":1,"name":"x"}},
        {"delete":{"grp":1,"id":2}}]})");
    int price = t.items->columnIndex("price"), qty = t.items->columnIndex("qty");
    int first = std::min(price, t.items->columnIndex("name")), last = std::max({price, qty, t.items->columnIndex("name")});
    EXPECT_EQ(r.dependent.calls, QStringList({"dep.depBegin", "dep.depEnd"}));
    // Row 2 was updated and then deleted: it counts as deleted only. Row 1's
    // two updates fold into one.
    EXPECT_EQ(r.index.calls, QStringList({"idx.begin", "idx.preprocess(1,1,1)",
                                          QStringLiteral("idx.process(1,1,1,%1..%2)").arg(first).arg(last), "idx.end"}));
    EXPECT_EQ(t.masterKeys(), QStringList({"1,1", "1,3"}));
    EXPECT_EQ(t.items->masterIndex()->at(0).data("name").toString(), "x");
    EXPECT_EQ(t.items->masterIndex()->at(0).data("price").toString(), "1.50");
}

TEST(ChangePath, ClearReachesEveryIndexBeforeTheRestOfTheBatch)
{
    TestDb t;
    t.apply(R"({"table":"items","ops":[{"insert":{"grp":1,"id":1}}]})");
    Record old = t.items->masterIndex()->at(0);
    Registered r(t);
    t.apply(R"({"table":"items","ops":[{"insert":{"grp":2,"id":2}},{"clear":true},{"insert":{"grp":1,"id":1,"qty":9}}]})");
    EXPECT_EQ(r.index.calls, QStringList({"idx.begin", "idx.clear", "idx.preprocess(1,0,0)", "idx.process(1,0,0,-1..-1)", "idx.end"}));
    EXPECT_EQ(t.masterKeys(), QStringList({"1,1"}));
    EXPECT_FALSE(old.inTable());
    EXPECT_TRUE(t.items->masterIndex()->at(0).inTable());
    EXPECT_EQ(t.items->masterIndex()->at(0).data("qty").rawInt32(), 9);
}

TEST(ChangePath, RebuildAndClearReachEveryRegisteredIndex)
{
    TestDb t;
    Registered r(t);
    t.items->build();
    t.items->rebuild();
    t.items->clear();
    EXPECT_EQ(r.index.calls, QStringList({"idx.build", "idx.clear", "idx.build", "idx.clear"}));
}

// Each of these batches is rejected whole: no row and no index changes, and
// the message names the origin, the row and the reason.
struct BadBatch { char const* name; char const* line; char const* message; };
void PrintTo(BadBatch const& b, std::ostream* os) { *os << b.name; }
class Rejection : public ::testing::TestWithParam<BadBatch> {};

TEST_P(Rejection, LeavesTablesAndIndexesUntouched)
{
    TestDb t;
    t.apply(R"({"table":"items","ops":[{"insert":{"grp":1,"id":1,"qty":1}}]})");
    Registered r(t);
    try {
        t.apply(GetParam().line);
        FAIL() << "accepted: " << GetParam().line;
    } catch (Exception const& e) {
        EXPECT_TRUE(e.message().startsWith("inline:1: ")) << e.message().toStdString();
        EXPECT_TRUE(e.message().contains(QString::fromUtf8(GetParam().message))) << e.message().toStdString();
    }
    EXPECT_TRUE(r.all().isEmpty()) << r.all().join(' ').toStdString();
    EXPECT_EQ(t.masterKeys(), QStringList({"1,1"}));
    EXPECT_EQ(t.items->masterIndex()->at(0).data("qty").rawInt32(), 1);
}

INSTANTIATE_TEST_SUITE_P(Batches, Rejection, ::testing::Values(
    BadBatch{"DuplicateInsert", R"({"table":"items","ops":[{"insert":{"grp":2,"id":2}},{"insert":{"grp":1,"id":1}}]})", "row 2: a row with key 1,1 already exists"},
    BadBatch{"UpdateOfMissingRow", R"({"table":"items","ops":[{"update":{"grp":1,"id":1,"qty":5}},{"update":{"grp":9,"id":9,"qty":1}}]})", "row 2: no row with key 9,9 to update"},
    BadBatch{"DeleteOfMissingRow", R"({"table":"items","ops":[{"delete":{"grp":1,"id":1}},{"delete":{"grp":1,"id":1}}]})", "row 2: no row with key 1,1 to delete"},
    BadBatch{"UnknownTable", R"({"table":"nope","ops":[]})", "unknown table 'nope'"},
    BadBatch{"UnknownColumn", R"({"table":"items","ops":[{"insert":{"grp":3,"id":3,"colour":1}}]})", "row 1: unknown column 'colour'"},
    BadBatch{"TextForAnInt", R"({"table":"items","ops":[{"insert":{"grp":3,"id":3,"qty":"x"}}]})", "row 1: column 'qty' (int) needs a number"},
    BadBatch{"IntAbove32Bits", R"({"table":"items","ops":[{"insert":{"grp":3,"id":3,"qty":3000000000}}]})", "does not fit 32 bits"},
    BadBatch{"TooManyDecimalPlaces", R"({"table":"items","ops":[{"insert":{"grp":3,"id":3,"price":"1.234"}}]})", "more than 2 decimal places"},
    BadBatch{"TextLongerThanItsColumn", R"({"table":"items","ops":[{"insert":{"grp":3,"id":3,"code":"ABCDE"}}]})", "longer than 4 characters"},
    BadBatch{"ImpossibleDate", R"({"table":"items","ops":[{"insert":{"grp":3,"id":3,"moment":"2026-02-30"}}]})", "is not a date-time"},
    BadBatch{"MissingKeyColumn", R"({"table":"items","ops":[{"insert":{"grp":3}}]})", "key column 'id' is missing"},
    BadBatch{"NullKey", R"({"table":"items","ops":[{"insert":{"grp":3,"id":null}}]})", "column 'id' cannot be null"},
    BadBatch{"UnknownOperation", R"({"table":"items","ops":[{"insert":{"grp":3,"id":3}},{"upsert":{}}]})", "row 2: unknown operation"},
    BadBatch{"TruncatedJson", R"({"table":"items","ops":[{"insert":{"grp":3,"id":3}}])", "bad JSON"},
    BadBatch{"ColumnGivenTwice", R"({"table":"items","ops":[{"insert":{"grp":3,"id":3,"grp":4}}]})", "given twice"},
    BadBatch{"NoTableName", R"({"ops":[]})", "names no table"}),
    [](::testing::TestParamInfo<BadBatch> const& info) { return std::string(info.param.name); });

TEST(ChangePath, OpsBeforeTableNameAndEscapesDecode)
{
    TestDb t;
    t.apply(R"({"ops":[{"insert":{"grp":1,"id":1,"name":"a\"b\u044f\ud83d\ude00","volume":"-12.5","moment":"2026-11-20 18:45:00.250"}}],"table":"items"})");
    Record r = t.items->masterIndex()->at(0);
    EXPECT_EQ(r.data("name").toString(), QStringLiteral("a\"bя") + QString::fromUtf8("\xF0\x9F\x98\x80"));
    EXPECT_EQ(r.data("volume").toString(), "-12.500");
    EXPECT_EQ(r.data("moment").toString(), "2026.11.20 18:45:00.250");
}
