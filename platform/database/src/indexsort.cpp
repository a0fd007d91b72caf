#include <database/index.h>
#include <database/table.h>

#include <QElapsedTimer>
#include <algorithm>

IndexSort::IndexSort(Table* table) : IndexList(table) {}
IndexSort::~IndexSort() = default;

QList<int> IndexSort::sortColumns() const { return QList<int>(); }

namespace {
// Two-level bound: the first position whose record does not satisfy
// `before` (records that sort before the probe). Partitions are skipped by
// their last record, then one partition is searched.
template <class Before>
int boundIn(PartitionList<Record> const& list, int from, Before before, int* partOut, int* offsetOut)
{
    int parts = list.partitionCount();
    if (parts == 0 || from >= list.count()) {
        if (partOut) { *partOut = parts ? parts - 1 : 0; *offsetOut = parts ? list.partitionAt(parts - 1).count() : 0; }
        return list.count();
    }
    int lo = list.partitionOf(from < 0 ? 0 : from), hi = parts;
    while (lo < hi) {
        int mid = lo + (hi - lo) / 2;
        if (before(list.partitionAt(mid).items.back())) lo = mid + 1;
        else hi = mid;
    }
    if (lo == parts) {
        if (partOut) { *partOut = parts - 1; *offsetOut = list.partitionAt(parts - 1).count(); }
        return list.count();
    }
    int part = lo, base = list.partitionStart(part);
    auto const& items = list.partitionAt(part).items;
    int first = from > base ? from - base : 0, last = int(items.size());
    while (first < last) {
        int mid = first + (last - first) / 2;
        if (before(items[std::size_t(mid)])) first = mid + 1;
        else last = mid;
    }
    if (partOut) { *partOut = part; *offsetOut = first; }
    return base + first;
}
} // namespace

int IndexSort::lowerBoundLocked(Record const& key, int from, int* part, int* offset) const
{
    return boundIn(m_records, from < 0 ? 0 : from, [&](Record const& r) { return compare(r, key) < 0; }, part, offset);
}

int IndexSort::upperBoundLocked(Record const& record, int* part, int* offset) const
{
    return boundIn(m_records, 0, [&](Record const& r) { return compare(r, record) <= 0; }, part, offset);
}

int IndexSort::positionOfLocked(Record const& record) const
{
    int part = 0, offset = 0;
    int pos = lowerBoundLocked(record, 0, &part, &offset);
    // Scan the run of equal keys for this very row.
    for (auto it = m_records.iteratorAt(pos); it != m_records.end(); ++it, ++pos) {
        if (*it == record) return pos;
        if (compare(*it, record) != 0) break;
    }
    return -1;
}

void IndexSort::insertSortedLocked(Record const& record)
{
    int part = 0, offset = 0;
    upperBoundLocked(record, &part, &offset);
    m_records.insertAt(part, offset, record);
}

void IndexSort::add(Record const& record)
{
    std::unique_lock<std::shared_mutex> lock(m_lock);
    insertSortedLocked(record);
}

void IndexSort::sortAndMerge(std::vector<Record>&& added)
{
    auto less = [this](Record const& a, Record const& b) { return compare(a, b) < 0; };
    std::stable_sort(added.begin(), added.end(), less);
    std::unique_lock<std::shared_mutex> lock(m_lock);
    if (added.size() * 16 < std::size_t(m_records.count())) {
        for (Record const& r : added) insertSortedLocked(r);
        return;
    }
    std::vector<Record> old = m_records.takeAll();
    std::vector<Record> merged;
    merged.reserve(old.size() + added.size());
    std::merge(std::make_move_iterator(old.begin()), std::make_move_iterator(old.end()),
               std::make_move_iterator(added.begin()), std::make_move_iterator(added.end()),
               std::back_inserter(merged), less);
    m_records.assign(std::move(merged));
}

void IndexSort::build()
{
    // The master index is where the rows live: it can only be resorted.
    if (m_table && static_cast<IndexSort const*>(m_table->masterIndex()) == this) {
        resort();
        return;
    }
    std::vector<Record> all;
    if (m_table && m_table->masterIndex()) {
        IndexList const* master = m_table->masterIndex();
        std::shared_lock<std::shared_mutex> masterLock(master->structureLock());
        all.reserve(std::size_t(master->records().count()));
        for (auto it = master->records().begin(); it != master->records().end(); ++it)
            if (filter(*it)) all.push_back(*it);
    }
    {
        std::unique_lock<std::shared_mutex> lock(m_lock);
        m_records.clear();
    }
    sortAndMerge(std::move(all));
}

