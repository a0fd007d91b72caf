#include "datetime.h"
#include <core/clock.h>

#include <core/bcdii.h>
#include <database/exception.h>
#include <database/field.h>

#include <QDateTime>
#include <QLocale>
#include <QStringList>
#include <QTime>

#include <cmath>
#include <cstring>
#include <limits>

namespace {

// A function, not a global: other libraries' static set-up may already make
// date-times while this one's globals are not yet built.
QString defaultFormat() { return QStringLiteral("yyyy.MM.dd HH:mm:ss.zzz"); }
constexpr int kBlockSize = 404;
// Header word of a packed extended decimal with scale 0.
constexpr unsigned kXDecimalScale0 = 6656;

[[noreturn]] void incorrectConversion()
{
    throw Exception(QStringLiteral("Incorrect type conversion."));
}

// Truncates toward zero and keeps the result inside the target's range; NaN
// has no integer value and is taken as 0.
template <class Int>
Int truncated(double value)
{
    if (std::isnan(value)) return 0;
    double t = std::trunc(value);
    if (t <= double(std::numeric_limits<Int>::min())) return std::numeric_limits<Int>::min();
    // 2^63 itself is not representable in int64, hence >=.
    if (t >= -double(std::numeric_limits<Int>::min())) return std::numeric_limits<Int>::max();
    return Int(t);
}

// A decimal's value truncated toward zero and kept inside the target's
// range, from its digits: through a double, a mantissa wider than 53 bits
// would lose its last digits (72057594037927935 would become ...936).
template <class Int>
Int truncated(__int128 mantissa, int scale)
{
    constexpr __int128 lo = std::numeric_limits<Int>::min(), hi = std::numeric_limits<Int>::max();
    for (; scale > 0 && mantissa != 0; --scale) mantissa /= 10;   // rounds toward zero
    for (; scale < 0 && mantissa != 0 && mantissa >= lo && mantissa <= hi; ++scale) mantissa *= 10;
    return Int(mantissa < lo ? lo : (mantissa > hi ? hi : mantissa));
}

std::int32_t clamped32(long long value)
{
    if (value > std::numeric_limits<std::int32_t>::max()) return std::numeric_limits<std::int32_t>::max();
    if (value < std::numeric_limits<std::int32_t>::min()) return std::numeric_limits<std::int32_t>::min();
    return std::int32_t(value);
}

// A value the column's type or scale cannot hold is refused with the text
// of the value, as a text that does not parse is; it is never cut.
[[noreturn]] void doesNotFit(QString const& value, FieldType::Type to)
{
    throw Exception(QStringLiteral("Can't convert from '%1'' to %2").arg(value, FieldType::typeName(to)));
}

QString doubleText(double value) { return QString::number(value, 'g', QLocale::FloatingPointShortest); }

// Extended decimal of an integer, packed the way the core does it.
xdecimal xdecimalOf(long long value)
{
    xdecimal x;
    BCDIIInit(x.bytes(), kXDecimalScale0);
    BCDIIGetFromInt64(x.bytes(), long(value), 0);
    return x;
}

// Widening keeps the scale: the sign-extended mantissa is loaded as it is.
xdecimal widened(decimal const& d)
{
    xdecimal x;
    BCDIIInit(x.bytes(), xdecimal::headerBase + (unsigned(d.scale()) & 0xFF));
    BCDIIGetFromInt64(x.bytes(), long(d.mantissa()), d.scale());
    return x;
}

// The digits of `text` read with `format` as the exchange's wall clock,
// in UTC; invalid when the text does not match.
QDateTime wallClock(QString const& text, QString const& format)
{
    QDateTime dt = QDateTime::fromString(text, format);
    if (dt.isValid()) {
        dt.setTimeSpec(Qt::UTC);   // keep the digits, drop the zone
        return dt;
    }
    // fromString reads local time and refuses a time that this workstation's
    // zone skips at a daylight-saving change; on the exchange's clock those
    // digits are valid, so read date and time without any zone.
    int formatSpace = format.indexOf(QLatin1Char(' '));
    if (formatSpace < 0) {
        QDate date = QDate::fromString(text, format);
        return date.isValid() ? QDateTime(date, QTime(0, 0), Qt::UTC) : QDateTime();
    }
    int textSpace = text.indexOf(QLatin1Char(' '));
    if (textSpace < 0) return QDateTime();
    QDate date = QDate::fromString(text.left(textSpace), format.left(formatSpace));
    QTime time = QTime::fromString(text.mid(textSpace + 1), format.mid(formatSpace + 1));
    if (!date.isValid() || !time.isValid()) return QDateTime();
    return QDateTime(date, time, Qt::UTC);
}

} // namespace

