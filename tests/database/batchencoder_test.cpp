#include "support.h"

#include <database/batchencoder.h>

#include <gtest/gtest.h>

#include <QSet>

#include <cmath>
#include <cstring>
#include <limits>

namespace {

Batch decode(Database const& db, QByteArray const& line) { return BatchDecoder(db).decode(line, QStringLiteral("test:1")); }

// Why two rows differ in `columns` (all when none given), or empty: value
// bytes and null flags, column by column.
QString rowDifference(Table const& ta, Record const& a, Table const& tb, Record const& b, std::vector<int> columns = {})
{
    if (columns.empty())
        for (int c = 0; c < ta.columnCount(); ++c) columns.push_back(c);
    for (int c : columns) {
        Field x = ta.dataPtr(a.row(), c), y = tb.dataPtr(b.row(), c);
        QString const name = ta.columnDef(c).name;
        if (x.hasValue() != y.hasValue()) return name + QStringLiteral(": null on one side only");
        if (!x.hasValue()) continue;
        bool const same = x.type() == FieldType::VarChar ? x.asStaticString() == y.asStaticString()
                                                          : std::memcmp(x.data(), y.data(), std::size_t(x.length())) == 0;
        if (!same) return QStringLiteral("%1: '%2' became '%3'").arg(name, x.toString(), y.toString());
    }
    return QString();
}

// Every row of `a` against `b`'s, in master-key order; returns the rows compared.
int expectSameRows(Table const& a, Table const& b)
{
    EXPECT_EQ(a.rowCount(), b.rowCount()) << a.name().toStdString();
    auto const& ra = a.masterIndex()->records();
    auto const& rb = b.masterIndex()->records();
    int compared = 0;
    for (auto i = ra.begin(), j = rb.begin(); i != ra.end() && j != rb.end(); ++i, ++j, ++compared) {
        QString const why = rowDifference(a, *i, b, *j);
        EXPECT_TRUE(why.isEmpty()) << a.name().toStdString() << " row " << compared << ": " << why.toStdString();
        if (!why.isEmpty()) break;
    }
    return compared;
}

// Every table of `from` written whole and read back into a fresh database of the same schema.
void copyThroughText(Database const& from, Database& to)
{
    for (QString const& name : from.tableNames()) to.apply(decode(to, BatchEncoder::encodeTable(*from.table(name))));
}

QByteArray edgeSchema()
{
    return R"({"tables": [{"name": "edge", "key": ["id"], "columns": [
        {"name": "id", "type": 1, "nullable": false},
        {"name": "i64", "type": 2}, {"name": "f", "type": 3},
        {"name": "d0", "type": 4, "scale": 0}, {"name": "d2", "type": 4, "scale": 2},
        {"name": "dneg", "type": 4, "scale": -1}, {"name": "x4", "type": 5, "scale": 4},
        {"name": "code", "type": 6, "length": 16}, {"name": "name", "type": 8}, {"name": "at", "type": 7}]},
      {"name": "opaque", "key": ["id"], "columns": [{"name": "id", "type": 1, "nullable": false}, {"name": "blob", "type": 9}]}
    ]})";
}

struct EdgeDb
{
    EdgeDb()
    {
        db.loadSchemaJson(edgeSchema());
        edge = db.table(QStringLiteral("edge"));
    }
    void apply(QByteArray const& line) { db.apply(decode(db, line)); }
    Field field(int id, char const* column) const
    {
        for (Record const& r : edge->masterIndex()->records())
            if (r.data(0).rawInt32() == id) return edge->dataPtr(r.row(), edge->columnIndex(QLatin1String(column)));
        ADD_FAILURE() << "no row " << id;
        return Field();
    }
    Database db;
    QSharedPointer<Table> edge;
};

// Extremes of every type; the texts are the writer's own, so the line read
// back is also checked against what the values mean, not only their bits.
QByteArray const edgeRows = R"({"table":"edge","ops":[
  {"insert":{"id":1,"i64":-9223372036854775808,"f":0.1,"d0":"72057594037927935","d2":"-720575940379279.36","dneg":"123456789012345680",
             "x4":"259614842926741381426524816461.0047","code":" a\"b\\c ","name":"Цена \ud83d\ude00","at":"1970-01-01 00:00:00.000"}},
  {"insert":{"id":2,"i64":9223372036854775807,"f":1e300,"d0":"-72057594037927936","d2":"1.50","dneg":"-720575940379279360",
             "x4":"-259614842926741381426524816461.0048","code":"","name":"","at":"9999-12-31 23:59:59.999"}},
  {"insert":{"id":3,"f":-0.0,"d2":"0","dneg":"0","x4":"-0.0001","at":"1969-12-31 23:59:59.999"}},
  {"insert":{"id":4,"f":5e-324,"d0":"0","x4":"0"}},
  {"insert":{"id":5,"f":0.30000000000000004}}
]})";

} // namespace