void IndexSort::resort()
{
    std::unique_lock<std::shared_mutex> lock(m_lock);
    std::vector<Record> all = m_records.takeAll();
    std::stable_sort(all.begin(), all.end(), [this](Record const& a, Record const& b) { return compare(a, b) < 0; });
    m_records.assign(std::move(all));
}

void IndexSort::preprocess(QList<Record> const&, QList<Record> const& updated, int firstColumn, int lastColumn,
                           QList<Record> const& deleted, QList<Record> const&)
{
    // Rows are about to change in place, which may break the order until
    // process() runs: find everything that will move or leave now.
    m_pendingMoves.clear();
    m_pendingRemovals.clear();
    m_prepared = true;
    QList<int> cols = sortColumns();
    bool touches = !updated.isEmpty() && (cols.isEmpty() || firstColumn < 0 || lastColumn < 0);
    for (int c : cols)
        if (c >= firstColumn && c <= lastColumn) touches = true;
    std::shared_lock<std::shared_mutex> lock(m_lock);
    for (Record const& r : deleted) {
        int pos = positionOfLocked(r);
        if (pos >= 0) m_pendingRemovals.push_back(pos);
    }
    if (!touches) return;
    for (Record const& r : updated) {
        int pos = positionOfLocked(r);
        if (pos >= 0) m_pendingMoves.push_back(pos);
    }
}

void IndexSort::process(QList<Record> const& inserted, QList<Record> const&, int, int, QList<Record> const& deleted)
{
    QElapsedTimer timer;
    timer.start();
    RangeSet<int> ranges;
    std::vector<Record> toInsert;
    {
        std::shared_lock<std::shared_mutex> lock(m_lock);
        if (m_prepared) {
            for (int pos : m_pendingRemovals) ranges.add(pos);
        } else {
            for (Record const& r : deleted) {
                int pos = positionOfLocked(r);
                if (pos >= 0) ranges.add(pos);
            }
        }
        for (int pos : m_pendingMoves) {
            ranges.add(pos);
            toInsert.push_back(m_records.at(pos));
        }
    }
    m_pendingMoves.clear();
    m_pendingRemovals.clear();
    m_prepared = false;
    if (!ranges.isEmpty()) removeRanges(ranges);
    toInsert.reserve(toInsert.size() + std::size_t(inserted.size()));
    for (Record const& r : inserted)
        if (filter(r)) toInsert.push_back(r);
    if (!toInsert.empty()) sortAndMerge(std::move(toInsert));
    m_nsecsElapsedTotal += timer.nsecsElapsed();
}

void IndexSort::update(Record const& record, int, int, int position)
{
    // The row may already hold its new key: find it by identity.
    std::unique_lock<std::shared_mutex> lock(m_lock);
    if (!(position >= 0 && position < m_records.count() && m_records.at(position) == record)) {
        position = -1;
        int i = 0;
        for (auto it = m_records.begin(); it != m_records.end(); ++it, ++i)
            if (*it == record) { position = i; break; }
    }
    if (position >= 0) m_records.removeAt(position);
    if (filter(record)) insertSortedLocked(record);
}

int IndexSort::indexOf(Record const& record) const
{
    std::shared_lock<std::shared_mutex> lock(m_lock);
    return positionOfLocked(record);
}

void IndexSort::move(int from, int to, int n) { IndexList::move(from, to, n); }

Record IndexSort::find(Record const& key, int from) const
{
    std::shared_lock<std::shared_mutex> lock(m_lock);
    int pos = lowerBoundLocked(key, from + 1, nullptr, nullptr);
    Record const& r = m_records.at(pos);
    if (!r.isEmpty() && compare(r, key) == 0) return r;
    return Record();
}

int IndexSort::search(Record const& key, int from) const
{
    std::shared_lock<std::shared_mutex> lock(m_lock);
    int pos = lowerBoundLocked(key, from + 1, nullptr, nullptr);
    Record const& r = m_records.at(pos);
    return (!r.isEmpty() && compare(r, key) == 0) ? pos : -1;
}

int IndexSort::searchLast(Record const& key, int from) const
{
    std::shared_lock<std::shared_mutex> lock(m_lock);
    int end = boundIn(m_records, from + 1 < 0 ? 0 : from + 1, [&](Record const& r) { return compare(r, key) <= 0; }, nullptr, nullptr);
    if (end - 1 <= from) return -1;
    Record const& r = m_records.at(end - 1);
    return compare(r, key) == 0 ? end - 1 : -1;
}

int IndexSort::searchFull(Record const& record, int from) const
{
    std::shared_lock<std::shared_mutex> lock(m_lock);
    int pos = positionOfLocked(record);
    return pos > from ? pos : -1;
}
