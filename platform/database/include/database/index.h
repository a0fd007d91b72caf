#pragma once
#include <database/database_export.h>
#include "partitionlist.h"
#include "record.h"
#include <QList>
#include <QString>
#include <QStringList>
#include <mutex>
#include <shared_mutex>
#include <type_traits>
#include <utility>

class Table;

// Base of every index of a table. The database calls these operations on its
// updating thread, in the order documented in docs/change-path.md.
//
// Batch lists: `inserted` holds rows new to the table, `updated` rows changed
// in place (their changed columns span firstColumn..lastColumn over the whole
// batch, -1 when unknown), `deleted` rows leaving the table.
class DATABASE_EXPORT Index
{
public:
    Index();
    virtual ~Index();                                                   // slots 1, 2
    virtual void clear() = 0;                                           // 3
    virtual void build() = 0;                                           // 4
    virtual void rebuild();                                             // 5
    virtual void add(Record const& record) = 0;                         // 6
    virtual void preprocess(QList<Record> const& inserted, QList<Record> const& updated,
                            int firstColumn, int lastColumn, QList<Record> const& deleted,
                            QList<Record> const& updateImages);         // 7
    virtual void process(QList<Record> const& inserted, QList<Record> const& updated,
                         int firstColumn, int lastColumn, QList<Record> const& deleted); // 8
    virtual void remove(Record const& record, int position) = 0;        // 9
    virtual bool filter(Record const& record) const = 0;                // 10
    virtual bool contains(Record const& record) const = 0;              // 11
    virtual void update(Record const& record, int firstColumn, int lastColumn, int position); // 12
    virtual int indexOf(Record const& record) const;                    // 13
    virtual void beginUpdate();                                         // 14
    virtual void endUpdate();                                           // 15
    virtual void dependentBeginUpdate(Table* table);                    // 16
    virtual void dependentEndUpdate(Table* table);                      // 17
    virtual QString getClassName() const = 0;                           // 18

    // Nanoseconds spent in index maintenance; written on the updating thread.
    static qint64 m_nsecsElapsedTotal;
};

// Read access to a list of records, the second face of IndexList.
class DATABASE_EXPORT RecordListView
{
public:
    virtual ~RecordListView();
    virtual int recordCount() const = 0;
    virtual Record recordAt(int position) const = 0;
};

// An index that keeps its records in a PartitionList.
//
// Threading: the list changes only on the updating thread, under the index's
// write lock; searches and at() take the read lock, so lookups from other
// threads see a consistent list. Iterators are for the updating thread (or
// for code holding Table::lock()).
class DATABASE_EXPORT IndexList : public Index, public RecordListView
{
public:
    explicit IndexList(Table* table);
    ~IndexList() override;

    void clear() override;
    void remove(Record const& record, int position) override;
    bool filter(Record const& record) const override;
    bool contains(Record const& record) const override;
    int indexOf(Record const& record) const override;

    // Slots after the eighteen of Index.
    virtual int count() const;
    virtual PartitionList<Record>::const_iterator begin() const;
    virtual PartitionList<Record>::const_iterator end() const;
    virtual Table* table();
    virtual Table const* table() const;
    virtual void move(int from, int to, int n);
    virtual void removeRanges(RangeSet<int> const& ranges);
    virtual int compare(Record const& a, Record const& b) const;
    virtual Record find(Record const& key, int from) const;
    virtual int search(Record const& key, int from) const;
    virtual int searchLast(Record const& key, int from) const;
    virtual int searchFull(Record const& record, int from) const;
    virtual void resort();

    Record at(int position) const;
    PartitionList<Record> const& records() const { return m_records; }
    std::shared_mutex& structureLock() const { return m_lock; }

    int recordCount() const override { return count(); }
    Record recordAt(int position) const override { return at(position); }

protected:
    Table* m_table;
    PartitionList<Record> m_records;
    mutable std::shared_mutex m_lock;   // a standard lock, so race checkers see it
};

// A list kept sorted by compare(). Equal records keep insertion order.
class DATABASE_EXPORT IndexSort : public IndexList
{
public:
    explicit IndexSort(Table* table);
    ~IndexSort() override;

    void add(Record const& record) override;
    void build() override;
    void preprocess(QList<Record> const& inserted, QList<Record> const& updated,
                    int firstColumn, int lastColumn, QList<Record> const& deleted,
                    QList<Record> const& updateImages) override;
    void process(QList<Record> const& inserted, QList<Record> const& updated,
                 int firstColumn, int lastColumn, QList<Record> const& deleted) override;
    void update(Record const& record, int firstColumn, int lastColumn, int position) override;
    int indexOf(Record const& record) const override;

    void move(int from, int to, int n) override;
    Record find(Record const& key, int from) const override;
    int search(Record const& key, int from) const override;
    int searchLast(Record const& key, int from) const override;
    int searchFull(Record const& record, int from) const override;
    void resort() override;

    // The record equal to each of `keys` (empty where none), as find(key, -1)
    // gives them, under one hold of the lock. With key copies the rows are
    // fetched ahead while later keys are searched, so that a batch of
    // lookups waits on memory once rather than once per key.
    std::vector<Record> findEach(std::vector<Record const*> const& keys) const;

