#include "support.h"
#include <gtest/gtest.h>

#include <QWeakPointer>
#include <tuple>

TEST(Row, BufferStartsWithCountAndTableThenFlagsAndValues)
{
    TestDb t;
    Record r(t.items.data());
    auto const* h = reinterpret_cast<RowHeader const*>(r.row());
    EXPECT_EQ(h->ref.load(), 1);
    EXPECT_EQ(h->table, t.items.data());
    EXPECT_FALSE(r.inTable());
    int price = t.items->columnIndex("price");
    Field f = t.items->dataPtr(r.row(), price);
    EXPECT_FALSE(f.hasValue());
    EXPECT_EQ(f.toString(), QString());
    f.storeString(QStringLiteral("12.5"));
    EXPECT_TRUE(f.hasValue());
    // The flag byte follows the header; the column's bit is set in it.
    ColumnDef const& def = t.items->columnDef(price);
    EXPECT_EQ(def.flagOffset, int(sizeof(RowHeader)) + price / 8);
    EXPECT_TRUE(r.row()[def.flagOffset] & def.mask);
    EXPECT_EQ(f.toString(), "12.50");
    f.setNull();
    EXPECT_FALSE(f.hasValue());
    EXPECT_EQ(t.items->dataPtr(r.row(), -1).toString(), QString());   // absent column reads empty
}

TEST(Row, StringsAreUtf16AndFixedWidthTruncates)
{
    TestDb t;
    Record r(t.items.data());
    Field code = r.data("code");
    code.storeString(QStringLiteral("ЯБ12xyz"));    // 8 bytes hold 4 code units
    EXPECT_EQ(code.toString(), QStringLiteral("ЯБ12"));
    EXPECT_EQ(reinterpret_cast<char16_t const*>(code.data())[0], u'Я');
    Field name = r.data("name");
    name.storeString(QStringLiteral("длинное имя"));
    EXPECT_EQ(name.toString(), QStringLiteral("длинное имя"));
    EXPECT_EQ(code.toChar(), QChar(u'Я'));
}

TEST(Row, ReferenceCountingFreesOnLastRelease)
{
    TestDb t;
    int before = t.items->liveRowBuffers();
    {
        Record a(t.items.data());
        Record b = a;
        EXPECT_EQ(a.refCount(), 2);
        b = b;   // self-assignment changes nothing
        EXPECT_EQ(a.refCount(), 2);
        Record c(std::move(b));
        EXPECT_TRUE(b.isEmpty());
        EXPECT_EQ(t.items->liveRowBuffers(), before + 1);
        c = Record();
        EXPECT_EQ(a.refCount(), 1);
    }
    EXPECT_EQ(t.items->liveRowBuffers(), before);
    EXPECT_TRUE(Record::null.isEmpty());
}

TEST(Row, RowsOutliveADroppedTableAndWeakPointersExpire)
{
    TestDb t;
    t.apply(R"({"table":"items","ops":[{"insert":{"grp":1,"id":7,"name":"seven"}}]})");
    QWeakPointer<Table> weak = t.items;
    Record kept = t.items->masterIndex()->at(0);
    t.items.reset();
    t.db.dropTable("items");
    EXPECT_TRUE(weak.isNull());
    EXPECT_FALSE(t.db.hasTable("items"));
    // The row still reads; freeing it releases the table's layout (ASan checks).
    EXPECT_EQ(kept.data("name").toString(), "seven");
    kept = Record();
}

TEST(Row, KeyTextRoundTrip)
{
    TestDb t;
    t.apply(R"({"table":"items","ops":[{"insert":{"grp":-3,"id":9000000000}}]})");
    auto* master = t.items->masterIndex();
    Record row = master->at(0);
    QString text = master->toText(row);
    EXPECT_EQ(text, "-3,9000000000");
    EXPECT_EQ(master->find(master->fromText(text), -1), row);
    EXPECT_EQ(Record(t.items.data(), text), row);
    EXPECT_TRUE(master->fromText("1").isEmpty());        // wrong count
    EXPECT_TRUE(master->fromText("x,1").isEmpty());      // not a number
    EXPECT_TRUE(Record(t.items.data(), "5,5").isEmpty());
}

// A table made in code refuses a decimal scale its packed form would wrap,
// as a schema file does.
TEST(Table, RefusesDecimalScalesThePackedFormCannotHold)
{
    TableSchema schema;
    schema.name = QStringLiteral("t");
    schema.key = QStringList{QStringLiteral("id")};
    schema.columns = {ColumnDef(), ColumnDef()};
    schema.columns[0].name = QStringLiteral("id");
    schema.columns[0].type = FieldType::Int;
    schema.columns[0].nullable = false;
    schema.columns[1].name = QStringLiteral("amount");
    for (auto [type, scale, fits] : {std::tuple<int, int, bool>{FieldType::Decimal, 63, true}, {FieldType::Decimal, 64, false},
                                     {FieldType::Decimal, -65, false}, {FieldType::XDecimal, 127, true},
                                     {FieldType::XDecimal, 128, false}}) {
        schema.columns[1].type = type;
        schema.columns[1].scale = short(scale);
        if (fits) EXPECT_NO_THROW(Table{schema}) << scale;
        else EXPECT_THROW(Table{schema}, Exception) << scale;
    }
}
