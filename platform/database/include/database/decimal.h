#pragma once
#include <database/database_export.h>
#include <QString>
#include <QStringRef>
#include <cstdint>

// Packed 64-bit decimal: bits 0..55 mantissa, bits 56..62 scale (7-bit two's
// complement, so -64..63), bit 63 sign. A negative mantissa is read back by
// setting bits 56..63, so mantissas run from -2^56 to 2^56 - 1.
//
// Nothing here stores a value it was not given: a value that no mantissa or
// scale of this type can hold is refused (false, or an Exception naming the
// value), never cut, saturated or wrapped. Values are plain data; any thread.
class DATABASE_EXPORT decimal
{
public:
    static constexpr std::int64_t maxMantissa = (std::int64_t(1) << 56) - 1;
    static constexpr std::int64_t minMantissa = -(std::int64_t(1) << 56);
    static constexpr int minScale = -64;
    static constexpr int maxScale = 63;

    decimal() = default;
    // The text's exact value (see parse); throws Exception when it has none.
    explicit decimal(QString const& text);
    explicit decimal(QStringRef const& text);

    // Doubles are read as the shortest text that reads back as the same
    // double (2.675, not 2.67499999999999982236431605997495353221893310546875),
    // then rounded half away from zero to `scale` places. NaN, infinities, a
    // scale outside -64..63 and a result that does not fit are refused.
    static bool fromDouble(double value, short scale, decimal& out);   // false leaves `out` untouched
    static decimal fromDouble(double value, short scale);              // throws Exception instead
    // Rounds to `places` first, as fromDouble does, then to `scale`, with no
    // limit on the value in between (a column writer rounds doubles to six
    // places before it applies the column's own scale).
    static bool fromDouble(double value, short places, short scale, decimal& out);
    // Packs as given: the caller has checked that the mantissa and scale fit
    // (the bits above 56 and 7 are dropped otherwise).
    static decimal fromMantissa(std::int64_t mantissa, int scale);
    // The integer exactly, at scale 0; a value wider than the mantissa only
    // where trailing zeros make room, the scale going negative
    // (123456789012345670 is 12345678901234567 at scale -1). Throws
    // Exception naming the value when no mantissa holds it.
    static decimal fromInteger(std::int64_t value);
    // The integer rounded half away from zero to `scale` places, as its text
    // would be. False, leaving `out` untouched, when it does not fit.
    static bool fromInteger(std::int64_t value, short scale, decimal& out);
    static decimal fromRaw(std::uint64_t raw) { decimal d; d.m_raw = raw; return d; }
    // Parses [-+]digits[.digits] ('.' or ',', surrounding spaces allowed, no
    // exponent) exactly: the scale is the text's number of places, fewer
    // (down to -64) only where trailing zeros make room. A text with no
    // exact value here is refused. False leaves `out` untouched.
    static bool parse(QStringRef const& text, decimal& out);
    // Parses as above, then rounds half away from zero to `scale` places; any
    // number of digits is read. False (out untouched) when it does not fit.
    static bool parse(QStringRef const& text, short scale, decimal& out);

    // Rescales, rounding half away from zero. False, leaving the value as it
    // was, when the scale is outside -64..63 or the value does not fit.
    bool trySetScale(short scale);
    void setScale(short scale);   // throws Exception where trySetScale fails
    short scale() const;
    std::int64_t mantissa() const;
    std::uint64_t raw() const { return m_raw; }

    int compare(decimal const& other) const;
    double toDouble() const;         // the nearest double to the exact value
    QString toString() const;        // '.' as separator, exactly `scale` places
    QString toSystemString() const;  // the system locale's separator

    bool operator==(decimal const& o) const { return compare(o) == 0; }
    bool operator!=(decimal const& o) const { return compare(o) != 0; }
    bool operator<(decimal const& o) const { return compare(o) < 0; }

private:
    std::uint64_t m_raw = 0;
};

// Extended packed decimal, 16 bytes: a 16-bit header word 0x1A00 + scale
// (low byte, signed, so -128..127), then a 112-bit two's complement
// mantissa, little endian. Refuses what it cannot hold, as decimal does
// (only the addition below follows the core's saturation instead).
class DATABASE_EXPORT xdecimal
{
public:
    static constexpr int size = 16;
    static constexpr unsigned headerBase = 0x1A00;
    static constexpr int minScale = -128;
    static constexpr int maxScale = 127;

    xdecimal();                                  // zero, scale 0
    explicit xdecimal(QString const& text);      // throws Exception on bad text
    explicit xdecimal(QStringRef const& text);
    explicit xdecimal(decimal const& d);         // widening, keeps the scale

    static bool fromDouble(double value, short scale, xdecimal& out);
    static xdecimal fromDouble(double value, short scale);   // throws Exception
    static bool fromDouble(double value, short places, short scale, xdecimal& out);
    // Saturates a mantissa beyond 112 bits: the caller checks that it fits.
    static xdecimal fromMantissa(__int128 mantissa, int scale);
    static bool parse(QStringRef const& text, xdecimal& out);
    static bool parse(QStringRef const& text, short scale, xdecimal& out);

    bool trySetScale(short scale);
    void setScale(short scale);   // throws Exception where trySetScale fails
    short scale() const;
    __int128 mantissa() const;

    int compare(xdecimal const& other) const;
    double toDouble() const;
    QString toString() const;

    // Defined by the library that owns value conversions (adds through the
    // core's packed-decimal routines): exact at the larger of the two scales;
    // a sum beyond the mantissa saturates with its sign, as the core's does.
    xdecimal& operator+=(xdecimal const& other);

    unsigned char const* bytes() const { return m_bytes; }
    unsigned char* bytes() { return m_bytes; }

    // Raw access to the packed form, shared with the core's routines.
    static void pack(void* buffer, __int128 mantissa, int scale);
    static __int128 unpackMantissa(void const* buffer);
    static int unpackScale(void const* buffer);
    static constexpr __int128 maxMantissa = (__int128(1) << 111) - 1;

private:
    alignas(8) unsigned char m_bytes[size];
};
