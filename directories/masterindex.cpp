#include "masterindex.h"

#include <database/decimal.h>

#include <algorithm>
#include <cmath>
#include <cstdint>

// ---------------------------------------------------------------------------
// MasterKey encoding. One encoder feeds either a byte string (building a key)
// or a comparator (matching a row against a key), so both always agree.

namespace {

enum KeyClass : unsigned char {
    NoValue = 0x00,
    Integer = 0x01,
    Real = 0x03,
    Packed = 0x04,
    Text = 0x06,
    Moment = 0x07,
    Opaque = 0x09
};

struct AppendSink
{
    QByteArray* out;
    bool put(unsigned char b)
    {
        out->append(char(b));
        return true;
    }
};

// Compares the bytes it is fed with the key's bytes; stops at the first
// difference. result: sign of (fed - key).
struct CompareSink
{
    unsigned char const* key;
    unsigned char const* end;
    int result = 0;
    bool put(unsigned char b)
    {
        if (key == end) { result = 1; return false; }
        if (b != *key) { result = b < *key ? -1 : 1; return false; }
        ++key;
        return true;
    }
};

template <class Sink>
bool putBig64(Sink& sink, std::uint64_t v)
{
    for (int shift = 56; shift >= 0; shift -= 8)
        if (!sink.put(static_cast<unsigned char>(v >> shift))) return false;
    return true;
}

template <class Sink>
bool putSigned(Sink& sink, unsigned char cls, std::int64_t v)
{
    return sink.put(cls) && putBig64(sink, std::uint64_t(v) ^ (std::uint64_t(1) << 63));
}

template <class Sink>
bool putDouble(Sink& sink, double v)
{
    if (v == 0) v = 0;   // -0 equals 0
    std::uint64_t bits;
    std::memcpy(&bits, &v, sizeof bits);
    bits = (bits >> 63) ? ~bits : bits | (std::uint64_t(1) << 63);
    return sink.put(Real) && putBig64(sink, bits);
}

// Scale-free form of mantissa * 10^-scale, so that 1.5 and 1.50 encode alike
// and values of any scale order by their bytes.
template <class Sink>
bool putPacked(Sink& sink, __int128 mantissa, int scale)
{
    if (!sink.put(Packed)) return false;
    if (mantissa == 0) return sink.put(0x01);
    bool negative = mantissa < 0;
    unsigned __int128 mag = negative ? static_cast<unsigned __int128>(-(mantissa + 1)) + 1 : static_cast<unsigned __int128>(mantissa);
    while (mag % 10 == 0) {
        mag /= 10;
        --scale;
    }
    unsigned char digits[40];
    int n = 0;
    for (; mag; mag /= 10) digits[n++] = static_cast<unsigned char>(mag % 10);
    unsigned char flip = negative ? 0xFF : 0x00;
    if (!sink.put(negative ? 0x00 : 0x02)) return false;
    auto exponent = static_cast<std::uint16_t>(n - scale + 0x8000);
    if (!sink.put(static_cast<unsigned char>(exponent >> 8) ^ flip)) return false;
    if (!sink.put(static_cast<unsigned char>(exponent) ^ flip)) return false;
    for (int i = n - 1; i >= 0; --i)
        if (!sink.put(static_cast<unsigned char>(digits[i] + 1) ^ flip)) return false;
    return sink.put(flip);
}

template <class Sink>
bool putUnits(Sink& sink, quint16 const* units, int max)
{
    if (!sink.put(Text)) return false;
    for (int i = 0; i < max && units[i]; ++i)
        if (!sink.put(static_cast<unsigned char>(units[i] >> 8)) || !sink.put(static_cast<unsigned char>(units[i]))) return false;
    return sink.put(0) && sink.put(0);
}

template <class Sink>
bool encode(Sink& sink, Field const& f)
{
    if (!f.hasValue()) return sink.put(NoValue);
    switch (f.type()) {
    case FieldType::Int: return putSigned(sink, Integer, f.rawInt32());
    case FieldType::Int64: return putSigned(sink, Integer, f.rawInt64());
    case FieldType::DateTime: return putSigned(sink, Moment, f.rawInt64());
    case FieldType::Double: return putDouble(sink, f.rawDouble());
    case FieldType::Decimal: {
        decimal d = f.rawDecimal();
        return putPacked(sink, d.mantissa(), d.scale());
    }
    case FieldType::XDecimal: {
        xdecimal x = f.rawXDecimal();
        return putPacked(sink, x.mantissa(), x.scale());
    }
    case FieldType::Char: {
        // Row data is only 2-aligned for text; copy the units out.
        quint16 units[64];
        int n = std::min(f.length() / 2, 64);
        std::memcpy(units, f.data(), std::size_t(n) * 2);
        if (f.length() / 2 <= 64) return putUnits(sink, units, n);
        QString s = f.asStaticString();
        return putUnits(sink, reinterpret_cast<quint16 const*>(s.utf16()), s.size());
    }
    case FieldType::VarChar: {
        QString s = f.asStaticString();
        return putUnits(sink, reinterpret_cast<quint16 const*>(s.utf16()), s.size());
    }
    case FieldType::Block: {
        if (!sink.put(Opaque)) return false;
        for (int i = 0; i < f.length(); ++i)
            if (!sink.put(f.data()[i])) return false;
        return true;
    }
    default: return sink.put(NoValue);
    }
}

} // namespace

