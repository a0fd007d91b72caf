#include <database/decimal.h>
#include <database/exception.h>

#include <QLocale>
#include <cmath>
#include <cstring>
#include <utility>

namespace {

constexpr std::uint64_t kMantissaMask = (std::uint64_t(1) << 56) - 1;

__int128 pow10x(int n)
{
    __int128 p = 1;
    while (n-- > 0) p *= 10;
    return p;
}

// Divides rounding half away from zero.
template <class T>
T divRound(T value, T divisor)
{
    T q = value / divisor;
    T r = value % divisor;
    if (r < 0) r = -r;
    if (2 * r >= divisor) q += value < 0 ? -1 : 1;
    return q;
}

// Parses [-+]digits[.digits] into a 128-bit mantissa and a scale.
bool parseDecimalText(QStringRef const& text, __int128& mantissa, int& scale)
{
    QStringRef t = text.trimmed();
    int i = 0, n = t.size();
    bool negative = false;
    if (i < n && (t.at(i) == QLatin1Char('-') || t.at(i) == QLatin1Char('+'))) {
        negative = t.at(i) == QLatin1Char('-');
        ++i;
    }
    __int128 m = 0;
    int digits = 0, places = 0;
    bool point = false;
    for (; i < n; ++i) {
        QChar c = t.at(i);
        if (c == QLatin1Char('.') || c == QLatin1Char(',')) {
            if (point) return false;
            point = true;
            continue;
        }
        if (c < QLatin1Char('0') || c > QLatin1Char('9')) return false;
        if (digits >= 33) return false;
        m = m * 10 + (c.unicode() - '0');
        if (m != 0 || digits) ++digits;
        if (point) ++places;
    }
    if (digits == 0 && m == 0) {
        // "0", "0.00" are fine; "", "-", "." are not.
        bool anyDigit = false;
        for (int k = 0; k < n; ++k)
            if (t.at(k).isDigit()) anyDigit = true;
        if (!anyDigit) return false;
    }
    if (places > 120) return false;
    mantissa = negative ? -m : m;
    scale = places;
    return true;
}


// Compares x * 10^-a with y * 10^-b exactly. A value whose rescaling would
// overflow is larger in magnitude than any mantissa either type can hold.
int compareScaled(__int128 x, int a, __int128 y, int b)
{
    if (a < b) { std::swap(x, y); std::swap(a, b); return -compareScaled(x, a, y, b); }
    // now a >= b: bring y up to scale a
    int d = a - b;
    if (y != 0) {
        const __int128 limit = (static_cast<__int128>(1) << 120);
        while (d > 0) {
            if (y > limit / 10 || y < -limit / 10) return y > 0 ? -1 : 1;
            y *= 10;
            --d;
        }
    }
    return x < y ? -1 : (x > y ? 1 : 0);
}

QString formatMantissa(__int128 mantissa, int scale, QChar point)
{
    bool negative = mantissa < 0;
    unsigned __int128 m = negative ? static_cast<unsigned __int128>(-mantissa) : static_cast<unsigned __int128>(mantissa);
    char buf[64];
    int len = 0;
    do { buf[len++] = char('0' + int(m % 10)); m /= 10; } while (m);
    QString out;
    if (negative) out += QLatin1Char('-');
    if (scale <= 0) {
        for (int i = len - 1; i >= 0; --i) out += QLatin1Char(buf[i]);
        if (len > 1 || buf[0] != '0')
            for (int i = 0; i < -scale; ++i) out += QLatin1Char('0');
        return out;
    }
    while (len <= scale) buf[len++] = '0';
    for (int i = len - 1; i >= scale; --i) out += QLatin1Char(buf[i]);
    out += point;
    for (int i = scale - 1; i >= 0; --i) out += QLatin1Char(buf[i]);
    return out;
}

} // namespace

// ---- decimal --------------------------------------------------------------

decimal decimal::fromMantissa(std::int64_t mantissa, int scale)
{
    std::uint64_t raw = std::uint64_t(mantissa) & kMantissaMask;
    raw |= std::uint64_t(scale & 0x7F) << 56;
    if (mantissa < 0) raw |= std::uint64_t(1) << 63;
    return fromRaw(raw);
}

decimal decimal::fromInteger(std::int64_t value)
{
    if (value >= 0 && value > maxMantissa) {
        int divisions = 0;
        while (value > maxMantissa && divisions < 64) {
            value /= 10;
            ++divisions;
        }
        if (divisions >= 64) return fromRaw(std::uint64_t(0x40) << 56);
        return fromMantissa(value, -divisions);
    }
    return fromMantissa(value, 0);
}

short decimal::scale() const
{
    int s = int((m_raw >> 56) & 0x7F);
    if (s & 0x40) s -= 0x80;
    return short(s);
}

std::int64_t decimal::mantissa() const
{
    std::uint64_t m = m_raw & kMantissaMask;
    if (m_raw >> 63) m |= ~kMantissaMask;
    return std::int64_t(m);
}

decimal decimal::fromDouble(double value, short scale)
{
    if (!std::isfinite(value)) return fromMantissa(0, scale);
    double scaled = value * std::pow(10.0, scale);
    double r = std::round(scaled);
    if (r > double(maxMantissa)) r = double(maxMantissa);
    if (r < double(minMantissa)) r = double(minMantissa);
    return fromMantissa(std::int64_t(r), scale);
}

