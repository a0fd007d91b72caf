#pragma once
#include "cachedindex.h"
#include "library.h"

#include <database/field.h>
#include <database/fieldtype.h>
#include <database/index.h>
#include <database/table.h>

#include <QAtomicInt>
#include <QCoreApplication>
#include <QList>
#include <QObject>
#include <QScopedPointer>
#include <QSharedPointer>
#include <QString>
#include <QThread>
#include <QWeakPointer>
#include <algorithm>
#include <type_traits>

#include <initializer_list>

struct DirectoryClass;

// Runs `function` once per flag, from any thread. Flag states: 0 not run,
// 1 running, 2 done, 3 failed. A failure lets the exception pass and leaves
// the flag at 3, so the next caller runs the function again; callers that
// find another thread running it yield until it is done or has failed. A
// run that re-enters its own flag on the same thread (a construction that
// reaches its own i()) throws a QString instead of waiting for itself.
// Defined in the library: a run's book-keeping (the tables its construction
// locked) is the library's own.
DIRECTORY_EXPORT void qCallOnce(void (*function)(), QBasicAtomicInt& flag, char const* name = "qCallOnce");

// Holder of the one instance of a directory class. The scoped pointer deletes
// the instance when the library is unloaded. Its state is exported with the
// class, so that a program and the library share it.
template <class X>
class DIRECTORY_EXPORT QSingleton
{
public:
    static void init()
    {
        X* created = new X(nullptr);
        X* old = instance.take();
        instance.reset(created);
        if (old && old != created) delete old;
    }
    static X* get()
    {
        qCallOnce(&QSingleton<X>::init, flag, X::staticMetaObject.className());
        return instance.data();
    }
    // Deletes the instance and lets the next i() create a new one; for
    // programs (and tests) that replace their database.
    static void reset()
    {
        instance.reset();
        flag.storeRelease(0);
    }

    static QScopedPointer<X> instance;
    static QBasicAtomicInt flag;
};
template <class X> QScopedPointer<X> QSingleton<X>::instance;
template <class X> QBasicAtomicInt QSingleton<X>::flag = Q_BASIC_ATOMIC_INITIALIZER(0);

// Common shape of a table-bound directory: binds its table at construction,
// registers as a dependent (told when a batch ends) or as an index
// (maintained row by row), owns the indexes it registers, and undoes all of
// it on destruction while the table still exists.
//
// Threading (docs/threading.md): i() may be called from any thread; a
// construction run by i() holds the table's lock from its registration to
// its end, so no batch (and no hook) meets a half-built directory. The
// database calls the Index operations on its updating thread. Lookups that
// read live rows or the directory's own data run on the updating thread, or
// on another thread that holds the table's lock (TableLocker); they are
// marked DIRECTORY_UPDATING_THREAD_ONLY. A constructor binds its own table
// only and reaches no other directory.
class DIRECTORY_EXPORT Directory : public QObject, public Index
{
    Q_OBJECT
public:
    enum Registration { AsDependent, AsIndex };

    ~Directory() override;

    // Kept nothing of its own: no-ops and "everything belongs".
    void clear() override;
    void build() override;
    void add(Record const& record) override;
    void remove(Record const& record, int position) override;
    bool filter(Record const& record) const override;
    bool contains(Record const& record) const override;
    QString getClassName() const override;

    // The bound table, or null once it is gone.
    QSharedPointer<Table> table() const { return m_table.toStrongRef(); }

protected:
    // Steps of construction up to registration, for a class of the directory
    // registry (registry.cpp): its line gives the table, how it registers and
    // the missing-table message, translated in the class's own context.
    // `tableName` binds another table of the same shape instead.
    explicit Directory(QObject* parent, QMetaObject const& cls, QString const& tableName = QString());
    // The same for a directory class outside the registry (a program's or a
    // test's own): `context` is its translation context; `missingText`, when
    // given, replaces the message "Таблица '%1' отсутствует".
    Directory(QObject* parent, char const* context, QString const& tableName, Registration registration,
              char const* missingText = nullptr);

