#include <core/clock.h>

#include <QDateTime>
#include <gtest/gtest.h>

#include <ctime>

namespace {
qint64 localDigitsAsUtc()
{
    QDateTime local = QDateTime::currentDateTime();
    return QDateTime(local.date(), local.time(), Qt::UTC).toMSecsSinceEpoch();
}

void expectLocalWallClock()
{
    for (int k = 0; k < 3; ++k) {   // the first asks the zone, the others remember it
        qint64 const before = localDigitsAsUtc();
        qint64 const ours = Clock::systemMSecs();
        qint64 const after = localDigitsAsUtc();
        EXPECT_LE(before, ours);
        EXPECT_LE(ours, after);
    }
}
} // namespace

// The machine's clock reads the local wall-clock digits as if they were UTC,
// in a zone a quarter-hour off UTC as in the machine's own.
TEST(Clock, SystemClockIsTheLocalWallClock)
{
    QByteArray const saved = qgetenv("TZ");
    bool const had = qEnvironmentVariableIsSet("TZ");
    qputenv("TZ", "Asia/Kathmandu");
    tzset();
    Clock::forgetZone();
    expectLocalWallClock();
    EXPECT_GT(std::llabs(Clock::systemMSecs() - QDateTime::currentMSecsSinceEpoch()), 5 * 3600 * 1000LL);

    if (had) qputenv("TZ", saved);
    else qunsetenv("TZ");
    tzset();
    Clock::forgetZone();
    expectLocalWallClock();
}
