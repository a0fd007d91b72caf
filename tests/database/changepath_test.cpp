#include "support.h"
#include <gtest/gtest.h>

namespace {
// An index and a dependent on the items table for the test's lifetime.
struct Registered
{
    explicit Registered(TestDb& t) : t(t)
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
    RecordingIndex index{"idx"}, dependent{"dep"};
};

// Records every call and throws from the one named.
class ThrowingIndex : public RecordingIndex
{
public:
    explicit ThrowingIndex(QString throwIn) : RecordingIndex("bad"), m_throwIn(std::move(throwIn)) {}
    void beginUpdate() override { RecordingIndex::beginUpdate(); maybeThrow("begin"); }
    void preprocess(QList<Record> const& i, QList<Record> const& u, int f, int l, QList<Record> const& d,
                    QList<Record> const& images) override
    {
        RecordingIndex::preprocess(i, u, f, l, d, images);
        maybeThrow("preprocess");
    }
    void process(QList<Record> const& i, QList<Record> const& u, int f, int l, QList<Record> const& d) override
    {
        RecordingIndex::process(i, u, f, l, d);
        maybeThrow("process");
    }
    void endUpdate() override { RecordingIndex::endUpdate(); maybeThrow("end"); }
    void dependentEndUpdate(Table* t) override { RecordingIndex::dependentEndUpdate(t); maybeThrow("depEnd"); }
    QString getClassName() const override { return QStringLiteral("ThrowingIndex"); }

private:
    void maybeThrow(char const* call)
    {
        if (m_throwIn == QLatin1String(call)) throw Exception(QStringLiteral("broken in %1").arg(QLatin1String(call)));
    }
    QString m_throwIn;
};
} // namespace

// A clear inside a batch reaches every index before the rest of the batch;
// whole-table changes tell the indexes and the dependents as a batch does,
// so that views hear of them.
TEST(ChangePath, ClearsBuildsAndRebuildsComeAsBatches)
{
    TestDb t;
    t.apply(R"({"table":"items","ops":[{"insert":{"grp":1,"id":1}}]})");
    Record old = t.items->masterIndex()->at(0);
    Registered r(t);
    t.apply(R"({"table":"items","ops":[{"insert":{"grp":2,"id":2}},{"clear":true},{"insert":{"grp":1,"id":1,"qty":9}}]})");
    EXPECT_EQ(r.index.calls, QStringList({"idx.begin", "idx.clear", "idx.preprocess(1,0,0)", "idx.process(1,0,0,-1..-1)", "idx.end"}));
    EXPECT_EQ(t.masterKeys(), QStringList({"1,1"}));
    EXPECT_FALSE(old.inTable());
    Record row = t.items->masterIndex()->at(0);
    EXPECT_TRUE(row.inTable());
    EXPECT_EQ(row.data("qty").rawInt32(), 9);

    r.index.calls.clear();
    r.dependent.calls.clear();
    t.items->build();
    t.items->rebuild();
    t.items->clear();
    EXPECT_EQ(r.index.calls, QStringList({"idx.begin", "idx.build", "idx.end", "idx.begin", "idx.clear", "idx.build",
                                          "idx.end", "idx.begin", "idx.clear", "idx.end"}));
    EXPECT_EQ(r.dependent.calls, QStringList({"dep.depBegin", "dep.depEnd", "dep.depBegin", "dep.depEnd", "dep.depBegin", "dep.depEnd"}));
    EXPECT_TRUE(t.masterKeys().isEmpty());
    EXPECT_FALSE(row.inTable());
}

// An index or dependent that throws in the middle of a batch or a clear
// neither stops the others nor loses its own later calls: every begin gets
// its end, the table holds the whole batch, and the failure names the
// index, the call and the batch. A failing row is named by the loader's test.
class ThrowingHook : public ::testing::TestWithParam<char const*> {};

TEST_P(ThrowingHook, EveryBegunBatchEndsAndTheFailureIsNamed)
{
    TestDb t;
    QString const call = QString::fromLatin1(GetParam());
    ThrowingIndex broken(call);
    t.items->addIndex(&broken);
    t.items->addDependentIndex(&broken);
    Registered r(t);   // after the broken one
    QString const message = hookFailureOf([&] { t.apply(R"({"table":"items","ops":[{"insert":{"grp":1,"id":1}},{"insert":{"grp":1,"id":2}}]})"); });
    EXPECT_TRUE(message.startsWith("inline:1: applied to table 'items', but ThrowingIndex failed in ")) << message.toStdString();
    EXPECT_TRUE(message.contains("broken in " + call)) << message.toStdString();
    EXPECT_EQ(t.masterKeys(), QStringList({"1,1", "1,2"}));
    QStringList const batch{"begin", "preprocess(2,0,0)", "process(2,0,0,-1..-1)", "end"};
    auto named = [](QString const& name, QStringList calls) { for (QString& c : calls) c.prepend(name + '.'); return calls; };
    EXPECT_EQ(broken.calls.mid(broken.calls.indexOf("bad.depBegin")), named("bad", QStringList("depBegin") + batch + QStringList("depEnd")));
    EXPECT_EQ(r.index.calls, named("idx", batch));
    EXPECT_EQ(r.dependent.calls, QStringList({"dep.depBegin", "dep.depEnd"}));

    r.dependent.calls.clear();
    bool const inClear = call != "preprocess" && call != "process";
    EXPECT_EQ(hookFailureOf([&] { t.items->clear(); }).contains("broken in " + call), inClear);
    EXPECT_EQ(r.dependent.calls, QStringList({"dep.depBegin", "dep.depEnd"}));
    t.items->removeIndex(&broken);
    t.items->removeDependentIndex(&broken);
}