    // A member's column number and the column's name.
    struct ColumnSlot
    {
        int& number;
        QString name;
    };
    // Resolves a directory's columns by name, in the order given; a missing
    // column stays negative and reads as empty.
    void resolveColumns(std::initializer_list<ColumnSlot> columns) const;
    // One column number by name, -1 when the table is gone or lacks it.
    int column(QString const& name) const;
    // Registers an index on the table and takes ownership of it.
    template <class I>
    I* ownIndex(I* index)
    {
        adopt(index);
        return index;
    }
    void adopt(Index* index);
    // For a construction whose first build reads another table's live rows:
    // off the updating thread (a first i() on a worker) that table is held
    // too, to the end of the construction. It is taken after the
    // directory's own table and only by trying; when busy, the construction
    // steps back and is tried again, as it does for its own table.
    void holdForConstruction(QSharedPointer<Table> const& other) const;

#ifdef DIRECTORY_CHECK_THREADS
    // Stops the program when called off the updating thread by a thread
    // that does not hold the table's lock.
    void checkUpdatingThread(char const* where) const;
#endif

    QWeakPointer<Table> m_table;

private:
    // The registry's line found once, for the constructor above.
    DIRECTORY_NO_EXPORT Directory(QObject* parent, DirectoryClass const& line, QString const& tableName);

    Registration m_registration;
    QList<Index*> m_ownedIndexes;
};

// ---------------------------------------------------------------------------
// Texts of fields.

// The text a text column's field holds, seen in place: a fixed-width text
// up to its first NUL or its width, a variable one as stored; a null field,
// and a column of another type, is the empty text. A view: it lives as long
// as the row is unchanged, and copies nothing, so hot loops may make one a
// row. Every comparison of a field's text, with a text or another field's,
// is this one: code unit by code unit, as QString orders.
class FieldText
{
public:
    explicit FieldText(Field const& field)
    {
        if (!field.hasValue()) return;
        if (field.type() == FieldType::Char) {
            m_units = reinterpret_cast<char16_t const*>(field.data());
            m_limit = field.length() / 2;
            m_endsAtNul = true;
            return;
        }
        if (field.type() == FieldType::VarChar) {
            // The row keeps its string; the view points into it, as into a
            // fixed-width text, and lives as long as the row is unchanged.
            QString const stored = field.asStaticString();
            m_units = reinterpret_cast<char16_t const*>(stored.constData());
            m_limit = stored.size();
        }
    }

    int size() const
    {
        int n = 0;
        while (!endsAt(n)) ++n;
        return n;
    }
    bool isEmpty() const { return endsAt(0); }
    QString toString() const { return QString(reinterpret_cast<QChar const*>(m_units), size()); }

    // Sign of (this text) - the other, read up to where each ends.
    int compare(QString const& text) const
    {
        auto const* t = reinterpret_cast<char16_t const*>(text.constData());
        return m_endsAtNul ? compareUnits<true, false>(t, text.size()) : compareUnits<false, false>(t, text.size());
    }
    int compare(FieldText const& other) const
    {
        if (m_endsAtNul) {
            return other.m_endsAtNul ? compareUnits<true, true>(other.m_units, other.m_limit)
                                     : compareUnits<true, false>(other.m_units, other.m_limit);
        }
        return other.m_endsAtNul ? compareUnits<false, true>(other.m_units, other.m_limit)
                                 : compareUnits<false, false>(other.m_units, other.m_limit);
    }
    bool startsWith(QString const& text) const
    {
        int const n = text.size();
        if (n > m_limit) return false;
        auto const* t = reinterpret_cast<char16_t const*>(text.constData());
        for (int i = 0; i < n; ++i)
            if (m_units[i] != t[i] || (m_endsAtNul && !m_units[i])) return false;
        return true;
    }

private:
    // A fixed-width text ends at its first NUL or its width; any other at
    // its length.
    bool endsAt(int i) const { return i >= m_limit || (m_endsAtNul && !m_units[i]); }
    template <bool ThisEndsAtNul, bool OtherEndsAtNul>
    int compareUnits(char16_t const* units, int limit) const
    {
        for (int i = 0;; ++i) {
            bool const endA = i >= m_limit || (ThisEndsAtNul && !m_units[i]);
            bool const endB = i >= limit || (OtherEndsAtNul && !units[i]);
            if (endA || endB) return endA == endB ? 0 : (endA ? -1 : 1);
            if (m_units[i] != units[i]) return m_units[i] < units[i] ? -1 : 1;
        }
    }