TEST(BatchEncoderTest, BundledMarketCopiesThroughTextTableByTable)
{
    Database a, b;
    for (Database* db : {&a, &b}) db->loadSchema(QStringLiteral(SOURCE_DIR "/data/schema.json"));
    a.loadFile(QStringLiteral(SOURCE_DIR "/data/market/snapshot.jsonl"));
    copyThroughText(a, b);
    int compared = 0;
    for (QString const& name : a.tableNames()) {
        EXPECT_EQ(tableChecksum(*a.table(name)), tableChecksum(*b.table(name))) << name.toStdString();
        compared += expectSameRows(*a.table(name), *b.table(name));
    }
    EXPECT_GT(compared, 1000);
    EXPECT_EQ(tableChecksum(*a.table(QStringLiteral("securities"))).size(), 64);
}

// In lines of a few rows, applied one after another over a table that held
// other rows, the same table; every line is a batch of that table, only the
// first one clears it.
TEST(BatchEncoderTest, ATableInLinesOfAFewRowsReplacesItAsOneBatchWould)
{
    Database a, b;
    for (Database* db : {&a, &b}) {
        db->loadSchema(QStringLiteral(SOURCE_DIR "/data/schema.json"));
        db->loadFile(QStringLiteral(SOURCE_DIR "/data/market/snapshot.jsonl"));
    }
    b.loadFile(QStringLiteral(SOURCE_DIR "/data/market/replication.jsonl"));   // b's tables hold other rows first
    for (int perLine : {1, 7, 1000}) {
        for (QString const& name : a.tableNames()) {
            Table const& table = *a.table(name);
            int lines = 0;
            QByteArray const text = BatchEncoder::encodeTablesLines({&table}, perLine, lines);
            QList<QByteArray> parts = text.split('\n');
            ASSERT_TRUE(parts.takeLast().isEmpty()) << name.toStdString();   // each line ends in a newline
            ASSERT_EQ(parts.size(), lines);
            EXPECT_EQ(lines, qMax(1, (table.rowCount() + perLine - 1) / perLine)) << name.toStdString();
            for (int i = 0; i < parts.size(); ++i) {
                EXPECT_EQ(parts[i].contains("{\"clear\":true}"), i == 0) << name.toStdString() << " line " << i;
                b.apply(decode(b, parts[i]));
            }
            EXPECT_EQ(tableChecksum(*b.table(name)), tableChecksum(table)) << name.toStdString() << " by " << perLine;
        }
    }
}

TEST(BatchEncoderTest, EdgeValuesReadBackToTheSameBitsAndMeaning)
{
    EdgeDb a, b;
    a.apply(edgeRows);
    QByteArray const text = BatchEncoder::encodeTable(*a.edge);
    EXPECT_FALSE(text.contains('\n'));
    b.apply(text);
    EXPECT_EQ(expectSameRows(*a.edge, *b.edge), 5);
    EXPECT_EQ(tableChecksum(*a.edge), tableChecksum(*b.edge));
    // The values as they were meant, not only as bits the reader takes back.
    for (char const* part : {R"("dneg":"123456789012345680")", R"("dneg":"-720575940379279360")", R"("d2":"1.50")",
                             R"("d2":"-720575940379279.36")", R"("d2":"0.00")", R"("x4":"-0.0001")", R"("f":-0,)",
                             R"("f":5e-324,)", R"("f":0.1,)", R"("f":0.30000000000000004,)", R"("code":" a\"b\\c ")", R"("code":"")", R"("i64":null)",
                             R"("at":"1969-12-31 23:59:59.999")", R"("at":"1970-01-01 00:00:00.000")", R"("at":"9999-12-31 23:59:59.999")"})
        EXPECT_TRUE(text.contains(part)) << part << " not in " << text.toStdString();
    EXPECT_TRUE(text.contains(QString::fromUtf8(u8"\"name\":\"Цена \U0001F600\"").toUtf8()));
    EXPECT_TRUE(std::signbit(b.field(3, "f").rawDouble()));
    EXPECT_EQ(b.field(1, "dneg").rawDecimal().mantissa(), 12345678901234568);
    // A digit below a negative scale is a place too many, as one below a positive scale is.
    EXPECT_THROW(b.apply(R"({"table":"edge","ops":[{"update":{"id":1,"dneg":"125"}}]})"), Exception);
    EXPECT_EQ(b.field(1, "code").toString(), QStringLiteral(" a\"b\\c "));
    EXPECT_TRUE(b.field(2, "name").hasValue());
    EXPECT_FALSE(b.field(3, "name").hasValue());
}

