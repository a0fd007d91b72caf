#pragma once
#include <database/table.h>

#include <QAbstractTableModel>
#include <QHash>
#include <QSharedPointer>
#include <QVector>
#include <QWeakPointer>

// A table model over every row of one replicated table, in arrival order.
//
// Directories announce a batch without saying which rows it touched (and
// the securities directory stays silent on price changes), so the model
// watches the table: after each batch the database tells it which rows the
// batch inserted, updated and deleted, and the model announces exactly
// those rows. It resets only when the table itself is cleared.
//
// Threading: the watcher runs on the database's updating thread, which must
// be the thread the model lives on (the GUI thread of the terminal).
class TableRowsModel : public QAbstractTableModel
{
    Q_OBJECT
public:
    struct Column {
        QString title;
        int tableColumn = -1;   // -1: computed from several columns
    };

    TableRowsModel(QSharedPointer<Table> const& table, QObject* parent = nullptr);
    ~TableRowsModel() override;

    int rowCount(QModelIndex const& parent = QModelIndex()) const override;
    int columnCount(QModelIndex const& parent = QModelIndex()) const override;
    QVariant data(QModelIndex const& index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;

    Record recordAt(int row) const;
    int rowOf(Record const& record) const;   // -1 when not shown
    QSharedPointer<Table> table() const { return m_table.toStrongRef(); }
    int tableColumn(int modelColumn) const;

    // Rows announced as changed by the last batches, for tests and probes.
    qint64 announcedRows() const { return m_announcedRows; }

protected:
    void setColumns(QVector<Column> const& columns);
    // Display text (and other roles) of one cell; the default shows the
    // field as the database formats it.
    virtual QVariant cell(Record const& record, int column, int role) const;

private:
    void batchApplied(RowChanges const& changes);
    void reindexFrom(int row);

    QWeakPointer<Table> m_table;
    QVector<Column> m_columns;
    QVector<Record> m_rows;
    QHash<unsigned char const*, int> m_position;
    qint64 m_announcedRows = 0;
    TableWatch m_watch;   // last: removed before the rows it updates go
};
