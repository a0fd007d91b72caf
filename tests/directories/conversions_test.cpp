#include <datetime.h>

#include <database/database.h>
#include <database/exception.h>

#include <gtest/gtest.h>

#include <QByteArray>
#include <cmath>
#include <cstring>
#include <ctime>
#include <functional>
#include <ostream>

namespace {

// One detached row with a column of every type.
class Row
{
public:
    Row()
    {
        auto col = [](char const* name, FieldType::Type type, int length = 0, short scale = 0) {
            ColumnDef c;
            c.name = QString::fromLatin1(name);
            c.type = type;
            c.length = length;
            c.scale = scale;
            c.nullable = c.name != QLatin1String("id");
            return c;
        };
        table = db.createTable({QStringLiteral("conv"),
                                {col("id", FieldType::Int), col("i32", FieldType::Int), col("i64", FieldType::Int64),
                                 col("dbl", FieldType::Double), col("dec", FieldType::Decimal, 0, 2),
                                 col("dec4", FieldType::Decimal, 0, 4), col("dec8", FieldType::Decimal, 0, 8),
                                 col("decTens", FieldType::Decimal, 0, -1),
                                 col("xdec", FieldType::XDecimal, 0, 4),
                                 col("chr", FieldType::Char, 8), col("chr16", FieldType::Char, 16),
                                 col("dt", FieldType::DateTime), col("vc", FieldType::VarChar),
                                 col("blk", FieldType::Block), col("blk2", FieldType::Block)},
                                {QStringLiteral("id")}});
        record = Record(table.data());
    }
    Field operator[](char const* column) const
    {
        return table->dataPtr(record.row(), table->columnIndex(QString::fromLatin1(column)));
    }
    Field set(char const* column, QString const& text) const
    {
        Field f = (*this)[column];
        f = QStringRef(&text);
        return f;
    }