// ---- datetime --------------------------------------------------------------

datetime::datetime(QString const& text)
{
    static const QString formats[] = {
        defaultFormat(),
        QStringLiteral("yyyy-MM-dd HH:mm:ss"),
        QStringLiteral("yyyy.MM.dd"),
        QStringLiteral("yyyy-MM-dd"),
    };
    for (QString const& format : formats) {
        QDateTime dt = wallClock(text, format);
        if (!dt.isValid()) continue;
        m_value = dt.toMSecsSinceEpoch();
        return;
    }
}

datetime datetime::now()
{
    return datetime(Clock::nowMSecs());
}

QDate datetime::getDate() const
{
    return QDateTime::fromMSecsSinceEpoch(m_value, Qt::UTC).date();
}

QString datetime::toString() const
{
    if (m_value == 0) return QString();
    // Formatted in UTC directly: the digits are already wall-clock digits,
    // and going through local time could move those in a zone's DST gap.
    return QDateTime::fromMSecsSinceEpoch(m_value, Qt::UTC).toString(defaultFormat());
}

QString toString(KeyValue const& key)
{
    QStringList parts;
    parts.reserve(key.size());
    for (FieldValue const& v : key) parts.append(v.toString());
    return parts.join(QLatin1Char(','));
}

// ---- packed decimals -------------------------------------------------------

xdecimal& xdecimal::operator+=(xdecimal const& other)
{
    BCDIIAdd(bytes(), bytes(), other.bytes());
    return *this;
}

// ---- Field readers ---------------------------------------------------------

int Field::toInteger() const
{
    if (!hasValue()) return 0;
    switch (type()) {
    case FieldType::Int: return rawInt32();
    case FieldType::Int64: return clamped32(rawInt64());
    default: incorrectConversion();
    }
}

long long Field::toInteger64() const
{
    if (!hasValue()) return 0;
    switch (type()) {
    case FieldType::Int: return rawInt32();
    case FieldType::Int64: return rawInt64();
    default: incorrectConversion();
    }
}

double Field::toDouble() const
{
    if (!hasValue()) return 0;
    switch (type()) {
    case FieldType::Int: return rawInt32();
    case FieldType::Int64: return double(rawInt64());
    case FieldType::Double: return rawDouble();
    case FieldType::Decimal: return rawDecimal().toDouble();
    case FieldType::XDecimal: return rawXDecimal().toDouble();
    default: incorrectConversion();
    }
}

decimal Field::toDecimal() const
{
    if (!hasValue()) return decimal();
    if (type() != FieldType::Decimal) incorrectConversion();
    return rawDecimal();
}

xdecimal Field::toXDecimal() const
{
    if (!hasValue()) return xdecimalOf(0);
    switch (type()) {
    case FieldType::Decimal: return widened(rawDecimal());
    case FieldType::XDecimal: return rawXDecimal();
    default: incorrectConversion();
    }
}

datetime Field::toDatetime() const
{
    if (!hasValue()) return datetime();
    switch (type()) {
    case FieldType::DateTime: return datetime(rawDateTime());
    case FieldType::Char:
    case FieldType::VarChar: return datetime(toString());
    default: incorrectConversion();
    }
}

QDate Field::toQDate() const
{
    if (!hasValue()) return QDate();
    if (type() != FieldType::DateTime) incorrectConversion();
    return datetime(rawDateTime()).getDate();
}

// ---- Field writers ---------------------------------------------------------
//
// Every writer computes the new value completely before it touches the row,
// so a failed conversion leaves the field as it was.

void Field::incompatibleType(FieldType::Type from) const { incompatibleType(from, type()); }

void Field::incompatibleType(FieldType::Type from, FieldType::Type to) const
{
    throw Exception(QStringLiteral("Can't convert from %1 to %2").arg(FieldType::typeName(from), FieldType::typeName(to)));
}

