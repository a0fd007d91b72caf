#include <core/constants.h>

// Percent per year of the forward, the unit of every volatility the core
// prices with.
const double gc_dVolatMinDefault = 1.0;
const double gc_dVolatMaxDefault = 500.0;

// datetime counts from 1970 and so does the exchange clock it is set
// against; there is no second epoch to bridge, so the shift is 0.
const int gc_iSecondsTo1900 = 0;
