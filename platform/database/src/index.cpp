#include <database/index.h>
#include <database/table.h>
#include <database/exception.h>

#include <exception>

qint64 Index::m_nsecsElapsedTotal = 0;

Index::Index() = default;
Index::~Index() = default;

void Index::rebuild()
{
    clear();
    build();
}

void Index::preprocess(QList<Record> const&, QList<Record> const&, int, int, QList<Record> const&, QList<Record> const&) {}

namespace {
// A row operation that throws does not keep the rows after it from the
// index: the first failure is reported, with its row, once all have run.
class RowFailures
{
public:
    template <class Call>
    void run(char const* what, Record const& row, Call&& call)
    {
        try {
            call();
        } catch (Exception const& e) {
            note(what, row, e.message());
        } catch (QString const& message) {
            note(what, row, message);
        } catch (std::exception const& e) {
            note(what, row, QString::fromLocal8Bit(e.what()));
        } catch (...) {
            note(what, row, QStringLiteral("unknown exception"));
        }
    }
    void finish() const
    {
        if (m_count == 0) return;
        QString more = m_count > 1 ? QStringLiteral(" (and %1 more rows)").arg(m_count - 1) : QString();
        throw Exception(m_first + more);
    }

private:
    void note(char const* what, Record const& row, QString const& message)
    {
        if (m_count++ > 0) return;
        QString key;
        Table const* table = row.table();
        if (table && table->masterIndex()) key = table->masterIndex()->toText(row);
        m_first = QStringLiteral("%1 of row %2: %3").arg(QLatin1String(what), key, message);
    }

    int m_count = 0;
    QString m_first;
};
} // namespace

// Row by row: deletions first, then updates, then insertions.
void Index::process(QList<Record> const& inserted, QList<Record> const& updated, int firstColumn, int lastColumn,
                    QList<Record> const& deleted)
{
    RowFailures failures;
    for (Record const& r : deleted) failures.run("remove", r, [&] { remove(r, indexOf(r)); });
    for (Record const& r : updated) failures.run("update", r, [&] { update(r, firstColumn, lastColumn, indexOf(r)); });
    for (Record const& r : inserted)
        failures.run("add", r, [&] {
            if (filter(r)) add(r);
        });
    failures.finish();
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