namespace {
// int and long long differ only in how an int32 column takes them and in the
// source named by the message.
void writeInteger(Field& f, long long value, FieldType::Type source)
{
    switch (f.type()) {
    case FieldType::Int: f.setRawInt32(clamped32(value)); break;
    case FieldType::Int64: f.setRawInt64(value); break;
    case FieldType::Double: f.setRawDouble(double(value)); break;
    case FieldType::Decimal: {
        // Straight to the column's scale from all the digits: going through
        // the integer's own packed form would drop digits of a value wider
        // than the mantissa before rounding.
        decimal d;
        if (!decimal::fromInteger(value, f.scale(), d)) doesNotFit(QString::number(value), f.type());
        f.setRawDecimal(d);
        break;
    }
    case FieldType::XDecimal: {
        xdecimal x = xdecimalOf(value);
        if (x.scale() != f.scale() && !x.trySetScale(f.scale())) doesNotFit(QString::number(value), f.type());
        f.setRawXDecimal(x);
        break;
    }
    case FieldType::Char:
    case FieldType::VarChar: f.storeString(QStringLiteral("%1").arg(value)); break;
    default: f.incompatibleType(source);
    }
}
} // namespace

Field& Field::operator=(int value)
{
    writeInteger(*this, value, FieldType::Int);
    return *this;
}

Field& Field::operator=(long long value)
{
    writeInteger(*this, value, FieldType::Int64);
    return *this;
}

Field& Field::operator=(double value)
{
    switch (type()) {
    case FieldType::Int: setRawInt32(truncated<std::int32_t>(value)); break;
    case FieldType::Int64: setRawInt64(truncated<std::int64_t>(value)); break;
    case FieldType::Double: setRawDouble(value); break;
    // Six places first, then the column's scale; the value in between is
    // not bound by the type, so a large amount that the column holds is kept.
    case FieldType::Decimal: {
        decimal d;
        if (!decimal::fromDouble(value, 6, scale(), d)) doesNotFit(doubleText(value), type());
        setRawDecimal(d);
        break;
    }
    case FieldType::XDecimal: {
        xdecimal x;
        if (!xdecimal::fromDouble(value, 6, scale(), x)) doesNotFit(doubleText(value), type());
        setRawXDecimal(x);
        break;
    }
    case FieldType::Char:
    case FieldType::VarChar: storeString(QStringLiteral("%1").arg(value)); break;
    case FieldType::DateTime: throw Exception(QStringLiteral("Can't convert double to datetime."));
    default: incompatibleType(FieldType::Double);
    }
    return *this;
}

Field& Field::operator=(decimal const& value)
{
    switch (type()) {
    case FieldType::Int: setRawInt32(truncated<std::int32_t>(value.mantissa(), value.scale())); break;
    case FieldType::Int64: setRawInt64(truncated<std::int64_t>(value.mantissa(), value.scale())); break;
    case FieldType::Double: setRawDouble(value.toDouble()); break;
    case FieldType::Decimal: {
        decimal d = value;
        if (d.scale() != scale() && !d.trySetScale(scale())) doesNotFit(value.toString(), type());
        setRawDecimal(d);
        break;
    }
    // Widened as it is: the column's scale is not forced on it here.
    case FieldType::XDecimal: setRawXDecimal(widened(value)); break;
    case FieldType::Char:
    case FieldType::VarChar: storeString(value.toString()); break;
    case FieldType::DateTime: throw Exception(QStringLiteral("Can't convert from decimal to datetime."));
    default: incompatibleType(FieldType::Decimal);
    }
    return *this;
}

Field& Field::operator=(xdecimal const& value)
{
    switch (type()) {
    case FieldType::Int: setRawInt32(truncated<std::int32_t>(value.mantissa(), value.scale())); break;
    case FieldType::Int64: setRawInt64(truncated<std::int64_t>(value.mantissa(), value.scale())); break;
    case FieldType::Double: setRawDouble(value.toDouble()); break;
    case FieldType::Decimal: {
        // Through its text, rounded to the column's scale: a value too wide
        // for the column is refused with the parse message.
        QString text = value.toString();
        *this = QStringRef(&text);
        break;
    }
    case FieldType::XDecimal: {
        xdecimal x = value;
        if (x.scale() != scale() && !x.trySetScale(scale())) doesNotFit(value.toString(), type());
        setRawXDecimal(x);
        break;
    }
    case FieldType::Char:
    case FieldType::VarChar: storeString(value.toString()); break;
    case FieldType::DateTime: throw Exception(QStringLiteral("Can't convert from decimal to datetime."));
    // The extended decimal reports itself as a decimal in this message.
    default: incompatibleType(FieldType::Decimal);
    }
    return *this;
}

