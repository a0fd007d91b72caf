#include "process.h"

#include <QByteArray>
#include <QFile>
#include <QList>
#include <time.h>

namespace bench {

namespace {
qint64 nanoseconds(clockid_t clock)
{
    timespec t;
    clock_gettime(clock, &t);
    return qint64(t.tv_sec) * 1000000000 + t.tv_nsec;
}

qint64 statusField(char const* field)
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly)) return 0;
    for (QByteArray const& line : status.readAll().split('\n'))
        if (line.startsWith(field)) return line.mid(int(qstrlen(field))).trimmed().split(' ').value(0).toLongLong() * 1024;
    return 0;
}
} // namespace

qint64 monotonicNs() { return nanoseconds(CLOCK_MONOTONIC); }
qint64 peakResidentBytes() { return statusField("VmHWM:"); }
qint64 residentNowBytes() { return statusField("VmRSS:"); }
qint64 processCpuNs() { return nanoseconds(CLOCK_PROCESS_CPUTIME_ID); }

} // namespace bench
