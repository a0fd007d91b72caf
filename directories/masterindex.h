#pragma once
#include "library.h"

#include <database/exception.h>
#include <database/field.h>
#include <database/index.h>
#include <database/record.h>
#include <database/table.h>

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QString>
#include <QStringList>
#include <QStringRef>
#include <cstring>

// Sorted indexes keyed by a list of columns, and the keys that search them
// without a row.
//
// Two families:
//  - MasterIndex_Column: any columns, compared field by field. Searched by a
//    MasterKey.
//  - MasterIndex_Struct<T...>: keys made of 32/64-bit integers or one short
//    fixed string; comparing two rows reads fixed offsets of the row buffers
//    with no Field objects, no type dispatch and no allocation. Searched by a
//    MasterKey_Struct<T...>. Each template level holds one key column: the
//    most derived level the first column, MasterIndex_Struct<T> the last.
//
// Threading: as IndexSort. The list changes on the updating thread only;
// searches may come from any thread and take the index's read lock.

// ---------------------------------------------------------------------------
// MasterKey: the general key, the key columns' values in key order.
//
// The values are kept as an order-preserving byte string, so that comparing a
// row's key with a MasterKey is a byte-by-byte comparison that agrees with the
// order of the index (a plain memcmp of the stored values would not: integers
// are little endian and decimals carry their scale). Per value:
//   no value           00
//   32/64-bit integer  01, 8 bytes big endian with the sign bit flipped
//   double             03, 8 bytes (sign-folded IEEE bits; -0 is 0)
//   decimal, xdecimal  04, sign (00 negative, 01 zero, 02 positive), then for
//                      non-zero values a biased decimal exponent and the
//                      significant digits (+1), 00-terminated; all of it
//                      complemented for negative values
//   text (6 and 8)     06, UTF-16 code units big endian, then 00 00
//   date-time          07, 8 bytes as an integer
//   block              09, the 404 bytes
// Values of one column thus sort as the column does; equal values give equal
// bytes (1.5 and 1.50, an int 7 and a 64-bit 7), so a MasterKey is also a
// hash key. Texts with embedded NUL code units are not told apart after the
// NUL, as fixed-width text stops there too.
class DIRECTORY_EXPORT MasterKey
{
public:
    MasterKey() = default;
    explicit MasterKey(QList<FieldValue> const& values);
    // The key of a row over the given columns.
    MasterKey(Record const& record, QList<int> const& columns);

    MasterKey& operator<<(Field const& value);
    MasterKey& operator<<(int value);
    MasterKey& operator<<(long long value);
    MasterKey& operator<<(QString const& value);

    int count() const { return m_count; }
    bool isEmpty() const { return m_count == 0; }
    QByteArray const& bytes() const { return m_bytes; }

    // Sign of (the row's key over `columns`) - (this key), byte by byte.
    // A key with fewer values than columns matches nothing.
    int compareRow(Record const& record, QList<int> const& columns) const;

    bool operator==(MasterKey const& o) const { return m_bytes == o.m_bytes; }
    bool operator!=(MasterKey const& o) const { return m_bytes != o.m_bytes; }

private:
    QByteArray m_bytes;
    int m_count = 0;
};

inline uint qHash(MasterKey const& key, uint seed = 0) { return qHash(key.bytes(), seed); }

// ---------------------------------------------------------------------------
// MasterIndexKey<Base>: a column-list index searchable by a MasterKey.
template <class Base>
class DIRECTORY_EXPORT MasterIndexKey : public Base
{
public:
    using Key = MasterKey;

    MasterIndexKey(Table* table, QStringList const& columns) : Base(table, columns) {}
    MasterIndexKey(Table* table, QList<int> const& columns) : Base(table, columns) {}

    QString getClassName() const override { return QStringLiteral("MasterIndex"); }

    // For IndexSort::searchBinary: the row's key against a MasterKey.
    class CompareKey
    {
    public:
        explicit CompareKey(MasterIndexKey const* index) : m_columns(&index->columns()) {}
        int operator()(Record const& record, MasterKey const& key) const { return key.compareRow(record, *m_columns); }

    private:
        QList<int> const* m_columns;
    };

    MasterKey key(Record const& record) const { return MasterKey(record, this->m_columns); }
    // First position after `after` holding `key`, or -1.
    int searchKey(MasterKey const& key, int after) const { return this->searchBinary(key, after, CompareKey(this)); }
    // The record at that position, or an empty record (no cache).
    Record findKey(MasterKey const& key, int after) const { return this->findBinary(key, after, CompareKey(this)); }
};