Field& Field::operator=(datetime const& value)
{
    switch (type()) {
    case FieldType::DateTime: setRawDateTime(value.value()); break;
    case FieldType::Char:
    case FieldType::VarChar: storeString(value.toString()); break;
    default: incompatibleType(FieldType::DateTime);
    }
    return *this;
}

Field& Field::operator=(QStringRef const& value)
{
    switch (type()) {
    case FieldType::Char:
    case FieldType::VarChar:
        storeString(value);
        break;
    case FieldType::Int:
    case FieldType::Int64:
    case FieldType::Double:
    case FieldType::Decimal:
    case FieldType::XDecimal:
    case FieldType::DateTime: {
        // Parsed into a scratch copy of the column, committed only when the
        // text was accepted.
        alignas(8) unsigned char scratch[16] = {};
        unsigned char flag = 0;
        Field(m_type, scratch, &flag, 1).storeString(value);
        std::memcpy(m_data, scratch, std::size_t(length()));
        setHasValue();
        break;
    }
    default: incompatibleType(FieldType::VarChar);
    }
    return *this;
}

Field& Field::operator=(Field const& other)
{
    if (other.m_data == m_data && other.m_type == m_type) return *this;
    if (!other.hasValue()) {
        // Avoids writing to a flag byte that is not ours to write when the
        // field is already empty (absent columns share one).
        if (hasValue() || type() == FieldType::VarChar) setNull();
        return *this;
    }
    FieldType::Type from = other.type();
    if (from == type()) {
        switch (from) {
        case FieldType::Int:
        case FieldType::Int64:
        case FieldType::Double:
        case FieldType::DateTime:
            std::memcpy(m_data, other.m_data, std::size_t(length()));
            setHasValue();
            return *this;
        case FieldType::VarChar:
            storeString(other.asStaticString());
            return *this;
        case FieldType::Block:
            std::memcpy(m_data, other.m_data, kBlockSize);
            setHasValue();
            return *this;
        case FieldType::Decimal:
        case FieldType::XDecimal:
            if (other.scale() != scale()) break;
            std::memcpy(m_data, other.m_data, std::size_t(length()));
            setHasValue();
            return *this;
        case FieldType::Char:
            if (other.length() != length()) break;
            std::memcpy(m_data, other.m_data, std::size_t(length()));
            setHasValue();
            return *this;
        default:
            break;
        }
    }
    switch (from) {
    case FieldType::Int: return *this = other.toInteger();
    case FieldType::Int64: return *this = other.toInteger64();
    case FieldType::Double: return *this = other.toDouble();
    case FieldType::Decimal: return *this = other.toDecimal();
    case FieldType::XDecimal: return *this = other.toXDecimal();
    case FieldType::DateTime: return *this = other.toDatetime();
    case FieldType::Char:
    case FieldType::VarChar: {
        QString text = other.toString();
        return *this = QStringRef(&text);
    }
    default: incompatibleType(from);
    }
}

// ---- ordering --------------------------------------------------------------

namespace {
template <class T>
int sign(T a, T b) { return a < b ? -1 : (b < a ? 1 : 0); }
} // namespace

int Field::compare(Field const& other) const
{
    bool mine = hasValue(), theirs = other.hasValue();
    if (!mine || !theirs) return mine ? 1 : (theirs ? -1 : 0);
    if (type() != other.type()) return int(type()) - int(other.type());
    switch (type()) {
    case FieldType::Int: return sign(rawInt32(), other.rawInt32());
    case FieldType::Int64:
    case FieldType::DateTime: return sign(rawInt64(), other.rawInt64());
    case FieldType::Double: {
        double d = rawDouble() - other.rawDouble();
        return d > 0 ? 1 : (d < 0 ? -1 : 0);
    }
    case FieldType::Decimal: {
        decimal a = rawDecimal(), b = other.rawDecimal();
        // Equal scales need no rescaling: the mantissas order the values.
        if (a.scale() == b.scale()) return sign(a.mantissa(), b.mantissa());
        return a.compare(b);
    }
    case FieldType::XDecimal: return rawXDecimal().compare(other.rawXDecimal());
    case FieldType::Char:
    case FieldType::VarChar: return QString::compare(asStaticString(), other.asStaticString(), Qt::CaseSensitive);
    default: return 0;
    }
}