TEST(BatchEncoderTest, DecodedOperationsEncodeToTheSameOperations)
{
    EdgeDb db;
    db.apply(edgeRows);
    QByteArray const line = R"({"table":"edge","ops":[{"update":{"id":1,"name":null,"d2":"7.5"}},{"delete":{"id":2,"f":1}},)"
                            R"({"clear":true},{"insert":{"id":9,"code":"Z"}}]})";
    Batch const first = decode(db.db, line);
    QByteArray const text = BatchEncoder::encode(first);
    EXPECT_EQ(text, QByteArray(R"({"table":"edge","ops":[{"update":{"id":1,"d2":"7.50","name":null}},{"delete":{"id":2}},)"
                               R"({"clear":true},{"insert":{"id":9,"code":"Z"}}]})"));
    Batch const again = decode(db.db, text);
    ASSERT_EQ(again.ops.size(), first.ops.size());
    for (std::size_t k = 0; k < first.ops.size(); ++k) {
        EXPECT_EQ(again.ops[k].kind, first.ops[k].kind);
        EXPECT_EQ(again.ops[k].columns, first.ops[k].columns);
        if (first.ops[k].kind == BatchOp::Clear) continue;
        QString const why = rowDifference(*db.edge, first.ops[k].image, *db.edge, again.ops[k].image, first.ops[k].columns);
        EXPECT_TRUE(why.isEmpty()) << "op " << k << ": " << why.toStdString();
    }
    db.db.apply(again);
    EXPECT_EQ(db.edge->rowCount(), 1);
}

TEST(BatchEncoderTest, ValuesTheTextCannotCarryAreRefusedNamingTableAndColumn)
{
    struct Case
    {
        char const* column;
        std::function<void(Field const&)> set;
        char const* reason;
    };
    Case const cases[] = {
        {"f", [](Field const& f) { f.setRawDouble(std::nan("")); }, "has no JSON number"},
        {"f", [](Field const& f) { f.setRawDouble(-HUGE_VAL); }, "has no JSON number"},
        {"at", [](Field const& f) { f.setRawDateTime(253402300800000); }, "outside the years 0001 to 9999"},
        {"at", [](Field const& f) { f.setRawDateTime(std::numeric_limits<std::int64_t>::min()); }, "outside the years"},
        {"name", [](Field const& f) { f.storeString(QString(QChar(0xD83D))); }, "lone surrogate U+D83D at position 1"},
    };
    for (Case const& c : cases) {
        EdgeDb db;
        db.apply(edgeRows);
        c.set(db.field(2, c.column));
        try {
            BatchEncoder::encodeTable(*db.edge);
            ADD_FAILURE() << c.column << " written";
        } catch (Exception const& e) {
            EXPECT_TRUE(e.message().startsWith(QStringLiteral("table 'edge': column '%1': ").arg(QLatin1String(c.column))))
                << e.message().toStdString();
            EXPECT_TRUE(e.message().contains(QLatin1String(c.reason))) << e.message().toStdString();
        }
        EXPECT_THROW(tableChecksum(*db.edge), Exception);
    }
    EdgeDb db;
    QSharedPointer<Table> opaque = db.db.table(QStringLiteral("opaque"));
    db.db.apply(decode(db.db, R"({"table":"opaque","ops":[{"insert":{"id":1}}]})"));
    EXPECT_NO_THROW(BatchEncoder::encodeTable(*opaque));   // a null block is only null
    db.db.apply(decode(db.db, R"({"table":"opaque","ops":[{"update":{"id":1,"blob":")" + QByteArray(404, 'x').toBase64() + R"("}}]})"));
    try {
        BatchEncoder::encodeTable(*opaque);
        ADD_FAILURE() << "block written";
    } catch (Exception const& e) {
        EXPECT_EQ(e.message(), QStringLiteral("table 'opaque': column 'blob': an opaque block has no batch text"));
    }
}

TEST(BatchEncoderTest, ChecksumTellsEveryChangeOfValueOrNull)
{
    EdgeDb db;
    db.apply(edgeRows);
    QSet<QByteArray> seen{tableChecksum(*db.edge)};
    auto changeAndSee = [&](QByteArray const& op) {
        db.apply(R"({"table":"edge","ops":[)" + op + "]}");
        QByteArray const sum = tableChecksum(*db.edge);
        EXPECT_FALSE(seen.contains(sum)) << op.toStdString();
        seen.insert(sum);
    };
    changeAndSee(R"({"update":{"id":4,"x4":"0.0001"}})");   // the smallest step of one field
    changeAndSee(R"({"update":{"id":1,"d2":null}})");        // a value gone
    changeAndSee(R"({"update":{"id":2,"name":null}})");      // "" is not null
    changeAndSee(R"({"update":{"id":2,"code":null}})");
    changeAndSee(R"({"update":{"id":3,"f":0}})");             // -0 is not 0
}
