#pragma once
#include "tablemodel.h"

#include <QList>
#include <QWidget>

class QLabel;
class QPushButton;
class QTableView;

// The "orders" table, row for row, as the replication brings it back.
class OrdersModel : public TableRowsModel
{
    Q_OBJECT
public:
    enum ModelColumn { OrderId, Security, Side, Price, Quantity, Balance, Status, Account, Stream, Moment, ColumnCount };
    explicit OrdersModel(QObject* parent = nullptr);

    // The row of an order by its number, or -1.
    int rowOfOrder(long long orderId) const;

protected:
    QVariant cell(Record const& record, int column, int role) const override;
};

// The orders view: cancel one, the selected ones, or every order of the
// current order's security. The view asks; the window's sending path
// confirms and sends.
class OrdersView : public QWidget
{
    Q_OBJECT
public:
    explicit OrdersView(QWidget* parent = nullptr);

    OrdersModel* model() const { return m_model; }
    QTableView* table() const { return m_table; }
    void setCancellingAvailable(bool available, QString const& why = QString());
    QList<Record> selectedOrders() const;
    Record currentOrder() const;

signals:
    void cancelRequested(QList<Record> const& orders);
    void cancelAllRequested(int stock, int board, long long secId);

private:
    OrdersModel* m_model;
    QTableView* m_table;
    QPushButton* m_cancel;
    QPushButton* m_cancelSelected;
    QPushButton* m_cancelAll;
};
