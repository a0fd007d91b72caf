// Sums of every kind are checked against exact arithmetic by the decimal
// differential test; here: operands that are also the result, and set-up.
#include <core/bcdii.h>
#include <database/decimal.h>

#include <gtest/gtest.h>

#include <climits>
#include <cstring>

namespace {

struct Buffer
{
    alignas(8) unsigned char bytes[16];
    Buffer(__int128 m, int scale) { xdecimal::pack(bytes, m, scale); }
    __int128 mantissa() const { return xdecimal::unpackMantissa(bytes); }
    int scale() const { return xdecimal::unpackScale(bytes); }
};

} // namespace

TEST(BCDII, AddIntoAnOperand)
{
    Buffer a(150, 2), b(-3, 0);
    BCDIIAdd(a.bytes, a.bytes, b.bytes);
    EXPECT_TRUE(a.mantissa() == -150);
    EXPECT_EQ(a.scale(), 2);
    BCDIIAdd(b.bytes, b.bytes, b.bytes);
    EXPECT_TRUE(b.mantissa() == -6);
}

TEST(BCDII, InitZeroAndLoad)
{
    unsigned char buf[16];
    std::memset(buf, 0xEE, sizeof buf);
    BCDIIInit(buf, 6656);
    EXPECT_EQ(buf[0], 0x00);
    EXPECT_EQ(buf[1], 0x1A);
    for (int i = 2; i < 16; ++i) EXPECT_EQ(buf[i], 0) << i;

    BCDIIInit(buf, 0x1A00 + 4);
    EXPECT_EQ(xdecimal::unpackScale(buf), 4);
    BCDIIInit(buf, 0x1A00 - 2);   // a negative scale carried in the low byte
    EXPECT_EQ(xdecimal::unpackScale(buf), -2);

    BCDIIGetFromInt64(buf, -123456, 3);
    EXPECT_TRUE(xdecimal::unpackMantissa(buf) == -123456);
    EXPECT_EQ(xdecimal::unpackScale(buf), 3);
    BCDIIGetFromInt64(buf, LONG_MIN, 0);
    EXPECT_TRUE(xdecimal::unpackMantissa(buf) == LONG_MIN);

    BCDIIGetFromInt64(buf, 987, 5);
    BCDIISetZero(buf);
    EXPECT_TRUE(xdecimal::unpackMantissa(buf) == 0);
    EXPECT_EQ(xdecimal::unpackScale(buf), 5);
}
