#include "../testnames.h"

#include <core/bcdii.h>
#include <database/decimal.h>

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <ostream>

namespace {

constexpr __int128 kMax = xdecimal::maxMantissa;
constexpr __int128 kMin = -xdecimal::maxMantissa - 1;

struct Buffer
{
    alignas(8) unsigned char bytes[16];
    Buffer(__int128 m, int scale) { xdecimal::pack(bytes, m, scale); }
    __int128 mantissa() const { return xdecimal::unpackMantissa(bytes); }
    int scale() const { return xdecimal::unpackScale(bytes); }
};

struct AddCase
{
    const char* name;
    __int128 a;
    int sa;
    __int128 b;
    int sb;
    __int128 sum;
    int scale;
};

std::ostream& operator<<(std::ostream& os, AddCase const& c) { return os << c.name; }

struct BCDIIAddTest : ::testing::TestWithParam<AddCase> {};

} // namespace

TEST_P(BCDIIAddTest, SumAndScale)
{
    AddCase const& c = GetParam();
    for (bool swapped : {false, true}) {
        Buffer a(c.a, c.sa), b(c.b, c.sb), r(12345, 3);
        if (swapped) BCDIIAdd(r.bytes, b.bytes, a.bytes);
        else BCDIIAdd(r.bytes, a.bytes, b.bytes);
        EXPECT_TRUE(r.mantissa() == c.sum) << (swapped ? "b + a" : "a + b");
        EXPECT_EQ(r.scale(), c.scale);
        EXPECT_EQ(r.bytes[1], 0x1A);
    }
}

INSTANTIATE_TEST_SUITE_P(Cases, BCDIIAddTest, ::testing::Values(
    AddCase{"scales 1 and 2", 15, 1, 225, 2, 375, 2},
    AddCase{"negative plus positive", -15, 1, 25, 2, -125, 2},
    AddCase{"both negative", -1, 0, -999, 3, -1999, 3},
    AddCase{"zero is neutral", 0, 0, 7123, 3, 7123, 3},
    AddCase{"cancels to zero at the larger scale", 42, 1, -4200, 3, 0, 3},
    AddCase{"negative scale", 1, -1, 1, 0, 11, 0},
    AddCase{"largest plus largest negative", kMax, 0, kMin, 0, -1, 0},
    AddCase{"overflow saturates up", kMax, 0, 1, 0, kMax, 0},
    AddCase{"overflow saturates down", kMin, 2, -1, 2, kMin, 2},
    AddCase{"aligning overflows", 1, 0, 1, 127, kMax, 127},
    AddCase{"aligning a negative overflows", -3, -128, 5, 127, kMin, 127},
    AddCase{"zero aligns to any scale", 0, -128, 5, 127, 5, 127},
    // 10*a passes the largest mantissa, but the exact sum fits.
    AddCase{"aligned operand overflows, sum fits", kMax / 10 + 1, 0, kMin, 1, (kMax / 10 + 1) * 10 + kMin, 1}
), [](::testing::TestParamInfo<AddCase> const& info) { return caseNameFromWords(info.param.name); });

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
