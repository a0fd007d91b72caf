#pragma once
#include <database/database_export.h>
#include "fieldtype.h"
#include "record.h"
#include <QHash>
#include <QList>
#include <QSharedPointer>
#include <QThread>
#include <QString>
#include <QStringList>
#include <QVector>
#include <QWeakPointer>
#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

class Index;
class IndexList;
class IndexSort;
class MasterIndex_Column_Pure;

struct DATABASE_EXPORT TableSchema
{
    QString name;
    QList<ColumnDef> columns;   // name, type, length, scale, nullable
    QStringList key;            // master-index key columns
};

// What one applied batch did to a table, as the table's watchers are told
// (see docs/change-path.md). The lists are the batch's own, folded: a row
// appears in at most one of them.
struct DATABASE_EXPORT RowChanges
{
    Table* table = nullptr;
    QString origin;             // the batch's "file:line", or "clear of table '...'"
    // The table was emptied first. The rows it held then are not listed
    // one by one; `inserted` is then everything the table holds.
    bool cleared = false;
    QList<Record> inserted;     // rows new to the table, in the batch's order
    QList<Record> updated;      // rows changed in place, now holding the new values
    QList<Record> deleted;      // rows that left: still readable, inTable() false
    QVector<bool> changedColumns;   // by column number: some row of `updated` changed it
    // The columns each row of `updated` changed: those of updated[k] are
    // updatedColumns[updatedColumnStart[k]] up to updatedColumnStart[k + 1].
    QVector<int> updatedColumns;
    QVector<int> updatedColumnStart;

    bool columnChanged(int column) const { return column >= 0 && column < changedColumns.size() && changedColumns[column]; }
    bool columnChanged(int updatedRow, int column) const
    {
        if (updatedRow < 0 || updatedRow + 1 >= updatedColumnStart.size()) return false;
        for (int k = updatedColumnStart[updatedRow]; k < updatedColumnStart[updatedRow + 1]; ++k)
            if (updatedColumns[k] == column) return true;
        return false;
    }
};

// One replicated table: its column layout, its rows (held by its master
// index) and the indexes registered on it.
//
// Row buffer: RowHeader (reference count, flags, Table*), then the null-flag
// bytes, then the values at fixed offsets. Rows are written in place on the
// updating thread.
class DATABASE_EXPORT Table
{
public:
    using MasterIndexFactory = std::function<MasterIndex_Column_Pure*(Table*, QStringList const&)>;

    explicit Table(TableSchema const& schema, MasterIndexFactory const& factory = MasterIndexFactory());
    ~Table();
    Table(Table const&) = delete;
    Table& operator=(Table const&) = delete;

    QString name() const { return m_name; }
    int columnCount() const { return int(m_columns.size()); }
    int columnIndex(QString const& name) const;
    ColumnDef const& columnDef(int column) const;        // an Unknown def for a bad number
    QStringList const& keyColumns() const { return m_key; }
    QList<int> const& keyColumnNumbers() const { return m_keyNumbers; }
    int rowSize() const { return m_rowSize; }

    MasterIndex_Column_Pure* masterIndex() const { return m_master; }
    int rowCount() const;

    Field dataPtr(unsigned char* row, int column) const
    {
        // Hot: every read of a column comes through here.
        if (Q_LIKELY(row && unsigned(column) < unsigned(m_columns.size()))) {
            ColumnDef const& c = m_columns[std::size_t(column)];
            return Field(&c, row + c.offset, row + c.flagOffset, c.mask);
        }
        return absentField();
    }
    // A copy of `source` (a row of this table): values, null flags and
    // strings. `forTable`: the copy is to become one of the table's rows.
    Record copyRow(Record const& source, bool forTable = false) const;
    // Reference count 1, all null. Rows for the table itself come from its
    // blocks; key rows and images (made by lookups on any thread, and
    // short-lived) come from the general allocator and take no lock here.
    unsigned char* allocRow(bool forTable = false) const;
    void freeRow(unsigned char* row) const;

    // The table's lock: held by the updating thread for a whole batch (and
    // for clear, build and rebuild), and by a directory from its
    // registration to the end of its construction. Recursive. Another
    // thread that holds it may read the table's rows safely.
    void lock() const;
    void unlock() const;
    bool tryLock() const;
    // The calling thread holds the lock.
    bool isLockedByCurrentThread() const;

    // The thread that applies this table's batches (the database's
    // updating thread); lookups that read live rows belong there.
    Qt::HANDLE updatingThread() const { return m_updatingThread.load(std::memory_order_acquire); }
    void setUpdatingThread(Qt::HANDLE thread) { m_updatingThread.store(thread, std::memory_order_release); }
    // On the updating thread, or holding the table's lock.
    bool mayReadRows() const;

