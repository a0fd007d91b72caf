#include <core/constants.h>

const double gc_dVolatMinDefault = 0.01;
const double gc_dVolatMaxDefault = 5.0;

// Settled with the security calculations; 1900 to 1970 in seconds
// (2208988800) exceeds int.
const int gc_iSecondsTo1900 = 0;
