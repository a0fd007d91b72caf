#pragma once
#include <cstdint>

namespace gen {

// Proleptic Gregorian calendar on day numbers since 1970-01-01, the epoch of
// the database's date-times (exchange wall clock taken as UTC).
inline std::int64_t daysFromCivil(int y, unsigned m, unsigned d)
{
    y -= m <= 2;
    const std::int64_t era = (y >= 0 ? y : y - 399) / 400;
    const unsigned yoe = unsigned(y - era * 400);
    const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + std::int64_t(doe) - 719468;
}

inline void civilFromDays(std::int64_t z, int& y, unsigned& m, unsigned& d)
{
    z += 719468;
    const std::int64_t era = (z >= 0 ? z : z - 146096) / 146097;
    const unsigned doe = unsigned(z - era * 146097);
    const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const unsigned mp = (5 * doy + 2) / 153;
    d = doy - (153 * mp + 2) / 5 + 1;
    m = mp < 10 ? mp + 3 : mp - 9;
    y = int(std::int64_t(yoe) + era * 400 + (m <= 2));
}

// 0 = Sunday ... 6 = Saturday; 1970-01-01 was a Thursday.
inline int weekday(std::int64_t days) { return int(((days % 7) + 11) % 7); }

inline std::int64_t thirdThursday(int y, unsigned m)
{
    std::int64_t first = daysFromCivil(y, m, 1);
    int shift = (4 - weekday(first) + 7) % 7;
    return first + shift + 14;
}

constexpr std::int64_t kMsPerDay = 86400000;

inline std::int64_t msAt(std::int64_t day, int h, int mi, int s = 0, int ms = 0)
{
    return day * kMsPerDay + ((h * 60 + mi) * 60 + s) * 1000 + ms;
}

} // namespace gen
