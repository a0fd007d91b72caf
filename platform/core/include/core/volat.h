#pragma once
#include "constants.h"
#include <core/core_export.h>

// The option pricing engine of the core: one model for both smile tables,
// driven by the coefficients (see docs/volatility.md for the formulas).
//
// Units: volatilities and their bounds are percent per year of the forward;
// time enters as the square root of years (365-day years); prices are in the
// underlying's price units. Premiums are not discounted: options here are
// margined like futures.
//
// Thread-safe: a pure function of its input.

// Smile coefficients of one option series, as the coefficient tables give
// them. The defaults are a flat 50 % smile under the lognormal model.
struct VolatInputParams
{
    double a = 50.0;
    double b = 0.0;
    double c = 1.0;
    double d = 0.0;
    double e = 1.0;
    double s = 0.0;
    double m = 1.0;   // 1 lognormal (Black-76), 0 normal (Bachelier), between: displaced
};

struct VolatInputParamsEx
{
    double strike = 0.0;
    double underlyingPrice = 0.0;   // the underlying futures price F
    double sqrtT = 0.0;             // square root of years to expiry
    VolatInputParams coeffs;
    int reserved = 0;               // never read
    double volatMin = gc_dVolatMinDefault;
    double volatMax = gc_dVolatMaxDefault;
    bool isPut = false;
    double priceStep = 0.0;
};

// Every field is finite after a call. Sensitivities hold the volatility
// (sticky strike) and the model's displacement fixed.
struct VolatOutputParamsEx
{
    double callDelta = 0.0;    // 1: dCall/dF
    double putDelta = 0.0;     // 2: dPut/dF
    double gamma = 0.0;        // 3: d2V/dF2, the same for call and put
    double vega = 0.0;         // 4: price change for one volatility point (1 %)
    double theta = 0.0;        // 5: price change over one calendar day (1/365 year)
    double price = 0.0;        // 6: the option's price, not rounded
    double smileVolat = 0.0;   // 7: the smile's volatility before the bounds, percent
    double volat = 0.0;        // 8: the volatility used, percent
    double theorPrice = 0.0;   // 9: the option's price on the price step
};

CORE_EXPORT void calcVolatParamsEx(VolatOutputParamsEx& out, VolatInputParamsEx const& in);

namespace volat {

// Below this m the model is taken as the normal one, which it then equals to
// far better than a millionth of the price (the displaced formulas would
// divide by m).
constexpr double kNormalModelM = 1e-12;
// The smallest square root of time the engine uses: ten milliseconds.
constexpr double kSqrtTFloor = 1.7807243465445342e-5;
// The largest one: 10 000 years.
constexpr double kSqrtTCap = 100.0;
// No volatility is below this, so every formula has a positive scale.
constexpr double kVolatFloor = 1e-6;
// Prices beyond this are refused as absurd and clamped.
constexpr double kPriceCap = 1e15;

// The smile's volatility in percent at strike K for forward F; finite.
CORE_EXPORT double smileVolat(VolatInputParams const& coeffs, double strike, double forward, double sqrtT);

} // namespace volat
