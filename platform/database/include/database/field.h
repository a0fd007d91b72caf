#pragma once
#include <database/database_export.h>
#include "decimal.h"
#include "fieldtype.h"
#include <QChar>
#include <QDate>
#include <QString>
#include <cstdint>
#include <cstring>

class datetime;

// A light view onto one column of one row buffer. It does not own the row:
// keep the Record alive while the Field is used.
class DATABASE_EXPORT Field
{
public:
    Field() = default;
    Field(FieldType const* type, unsigned char* data, unsigned char* flags, unsigned char mask)
        : m_type(type), m_data(data), m_flags(flags), m_mask(mask) {}

    FieldType const* fieldType() const { return m_type; }
    FieldType::Type type() const { return m_type ? m_type->typeCode() : FieldType::Unknown; }
    int length() const { return m_type ? m_type->length : 0; }
    short scale() const { return m_type ? m_type->scale : 0; }
    unsigned char* data() const { return m_data; }
    bool isValid() const { return m_data != nullptr; }

    // A field holds a value when every bit of its mask is set in its flag byte.
    bool hasValue() const { return m_flags && m_mask && (*m_flags & m_mask) == m_mask; }
    bool isNull() const { return !hasValue(); }
    void setHasValue() const { if (m_flags) *m_flags |= m_mask; }
    void setNull() const;   // clears the flag; a variable string is emptied too

    // The database's own accessors (no conversion; a field without a value
    // reads as 0, an empty string or a null date).
    void storeString(QString const& text) const;
    void storeString(QStringRef const& text) const;
    QString toString() const;
    QChar toChar() const;
    // Text of a string column without building a QString where possible;
    // for variable strings this shares the stored string.
    QString asStaticString() const;

    std::int32_t rawInt32() const { std::int32_t v = 0; if (hasValue()) std::memcpy(&v, m_data, 4); return v; }
    std::int64_t rawInt64() const { std::int64_t v = 0; if (hasValue()) std::memcpy(&v, m_data, 8); return v; }
    double rawDouble() const { double v = 0; if (hasValue()) std::memcpy(&v, m_data, 8); return v; }
    decimal rawDecimal() const { std::uint64_t v = 0; if (hasValue()) std::memcpy(&v, m_data, 8); return decimal::fromRaw(v); }
    xdecimal rawXDecimal() const;
    std::int64_t rawDateTime() const { return rawInt64(); }

    void setRawInt32(std::int32_t v) const { std::memcpy(m_data, &v, 4); setHasValue(); }
    void setRawInt64(std::int64_t v) const { std::memcpy(m_data, &v, 8); setHasValue(); }
    void setRawDouble(double v) const { std::memcpy(m_data, &v, 8); setHasValue(); }
    void setRawDecimal(decimal v) const { std::uint64_t r = v.raw(); std::memcpy(m_data, &r, 8); setHasValue(); }
    void setRawXDecimal(xdecimal const& v) const { std::memcpy(m_data, v.bytes(), xdecimal::size); setHasValue(); }
    void setRawDateTime(std::int64_t v) const { setRawInt64(v); }

    // Conversions defined by the library that owns value conversions.
    int toInteger() const;
    long long toInteger64() const;
    double toDouble() const;
    decimal toDecimal() const;
    xdecimal toXDecimal() const;
    datetime toDatetime() const;
    QDate toQDate() const;

    // Writers convert to the column's type; every writer marks the field as
    // holding a value. Assigning a Field copies the value, not the view.
    Field(Field const&) = default;
    Field& operator=(int value);
    Field& operator=(long long value);
    Field& operator=(double value);
    Field& operator=(decimal const& value);
    Field& operator=(xdecimal const& value);
    Field& operator=(datetime const& value);
    Field& operator=(QStringRef const& value);
    Field& operator=(Field const& other);

    int compare(Field const& other) const;

    [[noreturn]] void incompatibleType(FieldType::Type from) const;
    [[noreturn]] void incompatibleType(FieldType::Type from, FieldType::Type to) const;

protected:
    FieldType const* m_type = nullptr;
    unsigned char* m_data = nullptr;
    unsigned char* m_flags = nullptr;
    unsigned char m_mask = 0;
};

// A detached copy of one value, with storage of its own.
class DATABASE_EXPORT FieldValue : public Field
{
public:
    FieldValue();
    FieldValue(Field const& source);
    FieldValue(FieldValue const& other);
    FieldValue& operator=(FieldValue const& other);
    ~FieldValue();

    Field const& field() const { return *this; }

protected:
    void copyFrom(Field const& source);
    void release();

    FieldType m_ownType;
    unsigned char m_ownFlag = 0;
    alignas(8) unsigned char m_buf[16] = {};
    unsigned char* m_block = nullptr;   // type 9 only
};

// A constant one-character value (fixed-width string of one code unit).
class DATABASE_EXPORT FieldConstValue : public FieldValue
{
public:
    explicit FieldConstValue(QChar const& c);
    virtual ~FieldConstValue();
};