// ---------------------------------------------------------------------------
// MasterIndex_Column: any list of columns, compared with Field::compare.
class DIRECTORY_EXPORT MasterIndex_Column : public MasterIndexKey<MasterIndex_Column_Pure>
{
public:
    MasterIndex_Column(Table* table, QList<int> const& columns);
    MasterIndex_Column(Table* table, QStringList const& columns);
    ~MasterIndex_Column() override;

    int compare(Record const& a, Record const& b) const override;
    QString getClassName() const override;
};

// Plain values that search a MasterIndex_Column whose key columns are all
// 32-bit integers or fixed-width texts: each row is compared in place, in
// the index's order, with no key row and no allocation. For lookups made
// many times a second by codes.
class DIRECTORY_EXPORT ColumnValuesKey
{
public:
    static constexpr int maxColumns = 4;
    static constexpr int maxUnits = 32;

    // usable() is false when a key column is of another type or too wide:
    // search with a key row then.
    explicit ColumnValuesKey(MasterIndex_Column const* index);
    bool usable() const { return m_usable; }

    // The next key column's value; a text is kept as the column would store
    // it (cut to its width, zero padded).
    ColumnValuesKey& operator<<(int value);
    ColumnValuesKey& operator<<(QString const& text);

    // The first record equal to the key, or an empty record; its position,
    // or -1.
    Record find() const;
    int search() const;

    // For IndexSort::searchBinary.
    struct Compare
    {
        int operator()(Record const& record, ColumnValuesKey const& key) const { return key.compareRow(record.row()); }
    };

private:
    int compareRow(unsigned char const* row) const;

    struct Slot
    {
        int offset = 0;
        int flagOffset = 0;
        unsigned char mask = 0;
        int units = 0;          // 0: a 32-bit integer
        int number = 0;
        char16_t text[maxUnits] = {};
    };
    MasterIndex_Column const* m_index;
    Slot m_slots[maxColumns];
    int m_count = 0;          // key columns
    int m_filled = 0;         // values given
    bool m_usable = false;
};

// ---------------------------------------------------------------------------
// Typed keys.

// A fixed string of N UTF-16 code units, zero padded, as stored in a row.
template <int N>
struct DIRECTORY_EXPORT ucharn
{
    quint16 units[N];

    ucharn() : units{} {}
    explicit ucharn(QString const& text) { FieldType::stringToVarChar(reinterpret_cast<unsigned char*>(units), 2 * N, text); }
    QString toString() const
    {
        int n = 0;
        while (n < N && units[n]) ++n;
        return QString(reinterpret_cast<QChar const*>(units), n);
    }
    bool operator==(ucharn const& o) const { return std::memcmp(units, o.units, sizeof units) == 0; }
    bool operator!=(ucharn const& o) const { return !(*this == o); }
};
static_assert(sizeof(ucharn<12>) == 24, "ucharn must be exactly its code units");

template <int N>
inline uint qHash(ucharn<N> const& v, uint seed = 0) { return qHashBits(v.units, sizeof v.units, seed); }

namespace directory {
namespace detail {

// What a level of MasterIndex_Struct accepts, and how it compares.
template <class T> struct KeyColumn;
template <> struct KeyColumn<int>
{
    static constexpr FieldType::Type type = FieldType::Int;
    static constexpr int length = 4;
};
template <> struct KeyColumn<long long>
{
    static constexpr FieldType::Type type = FieldType::Int64;
    static constexpr int length = 8;
};
template <> struct KeyColumn<ucharn<12>>
{
    static constexpr FieldType::Type type = FieldType::Char;
    static constexpr int length = 24;
};

template <class T>
inline T load(unsigned char const* p)
{
    T v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

template <class T>
inline int compareKeyValues(T a, T b) { return a < b ? -1 : (b < a ? 1 : 0); }
template <int N>
inline int compareKeyValues(ucharn<N> const& a, ucharn<N> const& b)
{
    for (int i = 0; i < N; ++i)
        if (a.units[i] != b.units[i]) return a.units[i] < b.units[i] ? -1 : 1;
    return 0;
}

// A key value written big endian, signed values with the sign bit flipped,
// so that unsigned byte-by-byte comparison orders as the value does.
inline void orderedBytes(int v, unsigned char* out)
{
    quint32 u = quint32(v) ^ 0x80000000u;
    for (int i = 3; i >= 0; --i, u >>= 8) out[i] = static_cast<unsigned char>(u);
}
inline void orderedBytes(long long v, unsigned char* out)
{
    quint64 u = quint64(v) ^ (quint64(1) << 63);
    for (int i = 7; i >= 0; --i, u >>= 8) out[i] = static_cast<unsigned char>(u);
}
template <int N>
inline void orderedBytes(ucharn<N> const& v, unsigned char* out)
{
    for (int i = 0; i < N; ++i) {
        out[2 * i] = static_cast<unsigned char>(v.units[i] >> 8);
        out[2 * i + 1] = static_cast<unsigned char>(v.units[i]);
    }
}

inline uint hashCombine(uint seed, uint h) { return seed ^ (h + 0x9e3779b9u + (seed << 6) + (seed >> 2)); }

struct NoSetup {};

} // namespace detail
} // namespace directory

// Set-up checks of MasterIndex_Struct, the same for every key shape; each
// throws the QString message.
struct DIRECTORY_EXPORT MasterIndex_Struct_Checks
{
    static void columnCount(int expected, int given);
    // Checks key column `position` and returns the offset of its value in a row.
    static int column(Table const* table, QList<int> const& columns, QStringList const& names, int position,
                      FieldType::Type type, int length);
};

namespace directory {
namespace detail {
// For IndexSort::searchBinary over a MasterIndex_Struct level: a row's key
// against a typed key, and the typed key written as the index keeps its
// key copies.
template <class Level>
class StructCompareKey
{
public:
    static constexpr int storedWidth = Level::keyBytes;

