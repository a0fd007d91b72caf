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

qint64 Clock::systemMSecs()
{
    QDateTime local = QDateTime::currentDateTime();
    return QDateTime(local.date(), local.time(), Qt::UTC).toMSecsSinceEpoch();
}

qint64 Clock::nowMSecs()
{
    qint64 fixed = g_fixedAt.load(std::memory_order_acquire);
    if (fixed != kNotFixed) return fixed;
    return systemMSecs() + g_offset.load(std::memory_order_acquire);
}

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
