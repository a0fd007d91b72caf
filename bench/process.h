#pragma once
// What the benchmarks read of their own process: one clock for every
// process of the machine, its memory and its CPU time.
#include <QtGlobal>

namespace bench {

// CLOCK_MONOTONIC in nanoseconds.
qint64 monotonicNs();
// VmHWM (the most it ever held) and VmRSS (now) of this process, bytes.
qint64 peakResidentBytes();
qint64 residentNowBytes();
// The CPU time of all its threads.
qint64 processCpuNs();

} // namespace bench
