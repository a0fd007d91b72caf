#include <database/decimal.h>
#include <database/exception.h>

#include <QLocale>
#include <QVarLengthArray>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <utility>

namespace {

using u128 = unsigned __int128;

constexpr std::uint64_t kMantissaMask = (std::uint64_t(1) << 56) - 1;

// The powers of ten that a double holds exactly.
constexpr double kPow10[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                             1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

// What one packed type holds: the magnitudes of its largest positive and
// negative mantissas (two's complement: one more below zero), its scales.
struct Limits
{
    u128 maxPositive;
    u128 maxNegative;
    int minScale;
    int maxScale;
};
constexpr Limits kDecimal{u128(decimal::maxMantissa), u128(1) << 56, decimal::minScale, decimal::maxScale};
constexpr Limits kXDecimal{u128(xdecimal::maxMantissa), u128(1) << 111, xdecimal::minScale, xdecimal::maxScale};

// A number as its significant digits: digits * 10^-places, places possibly
// negative. No leading zeros; no digits at all for zero. Texts and doubles
// both pass through this form, so both round by one rule.
struct Digits
{
    bool negative = false;
    QVarLengthArray<char, 48> d;
    int places = 0;
};

// [-+]digits[.digits], '.' or ',', spaces around; any number of digits.
bool readText(QStringRef const& text, Digits& x)
{
    QStringRef t = text.trimmed();
    int i = 0, n = t.size();
    if (i < n && (t.at(i) == QLatin1Char('-') || t.at(i) == QLatin1Char('+'))) {
        x.negative = t.at(i) == QLatin1Char('-');
        ++i;
    }
    bool point = false, anyDigit = false;
    for (; i < n; ++i) {
        ushort c = t.at(i).unicode();
        if (c == '.' || c == ',') {
            if (point) return false;
            point = true;
            continue;
        }
        if (c < '0' || c > '9') return false;
        anyDigit = true;
        if (point) ++x.places;
        if (c != '0' || !x.d.isEmpty()) x.d.append(char(c));
    }
    return anyDigit;
}

// The shortest digits that read back as `value` (the conversion library
// finds them exactly), so 2.675 is taken as the 2.675 that was meant.
bool readDouble(double value, Digits& x)
{
    if (!std::isfinite(value)) return false;
    char buf[40];
    auto end = std::to_chars(buf, buf + sizeof buf, value, std::chars_format::scientific).ptr;
    char const* p = buf;
    if (*p == '-') {
        x.negative = true;
        ++p;
    }
    int fraction = 0;
    bool point = false;
    for (; p < end && *p != 'e'; ++p) {
        if (*p == '.') {
            point = true;
            continue;
        }
        fraction += point;
        if (*p != '0' || !x.d.isEmpty()) x.d.append(*p);
    }
    int exponent = 0;
    if (p < end) {
        ++p;
        if (p < end && *p == '+') ++p;
        std::from_chars(p, end, exponent);
    }
    x.places = fraction - exponent;
    return true;
}

// The mantissa of `value` at `places` where plain arithmetic finds the same
// one as the shortest text does: below 2^40 the product and the text are
// both within 2^-11 of each other, so a value further than 2^-10 from a tie
// rounds the same way. Prices and quantities nearly always take this path.
bool quickRound(double value, int places, __int128& m)
{
    if (places < 0 || places > 22) return false;
    double scaled = std::fabs(value) * kPow10[places];
    if (!(scaled < 0x1p40)) return false;   // NaN too
    double whole = std::floor(scaled);
    double fraction = scaled - whole;
    if (std::fabs(fraction - 0.5) < 0x1p-10) return false;
    // Below 2^40: a 64-bit conversion is exact, and one instruction.
    auto r = static_cast<__int128>(static_cast<std::int64_t>(whole) + (fraction > 0.5));
    m = value < 0 ? -r : r;
    return true;
}

// Rounds half away from zero to `scale` places: only the first dropped digit
// decides.
void roundAt(Digits& x, int scale)
{
    if (scale >= x.places) return;
    long long drop = static_cast<long long>(x.places) - scale;
    int len = x.d.size();
    bool up = drop <= len && x.d[len - int(drop)] >= '5';
    int keep = drop >= len ? 0 : len - int(drop);
    x.d.resize(keep);
    x.places = scale;
    if (!up) return;
    int i = keep - 1;
    while (i >= 0 && x.d[i] == '9') x.d[i--] = '0';
    if (i >= 0) ++x.d[i];
    else x.d.insert(0, '1');
}

// The first `count` digits followed by `zeros` zeros, if that fits.
bool mantissaOf(char const* digits, int count, long long zeros, bool negative, Limits const& lim, __int128& out)
{
    u128 max = negative ? lim.maxNegative : lim.maxPositive;
    u128 acc = 0;
    for (int i = 0; i < count; ++i) {
        unsigned digit = unsigned(digits[i] - '0');
        if (acc > (max - digit) / 10) return false;
        acc = acc * 10 + digit;
    }
    for (; zeros > 0 && acc != 0; --zeros) {
        if (acc > max / 10) return false;
        acc *= 10;
    }
    out = negative ? -static_cast<__int128>(acc) : static_cast<__int128>(acc);
    return true;
}

// The mantissa at `scale`, rounded half away from zero, if it fits.
bool roundedMantissa(Digits x, int scale, Limits const& lim, __int128& out)
{
    if (scale < lim.minScale || scale > lim.maxScale) return false;
    roundAt(x, scale);
    return mantissaOf(x.d.constData(), x.d.size(), static_cast<long long>(scale) - x.places, x.negative, lim, out);
}

// The exact value: at the text's own places where the type can say them,
// fewer only by dropping trailing zeros, and no value when neither works.
bool exactMantissa(Digits const& x, Limits const& lim, __int128& out, int& scale)
{
    int len = x.d.size();
    if (len == 0) {
        out = 0;
        scale = std::clamp(x.places, lim.minScale, lim.maxScale);
        return true;
    }
    int zeros = 0;
    while (zeros < len && x.d[len - 1 - zeros] == '0') ++zeros;
    int lowest = std::max(x.places - zeros, lim.minScale);
    // No mantissa has 40 digits: start where at most that many remain.
    int s = std::min({x.places, lim.maxScale, x.places - len + 40});
    for (; s >= lowest; --s) {
        int keep = len - (x.places - s);
        if (mantissaOf(x.d.constData(), keep, 0, x.negative, lim, out)) {
            scale = s;
            return true;
        }
    }
    return false;
}

__int128 pow10x(int n)
{
    __int128 p = 1;
    while (n-- > 0) p *= 10;
    return p;
}

// Divides rounding half away from zero.
__int128 divRound(__int128 value, __int128 divisor)
{
    __int128 q = value / divisor;
    __int128 r = value % divisor;
    if (r < 0) r = -r;
    if (2 * r >= divisor) q += value < 0 ? -1 : 1;
    return q;
}

bool fitsIn(__int128 m, Limits const& lim)
{
    return m >= 0 ? u128(m) <= lim.maxPositive : -static_cast<u128>(m) <= lim.maxNegative;
}

// m * 10^-from given `to` places, if the type holds it.
bool rescaled(__int128 m, int from, int to, Limits const& lim, __int128& out)
{
    if (to < lim.minScale || to > lim.maxScale) return false;
    if (to >= from) {
        bool negative = m < 0;
        u128 a = negative ? -static_cast<u128>(m) : static_cast<u128>(m);
        u128 max = negative ? lim.maxNegative : lim.maxPositive;
        for (int k = to - from; k > 0 && a != 0; --k) {
            if (a > max / 10) return false;
            a *= 10;
        }
        out = negative ? -static_cast<__int128>(a) : static_cast<__int128>(a);
        return true;
    }
    // Fewer places never widen the value: |m| < 10^34 rounds to 0 past 35.
    int d = from - to;
    out = d > 38 ? 0 : divRound(m, pow10x(d));
    return true;
}

// Compares x * 10^-a with y * 10^-b exactly. A value whose rescaling would
// overflow is larger in magnitude than any mantissa either type can hold.
int compareScaled(__int128 x, int a, __int128 y, int b)
{
    if (a < b) return -compareScaled(y, b, x, a);
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

// Digits of |m|, least significant first; a mantissa has at most 35.
int digitsOf(__int128 mantissa, char (&buf)[40])
{
    u128 m = mantissa < 0 ? -static_cast<u128>(mantissa) : static_cast<u128>(mantissa);
    int len = 0;
    do {
        buf[len++] = char('0' + int(m % 10));
        m /= 10;
    } while (m);
    return len;
}

QString formatMantissa(__int128 mantissa, int scale, QChar point)
{
    char buf[40];
    int len = digitsOf(mantissa, buf);
    QString out;
    out.reserve(len + std::abs(scale) + 3);
    if (mantissa < 0) out += QLatin1Char('-');
    if (scale <= 0) {
        for (int i = len - 1; i >= 0; --i) out += QLatin1Char(buf[i]);
        if (mantissa != 0) out.append(QString(-scale, QLatin1Char('0')));
        return out;
    }
    if (len <= scale) {
        out += QLatin1Char('0');
        out += point;
        out.append(QString(scale - len, QLatin1Char('0')));
    } else {
        for (int i = len - 1; i >= scale; --i) out += QLatin1Char(buf[i]);
        out += point;
    }
    for (int i = std::min(len, scale) - 1; i >= 0; --i) out += QLatin1Char(buf[i]);
    return out;
}

// The nearest double to m * 10^-scale. A mantissa of at most 53 bits and a
// power of ten up to 10^22 are both exact doubles, so one multiplication or
// division rounds once; anything else is read back from its digits, which
// the conversion library rounds correctly.
double nearestDouble(__int128 m, int scale)
{
    constexpr __int128 exact = __int128(1) << 53;
    if (m <= exact && m >= -exact && scale >= -22 && scale <= 22)
        return scale >= 0 ? double(m) / kPow10[scale] : double(m) * kPow10[-scale];
    char digits[40];
    int len = digitsOf(m, digits);
    char text[48];
    int n = 0;
    if (m < 0) text[n++] = '-';
    for (int i = len - 1; i >= 0; --i) text[n++] = digits[i];
    text[n++] = 'e';
    char* end = std::to_chars(text + n, text + sizeof text, -scale).ptr;
    double v = 0;
    std::from_chars(text, end, v);
    return v;
}

[[noreturn]] void refuse(QString const& value, char const* type)
{
    throw Exception(QStringLiteral("Can't convert from '%1'' to %2").arg(value, QLatin1String(type)));
}

QString doubleText(double value) { return QString::number(value, 'g', QLocale::FloatingPointShortest); }

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
    // Wider than the mantissa: only trailing zeros may go, as they do for
    // the same number as text; a digit dropped would be money lost.
    std::int64_t m = value;
    int scale = 0;
    while ((m > maxMantissa || m < minMantissa) && m % 10 == 0) {
        m /= 10;
        --scale;
    }
    if (m > maxMantissa || m < minMantissa) refuse(QString::number(value), "decimal");
    return fromMantissa(m, scale);
}

bool decimal::fromInteger(std::int64_t value, short scale, decimal& out)
{
    __int128 m;
    if (!rescaled(value, 0, scale, kDecimal, m) || !fitsIn(m, kDecimal)) return false;
    out = fromMantissa(std::int64_t(m), scale);
    return true;
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

bool decimal::fromDouble(double value, short scale, decimal& out)
{
    return fromDouble(value, scale, scale, out);
}

bool decimal::fromDouble(double value, short places, short scale, decimal& out)
{
    Digits x;
    __int128 m;
    if (quickRound(value, places, m)) {
        // Below 2^40 a mantissa fits at its own scale.
        if (places != scale && !rescaled(m, places, scale, kDecimal, m)) return false;
        out = fromMantissa(std::int64_t(m), scale);
        return true;
    }
    if (!readDouble(value, x)) return false;
    roundAt(x, places);
    if (!roundedMantissa(x, scale, kDecimal, m)) return false;
    out = fromMantissa(std::int64_t(m), scale);
    return true;
}

decimal decimal::fromDouble(double value, short scale)
{
    decimal d;
    if (!fromDouble(value, scale, d)) refuse(doubleText(value), "decimal");
    return d;
}

bool decimal::trySetScale(short newScale)
{
    int old = scale();
    if (old == newScale) return true;
    __int128 m;
    if (!rescaled(mantissa(), old, newScale, kDecimal, m)) return false;
    *this = fromMantissa(std::int64_t(m), newScale);
    return true;
}

void decimal::setScale(short newScale)
{
    if (!trySetScale(newScale)) refuse(toString(), "decimal");
}

int decimal::compare(decimal const& other) const
{
    std::int64_t a = mantissa(), b = other.mantissa();
    int sa = scale(), sb = other.scale();
    if (sa == sb) return a < b ? -1 : (a > b ? 1 : 0);
    return compareScaled(a, sa, b, sb);
}

double decimal::toDouble() const { return nearestDouble(mantissa(), scale()); }

QString decimal::toString() const { return formatMantissa(mantissa(), scale(), QLatin1Char('.')); }

QString decimal::toSystemString() const
{
    return formatMantissa(mantissa(), scale(), QLocale::system().decimalPoint());
}

bool decimal::parse(QStringRef const& text, decimal& out)
{
    Digits x;
    __int128 m;
    int s;
    if (!readText(text, x) || !exactMantissa(x, kDecimal, m, s)) return false;
    out = fromMantissa(std::int64_t(m), s);
    return true;
}

bool decimal::parse(QStringRef const& text, short scale, decimal& out)
{
    Digits x;
    __int128 m;
    if (!readText(text, x) || !roundedMantissa(std::move(x), scale, kDecimal, m)) return false;
    out = fromMantissa(std::int64_t(m), scale);
    return true;
}

decimal::decimal(QString const& text) : decimal(QStringRef(&text)) {}

decimal::decimal(QStringRef const& text)
{
    if (!parse(text, *this)) refuse(text.toString(), "decimal");
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

bool xdecimal::fromDouble(double value, short scale, xdecimal& out)
{
    return fromDouble(value, scale, scale, out);
}

bool xdecimal::fromDouble(double value, short places, short scale, xdecimal& out)
{
    Digits x;
    __int128 m;
    if (quickRound(value, places, m)) {
        if (!rescaled(m, places, scale, kXDecimal, m)) return false;
        out = fromMantissa(m, scale);
        return true;
    }
    if (!readDouble(value, x)) return false;
    roundAt(x, places);
    if (!roundedMantissa(x, scale, kXDecimal, m)) return false;
    out = fromMantissa(m, scale);
    return true;
}

xdecimal xdecimal::fromDouble(double value, short scale)
{
    xdecimal x;
    if (!fromDouble(value, scale, x)) refuse(doubleText(value), "xdecimal");
    return x;
}

short xdecimal::scale() const { return short(unpackScale(m_bytes)); }
__int128 xdecimal::mantissa() const { return unpackMantissa(m_bytes); }

bool xdecimal::trySetScale(short newScale)
{
    int old = scale();
    if (old == newScale) return true;
    __int128 m;
    if (!rescaled(mantissa(), old, newScale, kXDecimal, m)) return false;
    pack(m_bytes, m, newScale);
    return true;
}

void xdecimal::setScale(short newScale)
{
    if (!trySetScale(newScale)) refuse(toString(), "xdecimal");
}

int xdecimal::compare(xdecimal const& other) const
{
    return compareScaled(mantissa(), scale(), other.mantissa(), other.scale());
}

double xdecimal::toDouble() const { return nearestDouble(mantissa(), scale()); }

QString xdecimal::toString() const { return formatMantissa(mantissa(), scale(), QLatin1Char('.')); }

bool xdecimal::parse(QStringRef const& text, xdecimal& out)
{
    Digits x;
    __int128 m;
    int s;
    if (!readText(text, x) || !exactMantissa(x, kXDecimal, m, s)) return false;
    out = fromMantissa(m, s);
    return true;
}

bool xdecimal::parse(QStringRef const& text, short scale, xdecimal& out)
{
    Digits x;
    __int128 m;
    if (!readText(text, x) || !roundedMantissa(std::move(x), scale, kXDecimal, m)) return false;
    out = fromMantissa(m, scale);
    return true;
}

xdecimal::xdecimal(QString const& text) : xdecimal(QStringRef(&text)) {}

xdecimal::xdecimal(QStringRef const& text)
{
    if (!parse(text, *this)) refuse(text.toString(), "xdecimal");
}