void decimal::setScale(short newScale)
{
    int old = scale();
    if (old == newScale) return;
    __int128 m = mantissa();
    if (newScale > old) {
        // Saturate rather than overflow: the packed mantissa cannot hold more.
        for (int i = old; i < newScale && m <= maxMantissa && m >= minMantissa; ++i) m *= 10;
    } else {
        int d = old - newScale;
        m = d > 38 ? 0 : divRound<__int128>(m, pow10x(d));
    }
    if (m > maxMantissa) m = maxMantissa;
    if (m < minMantissa) m = minMantissa;
    *this = fromMantissa(std::int64_t(m), newScale);
}

int decimal::compare(decimal const& other) const
{
    return compareScaled(mantissa(), scale(), other.mantissa(), other.scale());
}

double decimal::toDouble() const
{
    int s = scale();
    double m = double(mantissa());
    return s >= 0 ? m / std::pow(10.0, s) : m * std::pow(10.0, -s);
}

QString decimal::toString() const { return formatMantissa(mantissa(), scale(), QLatin1Char('.')); }

QString decimal::toSystemString() const
{
    return formatMantissa(mantissa(), scale(), QLocale::system().decimalPoint());
}

bool decimal::parse(QStringRef const& text, decimal& out)
{
    __int128 m;
    int s;
    if (!parseDecimalText(text, m, s)) return false;
    while (s > 63 || (s > 0 && (m > maxMantissa || m < minMantissa) && m % 10 == 0)) {
        m /= 10;
        --s;
    }
    if (m > maxMantissa || m < minMantissa) return false;
    out = fromMantissa(std::int64_t(m), s);
    return true;
}

decimal::decimal(QString const& text) : decimal(QStringRef(&text)) {}

decimal::decimal(QStringRef const& text)
{
    if (!parse(text, *this))
        throw Exception(QStringLiteral("Can't convert from '%1'' to decimal").arg(text.toString()));
}

// ---- xdecimal -------------------------------------------------------------

void xdecimal::pack(void* buffer, __int128 mantissa, int scale)
{
    auto* b = static_cast<unsigned char*>(buffer);
    std::uint16_t header = std::uint16_t(headerBase + (unsigned(scale) & 0xFF));
    std::memcpy(b, &header, 2);
    unsigned __int128 u = static_cast<unsigned __int128>(mantissa);
    for (int i = 0; i < 14; ++i) { b[2 + i] = static_cast<unsigned char>(u & 0xFF); u >>= 8; }
}

__int128 xdecimal::unpackMantissa(void const* buffer)
{
    auto const* b = static_cast<unsigned char const*>(buffer);
    unsigned __int128 u = 0;
    for (int i = 13; i >= 0; --i) u = (u << 8) | b[2 + i];
    if (b[15] & 0x80) u |= ~((static_cast<unsigned __int128>(1) << 112) - 1);   // sign-extend 112 bits
    return static_cast<__int128>(u);
}

int xdecimal::unpackScale(void const* buffer)
{
    auto const* b = static_cast<unsigned char const*>(buffer);
    return int(static_cast<signed char>(b[0]));
}

xdecimal::xdecimal() { pack(m_bytes, 0, 0); }

xdecimal::xdecimal(decimal const& d) { pack(m_bytes, d.mantissa(), d.scale()); }

xdecimal xdecimal::fromMantissa(__int128 mantissa, int scale)
{
    xdecimal x;
    if (mantissa > maxMantissa) mantissa = maxMantissa;
    if (mantissa < -maxMantissa - 1) mantissa = -maxMantissa - 1;
    pack(x.m_bytes, mantissa, scale);
    return x;
}

xdecimal xdecimal::fromDouble(double value, short scale)
{
    if (!std::isfinite(value)) return fromMantissa(0, scale);
    long double scaled = static_cast<long double>(value) * std::pow(10.0L, scale);
    long double r = std::round(scaled);
    if (r > 1e33L) r = 1e33L;
    if (r < -1e33L) r = -1e33L;
    return fromMantissa(static_cast<__int128>(r), scale);
}

short xdecimal::scale() const { return short(unpackScale(m_bytes)); }
__int128 xdecimal::mantissa() const { return unpackMantissa(m_bytes); }

void xdecimal::setScale(short newScale)
{
    int old = scale();
    if (old == newScale) return;
    __int128 m = mantissa();
    if (newScale > old)
        for (int i = old; i < newScale && m <= maxMantissa && m >= -maxMantissa; ++i) m *= 10;
    else m = (old - newScale) > 38 ? 0 : divRound<__int128>(m, pow10x(old - newScale));
    *this = fromMantissa(m, newScale);
}

int xdecimal::compare(xdecimal const& other) const
{
    return compareScaled(mantissa(), scale(), other.mantissa(), other.scale());
}

double xdecimal::toDouble() const
{
    int s = scale();
    long double m = static_cast<long double>(mantissa());
    return double(s >= 0 ? m / std::pow(10.0L, s) : m * std::pow(10.0L, -s));
}

QString xdecimal::toString() const { return formatMantissa(mantissa(), scale(), QLatin1Char('.')); }

bool xdecimal::parse(QStringRef const& text, xdecimal& out)
{
    __int128 m;
    int s;
    if (!parseDecimalText(text, m, s)) return false;
    if (s > 127) return false;
    if (m > maxMantissa || m < -maxMantissa - 1) return false;
    out = fromMantissa(m, s);
    return true;
}

xdecimal::xdecimal(QString const& text) : xdecimal(QStringRef(&text)) {}

xdecimal::xdecimal(QStringRef const& text)
{
    if (!parse(text, *this))
        throw Exception(QStringLiteral("Can't convert from '%1'' to xdecimal").arg(text.toString()));
}
