#pragma once
#include "core_export.h"

// Default bounds of an option's volatility, as a fraction per year (0.2 is
// 20%). 1% lies below any quoted smile; 500% is above what even a deep wing
// quotes, yet low enough to stop a solver that runs away.
extern CORE_EXPORT const double gc_dVolatMinDefault;
extern CORE_EXPORT const double gc_dVolatMaxDefault;

// Seconds between 1900-01-01 and the epoch of datetime. Settled with the
// security calculations: 1900 to 1970 is 2208988800 seconds, which an int
// cannot hold.
extern CORE_EXPORT const int gc_iSecondsTo1900;
