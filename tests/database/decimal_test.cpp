#include <database/decimal.h>
#include <database/exception.h>
#include <gtest/gtest.h>

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

TEST(Decimal, WideIntegerDropsDigitsIntoANegativeScale)
{
    std::int64_t big = 123456789012345678;   // needs more than 56 bits
    decimal d = decimal::fromInteger(big);
    EXPECT_EQ(d.scale(), -1);
    EXPECT_EQ(d.mantissa(), 12345678901234567);
    EXPECT_EQ(decimal::fromInteger(42).scale(), 0);
    EXPECT_EQ(decimal::fromInteger(-42).mantissa(), -42);
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
