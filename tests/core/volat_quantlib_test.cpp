// The engine against an independent implementation of the same closed forms.
// Kept in one source: the library's headers compile slowly.
#include "volat_inputs.h"

#include <ql/pricingengines/blackcalculator.hpp>
#include <ql/pricingengines/blackformula.hpp>

#include <gtest/gtest.h>

#include <quadmath.h>

#include <cmath>

using QuantLib::Option;

namespace {

struct Reference
{
    double price, delta, gamma, vega, theta;   // vega per 1 %, theta per day
};

// Black-76, shifted by H for the displaced model (H = 0 at m = 1): prices
// and derivatives of the shifted lognormal are those of Black on F+H, K+H.
Reference black(double F, double K, double T, double sigmaPct, double m, bool put)
{
    Option::Type const type = put ? Option::Put : Option::Call;
    double const H = F * (1.0 - m) / m;
    double const sd = sigmaPct / 100.0 * m * std::sqrt(T);
    QuantLib::BlackCalculator calc(type, K + H, F + H, sd);
    Reference r;
    r.price = m == 1.0 ? calc.value() : QuantLib::blackFormula(type, K, F, sd, 1.0, H);
    r.delta = m == 1.0 ? calc.deltaForward() : QuantLib::blackFormulaForwardDerivative(type, K, F, sd, 1.0, H);
    r.gamma = calc.gammaForward();
    r.vega = (m == 1.0 ? calc.vega(T) / 100.0
                       : QuantLib::blackFormulaStdDevDerivative(K, F, sd, 1.0, H) * std::sqrt(T) * m / 100.0);
    r.theta = calc.thetaPerDay(F + H, T);
    return r;
}

// Bachelier with the normal volatility sigma*F; gamma and theta, which the
// library has no closed form for, as central differences of its price.
Reference bachelier(double F, double K, double T, double sigmaPct, bool put)
{
    Option::Type const type = put ? Option::Put : Option::Call;
    double const sigmaN = sigmaPct / 100.0 * F;
    double const sd = sigmaN * std::sqrt(T);
    auto price = [&](double f, double t) { return QuantLib::bachelierBlackFormula(type, K, f, sigmaN * std::sqrt(t)); };
    Reference r;
    r.price = price(F, T);
    r.delta = QuantLib::bachelierBlackFormulaForwardDerivative(type, K, F, sd);
    r.vega = QuantLib::bachelierBlackFormulaStdDevDerivative(K, F, sd) * std::sqrt(T) * F / 100.0;
    double const h = 0.01 * sd;
    r.gamma = (price(F + h, T) - 2.0 * r.price + price(F - h, T)) / (h * h);
    double const dt = 1e-3 * T;
    r.theta = -(price(F, T + dt) - price(F, T - dt)) / (2.0 * dt) / 365.0;
    return r;
}

// The displaced model's textbook form, X*N(d1) - K'*N(d2), in 113-bit
// arithmetic: for small m, X and K' are about F/m and the subtraction loses
// up to log10(X / price) of its 34 digits, leaving more than ten.
double displacedExact(double F, double K, double T, double sigmaPct, double m, bool put)
{
    using Q = __float128;
    auto N = [](Q x) { return Q(0.5) * erfcq(-x / sqrtq(Q(2))); };
    Q const f = F, k = K, mm = m;
    Q const X = f / mm, Kd = k + (X - f);
    Q const v = Q(sigmaPct) / 100 * mm * sqrtq(Q(T));
    Q const d1 = logq(X / Kd) / v + v / 2, d2 = d1 - v;
    return double(put ? Kd * N(-d2) - X * N(-d1) : X * N(d1) - Kd * N(d2));
}

} // namespace

