// The packed layouts the core and the database read as raw words; values,
// rounding and refusals are checked against exact arithmetic elsewhere.
#include <database/decimal.h>
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

TEST(XDecimal, PackedFormKeepsHeaderWordAndWideMantissa)
{
    xdecimal x = xdecimal::fromMantissa(-(static_cast<__int128>(1) << 100), 4);
    EXPECT_EQ(xdecimal::unpackScale(x.bytes()), 4);
    EXPECT_EQ(x.bytes()[1], 0x1A);
    EXPECT_EQ(xdecimal::unpackMantissa(x.bytes()), -(static_cast<__int128>(1) << 100));
    xdecimal zero;
    EXPECT_EQ(zero.bytes()[0], 0);
    EXPECT_EQ(zero.bytes()[1], 0x1A);     // 6656: header of scale 0
}
