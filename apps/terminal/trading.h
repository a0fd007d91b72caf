#pragma once
#include <database/record.h>

#include <QList>
#include <QObject>

class CoreSignals;
class OrderTicket;
class OrdersView;
struct OrderRequest;

// The window's sending path: the ticket's orders and the orders view's
// cancels go through the library's fast path, which asks the user first
// (unless the user switched the question off) and hands the transaction to
// the core. Cancelling every order of a security has no fast path: it is
// built by the transaction generator and put behind the same confirmation
// dialog here.
//
// The exchange answers later, as a core notification (kind 1 accepted, 3
// rejected): the next such answer after a send is shown on the ticket.
class TradingPath : public QObject
{
    Q_OBJECT
public:
    TradingPath(OrderTicket* ticket, OrdersView* orders, QObject* parent = nullptr);
    void listen(CoreSignals const* core);

    // Each false when the user declined or nothing could be sent.
    bool send(OrderRequest const& order);
    bool cancel(QList<Record> const& orders);
    bool cancelAll(int stock, int board, long long secId);

    int awaitingAnswers() const { return m_awaiting; }

private:
    void notified(QString const& text);

    OrderTicket* m_ticket;
    OrdersView* m_orders;
    int m_awaiting = 0;   // sends whose answer has not come yet
};
