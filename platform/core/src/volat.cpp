#include <core/volat.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

constexpr double kInvSqrt2 = 0.70710678118654752440;
constexpr double kInvSqrt2Pi = 0.39894228040143267794;
// Beyond this distance from the smile's centre every smile is flat for any
// sane coefficients; it keeps y*y and d*y finite.
constexpr double kYLimit = 1e8;
// exp() of more than this overflows; a negative c must not reach it.
constexpr double kExpLimit = 700.0;
// The smile value handed out in field 7 is kept within this.
constexpr double kSmileCap = 1e9;
// A forward at or below this carries no volatility (it is percent of F).
constexpr double kForwardFloor = 1e-12;
constexpr double kDaysPerYear = 365.0;

inline double pdf(double x) { return kInvSqrt2Pi * std::exp(-0.5 * x * x); }

// N(x) and N(-x) from one erfc: the smaller of the two is computed, the
// larger (at least 1/2) is one minus it, so both keep their precision.
struct Tails
{
    double up, down;   // N(x), N(-x)
};
inline Tails tails(double x)
{
    double const small = 0.5 * std::erfc(std::fabs(x) * kInvSqrt2);
    return x >= 0.0 ? Tails{1.0 - small, small} : Tails{small, 1.0 - small};
}
inline double clampAbs(double v, double cap) { return v > cap ? cap : (v < -cap ? -cap : v); }
inline double finiteOr(double v, double fallback) { return std::isfinite(v) ? v : fallback; }

double boundedSqrtT(double sqrtT)
{
    if (!(sqrtT >= volat::kSqrtTFloor)) return volat::kSqrtTFloor;   // also NaN
    return std::min(sqrtT, volat::kSqrtTCap);
}

VolatInputParams sane(VolatInputParams const& in)
{
    VolatInputParams const defaults;
    VolatInputParams c;
    c.a = finiteOr(in.a, defaults.a);
    c.b = finiteOr(in.b, defaults.b);
    c.c = finiteOr(in.c, defaults.c);
    c.d = finiteOr(in.d, defaults.d);
    c.e = finiteOr(in.e, defaults.e);
    c.s = finiteOr(in.s, defaults.s);
    c.m = std::min(1.0, std::max(0.0, finiteOr(in.m, defaults.m)));
    return c;
}

// Prices and sensitivities of the call and the put at volatility `sigma`
// (a fraction of the forward), with vega per 1 % and theta per day.
struct Values
{
    double call = 0, put = 0, callDelta = 0, putDelta = 0, gamma = 0, vega = 0, theta = 0;
};

// No volatility left: the options are worth what they would be exercised for.
Values intrinsic(double F, double K)
{
    Values v;
    v.call = std::max(F - K, 0.0);
    v.put = std::max(K - F, 0.0);
    v.callDelta = F > K ? 1.0 : (F < K ? 0.0 : 0.5);
    v.putDelta = v.callDelta - 1.0;
    return v;
}

// Bachelier: F moves by sigma*F per root year, in price units.
Values normal(double F, double K, double sigma, double sqrtT)
{
    double const sigmaN = sigma * F;
    double const sd = sigmaN * sqrtT;
    if (!(sd > 0.0)) return intrinsic(F, K);
    double const d = (F - K) / sd;
    double const nd = pdf(d);
    Tails const n = tails(d);
    Values v;
    v.call = (F - K) * n.up + sd * nd;
    v.put = (K - F) * n.down + sd * nd;
    v.callDelta = n.up;
    v.putDelta = -n.down;
    v.gamma = nd / sd;
    v.vega = F * sqrtT * nd / 100.0;
    v.theta = -sigmaN * nd / (2.0 * sqrtT) / kDaysPerYear;
    return v;
}