    // Registration takes the table's lock, so that it never races a batch
    // that walks the index lists.
    void addIndex(Index* index);
    void removeIndex(Index* index);
    void addDependentIndex(Index* index);
    void removeDependentIndex(Index* index);
    void setIndexName(QString const& name, Index* index);
    Index* indexByName(QString const& name) const;
    QList<Index*> const& indexes() const { return m_indexes; }
    QList<Index*> const& dependents() const { return m_dependents; }

    // Watchers: the one way for a program to learn which rows a batch
    // inserted, updated and deleted. A watcher is called on the updating
    // thread once per batch that changed rows (and per clear), after every
    // index's endUpdate and every dependent's dependentEndUpdate, still
    // under the table's lock; a rejected batch calls none. One that throws
    // is reported with the batch (HookFailure) and stops no other. It may
    // read any table and add or remove watchers; it applies no batch (such
    // a batch is rejected). Added and removed from any thread under the
    // table's lock: a watcher added together with a read of the rows (in
    // one hold of the lock) hears of every batch after that read and of
    // none before; once removeWatcher returns it is not running and is
    // never called again (one added or removed by a watcher takes effect
    // from the next batch and at once). `name` names it in failures.
    using Watcher = std::function<void(RowChanges const&)>;
    using WatcherId = quint64;
    WatcherId addWatcher(QString const& name, Watcher watcher);
    void removeWatcher(WatcherId id);
    int watcherCount() const;

    // Every registered index, master first, inside one begin/end pair of
    // the indexes and of the dependents, as for a batch (see
    // docs/change-path.md). A failing index is reported after every index
    // has had its calls (HookFailure).
    void clear();
    void build();
    void rebuild();

    // Live rows of this table (still referenced), for diagnostics and tests.
    int liveRowBuffers() const { return m_liveRows.load() - (m_dropped.load() ? 0 : 1); }
    // Bytes held by row buffers (excluding allocator overhead).
    qint64 rowBytes() const { return qint64(liveRowBuffers()) * m_rowSize; }

private:
    friend class Database;
    friend class BatchApplier;
    static void release(Table* table);   // deleter of the shared pointer
    static Field absentField();
    unsigned char* takeRowBuffer(bool fromBlocks) const;
    void giveRowBuffer(unsigned char* row, bool fromBlocks) const;

    QString m_name;
    std::vector<ColumnDef> m_columns;
    QHash<QString, int> m_columnByName;
    QStringList m_key;
    QList<int> m_keyNumbers;
    int m_rowSize = 0;
    int m_flagBytes = 0;
    std::vector<int> m_stringColumns;    // type 8: QString objects to destroy
    std::vector<int> m_blockColumns;     // type 9
    MasterIndex_Column_Pure* m_master = nullptr;
    QList<Index*> m_indexes;             // master index first
    QList<Index*> m_dependents;
    QHash<QString, Index*> m_named;
    struct WatcherEntry
    {
        WatcherId id;
        QString name;
        Watcher call;
        bool active = true;   // under the table's lock
    };
    // Shared with a running batch's copy of the list, so that a watcher
    // removed while the batch calls the others is skipped, and one that
    // removes itself finishes its call.
    std::vector<std::shared_ptr<WatcherEntry>> m_watchers;
    WatcherId m_nextWatcher = 1;
    mutable std::recursive_mutex m_mutex;   // pthread-based: visible to the thread checker
    mutable std::atomic<Qt::HANDLE> m_lockOwner{nullptr};
    mutable int m_lockDepth = 0;                   // written by the owner only
    std::atomic<Qt::HANDLE> m_updatingThread{nullptr};
    // Rows alive plus one for the owner: the Table is deleted when the last
    // row buffer is freed after the database dropped it.
    mutable std::atomic<int> m_liveRows{1};
    std::atomic<bool> m_dropped{false};
    // The table's rows are carved from blocks of its own, so that a row
    // costs its size and no allocator header or rounding, and freed rows are
    // kept for the table's next ones. Rows may be freed on any thread.
    mutable std::mutex m_poolMutex;
    mutable unsigned char* m_freeRows = nullptr;   // linked through their first bytes
    mutable std::vector<unsigned char*> m_blocks;
    mutable int m_nextBlockRows = 4;               // doubles up to a limit
};

// Holds one watcher of a table for its own lifetime: removes it when
// destroyed or reset, unless the table is gone already. For the thread and
// lifetime rules, see Table::addWatcher.
class DATABASE_EXPORT TableWatch
{
public:
    TableWatch() = default;
    TableWatch(QSharedPointer<Table> const& table, QString const& name, Table::Watcher watcher);
    ~TableWatch();
    TableWatch(TableWatch&& other) noexcept;
    TableWatch& operator=(TableWatch&& other) noexcept;
    TableWatch(TableWatch const&) = delete;
    TableWatch& operator=(TableWatch const&) = delete;

    bool isActive() const { return m_id != 0 && !m_table.isNull(); }
    void reset();

private:
    QWeakPointer<Table> m_table;
    Table::WatcherId m_id = 0;
};
