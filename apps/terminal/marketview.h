#pragma once
#include "tablemodel.h"

#include <QSortFilterProxyModel>
#include <QWidget>
#include <vector>

class QLineEdit;
class QTableView;
class QTreeWidget;
class QTreeWidgetItem;

// Every security of the "securities" table, row for row, with its prices.
class SecuritiesModel : public TableRowsModel
{
    Q_OBJECT
public:
    enum ModelColumn { Code, Name, Board, Type, Bid, Ask, MarketPrice, Lot, Expiry, ColumnCount };
    static constexpr int SortRole = Qt::UserRole;

    explicit SecuritiesModel(QObject* parent = nullptr);
    int stockColumn() const { return m_stock; }
    int boardColumn() const { return m_board; }

protected:
    QVariant cell(Record const& record, int column, int role) const override;

private:
    int m_stock, m_board, m_decimals;
};

// Keeps the securities of one market and board (0: all) whose code or name
// holds the typed text; sorts by the value, not by its text.
class SecuritiesFilter : public QSortFilterProxyModel
{
    Q_OBJECT
public:
    explicit SecuritiesFilter(QObject* parent = nullptr);
    void setBoard(int stock, int board);
    void setText(QString const& text);

protected:
    bool filterAcceptsRow(int sourceRow, QModelIndex const& sourceParent) const override;

private:
    int m_stock = 0, m_board = 0;
    QString m_text;
};

// Markets and their boards as a tree beside the securities table. Choosing a
// board narrows the table; choosing a security tells the rest of the window.
class MarketView : public QWidget
{
    Q_OBJECT
public:
    explicit MarketView(QWidget* parent = nullptr);

    SecuritiesModel* model() const { return m_model; }
    SecuritiesFilter* filter() const { return m_filter; }
    QTableView* table() const { return m_table; }
    QTreeWidget* tree() const { return m_tree; }

signals:
    void securityChosen(int stock, int board, long long secId);

private:
    void rebuildTree();
    void treeChosen(QTreeWidgetItem* item);
    void watchTree(char const* table, QStringList const& shownColumns);

    std::vector<TableWatch> m_treeWatches;

    SecuritiesModel* m_model;
    SecuritiesFilter* m_filter;
    QTreeWidget* m_tree;
    QLineEdit* m_search;
    QTableView* m_table;
};