    char16_t const* m_units = nullptr;
    int m_limit = 0;
    bool m_endsAtNul = false;
};

// ---------------------------------------------------------------------------
// Keyed lookups.

namespace frame_detail {
// The type a typed master index keeps for a lookup's value (void: none).
template <class V> struct StructKeyOf { using type = void; };
template <> struct StructKeyOf<int> { using type = int; };
template <> struct StructKeyOf<long long> { using type = long long; };
template <> struct StructKeyOf<QString> { using type = ucharn<12>; };
template <class V>
using StructKeyType = typename StructKeyOf<V>::type;
template <class... V>
constexpr bool kHasStructKey = (!std::is_void<typename StructKeyOf<V>::type>::value && ...);

// The values an owned column index compares in place.
template <class V> struct InPlaceKey : std::false_type {};
template <> struct InPlaceKey<int> : std::true_type {};
template <> struct InPlaceKey<QString> : std::true_type {};
} // namespace frame_detail

// What every DirectoryKey shares, whatever its values: writing a value into
// a key row's column, and whether a text fits its column.
class DIRECTORY_EXPORT DirectoryKeyColumns
{
protected:
    // A key value written into a key row as its column's type wants it:
    // texts into text columns only (fixed-width or variable), anything else
    // through the field's own conversion. Throws the conversion's Exception
    // when the column cannot take the value.
    static void writeKeyValue(Field field, QString const& value);
    static void writeKeyValue(Field field, QChar value);
    template <class V>
    static void writeKeyValue(Field field, V const& value)
    {
        field = value;
    }

    // A text longer than its fixed-width column is stored by no row:
    // searched cut to the width, it would find a row with another key.
    static bool fitsColumn(Table const& table, int column, QString const& text);
    template <class V>
    static bool fitsColumn(Table const&, int, V const&)
    {
        return true;
    }
};

// The key of one sorted index of a directory's table, typed by the values
// its lookups give, with the key columns resolved once at construction:
// every keyed lookup of the library goes through one. It picks the fastest
// search the index allows (a typed master index's own key, an owned column
// index compared in place, else a key row), and a lookup never throws: a
// gone table, a missing column, a text longer than its fixed-width column
// or a value its column cannot take finds nothing.
//
// Threading: as the index searched. Searches through a cached master index
// may run on any thread; the others belong where the directory's lookups do.
template <class... V>
class DirectoryKey : private DirectoryKeyColumns
{
    static_assert(sizeof...(V) > 0, "a key has columns");

public:
    DirectoryKey() = default;
    // `index`: the table's master index when null. `columns`: the columns
    // the values are written into, in their order; usually the index's own
    // key columns, in which case the fast searches apply.
    DirectoryKey(QSharedPointer<Table> const& table, IndexSort const* index, QList<int> const& columns)
    {
        if (!table || columns.size() != int(sizeof...(V))) return;
        for (int c : columns)
            if (c < 0) return;
        m_table = table;
        m_index = index ? index : table->masterIndex();
        m_columns = columns;
        auto const* pure = dynamic_cast<MasterIndex_Column_Pure const*>(m_index);
        if (!pure || pure->columns() != columns) return;
        if constexpr (frame_detail::kHasStructKey<V...>) {
            using Struct = MasterIndex_Struct<frame_detail::StructKeyType<V>...>;
            m_cached = dynamic_cast<MasterIndexCached<Struct> const*>(m_index);
            m_struct = m_cached ? nullptr : dynamic_cast<Struct const*>(m_index);
        }
        if constexpr ((frame_detail::InPlaceKey<V>::value && ...)) m_inPlace = dynamic_cast<MasterIndex_Column const*>(m_index);
    }

