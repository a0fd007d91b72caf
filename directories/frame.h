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

// Runs `function` once per flag, from any thread. Flag states: 0 not run,
// 1 running, 2 done, 3 failed. A failure lets the exception pass and leaves
// the flag at 3, so the next caller runs the function again; callers that
// find another thread running it yield until it is done or has failed.
template <class Function>
void qCallOnce(Function function, QBasicAtomicInt& flag)
{
    enum { NotRun = 0, Running = 1, Done = 2, Failed = 3 };
    for (;;) {
        int state = flag.loadAcquire();
        if (state == Done) return;
        if ((state == NotRun || state == Failed) && flag.testAndSetAcquire(state, Running)) {
            try {
                function();
            } catch (...) {
                flag.storeRelease(Failed);
                throw;
            }
            flag.storeRelease(Done);
            return;
        }
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
        qCallOnce(&QSingleton<X>::init, flag);
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
// Threading: constructed on the thread of the first i(); the database calls
// the Index operations on its updating thread. Lookups read through the
// table's indexes and take no lock of their own.
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
    // Steps of construction up to registration. `context` is the class name
    // used as the translation context of the missing-table message;
    // `missingText`, when given, replaces that message.
    Directory(QObject* parent, char const* context, QString const& tableName, Registration registration,
              char const* missingText = nullptr);

    // Column number by name, -1 before resolution; a missing column stays
    // negative and reads as empty.
    int column(QString const& name) const;
    // Registers an index on the table and takes ownership of it.
    template <class I>
    I* ownIndex(I* index)
    {
        adopt(index);
        return index;
    }
    void adopt(Index* index);
    void disown(Index* index);   // unregisters and deletes an owned index

    // The first row equal to `key` in the table's master index, or null.
    Record findInMaster(Record const& key) const;
    // An empty key record of the bound table (null when the table is gone).
    Record keyRecord() const;

    // Stops the program (in checking builds) when called off the updating
    // thread; see DIRECTORY_UPDATING_THREAD_ONLY.
    void checkUpdatingThread(char const* where) const { Q_UNUSED(where) }

    QWeakPointer<Table> m_table;

private:
    Registration m_registration;
    QList<Index*> m_ownedIndexes;
};

// Marks a lookup of a directory (used inside its member functions) that
// reads live rows or the directory's own maps without a lock: such a lookup
// belongs on the database's updating thread. Checked in debug and sanitizer
// builds.
#define DIRECTORY_UPDATING_THREAD_ONLY() checkUpdatingThread(Q_FUNC_INFO)

// Directory i() accessor: the one instance, created on first use.
#define DIRECTORY_SINGLETON(X) \
public: \
    static X* i() { return QSingleton<X>::get(); }
