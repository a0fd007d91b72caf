#pragma once
#include <core/core_export.h>

// Default bounds of an option's volatility, in percent per year of the
// forward (20.0 is 20 %). 1 % lies below any quoted smile; 500 % is above
// what even a deep wing quotes, yet low enough to stop a smile that runs away.
extern CORE_EXPORT const double gc_dVolatMinDefault;
extern CORE_EXPORT const double gc_dVolatMaxDefault;

// Seconds between the epoch of the exchange clock and that of datetime,
// added to an expiry before it is set against the clock. Both count from
// 1970 here, so it is 0 (1900 to 1970 would be 2208988800 seconds, more than
// an int holds anyway).
extern CORE_EXPORT const int gc_iSecondsTo1900;