// (N(d1) - N(d2)) / v for d1 = dbar + v/2, d2 = dbar - v/2, with its relative
// precision kept however close the two are. Where the interval is short on
// the scale of the density (v*max(1, |dbar|) <= 1) it is the density's mean
// over it: n(dbar)*S, S = sum He_2j(dbar) (v/2)^2j / (2j+1)!, a series of
// quickly falling terms. Elsewhere the two tails differ by a good fraction
// of themselves and are subtracted as they are.
double meanDensity(double dbar, double v)
{
    if (v * std::max(1.0, std::fabs(dbar)) <= 1.0) {
        double const h = 0.5 * v, a = dbar * h, h2 = h * h;
        // q_k = He_k(dbar)*h^k, by He_{k+1} = x*He_k - k*He_{k-1}.
        double qPrev = 1.0, q = a;   // q_0, q_1
        double sum = 1.0, factorial = 1.0;
        for (int k = 1; k < 40; k += 2) {
            double const qEven = a * q - k * h2 * qPrev;   // q_{k+1}
            qPrev = qEven;
            q = a * qEven - (k + 1) * h2 * q;               // q_{k+2}
            factorial *= double(k + 1) * double(k + 2);      // (k+2)!
            sum += qEven / factorial;
            // Both of the pair that drives the rest: one of them alone may
            // sit near a zero of its polynomial.
            if (std::fabs(qEven) + std::fabs(q) <= 1e-17 * sum * factorial) break;
        }
        return pdf(dbar) * sum;
    }
    double const d1 = dbar + 0.5 * v, d2 = dbar - 0.5 * v;
    Tails const n1 = tails(d1), n2 = tails(d2);
    double const mass = d2 >= 0.0 ? n2.down - n1.down : (d1 <= 0.0 ? n1.up - n2.up : 1.0 - n1.down - n2.up);
    return mass / v;
}

// Displaced diffusion: X = F + H with H = F(1 - m)/m is lognormal with
// volatility sigma*m; m = 1 is Black-76 itself.
//
// The price is not taken as X*N(d1) - K'*N(d2): for small m, X and K' are
// huge and nearly equal, and the difference loses digits as 1/m grows. As
// X - K' = F - K, the call is (F - K)*N(d1) + K'*(N(d1) - N(d2)) and the put
// (K - F)*N(-d1) + K'*(N(d1) - N(d2)), and K'*v = (m*K + (1 - m)*F)*sigma*sqrtT
// stays of the forward's size: the formulas tend to the normal ones as m -> 0.
Values displaced(double F, double K, double lnKF, double m, double sigma, double sqrtT)
{
    double const shifted = m * K + (1.0 - m) * F;   // m*K', of K's sign
    if (!(shifted > 0.0)) {
        // The shifted price never falls to the shifted strike.
        Values v;
        v.call = F - K;
        v.callDelta = 1.0;
        return v;
    }
    double const sdN = sigma * sqrtT;   // v / m
    double const sd = sdN * m;
    // ln(X/K') = -ln(1 + m(K - F)/F), exact for small m where X and K' are huge.
    double const lnMoneyness = m == 1.0 ? -lnKF : -std::log1p(m * (K - F) / F);
    double const dbar = lnMoneyness / sd;
    double const d1 = dbar + 0.5 * sd;
    double const nd1 = pdf(d1);
    Tails const n1 = tails(d1);
    // K'*(N(d1) - N(d2)), with K'*v = m*K'*sigma*sqrtT.
    double const timeValue = shifted * sdN * meanDensity(dbar, sd);
    Values v;
    v.call = std::max((F - K) * n1.up + timeValue, std::max(F - K, 0.0));
    v.put = std::max((K - F) * n1.down + timeValue, std::max(K - F, 0.0));
    v.callDelta = n1.up;
    v.putDelta = -n1.down;
    // X*sd = F*sigma*sqrtT: gamma, vega and theta need neither X nor K'.
    v.gamma = nd1 / (F * sdN);
    v.vega = F * nd1 * sqrtT / 100.0;
    v.theta = -F * nd1 * sigma / (2.0 * sqrtT) / kDaysPerYear;
    return v;
}

