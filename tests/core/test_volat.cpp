// What the comparison with an independent pricer cannot take: the smile,
// the bounds, the price step and inputs no textbook formula accepts.
#include "volat_inputs.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

void expectFinite(VolatOutputParamsEx const& o)
{
    for (double v : {o.callDelta, o.putDelta, o.gamma, o.vega, o.theta, o.price, o.smileVolat, o.volat, o.theorPrice})
        EXPECT_TRUE(std::isfinite(v)) << v;
}

} // namespace

TEST(VolatEngine, SmileShapeAndDefaults)
{
    VolatInputParams defaults;
    for (double K : {1.0, 50.0, 100.0, 400.0})
        EXPECT_DOUBLE_EQ(volat::smileVolat(defaults, K, 100.0, 0.5), 50.0);   // flat 50 % smile

    VolatInputParams c;
    c.a = 20; c.b = 10; c.c = 2; c.d = -4; c.e = 0.5; c.s = 0.1;
    double const sqrtT = 0.5;
    double const x = std::log(120.0 / 100.0) / sqrtT, y = x - c.s;
    EXPECT_NEAR(volat::smileVolat(c, 120.0, 100.0, sqrtT),
                20 + 10 * (1 - std::exp(-2 * y * y)) - 4 * std::atan(0.5 * y) / 0.5, 1e-12);
    // e = 0 is the limit of the skew term: d*y.
    c.e = 0.0;
    double const atZero = volat::smileVolat(c, 120.0, 100.0, sqrtT);
    c.e = 1e-9;
    EXPECT_NEAR(volat::smileVolat(c, 120.0, 100.0, sqrtT), atZero, 1e-9);
    EXPECT_NEAR(atZero, 20 + 10 * (1 - std::exp(-2 * y * y)) - 4 * y, 1e-12);
}

// The bounds clamp the smile; the upper bound wins over a lower one above it;
// a null (zero) upper bound means none was published.
TEST(VolatEngine, BoundsClampTheSmile)
{
    VolatInputParamsEx in = flat(100.0, 100.0, 0.5, 700.0);
    in.volatMin = 5.0;
    in.volatMax = 80.0;
    VolatOutputParamsEx o = run(in);
    EXPECT_EQ(o.volat, 80.0);
    EXPECT_EQ(o.smileVolat, 700.0);
    EXPECT_DOUBLE_EQ(o.price, run(flat(100.0, 100.0, 0.5, 80.0)).price);
    in.coeffs.a = 1.0;
    EXPECT_EQ(run(in).volat, 5.0);
    in.volatMin = 90.0;
    EXPECT_EQ(run(in).volat, 80.0);
    in.volatMin = gc_dVolatMinDefault;
    in.volatMax = 0.0;
    in.coeffs.a = 900.0;
    EXPECT_EQ(run(in).volat, gc_dVolatMaxDefault);
    in.coeffs.a = -30.0;
    in.volatMin = -5.0;
    EXPECT_EQ(run(in).volat, volat::kVolatFloor);
    expectFinite(run(in));
}

TEST(VolatEngine, PriceOnTheStep)
{
    VolatInputParamsEx in = flat(1234.5, 1250.0, 0.2, 33.0);
    in.priceStep = 0.5;
    VolatOutputParamsEx o = run(in);
    EXPECT_NE(o.price, o.theorPrice);
    EXPECT_EQ(std::fmod(o.theorPrice, 0.5), 0.0);
    EXPECT_LE(std::fabs(o.theorPrice - o.price), 0.25);
    in.priceStep = 0.0;
    EXPECT_EQ(run(in).theorPrice, run(in).price);
}

// Degenerate inputs give documented, finite answers.
TEST(VolatEngine, DegenerateInputsStayFinite)
{
    // A forward at or below zero carries no volatility: intrinsic values.
    VolatOutputParamsEx o = run(flat(-5.0, 10.0, 1.0, 40.0, 1.0, true));
    EXPECT_EQ(o.price, 15.0);
    EXPECT_EQ(o.callDelta, 0.0);
    EXPECT_EQ(o.putDelta, -1.0);
    EXPECT_EQ(o.gamma, 0.0);
    // A strike at or below zero under Black: the call is the forward minus it.
    o = run(flat(100.0, -20.0, 1.0, 40.0));
    EXPECT_EQ(o.price, 120.0);
    EXPECT_EQ(o.callDelta, 1.0);
    // ...but under Bachelier it is just a deep in-the-money strike.
    o = run(flat(100.0, -20.0, 1.0, 40.0, 0.0, true));
    EXPECT_GT(o.price, 0.0);
    EXPECT_LT(o.price, 1.0);
    // Time at or below the floor (and NaN) is the floor; at the floor an
    // at-the-money option still has a finite gamma.
    VolatOutputParamsEx atFloor = run(flat(100.0, 100.0, 0.0, 30.0));
    VolatInputParamsEx nanTime = flat(100.0, 100.0, 0.0, 30.0);
    nanTime.sqrtT = kNaN;
    EXPECT_EQ(run(nanTime).price, atFloor.price);
    EXPECT_GT(atFloor.gamma, 0.0);
    expectFinite(atFloor);

    std::vector<VolatInputParamsEx> cases;
    for (double F : {kNaN, kInf, -kInf, 0.0, 1e-300, 1e300, 100.0})
        for (double K : {kNaN, kInf, -1e300, 0.0, 1e-300, 100.0})
            for (double m : {kNaN, -3.0, 0.0, 1e-9, 0.5, 1.0, 7.0}) {
                VolatInputParamsEx in = flat(F, K, 1.0, 30.0, m);
                cases.push_back(in);
            }
    for (double a : {kNaN, 1e308, -1e308})
        for (double c : {-1e6, 0.0, kInf})
            for (double e : {0.0, 1e-310, -2.0}) {
                VolatInputParamsEx in = flat(100.0, 130.0, 0.01, 0.0);
                in.coeffs = VolatInputParams{a, 5.0, c, 3.0, e, 0.0, 1.0};
                in.volatMin = kNaN;
                in.volatMax = kInf;
                in.priceStep = 1e-320;
                cases.push_back(in);
            }
    for (VolatInputParamsEx const& in : cases) {
        VolatOutputParamsEx out = run(in);
        expectFinite(out);
        if (!std::isfinite(in.underlyingPrice) || !std::isfinite(in.strike)) continue;
        EXPECT_GE(out.volat, volat::kVolatFloor);
        EXPECT_LE(out.volat, std::max(in.volatMax, gc_dVolatMaxDefault));
    }
    // No price to work with: nothing at all.
    o = run(flat(kNaN, 100.0, 1.0, 30.0));
    EXPECT_EQ(o.price, 0.0);
    EXPECT_EQ(o.volat, 0.0);
}