    // First position after `after` whose record's key equals `key`, or -1.
    // CompareKey(record, key) returns <0, 0, >0 as the record's key is
    // smaller, equal or greater. A CompareKey that can also write `key` in
    // the form of this index's key copies (store() and storedWidth) is
    // searched over those copies.
    template <class Key, class CompareKey>
    int searchBinary(Key const& key, int after, CompareKey cmp) const
    {
        std::shared_lock<std::shared_mutex> lock(m_lock);
        return searchBinaryLocked(key, after, cmp, nullptr);
    }
    // The same, returning the record; the search and the read are one step.
    template <class Key, class CompareKey>
    Record findBinary(Key const& key, int after, CompareKey cmp) const
    {
        std::shared_lock<std::shared_mutex> lock(m_lock);
        Record found;
        searchBinaryLocked(key, after, cmp, &found);
        return found;
    }

    // Columns whose change can move a record in this index; empty means any.
    // Updates outside them leave the order alone.
    virtual QList<int> sortColumns() const;

    static constexpr int maxKeyCopyWidth = 64;
    bool keepsKeyCopies() const { return m_records.keyWidth() > 0; }

protected:
    // Keeps a copy of every record's key beside the record, so that searches
    // read contiguous keys instead of each record's row. A copy is `width`
    // bytes (a multiple of 4, at most maxKeyCopyWidth) that compare byte by
    // byte, as unsigned, in the index's order: equal keys give equal bytes.
    // Call while the index is empty.
    void keepKeyCopies(int width, PartitionList<Record>::KeyExtract extract, void const* owner);

    // Lower bound of `key` among all records (two-level: partitions, then
    // inside one). Caller holds the lock.
    template <class Key, class CompareKey>
    int searchBinaryLocked(Key const& key, int after, CompareKey cmp, Record* found) const
    {
        if constexpr (decltype(storesKeyCopies<CompareKey, Key>(0))::value) {
            if (CompareKey::storedWidth == m_records.keyWidth()) {
                unsigned char probe[maxKeyCopyWidth];
                cmp.store(key, probe);
                return searchKeyCopyLocked(probe, after, found);
            }
        }
        int low = after + 1;
        int high = m_records.count();
        if (low >= high) return -1;
        // The partition: the first (from the one holding `low`) whose last
        // record is not smaller than the key, by binary search.
        int parts = m_records.partitionCount();
        int lo = m_records.partitionOf(low), hi = parts;
        while (lo < hi) {
            int mid = lo + (hi - lo) / 2;
            if (cmp(m_records.partitionAt(mid).items.back(), key) < 0) lo = mid + 1;
            else hi = mid;
        }
        if (lo == parts) return -1;
        int part = lo;
        int base = m_records.partitionStart(part);
        auto const& items = m_records.partitionAt(part).items;
        int first = low > base ? low - base : 0, last = int(items.size()), result = -1;
        while (first < last) {
            int mid = first + (last - first) / 2;
            int c = cmp(items[std::size_t(mid)], key);
            if (c > 0) last = mid;
            else if (c == 0) { last = mid; result = mid; }
            else first = mid + 1;
        }
        if (result < 0) return -1;
        if (found) *found = items[std::size_t(result)];
        return base + result;
    }
    // The same over the key copies, for a probe in their form.
    int searchKeyCopyLocked(unsigned char const* probe, int after, Record* found) const;
    // The same for a key given as a record (over the key copies when kept).
    int findLocked(Record const& key, int after, Record* found) const;

    // Position where `record` would go after its equals (caller holds the lock).
    int upperBoundLocked(Record const& record, int* part, int* offset) const;
    int lowerBoundLocked(Record const& key, int from, int* part, int* offset) const;
    int positionOfLocked(Record const& record) const;
    void insertSortedLocked(Record const& record);
    void sortAndMerge(std::vector<Record>&& added);

private:
    template <class C, class K>
    static auto storesKeyCopies(int) -> decltype(std::declval<C const&>().store(std::declval<K const&>(), static_cast<unsigned char*>(nullptr)),
                                                 std::integral_constant<bool, (C::storedWidth > 0)>());
    template <class C, class K>
    static std::false_type storesKeyCopies(...);
    // A lower or upper bound of a record, over the key copies when kept.
    template <bool Upper>
    int boundLocked(Record const& record, int from, int* part, int* offset) const;


    // Noted by preprocess() while the list is still in order: positions of
    // deleted rows and of updated rows whose sort columns change.
    std::vector<int> m_pendingRemovals;
    std::vector<int> m_pendingMoves;
    bool m_prepared = false;
};

// Sorted by a list of columns compared field by field with the database's
// own ordering. Also the table's default master index.
class DATABASE_EXPORT MasterIndex_Column_Pure : public IndexSort
{
public:
    MasterIndex_Column_Pure(Table* table, QStringList const& columns);
    MasterIndex_Column_Pure(Table* table, QList<int> const& columns);
    ~MasterIndex_Column_Pure() override;

    int compare(Record const& a, Record const& b) const override;
    QString getClassName() const override;
    QList<int> sortColumns() const override { return m_columns; }

    virtual QString toText(Record const& record) const;
    virtual Record fromText(QString const& text) const;    // empty record on bad text

    Record keyRecord(Record const& record) const;
    QList<int> const& columns() const { return m_columns; }

    // Ordering of two values of one column, as the database sorts them.
    static int compareValues(Field const& a, Field const& b);

protected:
    QList<int> m_columns;
};
