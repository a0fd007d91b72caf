#include "queriesfast.h"

#include "confirmationdialog.h"
#include "frame.h"
#include "queriesgen.h"
#include "securities.h"

#include <core/icore.h>

#include <QStringList>

namespace {

const QString kSingleClickTradeKey = QStringLiteral("questionOnSingleClickTrade");
const QString kDropOrderKey = QStringLiteral("questionOnDropOrder");

// Boards where the price of an order is a swap price.
bool isSwapBoard(int boardId) { return boardId == 10 || boardId == 11; }

// Hands a confirmed transaction to the core. The time the user spent in the
// dialog is not the transaction's: its timer restarts, unless the question is
// switched off (then no dialog was read, or the user has just switched it off).
int send(ConfirmationDialog const& dialog, RawTransaction& tx)
{
    // The core may have dropped its service while the user read the question.
    ITransactionService* service = ICore::instance()->transactionService();
    if (!service) throw QueriesFast::tr("Ошибка при отправке транзакции: служба транзакций недоступна.");
    if (dialog.shouldShowDialog()) tx.timer.restart();
    return service->send(tx);
}

QString orderLine(QueriesGen::OrderDescr const& d)
{
    return QueriesFast::tr("%1 по цене %2 в количестве %3 %4 со счёта %5")
        .arg(d.direction, d.price.toSystemString(), QString::number(d.quantity), d.security, d.account);
}

} // namespace

QueriesFast* QueriesFast::i() { return QSingleton<QueriesFast>::get(); }

QueriesFast::QueriesFast(QObject* parent) : QObject(parent) {}

bool QueriesFast::addOrder(int stockId, int boardId, long long secId, const QString& account, decimal price,
                           QChar buySell, int quantity)
{
    QueriesGen::OrderDescr descr;
    RawTransaction tx = QueriesGen::i()->addOrder(stockId, boardId, secId, account, price, buySell, quantity, &descr);

    ConfirmationDialog dialog(nullptr);
    dialog.setTextFormat(Qt::PlainText);   // accounts and names are not markup
    QString side = buySell == QLatin1Char('B')   ? tr("покупку")
                   : buySell == QLatin1Char('S') ? tr("продажу")
                                                 : QString(buySell);
    QString question = isSwapBoard(boardId)
        ? tr("Вы действительно хотите поставить заявку на %1 со своп-ценой %2 в количестве %3 со счёта %4?")
        : tr("Вы действительно хотите поставить заявку на %1 по цене %2 в количестве %3 со счёта %4?");
    dialog.setWindowTitle(tr("Отправка заявки"));
    dialog.setText(question.arg(side, descr.price.toSystemString(), QString::number(quantity), account));
    dialog.setSettingsKey(kSingleClickTradeKey);
    if (!dialog.exec()) return false;
    send(dialog, tx);   // a missing transport is the answer's business here
    return true;
}

bool QueriesFast::dropOrder(const Record& order, RawAnswer answer)
{
    QueriesGen::OrderDescr descr;
    RawTransaction tx = QueriesGen::i()->dropOrder(order, answer, &descr);

    ConfirmationDialog dialog(nullptr);
    dialog.setTextFormat(Qt::PlainText);   // accounts and names are not markup
    dialog.setWindowTitle(tr("Отмена заявки"));
    dialog.setText(tr("Вы действительно хотите отменить заявку?\n") + orderLine(descr));
    dialog.setSettingsKey(kDropOrderKey);
    if (!dialog.exec()) return false;
    if (!send(dialog, tx)) throw tr("Ошибка при отправке транзакции: нет соответствующего транспорта.");
    return true;
}

int QueriesFast::dropOrders(const QList<Record>& orders, RawAnswer answer)
{
    if (orders.isEmpty()) return 0;   // nothing to cancel, nothing to ask
    if (orders.size() == 1) return dropOrder(orders.first(), answer) ? 1 : 0;

    QList<QueriesGen::OrderDescr> descrs;
    QList<RawTransaction> txs = QueriesGen::i()->dropOrders(orders, answer, &descrs);
    QStringList lines;
    for (QueriesGen::OrderDescr const& d : descrs) lines << orderLine(d);

    ConfirmationDialog dialog(nullptr);
    dialog.setTextFormat(Qt::PlainText);   // accounts and names are not markup
    dialog.setWindowTitle(tr("Отмена заявок"));
    dialog.setText(tr("Вы действительно хотите отменить заявки(%1)?\n").arg(orders.size())
                   + lines.join(QLatin1Char('\n')));
    // Several cancels are one-click trading, not a single cancel: they follow
    // the one-click question on purpose.
    dialog.setSettingsKey(kSingleClickTradeKey);
    if (!dialog.exec()) return 0;
    int accepted = 0;
    for (RawTransaction& tx : txs) accepted += send(dialog, tx) ? 1 : 0;
    return accepted;
}
