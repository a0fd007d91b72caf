#pragma once
// The engine's inputs for one flat smile (sigma % at every strike) and
// bounds wide enough to stay out of the way, shared by the engine's tests.
#include <core/volat.h>

#include <cmath>

inline VolatInputParamsEx flat(double F, double K, double T, double sigmaPct, double m = 1.0, bool put = false)
{
    VolatInputParamsEx in;
    in.underlyingPrice = F;
    in.strike = K;
    in.sqrtT = std::sqrt(T);
    in.coeffs.a = sigmaPct;
    in.coeffs.m = m;
    in.volatMin = 0.0;
    in.volatMax = 1000.0;
    in.isPut = put;
    return in;
}

inline VolatOutputParamsEx run(VolatInputParamsEx const& in)
{
    VolatOutputParamsEx out;
    calcVolatParamsEx(out, in);
    return out;
}