    explicit StructCompareKey(Level const* index) : m_index(index) {}
    int operator()(Record const& record, typename Level::Key const& key) const { return m_index->compareKeyRow(record.row(), key); }
    void store(typename Level::Key const& key, unsigned char* out) const { Level::storeKey(key, out + Level::keyBytes); }

private:
    Level const* m_index;
};
} // namespace detail
} // namespace directory

// The typed values of a key in key-column order: value, then the rest.
template <class... T> struct DIRECTORY_EXPORT MasterKey_Struct;

template <class T>
struct DIRECTORY_EXPORT MasterKey_Struct<T>
{
    T value;

    MasterKey_Struct() : value() {}
    MasterKey_Struct(T v) : value(v) {}   // NOLINT: a one-column key reads naturally as its value
    bool operator==(MasterKey_Struct const& o) const { return value == o.value; }
    bool operator!=(MasterKey_Struct const& o) const { return !(*this == o); }
};

template <class T, class... Rest>
struct DIRECTORY_EXPORT MasterKey_Struct<T, Rest...>
{
    T value;
    MasterKey_Struct<Rest...> rest;

    MasterKey_Struct() : value(), rest() {}
    MasterKey_Struct(T v, Rest... r) : value(v), rest(r...) {}
    bool operator==(MasterKey_Struct const& o) const { return value == o.value && rest == o.rest; }
    bool operator!=(MasterKey_Struct const& o) const { return !(*this == o); }
};

template <class T>
inline uint qHash(MasterKey_Struct<T> const& k, uint seed = 0) { return qHash(k.value, seed); }
template <class T, class U, class... Rest>
inline uint qHash(MasterKey_Struct<T, U, Rest...> const& k, uint seed = 0)
{
    return directory::detail::hashCombine(qHash(k.value, seed), qHash(k.rest, seed));
}

// ---------------------------------------------------------------------------
// MasterIndex_Struct<T...>

template <class... T> class DIRECTORY_EXPORT MasterIndex_Struct;

// The base level: the last key column.
template <class T>
class DIRECTORY_EXPORT MasterIndex_Struct<T> : public MasterIndex_Column_Pure
{
public:
    using Key = MasterKey_Struct<T>;

    // Bytes of this level's key value and of the levels behind it, in the
    // key copies the index keeps.
    static constexpr int keyBytes = int(sizeof(T));

    // Throws the QString message of the first failed check.
    MasterIndex_Struct(Table* table, QStringList const& columns) : MasterIndex_Struct(table, columns, directory::detail::NoSetup())
    {
        setup(0);
        keepTypedKeyCopies(this);
    }

    int compare(Record const& a, Record const& b) const override { return compareRows(a.row(), b.row()); }
    QString getClassName() const override { return QStringLiteral("MasterIndex_Struct"); }

    // Checks and binds key column i (this level's); at the base level the
    // number of key columns must be i + 1.
    void setup(int i)
    {
        MasterIndex_Struct_Checks::columnCount(i + 1, m_columns.size());
        m_offset = MasterIndex_Struct_Checks::column(m_table, m_columns, m_names, i, directory::detail::KeyColumn<T>::type,
                                                        directory::detail::KeyColumn<T>::length);
    }

    using CompareKey = directory::detail::StructCompareKey<MasterIndex_Struct>;
    friend CompareKey;

    Key key(Record const& record) const
    {
        Key k;
        if (record.row()) readKey(record.row(), k);
        return k;
    }
    int searchKey(Key const& key, int after) const { return searchBinary(key, after, CompareKey(this)); }
    Record findKey(Key const& key, int after) const { return findBinary(key, after, CompareKey(this)); }

protected:
    MasterIndex_Struct(Table* table, QStringList const& columns, directory::detail::NoSetup)
        : MasterIndex_Column_Pure(table, columns), m_names(columns)
    {
    }