// Strikes deep in to deep out of the money, time from the floor to three
// years, volatility 1 % to 400 %, calls and puts, both ends and the middle
// of the model. Closed forms differ only in how each side computes the
// normal distribution: prices and vega to 1e-9 of the forward, deltas to
// 1e-9, gamma and theta to 1e-8 relative plus 1e-9 of their at-the-money
// size (the worst seen is 0.13 of that, for deltas deep in the tails).
// Finite differences (Bachelier gamma and theta, h = 1 % of the standard
// deviation) carry a truncation error near 1e-4: 1e-3 relative plus 1e-7.
TEST(VolatQuantLib, GridAgainstClosedFormsAndDifferences)
{
    double const F = 100.0;
    double const floorT = volat::kSqrtTFloor * volat::kSqrtTFloor;
    for (double m : {1.0, 0.6, 0.2, 0.0})
        for (double lnK : {-2.0, -0.7, -0.15, 0.0, 0.1, 0.5, 1.5})
            for (double T : {floorT, 1.0 / 365, 30.0 / 365, 0.5, 1.0, 3.0})
                for (double sigma : {1.0, 12.0, 35.0, 90.0, 250.0, 400.0})
                    for (bool put : {false, true}) {
                        double const K = F * std::exp(lnK);
                        SCOPED_TRACE(testing::Message() << "m=" << m << " K=" << K << " T=" << T << " sigma=" << sigma
                                                        << " put=" << put);
                        VolatOutputParamsEx o = run(flat(F, K, T, sigma, m, put));
                        bool const differences = m == 0.0;
                        Reference r = differences ? bachelier(F, K, T, sigma, put) : black(F, K, T, sigma, m, put);
                        // At-the-money sizes of gamma and theta, the scale of their absolute error.
                        double const sd = sigma / 100.0 * std::sqrt(T) * (m == 0.0 ? 1.0 : m);
                        double const gammaScale = 0.4 / (F * sd);
                        double const thetaScale = 0.4 * F * sd / (2.0 * T) / 365.0;
                        double const rel = differences ? 1e-3 : 1e-8, absScale = differences ? 1e-7 : 1e-9;
                        EXPECT_NEAR(o.price, r.price, 1e-9 * F);
                        EXPECT_NEAR(put ? o.putDelta : o.callDelta, r.delta, 1e-9);
                        EXPECT_NEAR(o.vega, r.vega, 1e-9 * F);
                        EXPECT_NEAR(o.gamma, r.gamma, rel * std::fabs(r.gamma) + absScale * gammaScale);
                        EXPECT_NEAR(o.theta, r.theta, rel * std::fabs(r.theta) + absScale * thetaScale);
                    }
}

// Small m, where X and K' are huge and nearly equal: the price keeps six
// digits down to the switch to the normal formulas and across it. The exact
// form above is first shown to be the library's displaced price where double
// arithmetic still serves it.
TEST(VolatQuantLib, DisplacedPriceKeepsItsDigitsForSmallM)
{
    double const F = 100.0;
    double const floorT = volat::kSqrtTFloor * volat::kSqrtTFloor;
    for (double m : {1.0, 0.6, 0.2})
        for (double lnK : {-0.7, 0.0, 0.5})
            for (bool put : {false, true}) {
                double const K = F * std::exp(lnK);
                EXPECT_NEAR(displacedExact(F, K, 0.5, 35.0, m, put), black(F, K, 0.5, 35.0, m, put).price, 1e-9 * F)
                    << "m=" << m << " K=" << K << " put=" << put;
            }

    // 1e-13 is past the switch to the normal formulas, 1e-11 just before it.
    for (double m : {1e-13, 1e-11, 1e-8, 3e-8, 1e-7, 3e-7, 1e-6, 1e-5, 1e-4})
        for (double lnK : {-2.0, -0.7, -0.15, -0.01, 0.0, 0.01, 0.1, 0.5, 1.5})
            for (double T : {floorT, 1.0 / (365 * 24), 1.0 / 365, 30.0 / 365, 1.0, 3.0})
                for (double sigma : {1.0, 12.0, 35.0, 90.0, 400.0})
                    for (bool put : {false, true}) {
                        double const K = F * std::exp(lnK);
                        double const exact = displacedExact(F, K, T, sigma, m, put);
                        double const price = run(flat(F, K, T, sigma, m, put)).price;
                        // A floor far below any price step for tails that underflow.
                        EXPECT_NEAR(price, exact, 1e-6 * exact + 1e-15 * F)
                            << "m=" << m << " K=" << K << " T=" << T << " sigma=" << sigma << " put=" << put;
                    }
}
