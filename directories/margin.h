#pragma once
#include "frame.h"

#include <database/decimal.h>

#include <QHash>
#include <QMap>
#include <QString>

// Variation margin by trading account ("fut_vm", "opt_vm"). Sums are made
// on demand over the table's master index, whose key begins with "account",
// so an account's rows, and those of every account sharing a prefix, are
// one run found by a binary search. A sum is kept until the batch ends.
//
// Threading: registered as an index; hooks on the updating thread. The
// lookups read live rows and change the cache without a lock: updating
// thread only.
class DIRECTORY_EXPORT FutVMDirectory : public Directory
{
    Q_OBJECT
    DIRECTORY_SINGLETON(FutVMDirectory)
public:
    explicit FutVMDirectory(QObject* parent);
    FutVMDirectory(char const* table, QObject* parent);

    // The sum over every account beginning with `account` (case-sensitive),
    // from the cache until the batch ends.
    xdecimal getVMByAccount(QString const& account) const;
    // The same, always computed afresh.
    xdecimal calculateVM(QString const& account) const;

    void clear() override;
    void endUpdate() override;
Q_SIGNALS:
    void dataChanged();

protected:
    // A subclass naming its own registry line, or `table` for another table
    // of the same shape.
    FutVMDirectory(QObject* parent, QMetaObject const& cls, QString const& table = QString());

private:
    int m_account = -1;
    int m_vm = -1;
    mutable QHash<QString, xdecimal> m_cache;
};

class DIRECTORY_EXPORT OptVMDirectory : public FutVMDirectory
{
    Q_OBJECT
    DIRECTORY_SINGLETON(OptVMDirectory)
public:
    explicit OptVMDirectory(QObject* parent);
};

// Variation margin by settlement account ("fut_vm_sa", "opt_vm_sa"), of the
// latest session only, recomputed at the end of each batch that changed
// the table. The map is empty until then: bind the directory before the
// table is filled, as the terminal does at start.
//
// Threading: registered as an index; hooks on the updating thread. The
// lookup reads the directory's map without a lock: updating thread only.
class DIRECTORY_EXPORT FutVMSADirectory : public Directory
{
    Q_OBJECT
    DIRECTORY_SINGLETON(FutVMSADirectory)
public:
    struct FutVMSAColumns
    {
        int sessId;
        int settlementAccount;
        int vm;
    };

    explicit FutVMSADirectory(QObject* parent);
    FutVMSADirectory(char const* table, QObject* parent);

    // Zero when the settlement account has no margin in the latest session.
    xdecimal getVMbySettlementAccount(QString const& sa) const;

    void clear() override;
    void build() override;
    void add(Record const& record) override;
    void remove(Record const& record, int position) override;
    void update(Record const& record, int firstColumn, int lastColumn, int position) override;
    void beginUpdate() override;
    void endUpdate() override;
Q_SIGNALS:
    void dataChanged();

protected:
    // As FutVMDirectory's.
    FutVMSADirectory(QObject* parent, QMetaObject const& cls, QString const& table = QString());

private:
    void recompute(Table* table);

    FutVMSAColumns m_columns{-1, -1, -1};
    QMap<QString, xdecimal> m_vmBySettlementAccount;
    // A row changed since the batch began (beginUpdate clears it). Starts
    // set, so that an end of batch the directory saw no beginning of still
    // computes the map.
    bool m_changed = true;
};

class DIRECTORY_EXPORT OptVMSADirectory : public FutVMSADirectory
{
    Q_OBJECT
    DIRECTORY_SINGLETON(OptVMSADirectory)
public:
    explicit OptVMSADirectory(QObject* parent);
};

// The zero of margin sums: an extended decimal made by the core's routines.
DIRECTORY_EXPORT xdecimal zeroVM();

// Settlement account -> the sum of its margin in the greatest session id
// that has any row with a settlement account; rows of every other session
// and rows without a settlement account are left out. Empty when a column
// is missing or the table is null. Walks every row of the master index.
template <class Columns>
QMap<QString, xdecimal> calcVM(Table* table, Columns columns);

template <>
DIRECTORY_EXPORT QMap<QString, xdecimal> calcVM<FutVMSADirectory::FutVMSAColumns>(Table* table,
                                                                                  FutVMSADirectory::FutVMSAColumns columns);