    // Makes the index keep key copies in the form of the most derived level
    // `Level`, the one whose constructor runs last.
    template <class Level>
    void keepTypedKeyCopies(Level const* level)
    {
        auto extract = [](void const* owner, Record const& record, unsigned char* out) {
            static_cast<Level const*>(owner)->storeRowKey(record.row(), out + Level::keyBytes);
        };
        keepKeyCopies(Level::keyBytes, extract, static_cast<void const*>(level));
    }

    // Key copies are the values in key-column order, each written so that
    // the bytes compare as the values do (orderedBytes), and addressed from
    // their end: a level's value sits keyBytes before it, whatever the
    // levels in front of it hold.
    void storeRowKey(unsigned char const* row, unsigned char* end) const
    {
        directory::detail::orderedBytes(directory::detail::load<T>(row + m_offset), end - keyBytes);
    }
    static void storeKey(Key const& key, unsigned char* end) { directory::detail::orderedBytes(key.value, end - keyBytes); }

    int compareRows(unsigned char const* a, unsigned char const* b) const
    {
        using directory::detail::load;
        return directory::detail::compareKeyValues(load<T>(a + m_offset), load<T>(b + m_offset));
    }
    int compareKeyRow(unsigned char const* row, Key const& key) const
    {
        return directory::detail::compareKeyValues(directory::detail::load<T>(row + m_offset), key.value);
    }
    void readKey(unsigned char const* row, Key& key) const { key.value = directory::detail::load<T>(row + m_offset); }

    QStringList m_names;   // as requested, for messages about missing columns
    int m_offset = 0;
};

// A level holding key column T in front of the levels of Rest.
template <class T, class... Rest>
class DIRECTORY_EXPORT MasterIndex_Struct<T, Rest...> : public MasterIndex_Struct<Rest...>
{
    using Base = MasterIndex_Struct<Rest...>;

    template <class...> friend class MasterIndex_Struct;

public:
    using Key = MasterKey_Struct<T, Rest...>;
    static constexpr int keyBytes = int(sizeof(T)) + Base::keyBytes;

    MasterIndex_Struct(Table* table, QStringList const& columns) : Base(table, columns, directory::detail::NoSetup())
    {
        setup(0);
        this->keepTypedKeyCopies(this);
    }

    int compare(Record const& a, Record const& b) const override { return compareRows(a.row(), b.row()); }

    // Binds this level's column i after the levels behind it (the last
    // column is checked first).
    void setup(int i)
    {
        Base::setup(i + 1);
        m_offset = MasterIndex_Struct_Checks::column(this->m_table, this->m_columns, this->m_names, i,
                                                        directory::detail::KeyColumn<T>::type,
                                                        directory::detail::KeyColumn<T>::length);
    }

    using CompareKey = directory::detail::StructCompareKey<MasterIndex_Struct>;
    friend CompareKey;

    Key key(Record const& record) const
    {
        Key k;
        if (record.row()) readKey(record.row(), k);
        return k;
    }
    int searchKey(Key const& key, int after) const { return this->searchBinary(key, after, CompareKey(this)); }
    Record findKey(Key const& key, int after) const { return this->findBinary(key, after, CompareKey(this)); }

protected:
    MasterIndex_Struct(Table* table, QStringList const& columns, directory::detail::NoSetup)
        : Base(table, columns, directory::detail::NoSetup())
    {
    }

    int compareRows(unsigned char const* a, unsigned char const* b) const
    {
        using directory::detail::load;
        int r = directory::detail::compareKeyValues(load<T>(a + m_offset), load<T>(b + m_offset));
        return r ? r : Base::compareRows(a, b);
    }
    int compareKeyRow(unsigned char const* row, Key const& key) const
    {
        int r = directory::detail::compareKeyValues(directory::detail::load<T>(row + m_offset), key.value);
        return r ? r : Base::compareKeyRow(row, key.rest);
    }
    void readKey(unsigned char const* row, Key& key) const
    {
        key.value = directory::detail::load<T>(row + m_offset);
        Base::readKey(row, key.rest);
    }
    void storeRowKey(unsigned char const* row, unsigned char* end) const
    {
        directory::detail::orderedBytes(directory::detail::load<T>(row + m_offset), end - keyBytes);
        Base::storeRowKey(row, end);
    }
    static void storeKey(Key const& key, unsigned char* end)
    {
        directory::detail::orderedBytes(key.value, end - keyBytes);
        Base::storeKey(key.rest, end);
    }

    int m_offset = 0;
};
