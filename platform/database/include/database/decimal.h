#pragma once
#include "database_export.h"
#include <QString>
#include <QStringRef>
#include <cstdint>

// Packed 64-bit decimal: bits 0..55 mantissa, bits 56..62 scale (7-bit two's
// complement), bit 63 sign. A negative mantissa is read back by setting bits
// 56..63, so the magnitude range is 2^56 - 1.
class DATABASE_EXPORT decimal
{
public:
    static constexpr std::int64_t maxMantissa = (std::int64_t(1) << 56) - 1;
    static constexpr std::int64_t minMantissa = -(std::int64_t(1) << 56);

    decimal() = default;
    explicit decimal(QString const& text);      // throws Exception on bad text
    explicit decimal(QStringRef const& text);

    static decimal fromDouble(double value, short scale);
    // The mantissa must fit; it is truncated to 57 bits otherwise.
    static decimal fromMantissa(std::int64_t mantissa, int scale);
    // Integer storage rule: scale 0; a value wider than the mantissa drops
    // trailing digits, the scale going negative (0x40 after 64 divisions).
    static decimal fromInteger(std::int64_t value);
    static decimal fromRaw(std::uint64_t raw) { decimal d; d.m_raw = raw; return d; }
    // Parses "-123.45", "1e3" is not accepted. False leaves `out` untouched.
    static bool parse(QStringRef const& text, decimal& out);

    void setScale(short scale);   // rescales the value, rounding half away from zero
    short scale() const;
    std::int64_t mantissa() const;
    std::uint64_t raw() const { return m_raw; }

    int compare(decimal const& other) const;
    double toDouble() const;
    QString toString() const;        // '.' as separator, exactly `scale` places
    QString toSystemString() const;  // the system locale's separator

    bool operator==(decimal const& o) const { return compare(o) == 0; }
    bool operator!=(decimal const& o) const { return compare(o) != 0; }
    bool operator<(decimal const& o) const { return compare(o) < 0; }

private:
    std::uint64_t m_raw = 0;
};

// Extended packed decimal, 16 bytes: a 16-bit header word 0x1A00 + scale
// (low byte, signed), then a 112-bit two's complement mantissa, little endian.
class DATABASE_EXPORT xdecimal
{
public:
    static constexpr int size = 16;
    static constexpr unsigned headerBase = 0x1A00;

    xdecimal();                                  // zero, scale 0
    explicit xdecimal(QString const& text);      // throws Exception on bad text
    explicit xdecimal(QStringRef const& text);
    explicit xdecimal(decimal const& d);         // widening, keeps the scale

    static xdecimal fromDouble(double value, short scale);
    static xdecimal fromMantissa(__int128 mantissa, int scale);
    static bool parse(QStringRef const& text, xdecimal& out);

    void setScale(short scale);
    short scale() const;
    __int128 mantissa() const;

    int compare(xdecimal const& other) const;
    double toDouble() const;
    QString toString() const;

    // Defined by the library that owns value conversions (adds through the
    // core's packed-decimal routines).
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
