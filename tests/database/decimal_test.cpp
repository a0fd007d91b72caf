#include <database/decimal.h>
#include <database/exception.h>
#include <gtest/gtest.h>

#include <cmath>
#include <utility>

TEST(Decimal, PackedLayoutHoldsMantissaScaleAndSign)
{
    decimal d = decimal::fromMantissa(12345, 2);
    EXPECT_EQ(d.raw(), (std::uint64_t(2) << 56) | 12345u);
    decimal n = decimal::fromMantissa(-5, 3);
    EXPECT_EQ(n.raw() >> 63, 1u);
    EXPECT_EQ((n.raw() >> 56) & 0x7F, 3u);
    // Negative values are read back by setting bits 56..63 of the word.
    EXPECT_EQ(std::int64_t(n.raw() | 0xFF00000000000000ull), -5);
    EXPECT_EQ(n.mantissa(), -5);
    EXPECT_EQ(n.toString(), "-0.005");
}

// An integer wider than the mantissa keeps every digit or is refused, as
// its text is: trailing zeros may make room, nothing else may go.
TEST(Decimal, WideIntegerIsKeptExactlyOrRefused)
{
    decimal d = decimal::fromInteger(123456789012345670);
    EXPECT_EQ(d.scale(), -1);
    EXPECT_EQ(d.mantissa(), 12345678901234567);
    EXPECT_EQ(decimal::fromInteger(42).scale(), 0);
    EXPECT_EQ(decimal::fromInteger(-42).mantissa(), -42);
    EXPECT_EQ(decimal::fromInteger(-72057594037927936).toString(), "-72057594037927936");   // the lowest mantissa
    try {
        decimal::fromInteger(72057594037927936);
        ADD_FAILURE() << "2^56 was stored";
    } catch (Exception const& e) {
        EXPECT_EQ(e.message(), "Can't convert from '72057594037927936'' to decimal");
    }
    EXPECT_THROW(decimal::fromInteger(123456789012345678), Exception);
    EXPECT_THROW(decimal::fromInteger(INT64_MIN), Exception);

    // At a column's scale: rounded half away from zero, as the text path does.
    decimal r = decimal::fromMantissa(7, 0);
    ASSERT_TRUE(decimal::fromInteger(123456789012345675, -1, r));
    EXPECT_EQ(r.toString(), "123456789012345680");
    ASSERT_TRUE(decimal::fromInteger(-123456789012345675, -1, r));
    EXPECT_EQ(r.toString(), "-123456789012345680");
    EXPECT_FALSE(decimal::fromInteger(72057594037927936, 0, r));
    EXPECT_FALSE(decimal::fromInteger(1, 64, r));
    EXPECT_EQ(r.toString(), "-123456789012345680");   // untouched by a refusal
}

TEST(Decimal, TextRoundTripAndRescale)
{
    decimal d(QStringLiteral("101.25"));
    EXPECT_EQ(d.scale(), 2);
    EXPECT_EQ(d.toString(), "101.25");
    d.setScale(4);
    EXPECT_EQ(d.toString(), "101.2500");
    d.setScale(1);
    EXPECT_EQ(d.toString(), "101.3");    // half away from zero
    decimal n(QStringLiteral("-0.05"));
    n.setScale(1);
    EXPECT_EQ(n.toString(), "-0.1");
    EXPECT_THROW(decimal(QStringLiteral("1.2.3")), Exception);
    EXPECT_THROW(decimal(QStringLiteral("")), Exception);
    EXPECT_THROW(decimal(QStringLiteral("12a")), Exception);
}

TEST(Decimal, CompareAcrossScalesAndExtremes)
{
    EXPECT_EQ(decimal(QStringLiteral("1.50")).compare(decimal(QStringLiteral("1.5"))), 0);
    EXPECT_LT(decimal(QStringLiteral("-2")).compare(decimal(QStringLiteral("1.999"))), 0);
    decimal huge = decimal::fromMantissa(decimal::maxMantissa, -60);
    decimal tiny = decimal::fromMantissa(1, 60);
    EXPECT_GT(huge.compare(tiny), 0);
    EXPECT_LT(tiny.compare(huge), 0);
    EXPECT_DOUBLE_EQ(decimal(QStringLiteral("-12.5")).toDouble(), -12.5);
    EXPECT_EQ(decimal::fromDouble(2.675, 2).toString(), "2.68");
}

