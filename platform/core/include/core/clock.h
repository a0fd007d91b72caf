#pragma once
#include <core/core_export.h>
#include <QtGlobal>

// The terminal's wall clock: milliseconds since 1970-01-01 00:00 of the
// exchange's wall clock read as if it were UTC (the digits of local time,
// no zone shift), the unit of every date-time column.
//
// Expiries, sessions and password warnings depend on "now"; a program (or a
// test) sets the clock once so that they depend on the day it means, not on
// the day it happens to run. Readable and settable from any thread.
class CORE_EXPORT Clock
{
public:
    // The current moment by the clock as set.
    static qint64 nowMSecs();
    // The machine's own local wall clock, whatever the clock is set to. The
    // zone's offset is asked once a minute; a change of the machine's zone
    // shows at the next minute, or at once after forgetZone().
    static qint64 systemMSecs();
    static void forgetZone();

    // Always answers `msecs`: time stands still (tests).
    static void setFixed(qint64 msecs);
    // Runs with the machine's clock, starting from `msecs` now.
    static void setRunningFrom(qint64 msecs);
    // Runs with the machine's clock, shifted by `msecs`.
    static void setOffset(qint64 msecs);
    // Back to the machine's clock.
    static void useSystem();

    static bool isFixed();
};
