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
QString format(std::int64_t msecs);   // "yyyy.MM.dd HH:mm:ss.zzz", empty for 0
std::int64_t daysFromCivil(int y, unsigned m, unsigned d);
}
