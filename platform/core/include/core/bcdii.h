#pragma once
#include <core/core_export.h>

// Routines over the 16-byte extended packed decimal (xdecimal's storage):
// a header word 0x1A00 + scale (low byte, signed), then a 112-bit two's
// complement mantissa. Buffers are 16 bytes; nothing here allocates.

// Writes the header word `header` (0x1A00 plus the scale; only its low byte,
// the scale, is read) and a zero value.
CORE_EXPORT void BCDIIInit(void* buffer, unsigned int header);
// Zero, keeping the buffer's scale.
CORE_EXPORT void BCDIISetZero(void* buffer);
// mantissa * 10^-scale.
CORE_EXPORT void BCDIIGetFromInt64(void* buffer, long mantissa, int scale);
// result = a + b, exactly, at the larger of the two scales. `result` may be
// `a` or `b`. A sum outside the 112-bit mantissa saturates to the largest
// or smallest mantissa, so the sign of an overflowing sum is kept.
CORE_EXPORT void BCDIIAdd(void* result, void const* a, void const* b);
