#include "tablemodel.h"

#include <directories>

#include <algorithm>

TableRowsModel::TableRowsModel(QSharedPointer<Table> const& table, QObject* parent)
    : QAbstractTableModel(parent), m_table(table)
{
    if (!table) return;
    // Watched from the same hold of the table's lock as the rows read here,
    // so that the first batch told is the first after them.
    TableLocker lock(table.data());
    MasterIndex_Column_Pure* master = table->masterIndex();
    m_rows.reserve(master->count());
    for (auto it = master->begin(); it != master->end(); ++it) {
        m_position.insert(it->row(), m_rows.size());
        m_rows.append(*it);
    }
    m_watch = TableWatch(table, QStringLiteral("TableRowsModel"),
                         [this](RowChanges const& changes) { batchApplied(changes); });
}

TableRowsModel::~TableRowsModel() = default;

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

void TableRowsModel::batchApplied(RowChanges const& changes)
{
    if (changes.cleared) {
        beginResetModel();
        m_rows = changes.inserted.toVector();
        m_position.clear();
        reindexFrom(0);
        endResetModel();
        return;
    }
    if (!changes.deleted.isEmpty()) {
        std::vector<int> gone;
        gone.reserve(std::size_t(changes.deleted.size()));
        for (Record const& row : changes.deleted) {
            int at = m_position.value(row.row(), -1);
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
    }
    if (!changes.inserted.isEmpty()) {
        int first = m_rows.size();
        beginInsertRows(QModelIndex(), first, first + changes.inserted.size() - 1);
        for (Record const& r : changes.inserted) {
            m_position.insert(r.row(), m_rows.size());
            m_rows.append(r);
        }
        endInsertRows();
    }
    if (!changes.updated.isEmpty()) {
        std::vector<int> changed;
        changed.reserve(std::size_t(changes.updated.size()));
        for (Record const& row : changes.updated) {
            int at = m_position.value(row.row(), -1);
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
    }
}
