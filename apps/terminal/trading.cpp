#include "trading.h"
#include "orderentry.h"
#include "orders.h"

#include <core/defaultcore.h>
#include <core/icore.h>
#include <core/transactions.h>
#include <database/database.h>
#include <database/exception.h>
#include <directories>
#include <queries>
#include <confirmationdialog.h>

#include <QSet>
#include <QTextDocumentFragment>
#include <utility>

namespace {
int const kAccepted = 1;
int const kRejected = 3;

// Runs a step of the trading path; what the library refuses (no template, a
// replicated row the transaction cannot be built from) is shown on the
// ticket instead of leaving the event loop. False then.
template <class Step>
bool refusalsShown(OrderTicket* ticket, Step step)
{
    try {
        return step();
    } catch (QString const& why) {
        ticket->showOutcome(why, false);
    } catch (Exception const& e) {
        ticket->showOutcome(e.message(), false);
    }
    return false;
}
} // namespace

TradingPath::TradingPath(OrderTicket* ticket, OrdersView* orders, QObject* parent)
    : QObject(parent), m_ticket(ticket), m_orders(orders)
{
    connect(ticket, &OrderTicket::sendRequested, this, &TradingPath::send);
    connect(orders, &OrdersView::cancelRequested, this, &TradingPath::cancel);
    connect(orders, &OrdersView::cancelAllRequested, this, &TradingPath::cancelAll);
    ticket->setSendingAvailable(true);
    orders->setCancellingAvailable(true);
}

void TradingPath::listen(CoreSignals const* core)
{
    connect(core, &CoreSignals::userNotification, this, &TradingPath::notified);
}

bool TradingPath::send(OrderRequest const& order)
{
    bool const sent = refusalsShown(m_ticket, [&] {
        if (QueriesFast::i()->addOrder(order.stock, order.board, order.secId, order.account, order.price,
                                       QChar(order.buy ? 'B' : 'S'), order.quantity))
            return true;
        m_ticket->showOutcome(tr("Заявка не отправлена"), false);
        return false;
    });
    if (!sent) return false;
    ++m_awaiting;
    m_ticket->showOutcome(tr("Заявка отправлена, ждём ответа биржи"), true);
    return true;
}

bool TradingPath::cancel(QList<Record> const& orders)
{
    return refusalsShown(m_ticket, [&] {
        if (orders.size() == 1) {
            if (!QueriesFast::i()->dropOrder(orders.first(), RawAnswer())) return false;
            ++m_awaiting;
            return true;
        }
        int const sent = QueriesFast::i()->dropOrders(orders, RawAnswer());
        m_awaiting += sent;
        return sent > 0;
    });
}

bool TradingPath::cancelAll(int stock, int board, long long secId)
{
    // One transaction per account and side that has active orders in it.
    QSet<QPair<QString, QChar>> sides;
    QStringList lines;
    OrdersModel* model = m_orders->model();
    for (int row = 0; row < model->rowCount(); ++row) {
        Record const r = model->recordAt(row);
        if (r.data("stock_id").toInteger() != stock || r.data("board_id").toInteger() != board ||
            r.data("sec_id").toInteger64() != secId || r.data("status").toString().trimmed() != QLatin1String("A"))
            continue;
        QString const buySell = r.data("buysell").toString().trimmed();
        if (buySell.isEmpty()) continue;   // a replicated row without a side cannot be cancelled by side
        auto key = qMakePair(r.data("account").toString().trimmed(), buySell.at(0));
        if (!sides.contains(key)) lines << QStringLiteral("%1 %2").arg(key.second).arg(key.first);
        sides.insert(key);
    }
    if (sides.isEmpty()) {
        m_ticket->showOutcome(tr("Активных заявок по инструменту нет"), false);
        return false;
    }
    QList<RawTransaction> txs;
    bool const built = refusalsShown(m_ticket, [&] {
        for (auto const& side : qAsConst(sides))
            txs << QueriesGen::i()->dropOrdersBySecurity(stock, board, secId, side.first, side.second);
        return true;
    });
    if (!built) return false;
    SecurityDirectory* securities = directoryOrNull<SecurityDirectory>();
    QString const name = securities ? securities->nameById(stock, board, secId) : SecurityDirectory::textIdById(stock, board, secId);
    ConfirmationDialog dialog;
    dialog.setWindowTitle(tr("Отмена заявок"));
    dialog.setTextFormat(Qt::PlainText);   // accounts and names are not markup
    dialog.setText(tr("Вы действительно хотите отменить все заявки по инструменту %1?\n%2").arg(name, lines.join(QLatin1Char('\n'))));
    // Cancelling several orders at once asks the one-click question.
    dialog.setSettingsKey(QStringLiteral("Confirmations/questionOnSingleClickTrade"));
    if (!dialog.exec()) return false;
    int sent = 0;
    for (RawTransaction& tx : txs) {
        if (dialog.shouldShowDialog()) tx.timer.restart();   // the user's time in the dialog is not the order's
        sent += ICore::instance()->transactionService()->send(tx) ? 1 : 0;
    }
    if (sent == 0) {
        m_ticket->showOutcome(tr("Ошибка при отправке транзакции: нет соответствующего транспорта."), false);
        return false;
    }
    m_awaiting += sent;
    return true;
}

void TradingPath::notified(QString const& text)
{
    if (m_awaiting == 0) return;
    UserNotification const n = UserNotification::parse(text);
    // The exchange's answers carry no link; streams and deals always do.
    if ((n.kind != kAccepted && n.kind != kRejected) || !n.link.isEmpty()) return;
    --m_awaiting;
    m_ticket->showOutcome(QTextDocumentFragment::fromHtml(n.message).toPlainText(), n.kind == kAccepted);
}
