// The packed decimals, the column writers that store them and the core's
// decimal addition, checked against exact big-integer arithmetic over many
// random cases. The reference below is deliberately naive: every value is
// an unbounded integer times a power of ten, rounding is one division, and
// the shortest text of a double is found by trying 1 to 17 digits with the
// C library's printf and strtod. Seeds are fixed, so a failure repeats.
#include <datetime.h>

#include <core/bcdii.h>
#include <database/database.h>
#include <database/decimal.h>
#include <database/exception.h>
#include <database/field.h>

#include <gmpxx.h>
#include <gtest/gtest.h>

#include <QString>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iterator>
#include <limits>
#include <optional>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

namespace {

// ---- the reference ---------------------------------------------------------

mpz_class pow10(int n)
{
    mpz_class p;
    mpz_ui_pow_ui(p.get_mpz_t(), 10, unsigned(n));
    return p;
}

mpz_class fromI128(__int128 v)
{
    unsigned __int128 u = v < 0 ? -static_cast<unsigned __int128>(v) : static_cast<unsigned __int128>(v);
    mpz_class r(static_cast<unsigned long>(u >> 64));
    r <<= 64;
    r += static_cast<unsigned long>(u);
    return v < 0 ? mpz_class(-r) : r;
}

__int128 toI128(mpz_class const& m)
{
    mpz_class a = abs(m);
    unsigned __int128 u = mpz_getlimbn(a.get_mpz_t(), 1);
    u = (u << 64) | mpz_getlimbn(a.get_mpz_t(), 0);
    return m < 0 ? -static_cast<__int128>(u) : static_cast<__int128>(u);
}

struct Range
{
    mpz_class maxPos, minNeg;
    int minScale, maxScale;
    char const* name;
};

Range const& decimalRange()
{
    static Range const r{(mpz_class(1) << 56) - 1, -(mpz_class(1) << 56), -64, 63, "decimal"};
    return r;
}

Range const& xdecimalRange()
{
    static Range const r{(mpz_class(1) << 111) - 1, -(mpz_class(1) << 111), -128, 127, "xdecimal"};
    return r;
}

bool fits(mpz_class const& m, Range const& r) { return m >= r.minNeg && m <= r.maxPos; }

// n * 10^-places; places may be negative.
struct Exact
{
    mpz_class n;
    int places = 0;
};

// The mantissa at `scale`, rounded half away from zero.
mpz_class roundTo(Exact const& x, int scale)
{
    if (scale >= x.places) return x.n * pow10(scale - x.places);
    mpz_class d = pow10(x.places - scale), a = abs(x.n), q, r;
    mpz_tdiv_qr(q.get_mpz_t(), r.get_mpz_t(), a.get_mpz_t(), d.get_mpz_t());
    if (2 * r >= d) q += 1;
    return x.n < 0 ? mpz_class(-q) : q;
}

std::optional<Exact> parseText(std::string const& s)
{
    std::size_t b = 0, e = s.size();
    auto space = [](char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f'; };
    while (b < e && space(s[b])) ++b;
    while (e > b && space(s[e - 1])) --e;
    bool negative = false;
    if (b < e && (s[b] == '+' || s[b] == '-')) negative = s[b++] == '-';
    std::string digits;
    int places = 0;
    bool point = false;
    for (; b < e; ++b) {
        char c = s[b];
        if (c == '.' || c == ',') {
            if (point) return std::nullopt;
            point = true;
        } else if (c >= '0' && c <= '9') {
            digits += c;
            places += point;
        } else {
            return std::nullopt;
        }
    }
    if (digits.empty()) return std::nullopt;
    Exact x{mpz_class(digits, 10), places};
    if (negative) x.n = -x.n;
    return x;
}

// The exact value as a packed mantissa and scale: the text's own places,
// fewer only where trailing zeros allow it; nothing when no scale holds it.
std::optional<std::pair<mpz_class, int>> exactIn(Exact const& x, Range const& r)
{
    if (x.n == 0) return std::make_pair(mpz_class(0), std::min(std::max(x.places, r.minScale), r.maxScale));
    int zeros = 0;
    mpz_class n = x.n;
    while (mpz_divisible_ui_p(n.get_mpz_t(), 10)) { n /= 10; ++zeros; }
    for (int s = std::min(x.places, r.maxScale); s >= std::max(x.places - zeros, r.minScale); --s) {
        mpz_class m = x.n / pow10(x.places - s);
        if (fits(m, r)) return std::make_pair(m, s);
    }
    return std::nullopt;
}

std::string textOf(mpz_class const& m, int scale)
{
    std::string digits = mpz_class(abs(m)).get_str();
    std::string out = m < 0 ? "-" : "";
    if (scale <= 0) {
        out += digits;
        if (m != 0) out.append(std::size_t(-scale), '0');
        return out;
    }
    if (int(digits.size()) <= scale) digits.insert(0, std::size_t(scale + 1) - digits.size(), '0');
    std::size_t intLen = digits.size() - std::size_t(scale);
    return out + digits.substr(0, intLen) + "." + digits.substr(intLen);
}

double toDoubleOf(mpz_class const& m, int scale) { return std::strtod(textOf(m, scale).c_str(), nullptr); }

// The fewest significant digits that read back as `v`, as an exact value.
Exact shortestOf(double v)
{
    char buf[64];
    for (int p = 1; p <= 17; ++p) {
        std::snprintf(buf, sizeof buf, "%.*e", p - 1, v);
        if (std::strtod(buf, nullptr) == v) break;
    }
    std::string s(buf);
    std::size_t ePos = s.find('e');
    std::string mantissa = s.substr(0, ePos);
    int exponent = std::atoi(s.c_str() + ePos + 1);
    std::size_t point = mantissa.find('.');
    int fraction = 0;
    if (point != std::string::npos) {
        fraction = int(mantissa.size() - point - 1);
        mantissa.erase(point, 1);
    }
    return Exact{mpz_class(mantissa, 10), fraction - exponent};
}

int signOf(int v) { return (v > 0) - (v < 0); }

int compareExact(mpz_class const& a, int sa, mpz_class const& b, int sb)
{
    int s = std::max(sa, sb);
    return signOf(cmp(mpz_class(a * pow10(s - sa)), mpz_class(b * pow10(s - sb))));
}

// ---- random inputs ---------------------------------------------------------

class Inputs
{
public:
    explicit Inputs(std::uint64_t seed) : m_rng(seed) {}

    int between(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(m_rng); }
    bool chance(int percent) { return between(0, 99) < percent; }
    std::uint64_t bits() { return m_rng(); }

    // Mostly small, sometimes any length up to `maxBits`, sometimes an edge.
    mpz_class mantissa(Range const& r, int maxBits)
    {
        switch (between(0, 9)) {
        case 0: {
            mpz_class const edges[] = {r.maxPos, r.minNeg, r.maxPos - 1, r.minNeg + 1, 0, 1, -1, r.maxPos / 10, r.minNeg / 10};
            return edges[between(0, 8)];
        }
        case 1: {
            mpz_class p = mpz_class(chance(50) ? 1 : -1) * pow10(between(0, maxBits * 3 / 10));
            return fits(p, r) ? p : mpz_class(0);
        }
        default: {
            int bitLength = chance(50) ? between(0, 40) : between(0, maxBits);
            mpz_class m;
            for (int have = 0; have < bitLength; have += 64) {
                m <<= 64;
                m += static_cast<unsigned long>(bits());
            }
            mpz_fdiv_r_2exp(m.get_mpz_t(), m.get_mpz_t(), mp_bitcnt_t(bitLength));
            if (chance(50)) m = -m;
            return fits(m, r) ? m : mpz_class(0);
        }
        }
    }

    int scale(Range const& r) { return chance(70) ? between(-3, 12) : between(r.minScale, r.maxScale); }

    std::string digits(int n)
    {
        std::string s;
        for (int i = 0; i < n; ++i) s += char('0' + between(0, 9));
        return s;
    }

    std::string text()
    {
        std::string s;
        if (chance(10)) s += chance(50) ? " " : "\t";
        if (chance(40)) s += chance(80) ? "-" : "+";
        if (chance(20)) s.append(std::size_t(between(1, 5)), '0');
        s += digits(chance(60) ? between(0, 8) : between(0, 45));
        if (chance(75)) {
            s += chance(85) ? "." : ",";
            s += digits(chance(60) ? between(0, 8) : between(0, 140));
            if (chance(20)) s.append(std::size_t(between(1, 40)), '0');
        }
        if (chance(10)) s += " ";
        if (chance(6)) {
            static char const junk[] = "e-+.,x 9";
            s.insert(std::size_t(between(0, int(s.size()))), 1, junk[between(0, 7)]);
        }
        return s;
    }

    double number()
    {
        switch (between(0, 6)) {
        case 0: {
            std::uint64_t b = bits();
            double d;
            std::memcpy(&d, &b, 8);
            return d;   // any double, NaN and infinities included
        }
        case 1: {
            // A price with a tie at the next place: 2.675, 1.005, 0.125.
            double k = double(between(0, 999999) * 10 + 5);
            return (chance(50) ? 1 : -1) * k / std::pow(10.0, between(1, 9));
        }
        case 2: return (chance(50) ? 1 : -1) * double(bits() % 100000000000ull) / std::pow(10.0, between(0, 8));
        case 3: return std::ldexp(double(bits() >> 11), between(-80, 60)) * (chance(50) ? 1 : -1);
        case 4: return (chance(50) ? 1 : -1) * std::pow(10.0, between(-30, 40)) * (1 + between(0, 9) / 10.0);
        case 5: return std::nextafter(std::ldexp(1.0, between(40, 115)), chance(50) ? 0.0 : 1e300) / std::pow(10.0, between(0, 8));
        default: return double(std::int64_t(bits()) >> between(0, 63)) / std::pow(10.0, between(0, 4));
        }
    }

private:
    std::mt19937_64 m_rng;
};

// ---- tallying ---------------------------------------------------------------

// Counts cases and reports the first few mismatches of a check in full.
class Tally
{
public:
    explicit Tally(std::string what) : m_what(std::move(what)) {}
    ~Tally()
    {
        EXPECT_EQ(m_failed, 0) << m_failed << " of " << m_cases << " " << m_what << " cases differ from the reference";
        std::printf("[ differential ] %s: %d cases, %d differ\n", m_what.c_str(), m_cases, m_failed);
    }
    void check(bool ok, std::function<std::string()> const& detail)
    {
        ++m_cases;
        if (!ok && ++m_failed <= 5) ADD_FAILURE() << m_what << ": " << detail();
    }

private:
    std::string m_what;
    int m_cases = 0;
    int m_failed = 0;
};

std::string str(QString const& s) { return s.toStdString(); }

template <class Action>
std::optional<QString> refusal(Action&& action)
{
    try {
        action();
    } catch (Exception const& e) {
        return e.message();
    }
    return std::nullopt;
}

// One case the reference either stores as `want` or refuses; `also` is what
// else that outcome needs (the scale, the old value left, the message).
void storedOrRefused(Tally& tally, std::string const& label, std::optional<std::string> const& want,
                     std::optional<QString> const& refused, QString const& stored, bool also = true)
{
    std::string const got = refused ? str(*refused) : str(stored);
    if (!want) tally.check(refused && also, [&] { return label + " should be refused, gave " + got; });
    else tally.check(!refused && also && got == *want, [&] { return label + " gave " + got + ", not " + *want; });
}

decimal makeDecimal(mpz_class const& m, int s) { return decimal::fromMantissa(m.get_si(), s); }
xdecimal makeXDecimal(mpz_class const& m, int s) { return xdecimal::fromMantissa(toI128(m), s); }

constexpr int kCases = 40000;

// ---- values: text, double, text round trip ---------------------------------

// The core and the database read the packed forms as raw words: decoded here
// bit by bit. decimal: bit 63 the sign, bits 56..62 a 7-bit signed scale, a
// negative mantissa read back by setting bits 56..63. xdecimal: a header word
// 0x1A00 + scale (signed low byte), then 112 bits of two's complement, little
// endian.
bool packedAs(decimal const& d, mpz_class const& m, int s)
{
    std::uint64_t const w = d.raw();
    int const scale = int((w >> 56) & 0x7F) - ((w >> 62) & 1 ? 0x80 : 0);
    std::int64_t const mantissa = std::int64_t(w >> 63 ? w | 0xFF00000000000000ull : w & 0x00FFFFFFFFFFFFFFull);
    return scale == s && (w >> 63) == (m < 0) && mantissa == m.get_si();
}

bool packedAs(xdecimal const& x, mpz_class const& m, int s)
{
    mpz_class mantissa;
    for (int k = 15; k >= 2; --k) mantissa = mantissa * 256 + x.bytes()[k];
    if (x.bytes()[15] & 0x80) mantissa -= mpz_class(1) << 112;
    return x.bytes()[1] == 0x1A && std::int8_t(x.bytes()[0]) == s && mantissa == m;
}

template <class D>
void values(Range const& r, int maxBits, std::uint64_t seed, std::function<D(mpz_class const&, int)> const& make)
{
    Inputs in(seed);
    std::string const name = r.name;
    Tally text(name + " toString"), dbl(name + " toDouble"), back(name + " text round trip");
    std::optional<Tally> wide;
    if constexpr (std::is_same_v<D, decimal>) wide.emplace("decimal widened");
    Tally layout(name + " packed layout");
    for (int i = 0; i < kCases; ++i) {
        mpz_class m = in.mantissa(r, maxBits);
        int s = in.scale(r);
        D d = make(m, s);
        std::string const expected = textOf(m, s), got = str(d.toString());
        text.check(got == expected, [&] { return "(" + m.get_str() + ", " + std::to_string(s) + ") gave " + got + ", not " + expected; });
        dbl.check(d.toDouble() == toDoubleOf(m, s), [&] { return expected + " gave " + std::to_string(d.toDouble()); });
        auto read = refusal([&] { D r(QString::fromStdString(got)); if (r.compare(d) != 0) throw Exception(r.toString()); });
        back.check(!read, [&] { return expected + " read back as " + str(*read); });
        if (wide) wide->check(str(xdecimal(d).toString()) == expected, [&] { return expected; });
        layout.check(packedAs(d, m, s), [&] { return expected; });
    }
    if constexpr (std::is_same_v<D, xdecimal>) layout.check(packedAs(xdecimal(), 0, 0), [] { return "xdecimal()"; });
}

TEST(DecimalDifferential, ValuesPrintReadBackAndConvertToDouble)
{
    values<decimal>(decimalRange(), 57, 1, makeDecimal);
    values<xdecimal>(xdecimalRange(), 112, 2, makeXDecimal);
}

// ---- compare ------------------------------------------------------------------

template <class D>
void comparePairs(Range const& r, int maxBits, std::uint64_t seed, char const* what,
                  std::function<D(mpz_class const&, int)> const& make)
{
    Inputs in(seed);
    Tally tally(what);
    // Fixed rows first: one value at two scales, across zero, and the far
    // ends of the scale.
    struct Row { mpz_class ma; int sa; mpz_class mb; int sb; };
    std::vector<Row> const rows{{150, 2, 15, 1}, {-2, 0, 1999, 3}, {(mpz_class(1) << 56) - 1, -60, 1, 60},
                                {1, 60, (mpz_class(1) << 56) - 1, -60}};
    for (int i = 0; i < kCases + int(rows.size()); ++i) {
        mpz_class ma, mb;
        int sa, sb;
        if (i < int(rows.size())) {
            ma = rows[i].ma, sa = rows[i].sa, mb = rows[i].mb, sb = rows[i].sb;
        } else {
            ma = in.mantissa(r, maxBits);
            sa = in.scale(r);
            switch (in.between(0, 2)) {
            case 0:   // the same value at another scale, where it fits
                sb = std::min(r.maxScale, sa + in.between(0, 20));
                mb = ma * pow10(sb - sa);
                if (!fits(mb, r)) { mb = ma; sb = sa; }
                break;
            case 1:   // a neighbour
                sb = sa;
                mb = fits(ma + 1, r) ? mpz_class(ma + 1) : mpz_class(ma - 1);
                break;
            default:
                mb = in.mantissa(r, maxBits);
                sb = in.scale(r);
            }
        }
        int want = compareExact(ma, sa, mb, sb);
        int got = signOf(make(ma, sa).compare(make(mb, sb)));
        tally.check(got == want, [&] { return textOf(ma, sa) + " vs " + textOf(mb, sb) + " gave " + std::to_string(got); });
    }
}

TEST(DecimalDifferential, CompareOrdersExactly)
{
    comparePairs<decimal>(decimalRange(), 57, 3, "decimal compare", makeDecimal);
    comparePairs<xdecimal>(xdecimalRange(), 112, 4, "xdecimal compare", makeXDecimal);
}

// ---- setScale ---------------------------------------------------------------------

template <class D>
void rescale(Range const& r, int maxBits, std::uint64_t seed, char const* what,
             std::function<D(mpz_class const&, int)> const& make)
{
    Inputs in(seed);
    Tally tally(what);
    // Fixed rows first: ties away from zero, a value that no longer fits,
    // scales past the packed field's bits, and a value rounded to nothing.
    struct Row { mpz_class m; int s, to; };
    std::vector<Row> const rows{{10125, 2, 4}, {10125, 2, 1}, {-5, 2, 1}, {mpz_class("1000000000000000"), 0, 2},
                                {15, 1, 64}, {15, 1, -65}, {15, 1, -1}, {25, 1, 128}, {1000, 0, 31}};
    for (int i = 0; i < kCases + int(rows.size()); ++i) {
        bool const fixed = i < int(rows.size());
        mpz_class m = fixed ? rows[i].m : in.mantissa(r, maxBits);
        int s = fixed ? rows[i].s : in.scale(r);
        int to = fixed ? rows[i].to : in.chance(80) ? s + in.between(-12, 12) : in.between(r.minScale - 10, r.maxScale + 10);
        D d = make(m, s);
        std::string before = str(d.toString());
        auto refused = refusal([&] { d.setScale(short(to)); });
        mpz_class want = roundTo(Exact{m, s}, to);
        bool storable = to >= r.minScale && to <= r.maxScale && fits(want, r);
        storedOrRefused(tally, textOf(m, s) + " to scale " + std::to_string(to), storable ? std::optional(textOf(want, to)) : std::nullopt,
                        refused, d.toString(), storable ? d.scale() == to : str(d.toString()) == before);
    }
}

TEST(DecimalDifferential, SetScaleRoundsHalfAwayOrRefuses)
{
    rescale<decimal>(decimalRange(), 57, 5, "decimal setScale", makeDecimal);
    rescale<xdecimal>(xdecimalRange(), 112, 6, "xdecimal setScale", makeXDecimal);
}

// ---- text ---------------------------------------------------------------------------

TEST(DecimalDifferential, TextIsReadExactlyOrRefused)
{
    Inputs in(7);
    Tally dec("decimal from text"), xdec("xdecimal from text");
    // Fixed rows first: malformed texts, more places than a decimal's scale
    // holds, digits beyond the mantissa with and without trailing zeros.
    std::string const zeros40(40, '0'), zeros70(70, '0'), zeros100(100, '0');
    std::vector<std::string> const rows{"101.25", "-0.05", "1.2.3", "", "12a", "0." + zeros100 + "1", "1." + zeros40,
                                        "720575940379279350", "0." + zeros70 + "1", "2596148429267413814265248164610048",
                                        "123456789012345678901234.5"};
    for (int i = 0; i < kCases * 2 + int(rows.size()); ++i) {
        std::string t = i < int(rows.size()) ? rows[i] : in.text();
        std::optional<Exact> x = parseText(t);
        auto check = [&](Tally& tally, Range const& r, auto make) {
            std::optional<std::pair<mpz_class, int>> want;
            if (x) want = exactIn(*x, r);
            QString got;
            short scale = 0;
            auto refused = refusal([&] { auto v = make(QString::fromStdString(t)); got = v.toString(); scale = v.scale(); });
            storedOrRefused(tally, "'" + t + "'", want ? std::optional(textOf(want->first, want->second)) : std::nullopt, refused, got,
                            !want || scale == want->second);
        };
        check(dec, decimalRange(), [](QString const& s) { return decimal(s); });
        check(xdec, xdecimalRange(), [](QString const& s) { return xdecimal(s); });
    }
}

// ---- doubles ---------------------------------------------------------------------------

TEST(DecimalDifferential, DoublesRoundFromTheirShortestText)
{
    Inputs in(8);
    Tally dec("decimal fromDouble"), xdec("xdecimal fromDouble");
    // Fixed rows first: ties the binary value misses by a hair, wide values
    // at the edges of both mantissas, and what cannot be stored at all.
    std::vector<std::pair<double, int>> const rows{
        {2.675, 2}, {1.005, 2}, {-1.005, 2}, {0.125, 2}, {-0.004, 2}, {0.5, 28}, {72057594037.92793, 6}, {1e20, -4},
        {2e33, 0}, {3e33, 0}, {1e30, 6}, {1e20, 0}, {-1e20, 0}, {72057594037927936.0, 0}, {std::nan(""), 0},
        {HUGE_VAL, 0}, {1, 64}};
    for (int i = 0; i < kCases * 2 + int(rows.size()); ++i) {
        bool const fixed = i < int(rows.size());
        double v = fixed ? rows[i].first : in.number();
        int s = fixed ? rows[i].second : in.chance(80) ? in.between(-4, 12) : in.between(-130, 130);
        auto check = [&](Tally& tally, Range const& r, auto make) {
            std::optional<mpz_class> want;
            if (std::isfinite(v) && s >= r.minScale && s <= r.maxScale) {
                mpz_class m = roundTo(shortestOf(v), s);
                if (fits(m, r)) want = m;
            }
            QString got;
            auto refused = refusal([&] { got = make(v, short(s)).toString(); });
            char shown[40];
            std::snprintf(shown, sizeof shown, "%.17g", v);
            storedOrRefused(tally, std::string(shown) + " at scale " + std::to_string(s), want ? std::optional(textOf(*want, s)) : std::nullopt,
                            refused, got);
        };
        check(dec, decimalRange(), [](double d, short sc) { return decimal::fromDouble(d, sc); });
        check(xdec, xdecimalRange(), [](double d, short sc) { return xdecimal::fromDouble(d, sc); });
    }
}

// ---- the core's addition -------------------------------------------------------------

TEST(DecimalDifferential, CoreAdditionIsExactAtTheLargerScaleOrSaturates)
{
    Inputs in(9);
    Tally tally("BCDIIAdd"), inPlace("xdecimal +="), swapped("BCDIIAdd b + a"), aliased("BCDIIAdd into an operand");
    Range const& r = xdecimalRange();
    // Fixed rows first: signs, cancelling, zero at far scales, saturation at
    // either end, an alignment that overflows, and an aligned operand that
    // overflows while the exact sum fits.
    mpz_class const mx = r.maxPos, mn = r.minNeg;
    struct Row { mpz_class ma; int sa; mpz_class mb; int sb; };
    std::vector<Row> const rows{{15, 1, 225, 2}, {-15, 1, 25, 2}, {-1, 0, -999, 3}, {0, 0, 7123, 3}, {42, 1, -4200, 3},
                                {1, -1, 1, 0}, {mx, 0, mn, 0}, {mx, 0, 1, 0}, {mn, 2, -1, 2}, {1, 0, 1, 127},
                                {-3, -128, 5, 127}, {0, -128, 5, 127}, {mx / 10 + 1, 0, mn, 1}};
    for (int i = 0; i < kCases + int(rows.size()); ++i) {
        bool const fixed = i < int(rows.size());
        mpz_class ma = fixed ? rows[i].ma : in.mantissa(r, 112), mb = fixed ? rows[i].mb : in.mantissa(r, 112);
        int sa = fixed ? rows[i].sa : in.scale(r);
        int sb = fixed ? rows[i].sb : in.chance(70) ? std::max(r.minScale, std::min(r.maxScale, sa + in.between(-6, 6))) : in.scale(r);
        xdecimal a = makeXDecimal(ma, sa), b = makeXDecimal(mb, sb);
        int s = std::max(sa, sb);
        auto saturated = [&r](mpz_class const& v) { return v > r.maxPos ? r.maxPos : v < r.minNeg ? r.minNeg : v; };
        mpz_class const sum = saturated(ma * pow10(s - sa) + mb * pow10(s - sb));
        unsigned char out[16], back[16], a2[16], b2[16];
        std::memset(out, 0xEE, 16);   // nothing of what was there may stay
        BCDIIAdd(out, a.bytes(), b.bytes());
        BCDIIAdd(back, b.bytes(), a.bytes());
        std::string label = textOf(ma, sa) + " + " + textOf(mb, sb);
        tally.check(xdecimal::unpackScale(out) == s && fromI128(xdecimal::unpackMantissa(out)) == sum && out[1] == 0x1A,
                    [&] { return label + " gave " + fromI128(xdecimal::unpackMantissa(out)).get_str(); });
        swapped.check(std::memcmp(back, out, 16) == 0, [&] { return label; });
        // The result written over an operand read in the same call: a += b, and b += b.
        std::memcpy(a2, a.bytes(), 16);
        std::memcpy(b2, b.bytes(), 16);
        BCDIIAdd(a2, a2, b.bytes());
        BCDIIAdd(b2, b2, b2);
        aliased.check(std::memcmp(a2, out, 16) == 0 && std::memcmp(b2, makeXDecimal(saturated(2 * mb), sb).bytes(), 16) == 0,
                      [&] { return label; });
        a += b;
        inPlace.check(std::memcmp(a.bytes(), out, 16) == 0, [&] { return label; });
    }
}

// ---- integers -----------------------------------------------------------------------------

// A 64-bit integer at or beyond the mantissa's 56 bits, often with trailing
// zeros (which may make room at a negative scale) or on a rounding tie.
long long wideInteger(Inputs& in)
{
    switch (in.between(0, 4)) {
    case 0: {
        long long const edges[] = {std::numeric_limits<long long>::max(), std::numeric_limits<long long>::min(),
                                   72057594037927936LL, 72057594037927935LL, -72057594037927936LL, -72057594037927937LL,
                                   720575940379279360LL, 123456789012345675LL, -123456789012345675LL};
        return edges[in.between(0, 8)];
    }
    case 1: {   // trailing zeros
        long long v = std::int64_t(in.bits()) >> in.between(0, 7);
        int zeros = in.between(1, 3);
        long long p = 1;
        for (int k = 0; k < zeros; ++k) p *= 10;
        return v / p * p;
    }
    case 2: {   // a tie at the tens or hundreds
        long long v = std::int64_t(in.bits()) >> in.between(0, 7);
        long long p = in.chance(50) ? 10 : 100;
        return v / p * p + (v < 0 ? -p / 2 : p / 2);
    }
    default: {
        long long v = (std::int64_t(in.bits()) >> in.between(0, 7)) | (1LL << 56);
        return in.chance(50) ? v : -v;
    }
    }
}

// The integer alone is kept exactly (scale 0, or a negative scale where its
// trailing zeros allow) or refused with its text; at a scale it is rounded.
TEST(DecimalDifferential, IntegersAreKeptExactlyOrRefused)
{
    Inputs in(11);
    Tally exact("decimal fromInteger"), scaled("decimal fromInteger at a scale");
    for (int i = 0; i < kCases; ++i) {
        long long v = in.chance(60) ? wideInteger(in) : std::int64_t(in.bits()) >> in.between(0, 63);
        std::string const text = std::to_string(v);
        Exact const x{mpz_class(text, 10), 0};
        std::optional<std::pair<mpz_class, int>> want = exactIn(x, decimalRange());
        decimal got;
        auto refused = refusal([&] { got = decimal::fromInteger(v); });
        storedOrRefused(exact, text, want ? std::optional(textOf(want->first, want->second)) : std::nullopt, refused, got.toString(),
                        want ? got.scale() == want->second : refused == QStringLiteral("Can't convert from '%1'' to decimal").arg(v));

        int s = in.chance(80) ? in.between(-4, 4) : in.between(-70, 70);
        decimal out = decimal::fromMantissa(7, 0);
        bool ok = decimal::fromInteger(v, short(s), out);
        mpz_class m = roundTo(x, s);
        bool storable = s >= decimalRange().minScale && s <= decimalRange().maxScale && fits(m, decimalRange());
        storedOrRefused(scaled, text + " at scale " + std::to_string(s), storable ? std::optional(textOf(m, s)) : std::nullopt,
                        ok ? std::nullopt : std::optional(out.toString()), out.toString(), storable ? out.scale() == s : out.toString() == "7");
    }
}

// ---- column writers ---------------------------------------------------------------------

struct Columns
{
    Columns()
    {
        TableSchema schema;
        schema.name = QStringLiteral("differential");
        auto add = [&](char const* name, FieldType::Type type, short scale) {
            ColumnDef c;
            c.name = QString::fromLatin1(name);
            c.type = type;
            c.scale = scale;
            c.nullable = std::strcmp(name, "id") != 0;   // the key must not be null
            schema.columns.append(c);
        };
        add("id", FieldType::Int, 0);
        add("i32", FieldType::Int, 0);
        add("i64", FieldType::Int64, 0);
        for (short s : kDecimalScales) add(qPrintable(QStringLiteral("d%1").arg(s)), FieldType::Decimal, s);
        for (short s : kXDecimalScales) add(qPrintable(QStringLiteral("x%1").arg(s)), FieldType::XDecimal, s);
        schema.key = QStringList{QStringLiteral("id")};
        table = db.createTable(schema);
        row = Record(table.data());
    }
    Field integer(bool wide) const { return table->dataPtr(row.row(), table->columnIndex(wide ? QStringLiteral("i64") : QStringLiteral("i32"))); }
    Field field(bool extended, int i) const
    {
        QString name = extended ? QStringLiteral("x%1").arg(kXDecimalScales[i]) : QStringLiteral("d%1").arg(kDecimalScales[i]);
        return table->dataPtr(row.row(), table->columnIndex(name));
    }
    // Negative scales too: there an integer wider than the mantissa is
    // rounded, not refused.
    static constexpr short kDecimalScales[6] = {-3, -1, 0, 2, 6, 8};
    static constexpr short kXDecimalScales[4] = {-2, 0, 4, 20};

    Database db;
    QSharedPointer<Table> table;
    Record row;
};

// Writes into every decimal column (prefilled, so that a refusal must keep
// the old value) and checks the stored text, or the refusal.
void writeEverywhere(Columns const& c, Tally& tally, std::string const& label, std::optional<Exact> const& value,
                     std::function<void(Field&)> const& write, bool widenAsIs = false)
{
    for (int extended = 0; extended < 2; ++extended) {
        Range const& r = extended ? xdecimalRange() : decimalRange();
        for (int i = 0; i < int(extended ? std::size(Columns::kXDecimalScales) : std::size(Columns::kDecimalScales)); ++i) {
            Field f = c.field(extended, i);
            int scale = f.scale();
            f = 7;
            QString before = f.toString();
            auto refused = refusal([&] { write(f); });
            std::optional<std::string> want;
            if (extended && widenAsIs && value) {   // widened as it is, its own scale kept
                want = textOf(value->n, value->places);
            } else if (value) {
                mpz_class m = roundTo(*value, scale);
                if (fits(m, r)) want = textOf(m, scale);
            }
            bool const message = refused && refused->startsWith(QStringLiteral("Can't convert from '"))
                                 && refused->endsWith(QStringLiteral("'' to %1").arg(QLatin1String(r.name)));
            storedOrRefused(tally, label + " into " + r.name + "(" + std::to_string(scale) + ")", want, refused, f.toString(),
                            want || (message && f.toString() == before));
        }
    }
}

// Into integer columns a decimal is truncated toward zero and clamped.
void writeIntegers(Columns const& c, Tally& tally, mpz_class const& m, int scale, std::function<void(Field&)> const& write)
{
    mpz_class whole;
    if (scale >= 0) {
        mpz_class d = pow10(scale);
        mpz_tdiv_q(whole.get_mpz_t(), m.get_mpz_t(), d.get_mpz_t());
    } else {
        whole = m * pow10(-scale);
    }
    for (int wide = 0; wide < 2; ++wide) {
        mpz_class lo = wide ? mpz_class(std::to_string(std::numeric_limits<std::int64_t>::min()), 10) : mpz_class(-2147483647 - 1);
        mpz_class hi = wide ? mpz_class(std::to_string(std::numeric_limits<std::int64_t>::max()), 10) : mpz_class(2147483647);
        mpz_class want = whole < lo ? lo : (whole > hi ? hi : whole);
        Field f = c.integer(wide);
        auto refused = refusal([&] { write(f); });
        storedOrRefused(tally, textOf(m, scale) + " into int" + (wide ? "64" : "32"), want.get_str(), refused, f.toString());
    }
}

TEST(DecimalDifferential, ColumnWritersStoreTheRoundedValueOrRefuse)
{
    Columns c;
    Inputs in(10);
    Tally ints("int and long long into decimal columns"), doubles("double into decimal columns"),
        texts("text into decimal columns"), decimals("decimal into decimal columns"), xdecimals("xdecimal into decimal columns"),
        integers("decimal and xdecimal into integer columns");
    for (int i = 0; i < kCases / 4; ++i) {
        long long v = in.chance(50) ? std::int64_t(in.bits()) >> in.between(0, 63) : in.between(-2000000000, 2000000000);
        if (in.chance(20)) v = wideInteger(in);
        Exact const exactV{mpz_class(std::to_string(v), 10), 0};
        writeEverywhere(c, ints, std::to_string(v), exactV, [&](Field& f) { f = v; });
        // From a 64-bit column: the copy converts through the same writer.
        c.integer(true).setRawInt64(v);
        writeEverywhere(c, ints, "int64 field " + std::to_string(v), exactV, [&](Field& f) { f = c.integer(true); });
        int small = int(v);
        writeEverywhere(c, ints, std::to_string(small), Exact{mpz_class(small), 0}, [&](Field& f) { f = small; });

        // A double is rounded to six places first, then to the column's scale.
        double d = in.number();
        std::optional<Exact> viaSix;
        if (std::isfinite(d)) viaSix = Exact{roundTo(shortestOf(d), 6), 6};
        writeEverywhere(c, doubles, std::to_string(d), viaSix, [&](Field& f) { f = d; });

        std::string t = in.text();
        QString qt = QString::fromStdString(t);
        writeEverywhere(c, texts, "'" + t + "'", parseText(t), [&](Field& f) { f = QStringRef(&qt); });

        mpz_class m = in.mantissa(decimalRange(), 57);
        int s = in.between(-3, 12);
        decimal dv = makeDecimal(m, s);
        writeEverywhere(c, decimals, textOf(m, s), Exact{m, s}, [&](Field& f) { f = dv; }, true);
        writeIntegers(c, integers, m, s, [&](Field& f) { f = dv; });

        mpz_class mx = in.mantissa(xdecimalRange(), 112);
        int sx = in.chance(80) ? in.between(-3, 30) : in.scale(xdecimalRange());
        xdecimal xv = makeXDecimal(mx, sx);
        writeEverywhere(c, xdecimals, textOf(mx, sx), Exact{mx, sx}, [&](Field& f) { f = xv; });
        writeIntegers(c, integers, mx, sx, [&](Field& f) { f = xv; });
    }
}

} // namespace
