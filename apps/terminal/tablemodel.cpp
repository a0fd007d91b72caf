#include "tablemodel.h"

#include <directories>

#include <algorithm>

class TableRowsModel::Watch final : public Index
{
public:
    explicit Watch(TableRowsModel* model) : m_model(model) {}

    void clear() override
    {
        m_model->m_cleared = true;
        m_model->m_added.clear();
        m_model->m_removed.clear();
        m_model->m_updated.clear();
    }
    // The master index holds the rows; a build only re-sorts it.
    void build() override {}
    void add(Record const& record) override { m_model->m_added.append(record); }
    void remove(Record const& record, int) override
    {
        m_model->m_removed.insert(record.row());
        m_model->m_updated.remove(record.row());
    }
    void update(Record const& record, int, int, int) override { m_model->m_updated.insert(record.row()); }
    bool filter(Record const&) const override { return true; }
    bool contains(Record const& record) const override { return m_model->m_position.contains(record.row()); }
    void endUpdate() override { m_model->batchEnded(); }
    QString getClassName() const override { return QStringLiteral("TableRowsModel"); }

private:
    TableRowsModel* m_model;
};

TableRowsModel::TableRowsModel(QSharedPointer<Table> const& table, QObject* parent)
    : QAbstractTableModel(parent), m_table(table), m_watch(new Watch(this))
{
    if (!table) return;
    // Registered and filled under the table's lock, so that no batch falls
    // between the rows read here and the first change reported.
    TableLocker lock(table.data());
    table->addIndex(m_watch.get());
    MasterIndex_Column_Pure* master = table->masterIndex();
    m_rows.reserve(master->count());
    for (auto it = master->begin(); it != master->end(); ++it) {
        m_position.insert(it->row(), m_rows.size());
        m_rows.append(*it);
    }
}

TableRowsModel::~TableRowsModel()
{
    if (QSharedPointer<Table> table = m_table.toStrongRef()) table->removeIndex(m_watch.get());
}

void TableRowsModel::setColumns(QVector<Column> const& columns)
{
    beginResetModel();
    m_columns = columns;
    endResetModel();
}

int TableRowsModel::rowCount(QModelIndex const& parent) const { return parent.isValid() ? 0 : m_rows.size(); }
int TableRowsModel::columnCount(QModelIndex const& parent) const { return parent.isValid() ? 0 : m_columns.size(); }

Record TableRowsModel::recordAt(int row) const { return row >= 0 && row < m_rows.size() ? m_rows[row] : Record(); }
int TableRowsModel::rowOf(Record const& record) const { return m_position.value(record.row(), -1); }
int TableRowsModel::tableColumn(int modelColumn) const
{
    return modelColumn >= 0 && modelColumn < m_columns.size() ? m_columns[modelColumn].tableColumn : -1;
}

QVariant TableRowsModel::data(QModelIndex const& index, int role) const
{
    if (!index.isValid() || index.row() >= m_rows.size() || index.column() >= m_columns.size()) return QVariant();
    return cell(m_rows[index.row()], index.column(), role);
}

QVariant TableRowsModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation == Qt::Horizontal && role == Qt::DisplayRole && section >= 0 && section < m_columns.size())
        return m_columns[section].title;
    return QAbstractTableModel::headerData(section, orientation, role);
}

QVariant TableRowsModel::cell(Record const& record, int column, int role) const
{
    if (role != Qt::DisplayRole) return QVariant();
    int c = m_columns[column].tableColumn;
    if (c < 0) return QVariant();
    Field f = record.data(c);
    return f.isNull() ? QString() : f.toString().trimmed();
}

void TableRowsModel::reindexFrom(int row)
{
    for (int k = row; k < m_rows.size(); ++k) m_position[m_rows[k].row()] = k;
}

void TableRowsModel::batchEnded()
{
    if (m_cleared) {
        beginResetModel();
        m_rows = m_added;
        m_position.clear();
        reindexFrom(0);
        endResetModel();
        m_cleared = false;
        m_added.clear();
        m_removed.clear();
        m_updated.clear();
        return;
    }
    if (!m_removed.isEmpty()) {
        std::vector<int> gone;
        gone.reserve(std::size_t(m_removed.size()));
        for (unsigned char const* row : qAsConst(m_removed)) {
            int at = m_position.value(row, -1);
            if (at >= 0) gone.push_back(at);
        }
        std::sort(gone.begin(), gone.end());
        // Runs from the end, so that earlier positions stay valid.
        for (std::size_t end = gone.size(); end > 0;) {
            std::size_t begin = end - 1;
            while (begin > 0 && gone[begin - 1] == gone[begin] - 1) --begin;
            int first = gone[begin], last = gone[end - 1];
            beginRemoveRows(QModelIndex(), first, last);
            for (int k = first; k <= last; ++k) m_position.remove(m_rows[k].row());
            m_rows.erase(m_rows.begin() + first, m_rows.begin() + last + 1);
            endRemoveRows();
            end = begin;
        }
        if (!gone.empty()) reindexFrom(gone.front());
        m_removed.clear();
    }
    if (!m_added.isEmpty()) {
        int first = m_rows.size();
        beginInsertRows(QModelIndex(), first, first + m_added.size() - 1);
        for (Record const& r : qAsConst(m_added)) {
            m_position.insert(r.row(), m_rows.size());
            m_rows.append(r);
        }
        endInsertRows();
        m_added.clear();
    }
    if (!m_updated.isEmpty()) {
        std::vector<int> changed;
        changed.reserve(std::size_t(m_updated.size()));
        for (unsigned char const* row : qAsConst(m_updated)) {
            int at = m_position.value(row, -1);
            if (at >= 0) changed.push_back(at);
        }
        std::sort(changed.begin(), changed.end());
        int const lastColumn = m_columns.size() - 1;
        for (std::size_t begin = 0; begin < changed.size();) {
            std::size_t end = begin + 1;
            while (end < changed.size() && changed[end] == changed[end - 1] + 1) ++end;
            if (lastColumn >= 0) emit dataChanged(index(changed[begin], 0), index(changed[end - 1], lastColumn));
            begin = end;
        }
        m_announcedRows += qint64(changed.size());
        m_updated.clear();
    }
}