MasterKey::MasterKey(QList<FieldValue> const& values)
{
    for (FieldValue const& v : values) *this << v.field();
}

MasterKey::MasterKey(Record const& record, QList<int> const& columns)
{
    Table const* table = record.table();
    if (!table) return;
    for (int c : columns) *this << table->dataPtr(record.row(), c);
}

MasterKey& MasterKey::operator<<(Field const& value)
{
    AppendSink sink{&m_bytes};
    encode(sink, value);
    ++m_count;
    return *this;
}

MasterKey& MasterKey::operator<<(int value)
{
    AppendSink sink{&m_bytes};
    putSigned(sink, Integer, value);
    ++m_count;
    return *this;
}

MasterKey& MasterKey::operator<<(long long value)
{
    AppendSink sink{&m_bytes};
    putSigned(sink, Integer, value);
    ++m_count;
    return *this;
}

MasterKey& MasterKey::operator<<(QString const& value)
{
    AppendSink sink{&m_bytes};
    putUnits(sink, reinterpret_cast<quint16 const*>(value.utf16()), value.size());
    ++m_count;
    return *this;
}

int MasterKey::compareRow(Record const& record, QList<int> const& columns) const
{
    Table const* table = record.table();
    auto const* begin = reinterpret_cast<unsigned char const*>(m_bytes.constData());
    CompareSink sink{begin, begin + m_bytes.size()};
    for (int c : columns) {
        encode(sink, table->dataPtr(record.row(), c));
        if (sink.result) return sink.result;
    }
    // Every column matched; a longer key holds values the row has not.
    return sink.key == sink.end ? 0 : -1;
}

// ---------------------------------------------------------------------------

MasterIndex_Column::MasterIndex_Column(Table* table, QList<int> const& columns) : MasterIndexKey(table, columns) {}
MasterIndex_Column::MasterIndex_Column(Table* table, QStringList const& columns) : MasterIndexKey(table, columns) {}
MasterIndex_Column::~MasterIndex_Column() = default;

namespace {
// Two fixed-width texts in the order Field::compare gives them (their texts
// up to the first NUL, code unit by code unit), without making the texts.
int compareChars(Field const& a, Field const& b)
{
    auto const* x = reinterpret_cast<char16_t const*>(a.data());
    auto const* y = reinterpret_cast<char16_t const*>(b.data());
    int nx = a.length() / 2, ny = b.length() / 2;
    for (int i = 0;; ++i) {
        char16_t cx = i < nx ? x[i] : 0, cy = i < ny ? y[i] : 0;
        if (cx != cy) return cx < cy ? -1 : 1;
        if (!cx) return 0;
    }
}
} // namespace

int MasterIndex_Column::compare(Record const& a, Record const& b) const
{
    Table const* ta = a.table();
    Table const* tb = b.table();
    for (int c : m_columns) {
        Field fa = ta->dataPtr(a.row(), c), fb = tb->dataPtr(b.row(), c);
        int r;
        // The usual key types are compared in place, in Field::compare's
        // order: it is out of line, and it builds a QString of each text.
        FieldType::Type type = fa.type();
        if (type != fb.type() || !fa.hasValue() || !fb.hasValue()) r = fa.compare(fb);
        else if (type == FieldType::Int) r = directory::detail::compareKeyValues(fa.rawInt32(), fb.rawInt32());
        else if (type == FieldType::Int64 || type == FieldType::DateTime) r = directory::detail::compareKeyValues(fa.rawInt64(), fb.rawInt64());
        else if (type == FieldType::Char) r = compareChars(fa, fb);
        else r = fa.compare(fb);
        if (r) return r < 0 ? -1 : 1;
    }
    return 0;
}