    // The first row equal to the key, or an empty record.
    Record find(V const&... values) const
    {
        int position = -1;
        return lookup(false, position, values...);
    }
    // The position of that row in the index, or -1.
    int search(V const&... values) const
    {
        int position = -1;
        lookup(true, position, values...);
        return position;
    }
    // A key row holding the values, for searches of a range; empty when
    // the key cannot be written.
    Record keyRecord(V const&... values) const
    {
        QSharedPointer<Table> t = m_table.toStrongRef();
        return t && fits(*t, values...) ? writtenKey(*t, values...) : Record();
    }

private:
    // The key row of values that fit their columns; empty when one cannot
    // be written.
    Record writtenKey(Table const& t, V const&... values) const
    {
        try {
            Record key(&t);
            int n = 0;
            (writeKeyValue(t.dataPtr(key.row(), m_columns[n++]), values), ...);
            return key;
        } catch (Exception const&) {
            return Record();
        }
    }

    bool fits(Table const& t, V const&... values) const
    {
        int n = 0;
        return (fitsColumn(t, m_columns[n++], values) && ...);
    }

    Record lookup(bool wantPosition, int& position, V const&... values) const
    {
        QSharedPointer<Table> t = m_table.toStrongRef();
        if (!t || !fits(*t, values...)) return Record();
        if constexpr (frame_detail::kHasStructKey<V...>) {
            if (m_cached || m_struct) {
                using Key = MasterKey_Struct<frame_detail::StructKeyType<V>...>;
                Key const key(static_cast<frame_detail::StructKeyType<V>>(values)...);
                if (m_cached && !wantPosition) return m_cached->findKey(key, -1);
                auto const* typed = m_cached ? m_cached : m_struct;
                if (wantPosition) {
                    position = typed->searchKey(key, -1);
                    return Record();
                }
                return typed->findKey(key, -1);
            }
        }
        if constexpr ((frame_detail::InPlaceKey<V>::value && ...)) {
            if (m_inPlace) {
                ColumnValuesKey key(m_inPlace);
                (key << ... << values);
                if (key.usable()) {
                    if (!wantPosition) return key.find();
                    position = key.search();
                    return Record();
                }
            }
        }
        Record key = writtenKey(*t, values...);   // the table is held and the values fit
        if (key.isEmpty()) return Record();
        if (wantPosition) {
            position = m_index->search(key, -1);
            return Record();
        }
        return m_index->find(key, -1);
    }

    QWeakPointer<Table> m_table;
    IndexSort const* m_index = nullptr;
    QList<int> m_columns;
    MasterIndex_Column const* m_inPlace = nullptr;
    MasterIndexCached<MasterIndex_Struct<frame_detail::StructKeyType<V>...>> const* m_cached = nullptr;
    MasterIndex_Struct<frame_detail::StructKeyType<V>...> const* m_struct = nullptr;
};

// The instance of X, or null when it cannot be created (its table is
// missing): for lookups that reach another directory and must not throw.
template <class X>
X* directoryOrNull()
{
    try {
        return X::i();
    } catch (QString const&) {
        return nullptr;
    }
}

// Holds a table's lock for a scope: lets a thread other than the updating
// one read the table's rows and call updating-thread lookups.
class TableLocker
{
public:
    explicit TableLocker(Table const* table) : m_table(table)
    {
        if (m_table) m_table->lock();
    }
    ~TableLocker()
    {
        if (m_table) m_table->unlock();
    }
    TableLocker(TableLocker const&) = delete;
    TableLocker& operator=(TableLocker const&) = delete;

private:
    Table const* m_table;
};

// Marks a lookup of a directory (used inside its member functions) that
// reads live rows or the directory's own data without a lock of its own:
// it belongs on the database's updating thread, or on a thread holding the
// table's lock. Checked in debug and sanitizer builds.
#ifdef DIRECTORY_CHECK_THREADS
#define DIRECTORY_UPDATING_THREAD_ONLY() checkUpdatingThread(Q_FUNC_INFO)
#else
#define DIRECTORY_UPDATING_THREAD_ONLY() ((void)0)
#endif

// Directory i() accessor: the one instance, created on first use. Declared
// here and defined in the library (DIRECTORY_SINGLETON_DEFINE in the class's
// source), so that every program reaches the library's one instance.
#define DIRECTORY_SINGLETON(X) \
public: \
    static X* i();

// The definition of X::i() for the class's source file; the holder's state
// is instantiated there, with the class.
#define DIRECTORY_SINGLETON_DEFINE(X) \
    template class QSingleton<X>; \
    X* X::i() { return QSingleton<X>::get(); }