    Database db;
    QSharedPointer<Table> table;
    Record record;
};

void assign(Field& f, QString const& text) { f = QStringRef(&text); }

// A value with more places than a packed decimal's scale can say.
QString tinyText() { return QStringLiteral("0.") + QString(100, QLatin1Char('0')) + QStringLiteral("1"); }
char const* tinyTextUtf8()
{
    static QByteArray const text = tinyText().toUtf8();
    return text.constData();
}

QString messageOf(std::function<void()> const& action)
{
    try { action(); } catch (Exception const& e) { return e.message(); }
    return QStringLiteral("<no exception>");
}

struct WriteCase
{
    char const* name;
    char const* column;
    std::function<void(Field&)> write;
    char const* expected;   // the stored text, or the exception's message
};
void PrintTo(WriteCase const& c, std::ostream* os) { *os << c.name; }
std::string caseName(testing::TestParamInfo<WriteCase> const& info) { return info.param.name; }

class Writes : public testing::TestWithParam<WriteCase> {};

TEST_P(Writes, StoreTheConvertedValue)
{
    Row row;
    Field f = row[GetParam().column];
    GetParam().write(f);
    EXPECT_TRUE(f.hasValue());
    EXPECT_EQ(f.toString(), QString::fromUtf8(GetParam().expected));
}

INSTANTIATE_TEST_SUITE_P(Conversions, Writes, testing::Values(
    WriteCase{"Int64AboveRangeClamps", "i32", [](Field& f) { f = 3000000000LL; }, "2147483647"},
    WriteCase{"Int64BelowRangeClamps", "i32", [](Field& f) { f = -3000000000LL; }, "-2147483648"},
    WriteCase{"DoubleTruncates", "i32", [](Field& f) { f = 2.9; }, "2"},
    WriteCase{"NegativeDoubleTruncatesTowardZero", "i32", [](Field& f) { f = -2.9; }, "-2"},
    WriteCase{"HugeDoubleClamps", "i32", [](Field& f) { f = 1e12; }, "2147483647"},
    WriteCase{"DoubleAsText", "vc", [](Field& f) { f = 0.1; }, "0.1"},
    WriteCase{"DatetimeAsText", "vc", [](Field& f) { f = datetime(QStringLiteral("2020-01-02")); }, "2020.01.02 00:00:00.000"},
    WriteCase{"NoDatetimeIsEmptyText", "vc", [](Field& f) { f = datetime(); }, ""},
    WriteCase{"FixedWidthTextIsCut", "chr", [](Field& f) { f = 123456; }, "1234"},
    WriteCase{"DatetimeStored", "dt", [](Field& f) { f = datetime(1577923200123LL); }, "2020.01.02 00:00:00.123"},
    WriteCase{"WidestDecimalIntoInt64", "i64", [](Field& f) { f = decimal::fromMantissa(decimal::maxMantissa, 0); }, "72057594037927935"},
    WriteCase{"XDecimalJustBelowOneTruncates", "i32", [](Field& f) { f = xdecimal(QStringLiteral("0.99999999999999999")); }, "0"},
    WriteCase{"WidestIntIntoDecimal", "dec8", [](Field& f) { f = 720575940; }, "720575940.00000000"},
    WriteCase{"TinyXDecimalAsText", "vc", [](Field& f) { f = xdecimal(tinyText()); }, tinyTextUtf8()}),
    caseName);

class Refusals : public testing::TestWithParam<WriteCase> {};

TEST_P(Refusals, ThrowAndLeaveTheFieldAsItWas)
{
    Row row;
    Field f = row[GetParam().column];
    if (f.type() == FieldType::DateTime) f = datetime(1577923200000LL);
    else if (f.type() != FieldType::Block && f.type() != FieldType::Unknown) f = 1;
    auto bytes = [&] { return QByteArray(reinterpret_cast<char const*>(f.data()), f.length()) + char(f.hasValue()); };
    QByteArray before = bytes();
    EXPECT_EQ(messageOf([&] { GetParam().write(f); }), QString::fromUtf8(GetParam().expected));
    EXPECT_EQ(bytes(), before);
}

INSTANTIATE_TEST_SUITE_P(Conversions, Refusals, testing::Values(
    WriteCase{"IntToDatetime", "dt", [](Field& f) { f = 1; }, "Can't convert from int to datetime"},
    WriteCase{"LongLongToDatetime", "dt", [](Field& f) { f = 1LL; }, "Can't convert from int64 to datetime"},
    WriteCase{"DoubleToDatetime", "dt", [](Field& f) { f = 1.5; }, "Can't convert double to datetime."},
    WriteCase{"DecimalToDatetime", "dt", [](Field& f) { f = decimal(QStringLiteral("1.5")); }, "Can't convert from decimal to datetime."},
    WriteCase{"XDecimalToDatetime", "dt", [](Field& f) { f = xdecimal(QStringLiteral("1.5")); }, "Can't convert from decimal to datetime."},
    WriteCase{"DatetimeToInt", "i32", [](Field& f) { f = datetime(1); }, "Can't convert from datetime to int"},
    WriteCase{"DatetimeToInt64", "i64", [](Field& f) { f = datetime(1); }, "Can't convert from datetime to int64"},
    WriteCase{"DatetimeToDouble", "dbl", [](Field& f) { f = datetime(1); }, "Can't convert from datetime to double"},
    WriteCase{"DatetimeToDecimal", "dec", [](Field& f) { f = datetime(1); }, "Can't convert from datetime to decimal"},
    WriteCase{"DatetimeToXDecimal", "xdec", [](Field& f) { f = datetime(1); }, "Can't convert from datetime to xdecimal"},
    WriteCase{"XDecimalNamesItselfDecimal", "blk", [](Field& f) { f = xdecimal(); }, "Can't convert from decimal to block"},
    WriteCase{"BadInt", "i32", [](Field& f) { assign(f, "abc"); }, "Can't convert from 'abc'' to int"},
    WriteCase{"IntOverflow", "i32", [](Field& f) { assign(f, "2147483648"); }, "Can't convert from '2147483648'' to int"},
    WriteCase{"NoSuchDay", "dt", [](Field& f) { assign(f, "2020-02-30"); }, "Can't convert from '2020-02-30'' to datetime"},
    WriteCase{"TextIntoIntByCopy", "i32", [](Field& f) { Row other; f = other.set("vc", "zz"); }, "Can't convert from 'zz'' to int"},
    WriteCase{"AbsentColumn", "nope", [](Field& f) { f = 1; }, "Can't convert from int to unknown(0)"}),
    caseName);

TEST(Readers, ClampWidenOrRefuseByColumnType)
{
    Row row;
    EXPECT_EQ(row.set("i64", "3000000000").toInteger(), 2147483647);
    EXPECT_EQ(row.set("i64", "-3000000000").toInteger(), -2147483647 - 1);
    xdecimal widened = row.set("dec4", "-12.3456").toXDecimal();
    EXPECT_EQ(widened.scale(), 4);
    EXPECT_TRUE(widened.mantissa() == -123456);
    EXPECT_EQ(row.set("vc", "2020-01-02 13:14:15").toDatetime().value(), 1577970855000LL);
    EXPECT_EQ(row.set("dt", "2020.01.02 23:59:59.999").toQDate(), QDate(2020, 1, 2));

    std::function<void()> refused[] = {
        [&] { row.set("dbl", "1").toInteger(); },  [&] { row.set("dec", "1").toInteger64(); },
        [&] { row.set("vc", "1").toDouble(); },    [&] { row.set("xdec", "1").toDecimal(); },
        [&] { row.set("i32", "1").toXDecimal(); }, [&] { row.set("i64", "1").toDatetime(); },
        [&] { row.set("vc", "2020-01-02").toQDate(); }};
    for (auto const& read : refused) EXPECT_EQ(messageOf(read), "Incorrect type conversion.");

    // Without a value every reader answers empty, whatever the column.
    Row empty;
    EXPECT_EQ(empty["vc"].toInteger(), 0);
    EXPECT_EQ(empty["i32"].toDecimal().raw(), 0u);
    EXPECT_EQ(empty["dbl"].toDatetime().value(), 0);
    EXPECT_TRUE(empty["i64"].toQDate().isNull());
}

TEST(Datetime, AcceptsFourFormatsAsWallClockUtc)
{
    EXPECT_EQ(datetime(QStringLiteral("2020-01-02")).value(), 1577923200000LL);
    EXPECT_EQ(datetime(QStringLiteral("2020.01.02")), datetime(QStringLiteral("2020.01.02 00:00:00.000")));
    EXPECT_EQ(datetime(QStringLiteral("2020-01-02 13:14:15")).value(), 1577970855000LL);
    EXPECT_EQ(datetime(QStringLiteral("2020.01.02 13:14:15.123")).value(), 1577970855123LL);
    EXPECT_EQ(datetime(QStringLiteral("2020-01-02 13:14:15.123")).value(), 0);   // no such format
    EXPECT_EQ(datetime(1577970855123LL).toString(), "2020.01.02 13:14:15.123");
    EXPECT_EQ(datetime(1577923200000LL - 1).getDate(), QDate(2020, 1, 1));
}

TEST(Datetime, IgnoresTheWorkstationZone)
{
    QByteArray saved = qgetenv("TZ");
    qputenv("TZ", "Europe/Berlin");   // 02:30 on 2021-03-28 does not exist there
    tzset();
    qint64 parsed = datetime(QStringLiteral("2021.03.28 02:30:00.000")).value();
    QString text = datetime(1616898600000LL).toString();
    saved.isNull() ? qunsetenv("TZ") : qputenv("TZ", saved);
    tzset();
    EXPECT_EQ(parsed, 1616898600000LL);
    EXPECT_EQ(text, "2021.03.28 02:30:00.000");
}

TEST(FieldCopy, FollowsTheSourceValueAndTheTargetColumn)
{
    Row src, dst;
    dst.set("i32", "5");
    dst.set("vc", "old");
    dst["i32"] = src["i64"];
    dst["vc"] = src["vc"];
    EXPECT_FALSE(dst["i32"].hasValue());
    EXPECT_EQ(dst["vc"].toString(), "");

    std::memset(src["blk"].data(), 0xA5, 404);
    src["blk"].setHasValue();
    dst["blk2"] = src["blk"];
    EXPECT_TRUE(dst["blk2"].hasValue() && std::memcmp(dst["blk2"].data(), src["blk"].data(), 404) == 0);

    dst["dec"] = src.set("dec4", "1.2345");
    dst["chr"] = src.set("chr16", "ABCDEFGH");
    dst["i32"] = src.set("i64", "3000000000");
    dst["xdec"] = src.set("vc", "12.5");
    dst["vc"] = src.set("dt", "2020-01-02");
    EXPECT_EQ(dst["dec"].toString(), "1.23");
    EXPECT_EQ(dst["chr"].toString(), "ABCD");
    EXPECT_EQ(dst["i32"].toString(), "2147483647");
    EXPECT_EQ(dst["xdec"].toString(), "12.5000");
    EXPECT_EQ(dst["vc"].toString(), "2020.01.02 00:00:00.000");
}

TEST(FieldCompare, OrdersByPresenceThenTypeThenValue)
{
    Row a, b;
    EXPECT_EQ(a["i32"].compare(b["i32"]), 0);
    EXPECT_EQ(a["i32"].compare(b.set("i32", "1")), -1);
    EXPECT_EQ(b["i32"].compare(a["i32"]), 1);
    EXPECT_EQ(a.set("i32", "9").compare(b.set("vc", "1")), 1 - 8);
    EXPECT_EQ(b["vc"].compare(a["i32"]), 8 - 1);

    EXPECT_LT(a.set("dec", "-1.50").compare(b.set("dec", "0.25")), 0);
    EXPECT_EQ(a.set("dec", "1.5").compare(b.set("dec4", "1.5")), 0);
    EXPECT_GT(a.set("dec", "1.51").compare(b.set("dec4", "1.5099")), 0);
    EXPECT_GT(a.set("vc", "a").compare(b.set("vc", "B")), 0);
    EXPECT_EQ(a.set("dbl", "nan").compare(b.set("dbl", "1")), 0);
    EXPECT_GT(a.set("xdec", "0.0001").compare(b.set("xdec", "0")), 0);
}

TEST(KeyText, JoinsValuesWithCommas)
{
    Row row;
    KeyValue key{FieldValue(row.set("i32", "1")), FieldValue(row.set("vc", "XY")), FieldValue(row.set("i64", "7"))};
    EXPECT_EQ(toString(key), "1,XY,7");
}

} // namespace

#include <core/clock.h>

namespace {
// Restores the machine's clock whatever the test did.
struct ClockGuard
{
    ~ClockGuard() { Clock::useSystem(); }
};
} // namespace

TEST(Clock, NowFollowsAFixedClockAndAnOffset)
{
    ClockGuard guard;
    datetime const dayStart(QStringLiteral("2026-11-20 10:00:00"));
    Clock::setFixed(dayStart.value());
    EXPECT_EQ(datetime::now(), dayStart);
    EXPECT_EQ(datetime::now(), dayStart) << "a fixed clock stands still";

    Clock::setRunningFrom(dayStart.value());
    qint64 ran = datetime::now().value() - dayStart.value();
    EXPECT_GE(ran, 0);
    EXPECT_LT(ran, 60000) << "a clock started at a moment runs on from it";

    Clock::setOffset(-86400000);
    qint64 behind = Clock::systemMSecs() - datetime::now().value();
    EXPECT_GE(behind, 86400000 - 60000);
    EXPECT_LE(behind, 86400000 + 60000);

    Clock::useSystem();
    EXPECT_FALSE(Clock::isFixed());
    EXPECT_LT(std::abs(datetime::now().value() - Clock::systemMSecs()), 60000);
}
