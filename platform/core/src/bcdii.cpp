#include <core/bcdii.h>
#include <database/decimal.h>

namespace {

constexpr __int128 kMax = xdecimal::maxMantissa;      // 2^111 - 1
constexpr __int128 kMin = -xdecimal::maxMantissa - 1; // -2^111
// Operands are brought to a common scale within this bound; the other
// operand is at most 2^111 in magnitude, so the sum cannot leave __int128,
// and a magnitude beyond it can only make an overflowing sum.
constexpr __int128 kAlignLimit = __int128(1) << 125;

__int128 saturate(__int128 m)
{
    return m > kMax ? kMax : (m < kMin ? kMin : m);
}

// m * 10^digits, or the bound past kAlignLimit with m's sign.
__int128 raise(__int128 m, int digits)
{
    while (digits-- > 0 && m != 0) {
        if (m > kAlignLimit / 10 || m < -kAlignLimit / 10)
            return m > 0 ? kAlignLimit : -kAlignLimit;
        m *= 10;
    }
    return m;
}

} // namespace

void BCDIIInit(void* buffer, unsigned int header)
{
    xdecimal::pack(buffer, 0, static_cast<signed char>(header & 0xFF));
}

void BCDIISetZero(void* buffer)
{
    xdecimal::pack(buffer, 0, xdecimal::unpackScale(buffer));
}

void BCDIIGetFromInt64(void* buffer, long mantissa, int scale)
{
    xdecimal::pack(buffer, mantissa, scale);
}

void BCDIIAdd(void* result, void const* a, void const* b)
{
    // Read both before writing: result may be either operand.
    __int128 ma = xdecimal::unpackMantissa(a);
    __int128 mb = xdecimal::unpackMantissa(b);
    int sa = xdecimal::unpackScale(a);
    int sb = xdecimal::unpackScale(b);
    int scale = sa > sb ? sa : sb;
    ma = raise(ma, scale - sa);
    mb = raise(mb, scale - sb);
    xdecimal::pack(result, saturate(ma + mb), scale);
}
