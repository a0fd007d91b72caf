#pragma once
#include <database/database_export.h>
#include <QString>
#include <QStringRef>

// Type descriptor of one column. A Field points at it; the layout (type code,
// then length in bytes) is what field readers dispatch on.
struct DATABASE_EXPORT FieldType
{
    enum Type {
        Unknown = 0,
        Int = 1,        // 32-bit signed
        Int64 = 2,      // 64-bit signed
        Double = 3,
        Decimal = 4,    // 64-bit packed decimal
        XDecimal = 5,   // 16-byte packed decimal
        Char = 6,       // fixed width, UTF-16 code units, zero padded
        DateTime = 7,   // ms since 1970 on the exchange wall clock
        VarChar = 8,    // variable string
        Block = 9       // 404 opaque bytes
    };

    int type = Unknown;
    int length = 0;     // bytes of the value in the row buffer
    short scale = 0;    // decimal places (types 4 and 5)

    Type typeCode() const { return static_cast<Type>(type); }

    static QString typeName(Type type);
    static int storageSize(Type type, int declaredLength);

    // Writes a fixed-width string of `length` bytes: as many UTF-16 code units
    // as fit, the rest zero.
    static void stringToVarChar(unsigned char* dst, int length, QString const& text);
    static void stringToVarChar(unsigned char* dst, int length, QStringRef const& text);
};

// A column as the table defines it.
struct DATABASE_EXPORT ColumnDef : FieldType
{
    QString name;
    bool nullable = true;
    int offset = 0;          // of the value inside the row buffer
    int flagOffset = 0;      // of the null-flag byte inside the row buffer
    unsigned char mask = 0;  // bit of this column in that byte
};
