#include <core/clock.h>

#include <QDateTime>
#include <atomic>
#include <limits>

namespace {
// The fixed moment and the offset live apart, so that a reader racing a
// change sees either the old setting or the new one, never a mix.
constexpr qint64 kNotFixed = std::numeric_limits<qint64>::min();
std::atomic<qint64> g_fixedAt{kNotFixed};
std::atomic<qint64> g_offset{0};
} // namespace

namespace {
// The zone's offset from UTC (seconds, low half) for one UTC minute (high
// half). Asking the zone costs a system call per reading; its offset only
// changes at whole minutes (daylight saving starts and ends on the hour),
// so it is asked again when the minute changes and is exact at the change.
constexpr quint64 kNoZone = ~quint64(0);
std::atomic<quint64> g_zone{kNoZone};
} // namespace

qint64 Clock::systemMSecs()
{
    qint64 const utc = QDateTime::currentMSecsSinceEpoch();
    qint64 const minute = utc >= 0 ? utc / 60000 : (utc - 59999) / 60000;
    quint64 const zone = g_zone.load(std::memory_order_relaxed);
    if (zone != kNoZone && qint64(zone >> 32) == minute) return utc + qint64(qint32(quint32(zone))) * 1000;
    int const offset = QDateTime::fromMSecsSinceEpoch(utc, Qt::LocalTime).offsetFromUtc();
    g_zone.store((quint64(minute) << 32) | quint32(qint32(offset)), std::memory_order_relaxed);
    return utc + qint64(offset) * 1000;
}

qint64 Clock::nowMSecs()
{
    qint64 fixed = g_fixedAt.load(std::memory_order_acquire);
    if (fixed != kNotFixed) return fixed;
    return systemMSecs() + g_offset.load(std::memory_order_acquire);
}

void Clock::forgetZone() { g_zone.store(kNoZone, std::memory_order_relaxed); }

void Clock::setFixed(qint64 msecs)
{
    // The one value that cannot be fixed reads as the moment just after it.
    g_fixedAt.store(msecs == kNotFixed ? msecs + 1 : msecs, std::memory_order_release);
}

void Clock::setOffset(qint64 msecs)
{
    g_offset.store(msecs, std::memory_order_release);
    g_fixedAt.store(kNotFixed, std::memory_order_release);
}

void Clock::setRunningFrom(qint64 msecs) { setOffset(msecs - systemMSecs()); }

void Clock::useSystem() { setOffset(0); }

bool Clock::isFixed() { return g_fixedAt.load(std::memory_order_acquire) != kNotFixed; }