QString MasterIndex_Column::getClassName() const { return QStringLiteral("MasterIndex_Column"); }

// ---------------------------------------------------------------------------

ColumnValuesKey::ColumnValuesKey(MasterIndex_Column const* index) : m_index(index)
{
    Table const* table = index ? index->table() : nullptr;
    if (!table || index->columns().size() > maxColumns) return;
    for (int c : index->columns()) {
        ColumnDef const& def = table->columnDef(c);
        Slot& slot = m_slots[m_count++];
        slot.offset = def.offset;
        slot.flagOffset = def.flagOffset;
        slot.mask = def.mask;
        if (def.typeCode() == FieldType::Int) slot.units = 0;
        else if (def.typeCode() == FieldType::Char && def.length / 2 <= maxUnits) slot.units = def.length / 2;
        else return;
    }
    m_usable = m_count > 0;
}

ColumnValuesKey& ColumnValuesKey::operator<<(int value)
{
    if (m_filled < m_count) {
        Slot& slot = m_slots[m_filled++];
        if (slot.units) m_usable = false;   // a number for a text column: no in-place form
        slot.number = value;
    }
    return *this;
}

ColumnValuesKey& ColumnValuesKey::operator<<(QString const& text)
{
    if (m_filled < m_count) {
        Slot& slot = m_slots[m_filled++];
        if (!slot.units) m_usable = false;
        else FieldType::stringToVarChar(reinterpret_cast<unsigned char*>(slot.text), 2 * slot.units, text);
    }
    return *this;
}

Record ColumnValuesKey::find() const
{
    if (!m_usable || m_filled != m_count) return Record();
    return m_index->findBinary(*this, -1, Compare());
}

int ColumnValuesKey::search() const
{
    if (!m_usable || m_filled != m_count) return -1;
    return m_index->searchBinary(*this, -1, Compare());
}

// As MasterIndex_Column::compare with a key row holding these values: a
// row's null sorts before any value; texts compare up to their first NUL.
int ColumnValuesKey::compareRow(unsigned char const* row) const
{
    for (int i = 0; i < m_count; ++i) {
        Slot const& slot = m_slots[i];
        if (!(row[slot.flagOffset] & slot.mask)) return -1;
        int r;
        if (!slot.units) {
            r = directory::detail::compareKeyValues(directory::detail::load<int>(row + slot.offset), slot.number);
        } else {
            r = 0;
            for (int u = 0; u < slot.units; ++u) {
                char16_t a = directory::detail::load<char16_t>(row + slot.offset + 2 * u), b = slot.text[u];
                if (a != b) { r = a < b ? -1 : 1; break; }
                if (!a) break;
            }
        }
        if (r) return r;
    }
    return 0;
}

// ---------------------------------------------------------------------------

void MasterIndex_Struct_Checks::columnCount(int expected, int given)
{
    if (expected != given) throw QStringLiteral("MasterIndex_Struct: incorrect columns count %1!=%2").arg(expected).arg(given);
}

int MasterIndex_Struct_Checks::column(Table const* table, QList<int> const& columns, QStringList const& names,
                                         int position, FieldType::Type type, int length)
{
    int column = position < columns.size() ? columns.at(position) : -1;
    ColumnDef const& def = table ? table->columnDef(column) : ColumnDef();
    // A column the table lacks has no definition: name it as it was asked for.
    QString name = def.name.isEmpty() && position < names.size() ? names.at(position) : def.name;
    if (def.nullable) throw QStringLiteral("MasterIndex_Struct: column can't be nullable %1:'%2'").arg(position).arg(name);
    if (def.type != type)
        throw QStringLiteral("MasterIndex_Struct: incorrect column %1:'%2' type: %4!=%5")
            .arg(position)
            .arg(name)
            .arg(FieldType::typeName(type))
            .arg(FieldType::typeName(def.typeCode()));
    if (def.length != length)
        throw QStringLiteral("MasterIndex_Struct: incorrect column %1:'%2' type length: %4!=%5")
            .arg(position)
            .arg(name)
            .arg(length)
            .arg(def.length);
    return def.offset;
}
