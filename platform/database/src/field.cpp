#include <database/exception.h>
#include <database/field.h>
#include "datetimetext.h"

#include <cstdlib>
#include <new>

namespace {

QString* stringSlot(unsigned char* data) { return std::launder(reinterpret_cast<QString*>(data)); }

QString charText(unsigned char const* data, int length)
{
    auto const* units = reinterpret_cast<char16_t const*>(data);
    int n = 0, max = length / 2;
    while (n < max && units[n] != 0) ++n;
    return QString(reinterpret_cast<QChar const*>(units), n);
}

[[noreturn]] void badText(QStringRef const& text, FieldType::Type type)
{
    throw Exception(QStringLiteral("Can't convert from '%1'' to %2").arg(text.toString(), FieldType::typeName(type)));
}

} // namespace

void Field::setNull() const
{
    if (!m_flags) return;
    *m_flags &= static_cast<unsigned char>(~m_mask);
    if (type() == FieldType::VarChar && m_data) stringSlot(m_data)->clear();
}

xdecimal Field::rawXDecimal() const
{
    xdecimal x;
    if (hasValue()) std::memcpy(x.bytes(), m_data, xdecimal::size);
    return x;
}

void Field::storeString(QString const& text) const { storeString(QStringRef(&text)); }

void Field::storeString(QStringRef const& text) const
{
    switch (type()) {
    case FieldType::Char:
        FieldType::stringToVarChar(m_data, length(), text);
        break;
    case FieldType::VarChar:
        *stringSlot(m_data) = text.toString();
        break;
    case FieldType::Int: {
        bool ok = false;
        int v = text.trimmed().toInt(&ok);
        if (!ok) badText(text, type());
        setRawInt32(v);
        return;
    }
    case FieldType::Int64: {
        bool ok = false;
        qlonglong v = text.trimmed().toLongLong(&ok);
        if (!ok) badText(text, type());
        setRawInt64(v);
        return;
    }
    case FieldType::Double: {
        bool ok = false;
        double v = text.trimmed().toDouble(&ok);
        if (!ok) badText(text, type());
        setRawDouble(v);
        return;
    }
    case FieldType::Decimal: {
        // Rounded straight to the column's scale from all the text's digits.
        decimal d;
        if (!decimal::parse(text, scale(), d)) badText(text, type());
        setRawDecimal(d);
        return;
    }
    case FieldType::XDecimal: {
        xdecimal x;
        if (!xdecimal::parse(text, scale(), x)) badText(text, type());
        setRawXDecimal(x);
        return;
    }
    case FieldType::DateTime: {
        std::int64_t ms = 0;
        QStringRef t = text.trimmed();
        if (!t.isEmpty() && !dbtime::parse(t, ms)) badText(text, type());
        setRawDateTime(ms);
        return;
    }
    default:
        badText(text, type());
    }
    setHasValue();
}

QString Field::toString() const
{
    if (!hasValue()) return QString();
    switch (type()) {
    case FieldType::Int: return QString::number(rawInt32());
    case FieldType::Int64: return QString::number(rawInt64());
    case FieldType::Double: return QString::number(rawDouble(), 'g', 15);
    case FieldType::Decimal: return rawDecimal().toString();
    case FieldType::XDecimal: return rawXDecimal().toString();
    case FieldType::Char: return charText(m_data, length());
    case FieldType::DateTime: return dbtime::format(rawDateTime());
    case FieldType::VarChar: return *stringSlot(m_data);
    default: return QString();
    }
}

QChar Field::toChar() const
{
    if (!hasValue()) return QChar();
    switch (type()) {
    case FieldType::Char: return length() >= 2 ? QChar(*reinterpret_cast<char16_t const*>(m_data)) : QChar();
    case FieldType::VarChar: { QString const& s = *stringSlot(m_data); return s.isEmpty() ? QChar() : s.at(0); }
    default: { QString s = toString(); return s.isEmpty() ? QChar() : s.at(0); }
    }
}

QString Field::asStaticString() const
{
    if (hasValue() && type() == FieldType::VarChar) return *stringSlot(m_data);
    return toString();
}

// ---- FieldValue -----------------------------------------------------------

FieldValue::FieldValue() = default;

FieldValue::FieldValue(Field const& source) : Field() { copyFrom(source); }

FieldValue::FieldValue(FieldValue const& other) : Field() { copyFrom(other); }

FieldValue& FieldValue::operator=(FieldValue const& other)
{
    if (this != &other) {
        release();
        copyFrom(other);
    }
    return *this;
}

FieldValue::~FieldValue() { release(); }

void FieldValue::copyFrom(Field const& source)
{
    m_ownType = source.fieldType() ? *source.fieldType() : FieldType();
    m_ownType.length = FieldType::storageSize(m_ownType.typeCode(), m_ownType.length);
    m_type = &m_ownType;
    m_flags = &m_ownFlag;
    m_mask = 1;
    m_ownFlag = source.hasValue() ? 1 : 0;
    switch (m_ownType.typeCode()) {
    case FieldType::VarChar:
        m_data = m_buf;
        new (m_buf) QString(source.hasValue() ? source.toString() : QString());
        break;
    case FieldType::Char:
        if (m_ownType.length > int(sizeof m_buf)) {
            m_block = static_cast<unsigned char*>(std::calloc(std::size_t(m_ownType.length), 1));
            m_data = m_block;
        } else {
            m_data = m_buf;
        }
        if (source.data()) std::memcpy(m_data, source.data(), std::size_t(m_ownType.length));
        break;
    case FieldType::Block:
        m_block = static_cast<unsigned char*>(std::calloc(404, 1));
        m_data = m_block;
        if (source.data()) std::memcpy(m_data, source.data(), 404);
        break;
    case FieldType::Unknown:
        m_data = m_buf;
        m_ownFlag = 0;
        break;
    default:
        m_data = m_buf;
        if (source.data()) std::memcpy(m_buf, source.data(), std::size_t(m_ownType.length));
        break;
    }
}

void FieldValue::release()
{
    if (m_type == &m_ownType && m_ownType.typeCode() == FieldType::VarChar)
        stringSlot(m_buf)->~QString();
    std::free(m_block);
    m_block = nullptr;
    m_type = nullptr;
    m_data = nullptr;
}

FieldConstValue::FieldConstValue(QChar const& c)
{
    static const FieldType charType{FieldType::Char, 2, 0};
    char16_t unit = c.unicode();
    unsigned char flag = 1;
    copyFrom(Field(&charType, reinterpret_cast<unsigned char*>(&unit), &flag, 1));
}

FieldConstValue::~FieldConstValue() = default;