double onStep(double price, double step)
{
    if (!(step > 0.0) || !std::isfinite(step)) return price;
    double const rounded = std::round(price / step) * step;
    return std::isfinite(rounded) ? rounded : price;
}

} // namespace

namespace {
// ln(K/F), or the lowest the smile is evaluated at for a strike at or below
// zero (infinitely far below the forward); 0 (the centre) without a forward.
double logMoneyness(double strike, double forward)
{
    if (!(std::isfinite(forward) && forward > 0.0)) return 0.0;
    if (!(std::isfinite(strike) && strike > 0.0)) return -std::numeric_limits<double>::infinity();
    // A quotient that overflows or vanishes lies far beyond any smile: y is clamped.
    return std::log(strike / forward);
}

// The smile at x = lnKF / sqrtT for sane coefficients and time.
double smileAt(VolatInputParams const& c, double lnKF, double sqrtT)
{
    if (c.b == 0.0 && c.d == 0.0) return clampAbs(c.a, kSmileCap);   // flat
    double const y = clampAbs(lnKF / sqrtT - c.s, kYLimit);
    double const wing = c.b == 0.0 ? 0.0 : c.b * (1.0 - std::exp(std::min(-c.c * y * y, kExpLimit)));
    double const skew = c.d == 0.0 ? 0.0 : (std::fabs(c.e) < 1e-300 ? c.d * y : c.d * std::atan(c.e * y) / c.e);
    double const sigma = c.a + wing + skew;
    // Only absurd rows overflow with terms of opposite sign; their level is a.
    if (std::isnan(sigma)) return clampAbs(c.a, kSmileCap);
    return clampAbs(sigma, kSmileCap);
}
} // namespace

double volat::smileVolat(VolatInputParams const& coeffs, double strike, double forward, double sqrtT)
{
    return smileAt(sane(coeffs), logMoneyness(strike, forward), boundedSqrtT(sqrtT));
}

void calcVolatParamsEx(VolatOutputParamsEx& out, VolatInputParamsEx const& in)
{
    out = VolatOutputParamsEx();
    if (!std::isfinite(in.underlyingPrice) || !std::isfinite(in.strike)) return;   // nothing to price
    double const F = clampAbs(in.underlyingPrice, volat::kPriceCap);
    double const K = clampAbs(in.strike, volat::kPriceCap);
    double const sqrtT = boundedSqrtT(in.sqrtT);
    VolatInputParams const coeffs = sane(in.coeffs);

    double const lower = finiteOr(in.volatMin, gc_dVolatMinDefault);
    // A null upper bound reads 0: no bound was published, the default holds.
    double const upper = std::isfinite(in.volatMax) && in.volatMax > 0.0 ? in.volatMax : gc_dVolatMaxDefault;
    double const lnKF = logMoneyness(K, F);
    double const smile = smileAt(coeffs, lnKF, sqrtT);
    // The upper bound wins over a lower bound above it.
    double const sigmaPct = std::max(std::min(std::max(smile, lower), upper), volat::kVolatFloor);
    double const sigma = sigmaPct / 100.0;

    Values v;
    if (!(F > kForwardFloor)) v = intrinsic(F, K);
    else if (coeffs.m < volat::kNormalModelM) v = normal(F, K, sigma, sqrtT);
    else v = displaced(F, K, lnKF, coeffs.m, sigma, sqrtT);

    double const price = in.isPut ? v.put : v.call;
    out.callDelta = finiteOr(v.callDelta, 0.0);
    out.putDelta = finiteOr(v.putDelta, 0.0);
    out.gamma = finiteOr(v.gamma, 0.0);
    out.vega = finiteOr(v.vega, 0.0);
    out.theta = finiteOr(v.theta, 0.0);
    out.price = finiteOr(price, 0.0);
    out.smileVolat = smile;
    out.volat = sigmaPct;
    out.theorPrice = finiteOr(onStep(out.price, in.priceStep), out.price);
}
