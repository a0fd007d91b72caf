#include <database/fieldtype.h>
#include "datetimetext.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

QString FieldType::typeName(Type type)
{
    switch (type) {
    case Int: return QStringLiteral("int");
    case Int64: return QStringLiteral("int64");
    case Double: return QStringLiteral("double");
    case Decimal: return QStringLiteral("decimal");
    case XDecimal: return QStringLiteral("xdecimal");
    case Char: return QStringLiteral("char");
    case DateTime: return QStringLiteral("datetime");
    case VarChar: return QStringLiteral("varchar");
    case Block: return QStringLiteral("block");
    case Unknown: break;
    }
    return QStringLiteral("unknown(%1)").arg(int(type));
}

int FieldType::storageSize(Type type, int declaredLength)
{
    switch (type) {
    case Int: return 4;
    case Int64: case Double: case Decimal: case DateTime: return 8;
    case XDecimal: return 16;
    case Char: return declaredLength;
    case VarChar: return int(sizeof(QString));
    case Block: return 404;
    case Unknown: break;
    }
    return 0;
}

void FieldType::stringToVarChar(unsigned char* dst, int length, QStringRef const& text)
{
    int units = length / 2;
    int n = std::min(units, text.size());
    std::memcpy(dst, text.unicode(), std::size_t(n) * 2);
    std::memset(dst + n * 2, 0, std::size_t(length - n * 2));
}

void FieldType::stringToVarChar(unsigned char* dst, int length, QString const& text)
{
    stringToVarChar(dst, length, QStringRef(&text));
}

namespace dbtime {

std::int64_t daysFromCivil(int y, unsigned m, unsigned d)
{
    y -= m <= 2;
    const int era = (y >= 0 ? y : y - 399) / 400;
    const unsigned yoe = unsigned(y - era * 400);
    const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return std::int64_t(era) * 146097 + std::int64_t(doe) - 719468;
}

namespace {
template <class Ch>
bool parseImpl(Ch const* s, int n, std::int64_t& out)
{
    auto digit = [&](int i) -> int { return (i < n && s[i] >= '0' && s[i] <= '9') ? int(s[i] - '0') : -1; };
    auto num = [&](int at, int len, int& v) {
        v = 0;
        for (int i = 0; i < len; ++i) { int d = digit(at + i); if (d < 0) return false; v = v * 10 + d; }
        return true;
    };
    int y, mo, d, h = 0, mi = 0, sec = 0, ms = 0;
    if (n != 10 && n != 19 && n != 23) return false;
    if (!num(0, 4, y) || !num(5, 2, mo) || !num(8, 2, d)) return false;
    Ch sep = s[4];
    if ((sep != '-' && sep != '.') || s[7] != sep) return false;
    if (n > 10) {
        if (s[10] != ' ' || s[13] != ':' || s[16] != ':') return false;
        if (!num(11, 2, h) || !num(14, 2, mi) || !num(17, 2, sec)) return false;
        if (n == 23) { if (s[19] != '.' || !num(20, 3, ms)) return false; }
    }
    static const int mdays[] = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    if (mo < 1 || mo > 12 || d < 1 || d > mdays[mo - 1] || h > 23 || mi > 59 || sec > 59) return false;
    bool leap = (y % 4 == 0 && y % 100 != 0) || y % 400 == 0;
    if (mo == 2 && d == 29 && !leap) return false;
    std::int64_t days = daysFromCivil(y, unsigned(mo), unsigned(d));
    out = ((days * 24 + h) * 60 + mi) * 60000 + std::int64_t(sec) * 1000 + ms;
    return true;
}
} // namespace

bool parse(QStringRef const& text, std::int64_t& msecs)
{
    return parseImpl(reinterpret_cast<char16_t const*>(text.unicode()), text.size(), msecs);
}

bool parse(char const* text, int length, std::int64_t& msecs) { return parseImpl(text, length, msecs); }

Civil civil(std::int64_t msecs)
{
    // Floor division without negating, so that no value overflows.
    std::int64_t days = msecs / 86400000;
    if (msecs % 86400000 < 0) --days;
    std::int64_t rem = msecs - days * 86400000;
    std::int64_t z = days + 719468;
    const std::int64_t era = (z >= 0 ? z : z - 146096) / 146097;
    const unsigned doe = unsigned(z - era * 146097);
    const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const unsigned mp = (5 * doy + 2) / 153;
    Civil c;
    c.day = int(doy - (153 * mp + 2) / 5 + 1);
    c.month = int(mp < 10 ? mp + 3 : mp - 9);
    c.year = std::int64_t(yoe) + era * 400 + (c.month <= 2);
    c.hour = int(rem / 3600000);
    c.minute = int(rem / 60000 % 60);
    c.second = int(rem / 1000 % 60);
    c.msec = int(rem % 1000);
    return c;
}

QString format(std::int64_t msecs)
{
    if (msecs == 0) return QString();
    Civil const c = civil(msecs);
    char buf[64];
    std::snprintf(buf, sizeof buf, "%04lld.%02d.%02d %02d:%02d:%02d.%03d", static_cast<long long>(c.year), c.month, c.day,
                  c.hour, c.minute, c.second, c.msec);
    return QString::fromLatin1(buf);
}

} // namespace dbtime
