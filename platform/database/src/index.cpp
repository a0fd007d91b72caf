#include <database/index.h>
#include <database/table.h>

qint64 Index::m_nsecsElapsedTotal = 0;

Index::Index() = default;
Index::~Index() = default;

void Index::rebuild()
{
    clear();
    build();
}

void Index::preprocess(QList<Record> const&, QList<Record> const&, int, int, QList<Record> const&, QList<Record> const&) {}

// Row by row: deletions first, then updates, then insertions.
void Index::process(QList<Record> const& inserted, QList<Record> const& updated, int firstColumn, int lastColumn,
                    QList<Record> const& deleted)
{
    for (Record const& r : deleted) remove(r, indexOf(r));
    for (Record const& r : updated) update(r, firstColumn, lastColumn, indexOf(r));
    for (Record const& r : inserted)
        if (filter(r)) add(r);
}

void Index::update(Record const& record, int, int, int position)
{
    remove(record, position);
    if (filter(record)) add(record);
}

int Index::indexOf(Record const&) const { return -1; }
void Index::beginUpdate() {}
void Index::endUpdate() {}
void Index::dependentBeginUpdate(Table*) {}
void Index::dependentEndUpdate(Table*) {}

RecordListView::~RecordListView() = default;

// ---- IndexList ------------------------------------------------------------

IndexList::IndexList(Table* table) : m_table(table) {}
IndexList::~IndexList() = default;

void IndexList::clear()
{
    std::unique_lock<std::shared_mutex> lock(m_lock);
    m_records.clear();
}

void IndexList::remove(Record const& record, int position)
{
    std::unique_lock<std::shared_mutex> lock(m_lock);
    if (position >= 0 && position < m_records.count() && m_records.at(position) == record) {
        m_records.removeAt(position);
        return;
    }
    int i = 0;
    for (auto it = m_records.begin(); it != m_records.end(); ++it, ++i)
        if (*it == record) { m_records.removeAt(i); return; }
}

bool IndexList::filter(Record const&) const { return true; }

bool IndexList::contains(Record const& record) const { return indexOf(record) >= 0; }

int IndexList::indexOf(Record const& record) const
{
    std::shared_lock<std::shared_mutex> lock(m_lock);
    int i = 0;
    for (auto it = m_records.begin(); it != m_records.end(); ++it, ++i)
        if (*it == record) return i;
    return -1;
}

int IndexList::count() const { return m_records.count(); }
PartitionList<Record>::const_iterator IndexList::begin() const { return m_records.begin(); }
PartitionList<Record>::const_iterator IndexList::end() const { return m_records.end(); }
Table* IndexList::table() { return m_table; }
Table const* IndexList::table() const { return m_table; }

void IndexList::move(int from, int to, int n)
{
    std::unique_lock<std::shared_mutex> lock(m_lock);
    int total = m_records.count();
    if (n <= 0 || from < 0 || to < 0 || from + n > total || to + n > total || from == to) return;
    std::vector<Record> all = m_records.takeAll();
    std::vector<Record> block(std::make_move_iterator(all.begin() + from), std::make_move_iterator(all.begin() + from + n));
    all.erase(all.begin() + from, all.begin() + from + n);
    all.insert(all.begin() + to, std::make_move_iterator(block.begin()), std::make_move_iterator(block.end()));
    m_records.assign(std::move(all));
}

void IndexList::removeRanges(RangeSet<int> const& ranges)
{
    std::unique_lock<std::shared_mutex> lock(m_lock);
    m_records.removeRanges(ranges);
}

int IndexList::compare(Record const&, Record const&) const { return 0; }

Record IndexList::find(Record const& key, int from) const
{
    std::shared_lock<std::shared_mutex> lock(m_lock);
    for (int i = from + 1; i < m_records.count(); ++i)
        if (compare(m_records.at(i), key) == 0) return m_records.at(i);
    return Record();
}

int IndexList::search(Record const& key, int from) const
{
    std::shared_lock<std::shared_mutex> lock(m_lock);
    for (int i = from + 1; i < m_records.count(); ++i)
        if (compare(m_records.at(i), key) == 0) return i;
    return -1;
}

int IndexList::searchLast(Record const& key, int from) const
{
    std::shared_lock<std::shared_mutex> lock(m_lock);
    for (int i = m_records.count() - 1; i > from; --i)
        if (compare(m_records.at(i), key) == 0) return i;
    return -1;
}

int IndexList::searchFull(Record const& record, int from) const
{
    std::shared_lock<std::shared_mutex> lock(m_lock);
    for (int i = from + 1; i < m_records.count(); ++i)
        if (m_records.at(i) == record) return i;
    return -1;
}

void IndexList::resort() {}

Record IndexList::at(int position) const
{
    std::shared_lock<std::shared_mutex> lock(m_lock);
    return m_records.at(position);
}
