#pragma once
#include "library.h"

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

#include <initializer_list>

namespace frame_detail {
// Thrown by a directory constructor, run under qCallOnce, whose table is
// locked by another thread (a batch): the construction steps back, so that
// the batch's own hooks may create the directory, and is tried again.
struct TableBusy
{
};
// Book-keeping of the runs of qCallOnce on the calling thread: which flags
// it is running, and the tables its constructions locked (released when
// the run ends, so that no hook reaches a half-built directory).
DIRECTORY_EXPORT void beginRun(QBasicAtomicInt* flag);
DIRECTORY_EXPORT void endRun(QBasicAtomicInt* flag);
DIRECTORY_EXPORT bool isRunningHere(QBasicAtomicInt const* flag);
DIRECTORY_EXPORT QString reenteredText(char const* name);
} // namespace frame_detail

// Runs `function` once per flag, from any thread. Flag states: 0 not run,
// 1 running, 2 done, 3 failed. A failure lets the exception pass and leaves
// the flag at 3, so the next caller runs the function again; callers that
// find another thread running it yield until it is done or has failed. A
// run that re-enters its own flag on the same thread (a construction that
// reaches its own i()) throws a QString instead of waiting for itself.
template <class Function>
void qCallOnce(Function function, QBasicAtomicInt& flag, char const* name = "qCallOnce")
{
    enum { NotRun = 0, Running = 1, Done = 2, Failed = 3 };
    for (;;) {
        int state = flag.loadAcquire();
        if (state == Done) return;
        if ((state == NotRun || state == Failed) && flag.testAndSetAcquire(state, Running)) {
            frame_detail::beginRun(&flag);
            try {
                function();
            } catch (frame_detail::TableBusy const&) {
                frame_detail::endRun(&flag);
                flag.storeRelease(state);
                QThread::yieldCurrentThread();
                continue;
            } catch (...) {
                frame_detail::endRun(&flag);
                flag.storeRelease(Failed);
                throw;
            }
            frame_detail::endRun(&flag);
            flag.storeRelease(Done);
            return;
        }
        if (state == Running && frame_detail::isRunningHere(&flag)) throw frame_detail::reenteredText(name);
        QThread::yieldCurrentThread();
    }
}

// Holder of the one instance of a directory class. The scoped pointer deletes
// the instance when the library is unloaded.
template <class X>
class QSingleton
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

    // The key lookup of every directory: a key record of the bound table
    // with each (column, value) written as the column's type wants it,
    // then the first equal row of `index` (the master index when null).
    // Null when the table is gone.
    template <class... ColumnsAndValues>
    Record findRow(IndexList const* index, ColumnsAndValues const&... columnsAndValues) const
    {
        QSharedPointer<Table> t = table();
        if (!t) return Record();
        Record key(t.data());
        writeKey(*t, key.row(), columnsAndValues...);
        return (index ? index : t->masterIndex())->find(key, -1);
    }

#ifdef DIRECTORY_CHECK_THREADS
    // Stops the program when called off the updating thread by a thread
    // that does not hold the table's lock.
    void checkUpdatingThread(char const* where) const;
#endif

    QWeakPointer<Table> m_table;

private:
    static void writeKey(Table const&, unsigned char*) {}
    template <class V, class... Rest>
    static void writeKey(Table const& t, unsigned char* row, int column, V const& value, Rest const&... rest)
    {
        writeKeyValue(t.dataPtr(row, column), value);
        writeKey(t, row, rest...);
    }
    static void writeKeyValue(Field field, int value);
    static void writeKeyValue(Field field, long long value);
    static void writeKeyValue(Field field, QString const& value);   // text columns (6 and 8) only
    static void writeKeyValue(Field field, QChar value);            // text columns (6 and 8) only
    static void writeKeyValue(Field field, Field const& value);     // converted

    Registration m_registration;
    QList<Index*> m_ownedIndexes;
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

// Directory i() accessor: the one instance, created on first use.
#define DIRECTORY_SINGLETON(X) \
public: \
    static X* i() { return QSingleton<X>::get(); }
