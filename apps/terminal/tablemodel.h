#pragma once
#include <database/index.h>
#include <database/table.h>

#include <QAbstractTableModel>
#include <QHash>
#include <QSet>
#include <QSharedPointer>
#include <QVector>
#include <QWeakPointer>
#include <memory>

// A table model over every row of one replicated table, in arrival order.
//
// Directories announce a batch without saying which rows it touched (and
// the securities directory stays silent on price changes), so the model
// keeps an index of its own on the table: the database tells it row by row
// what a batch inserts, updates and deletes, and at the batch's end the
// model announces exactly those rows. It resets only when the table itself
// is cleared.
//
// Threading: the index runs on the database's updating thread, which must be
// the thread the model lives on (the GUI thread of the terminal).
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
    class Watch;
    void batchEnded();
    void reindexFrom(int row);

    QWeakPointer<Table> m_table;
    std::unique_ptr<Watch> m_watch;
    QVector<Column> m_columns;
    QVector<Record> m_rows;
    QHash<unsigned char const*, int> m_position;

    // What the running batch did, applied to the model at its end.
    QVector<Record> m_added;
    QSet<unsigned char const*> m_removed;
    QSet<unsigned char const*> m_updated;
    bool m_cleared = false;
    qint64 m_announcedRows = 0;
};
