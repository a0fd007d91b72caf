// Sums of every kind, an operand written over included, are checked against
// exact arithmetic by the decimal differential test; here: set-up.
#include <core/bcdii.h>
#include <database/decimal.h>

#include <gtest/gtest.h>

#include <climits>
#include <cstring>

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