TEST(XDecimal, PackedFormKeepsHeaderWordAndWideMantissa)
{
    xdecimal x = xdecimal::fromMantissa(-(static_cast<__int128>(1) << 100), 4);
    EXPECT_EQ(xdecimal::unpackScale(x.bytes()), 4);
    EXPECT_EQ(x.bytes()[1], 0x1A);
    EXPECT_EQ(xdecimal::unpackMantissa(x.bytes()), -(static_cast<__int128>(1) << 100));
    xdecimal zero;
    EXPECT_EQ(zero.bytes()[0], 0);
    EXPECT_EQ(zero.bytes()[1], 0x1A);     // 6656: header of scale 0
    EXPECT_EQ(xdecimal(QStringLiteral("123456789012345678901234.5")).toString(), "123456789012345678901234.5");
    EXPECT_EQ(xdecimal(decimal(QStringLiteral("-3.25"))).toString(), "-3.25");
    EXPECT_EQ(xdecimal(QStringLiteral("2.5")).compare(xdecimal(QStringLiteral("2.50"))), 0);
}

namespace {
QString tinyText() { return QStringLiteral("0.") + QString(100, QLatin1Char('0')) + QStringLiteral("1"); }
} // namespace

TEST(Decimal, DoublesRoundFromTheirShortestTextHalfAwayFromZero)
{
    // Both types take the digits the double prints as, so ties that the
    // binary value misses by a hair still round away from zero.
    std::pair<double, char const*> const ties[] = {{2.675, "2.68"}, {1.005, "1.01"}, {-1.005, "-1.01"}, {0.125, "0.13"}, {-0.004, "0.00"}};
    for (auto [value, text] : ties) {
        EXPECT_EQ(decimal::fromDouble(value, 2).toString(), text) << value;
        EXPECT_EQ(xdecimal::fromDouble(value, 2).toString(), text) << value;
    }
    EXPECT_EQ(xdecimal::fromDouble(0.5, 28).toString(), "0.5000000000000000000000000000");
    EXPECT_EQ(decimal::fromDouble(72057594037.92793, 6).toString(), "72057594037.927930");
    EXPECT_EQ(decimal::fromDouble(1e20, -4).toString(), "100000000000000000000");
    EXPECT_EQ(xdecimal::fromDouble(2e33, 0).toString(), "2000000000000000000000000000000000");
}

TEST(Decimal, ValuesThatDoNotFitAreRefusedNotCutOrZeroed)
{
    for (double value : {1e20, -1e20, 72057594037927936.0, std::nan(""), HUGE_VAL})
        EXPECT_THROW(decimal::fromDouble(value, 0), Exception) << value;
    EXPECT_THROW(decimal::fromDouble(1, 64), Exception);
    EXPECT_THROW(xdecimal::fromDouble(3e33, 0), Exception);
    EXPECT_THROW(xdecimal::fromDouble(1e30, 6), Exception);

    decimal d(QStringLiteral("1000000000000000"));
    EXPECT_THROW(d.setScale(2), Exception);
    EXPECT_EQ(d.toString(), "1000000000000000");
    decimal small(QStringLiteral("1.5"));
    EXPECT_THROW(small.setScale(64), Exception);   // the 7-bit scale would wrap
    EXPECT_THROW(small.setScale(-65), Exception);
    EXPECT_EQ(small.toString(), "1.5");
    small.setScale(-1);
    EXPECT_EQ(small.toString(), "0");
    xdecimal x(QStringLiteral("2.5"));
    EXPECT_THROW(x.setScale(128), Exception);
    EXPECT_THROW(xdecimal(QStringLiteral("1000")).setScale(31), Exception);
    EXPECT_EQ(x.toString(), "2.5");
}

TEST(XDecimal, WideScalesAndLongTextsPrintAndParseBack)
{
    xdecimal tiny(tinyText());
    EXPECT_EQ(tiny.scale(), 101);
    EXPECT_EQ(tiny.toString(), tinyText());
    EXPECT_EQ(xdecimal::fromMantissa(-7, 127).toString(), QStringLiteral("-0.") + QString(126, QLatin1Char('0')) + "7");

    for (__int128 m : {xdecimal::maxMantissa, -xdecimal::maxMantissa - 1}) {
        xdecimal extreme = xdecimal::fromMantissa(m, 3);
        EXPECT_EQ(xdecimal(extreme.toString()).compare(extreme), 0) << extreme.toString().toStdString();
    }
    // More digits than the mantissa holds, but trailing zeros give way.
    EXPECT_EQ(xdecimal(QStringLiteral("1.") + QString(40, QLatin1Char('0'))).compare(xdecimal(QStringLiteral("1"))), 0);
    EXPECT_EQ(decimal(QStringLiteral("720575940379279350")).toString(), "720575940379279350");
    EXPECT_THROW(decimal(QStringLiteral("0.") + QString(70, QLatin1Char('0')) + "1"), Exception);
    EXPECT_THROW(xdecimal(QStringLiteral("2596148429267413814265248164610048")), Exception);
}