INSTANTIATE_TEST_SUITE_P(Calls, ThrowingHook, ::testing::Values("begin", "preprocess", "process", "end", "depEnd"),
                         [](::testing::TestParamInfo<char const*> const& info) { return std::string(info.param); });
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
    BadBatch{"NoTableName", R"({"ops":[]})", "names no table"},
    // Text that does not show what it holds; the row before it goes too.
    BadBatch{"NulInFixedText", R"({"table":"items","ops":[{"insert":{"grp":3,"id":3}},{"insert":{"grp":3,"id":4,"code":"AB\u0000X"}}]})",
             "row 2: column 'code': the text holds the invisible character U+0000 at position 3"},
    BadBatch{"TabInText", R"({"table":"items","ops":[{"insert":{"grp":3,"id":3,"name":"a\tb"}}]})", "invisible character U+0009 at position 2"},
    BadBatch{"DeleteCharacter", R"({"table":"items","ops":[{"insert":{"grp":3,"id":3,"name":"ab\u007f"}}]})", "U+007F at position 3"},
    BadBatch{"C1Control", R"({"table":"items","ops":[{"insert":{"grp":3,"id":3,"name":"\u0085"}}]})", "U+0085 at position 1"},
    BadBatch{"ZeroWidthSpace", R"({"table":"items","ops":[{"insert":{"grp":3,"id":3,"code":"A\u200bB"}}]})", "U+200B at position 2"},
    BadBatch{"DirectionOverride", R"({"table":"items","ops":[{"insert":{"grp":3,"id":3,"name":"\u202eabc"}}]})", "U+202E at position 1"},
    BadBatch{"TagCharacterAfterAnEmoji", R"({"table":"items","ops":[{"insert":{"grp":3,"id":3,"name":"\ud83d\ude00\udb40\udc41"}}]})", "U+E0041 at position 2"},
    BadBatch{"LineSeparator", R"({"table":"items","ops":[{"update":{"grp":1,"id":1,"name":"a\u2028b"}}]})", "U+2028 at position 2"}),
    [](::testing::TestParamInfo<BadBatch> const& info) { return std::string(info.param.name); });

// Escapes decode, ops may come before the table's name, and blanks are text:
// kept as given, ordinary and no-break spaces alike.
TEST(ChangePath, TextsDecodeAndKeepTheirBlanks)
{
    TestDb t;
    t.apply(R"({"ops":[{"insert":{"grp":1,"id":1,"name":"a\"b\u044f\ud83d\ude00","volume":"-12.5","moment":"2026-11-20 18:45:00.250"}},
                       {"insert":{"grp":1,"id":2,"code":" A ","name":"\u00a0я b "}}],"table":"items"})");
    Record r = t.items->masterIndex()->at(0);
    EXPECT_EQ(r.data("name").toString(), QStringLiteral("a\"bя") + QString::fromUtf8("\xF0\x9F\x98\x80"));
    EXPECT_EQ(r.data("volume").toString(), "-12.500");
    EXPECT_EQ(r.data("moment").toString(), "2026.11.20 18:45:00.250");
    r = t.items->masterIndex()->at(1);
    EXPECT_EQ(r.data("code").toString(), " A ");
    EXPECT_EQ(r.data("name").toString(), QStringLiteral("\u00a0я b "));
}

// An update's new values are read from its decoded row, which the batch
// keeps as decoded: several updates of one row fold into a copy, and a
// batch applied again gives what it gave the first time.
TEST(ChangePath, UpdatesOfOneRowFoldWithoutWritingTheDecodedRows)
{
    TestDb t;
    t.apply(R"({"table":"items","ops":[{"insert":{"grp":1,"id":1,"qty":1,"name":"a","price":"1.00"}}]})");
    BatchDecoder decoder(t.db);
    Batch folded = decoder.decode(R"({"table":"items","ops":[{"update":{"grp":1,"id":1,"qty":2,"price":"2.50"}},
        {"update":{"grp":1,"id":1,"name":"b"}}, {"update":{"grp":1,"id":1,"qty":3}}]})", QStringLiteral("inline:1"));
    Batch single = decoder.decode(R"({"table":"items","ops":[{"update":{"grp":1,"id":1,"qty":5}}]})", QStringLiteral("inline:2"));
    auto row = [&] { return t.items->masterIndex()->at(0); };
    t.db.apply(folded);
    EXPECT_EQ(row().data("qty").rawInt32(), 3);
    EXPECT_EQ(row().data("name").toString(), "b");
    EXPECT_EQ(row().data("price").toString(), "2.50");
    ASSERT_EQ(folded.ops.size(), 3u);
    EXPECT_EQ(folded.ops[0].image.data("qty").rawInt32(), 2);
    EXPECT_TRUE(folded.ops[0].image.data("name").isNull());
    EXPECT_EQ(folded.ops[1].image.data("name").toString(), "b");
    EXPECT_TRUE(folded.ops[1].image.data("qty").isNull());
    EXPECT_EQ(folded.ops[2].image.data("qty").rawInt32(), 3);
    for (int round = 0; round < 2; ++round) {
        t.db.apply(single);
        EXPECT_EQ(row().data("qty").rawInt32(), 5);
        t.apply(R"({"table":"items","ops":[{"update":{"grp":1,"id":1,"qty":6,"name":"c"}}]})");
        EXPECT_EQ(row().data("qty").rawInt32(), 6);
    }
    t.db.apply(folded);
    EXPECT_EQ(row().data("qty").rawInt32(), 3);
    EXPECT_EQ(row().data("name").toString(), "b");
    EXPECT_EQ(single.ops[0].image.data("qty").rawInt32(), 5);
}
