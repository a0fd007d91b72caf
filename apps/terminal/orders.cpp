#include "orders.h"

#include <core/icore.h>
#include <database/database.h>
#include <directories>

#include <QHBoxLayout>
#include <QHeaderView>
#include <QPushButton>
#include <QTableView>
#include <QVBoxLayout>

namespace {
QSharedPointer<Table> ordersTable()
{
    Database* db = ICore::instance()->database();
    return db->hasTable(QStringLiteral("orders")) ? db->table(QStringLiteral("orders")) : QSharedPointer<Table>();
}
} // namespace

OrdersModel::OrdersModel(QObject* parent) : TableRowsModel(ordersTable(), parent)
{
    QSharedPointer<Table> t = table();
    auto col = [&t](char const* name) { return t ? t->columnIndex(QString::fromLatin1(name)) : -1; };
    setColumns({{tr("Номер"), col("order_id")},
                {tr("Инструмент"), -1},
                {tr("Направление"), col("buysell")},
                {tr("Цена"), col("price")},
                {tr("Количество"), col("quantity")},
                {tr("Остаток"), col("balance")},
                {tr("Статус"), col("status")},
                {tr("Счёт"), col("account")},
                {tr("Поток"), col("stream_id")},
                {tr("Время"), col("moment")}});
}

int OrdersModel::rowOfOrder(long long orderId) const
{
    int const c = tableColumn(OrderId);
    for (int row = 0; row < rowCount(); ++row)
        if (recordAt(row).data(c).toInteger64() == orderId) return row;
    return -1;
}

QVariant OrdersModel::cell(Record const& record, int column, int role) const
{
    if (role == Qt::TextAlignmentRole)
        return column == Price || column == Quantity || column == Balance || column == OrderId ? QVariant(int(Qt::AlignRight | Qt::AlignVCenter)) : QVariant();
    if (role != Qt::DisplayRole) return QVariant();
    if (column == Security) {
        SecurityDirectory* securities = directoryOrNull<SecurityDirectory>();
        int const stock = record.data("stock_id").toInteger(), board = record.data("board_id").toInteger();
        long long const secId = record.data("sec_id").toInteger64();
        return securities ? securities->codeById(stock, board, secId).trimmed() : SecurityDirectory::textIdById(stock, board, secId);
    }
    if (column == Moment) {
        Field f = record.data(tableColumn(column));
        return f.isNull() || f.rawDateTime() == 0 ? QString() : f.toDatetime().toString().mid(11, 8);
    }
    if (column == Stream) {
        Field f = record.data(tableColumn(column));
        return f.isNull() || f.toInteger64() == 0 ? QString() : f.toString();
    }
    return TableRowsModel::cell(record, column, role);
}

OrdersView::OrdersView(QWidget* parent)
    : QWidget(parent), m_model(new OrdersModel(this)), m_table(new QTableView), m_cancel(new QPushButton(tr("Снять заявку"))),
      m_cancelSelected(new QPushButton(tr("Снять выбранные"))), m_cancelAll(new QPushButton(tr("Снять все по инструменту")))
{
    m_table->setModel(m_model);
    m_table->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_table->setSelectionMode(QAbstractItemView::ExtendedSelection);
    m_table->verticalHeader()->hide();
    m_table->verticalHeader()->setDefaultSectionSize(20);
    m_table->horizontalHeader()->setStretchLastSection(true);
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(m_cancel);
    buttons->addWidget(m_cancelSelected);
    buttons->addWidget(m_cancelAll);
    buttons->addStretch();
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(m_table);
    layout->addLayout(buttons);
    connect(m_cancel, &QPushButton::clicked, this, [this] {
        Record r = currentOrder();
        if (!r.isEmpty()) emit cancelRequested({r});
    });
    connect(m_cancelSelected, &QPushButton::clicked, this, [this] {
        QList<Record> orders = selectedOrders();
        if (!orders.isEmpty()) emit cancelRequested(orders);
    });
    connect(m_cancelAll, &QPushButton::clicked, this, [this] {
        Record r = currentOrder();
        if (!r.isEmpty()) emit cancelAllRequested(r.data("stock_id").toInteger(), r.data("board_id").toInteger(), r.data("sec_id").toInteger64());
    });
}

void OrdersView::setCancellingAvailable(bool available, QString const& why)
{
    for (QPushButton* b : {m_cancel, m_cancelSelected, m_cancelAll}) {
        b->setEnabled(available);
        b->setToolTip(why);
    }
}

QList<Record> OrdersView::selectedOrders() const
{
    QList<Record> orders;
    for (QModelIndex const& index : m_table->selectionModel()->selectedRows()) {
        Record r = m_model->recordAt(index.row());
        if (!r.isEmpty()) orders << r;
    }
    return orders;
}

Record OrdersView::currentOrder() const
{
    QModelIndex const index = m_table->currentIndex();
    return index.isValid() ? m_model->recordAt(index.row()) : Record();
}
