#pragma once
#include <QString>
#include <QStringRef>
#include <cstdint>

// Date-time text of the database: milliseconds since 1970 on the exchange's
// wall clock taken as UTC. Accepts "yyyy-MM-dd HH:mm:ss.zzz", "yyyy-MM-dd
// HH:mm:ss", "yyyy-MM-dd" and the same with '.' between the date parts.
namespace dbtime {
bool parse(QStringRef const& text, std::int64_t& msecs);
bool parse(char const* text, int length, std::int64_t& msecs);
QString format(std::int64_t msecs);
// The calendar fields of a moment, any int64 (years far outside 1..9999 too).
struct Civil
{
    std::int64_t year = 1970;
    int month = 1, day = 1, hour = 0, minute = 0, second = 0, msec = 0;
};
Civil civil(std::int64_t msecs);   // "yyyy.MM.dd HH:mm:ss.zzz", empty for 0
std::int64_t daysFromCivil(int y, unsigned m, unsigned d);
}
