#include "deals.h"

#include "securities.h"

#include <core/icore.h>
#include <core/usernotification.h>
#include <database/decimal.h>

#include <QCoreApplication>

DealsDirectory::DealsDirectory(QObject* parent)
    : Directory(parent, staticMetaObject)
{
    // "talmera_error_code" is resolved and never read.
    resolveColumns({{m_stockId, "stock_id"}, {m_boardId, "board_id"}, {m_secId, "sec_id"}, {m_price, "price"},
                    {m_quantity, "quantity"}, {m_buysell, "buysell"}, {m_account, "account"}, {m_login, "login"},
                    {m_dealId, "deal_id"}, {m_state, "state"}, {m_errorCode, "error_code"},
                    {m_talmeraErrorCode, "talmera_error_code"}, {m_signs, "signs"}});
}

QString DealsDirectory::errorMessageFromCode(int code)
{
    switch (code) {
    case 0: return QString();
    case 1: return tr("Не подтверждена");
    case 2: return tr("Ошибка при добавлении заявки для активной стороны");
    case 3: return tr("Ошибка при добавлении заявки для пассивной стороны");
    case 4: return tr("Заявка не найдена в системе TALMERA");
    case 5: return tr("Таймаут в системе TALMERA");
    case 6: return tr("Система TALMERA недоступна");
    default: return tr("Системная ошибка");
    }
}

bool DealsDirectory::checkLoginPreference(Record const& deal) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    if (deal.isEmpty() || deal.data(m_state).toInteger() != WaitingForConfirmation) return false;
    // A stream deal without the liquidity-provider sign (bit 50) was once
    // looked up among the providers' client codes; the answer never
    // depended on it, so the list is not scanned.
    ICore* core = ICore::instance();
    return core && core->currentLogin() == deal.data(m_login).toString();
}

QUrl DealsDirectory::confirmationLink(int stockId, int boardId, QString const& security, QString const& price,
                                      long long amount, QString const& dir, QString const& account, long long dealId)
{
    return UserNotification::linkTo(
        QStringLiteral("deal"), QStringLiteral("/confirmdeal"),
        {{QStringLiteral("stock_id"), QString::number(stockId)}, {QStringLiteral("board_id"), QString::number(boardId)},
         {QStringLiteral("security"), security}, {QStringLiteral("price"), price},
         {QStringLiteral("amount"), QString::number(amount)}, {QStringLiteral("dir"), dir},
         {QStringLiteral("account"), account}, {QStringLiteral("deal_id"), QString::number(dealId)}});
}

void DealsDirectory::update(Record const& record, int firstColumn, int lastColumn, int position)
{
    // The frame's default steps: both hooks keep nothing here.
    Directory::update(record, firstColumn, lastColumn, position);
    long long dealId = record.data(m_dealId).toInteger64();
    long long state = record.data(m_state).toInteger64();
    notifyOutcome(record, dealId, state);
    if (!checkLoginPreference(record)) return;
    m_states.insert(dealId, state);
    notifyConfirmationNeeded(record, dealId);
}

void DealsDirectory::notifyOutcome(Record const& deal, long long dealId, long long state)
{
    auto known = m_states.constFind(dealId);
    if (known == m_states.constEnd() || known.value() == state) return;
    QString text;
    if (state == Confirmed) text = tr("Квазисделка %1 подтверждена").arg(dealId);
    else if (state == Rejected)
        text = tr("Квазисделка %1 отклонена. Ошибка ОТС: %2")
                   .arg(QString::number(dealId), errorMessageFromCode(deal.data(m_errorCode).toInteger()));
    else return;   // no notification for other states
    UserNotification(0, text).sendTo(ICore::instance());
    m_states.insert(dealId, state);
}

void DealsDirectory::notifyConfirmationNeeded(Record const& deal, long long dealId)
{
    int stock = deal.data(m_stockId).toInteger();
    int board = deal.data(m_boardId).toInteger();
    long long sec = deal.data(m_secId).toInteger64();
    QString account = deal.data(m_account).toString();
    long long quantity = deal.data(m_quantity).toInteger64();
    QString buysell = deal.data(m_buysell).toString();
    SecurityDirectory* securities = directoryOrNull<SecurityDirectory>();
    QString name = securities ? securities->nameById(stock, board, sec)
                              : QCoreApplication::translate("SecurityDirectory", "<инструмент не найден>");
    // Re-scaled to the security's decimals; an unknown security (-1) or a
    // scale the price cannot take leaves the price as stored.
    decimal price = deal.data(m_price).toDecimal();
    int decimals = securities ? securities->decimalsById(stock, board, sec) : -1;
    if (decimals >= 0 && decimals <= decimal::maxScale) price.trySetScale(short(decimals));
    QString priceText = price.toSystemString();

    QUrl link = confirmationLink(stock, board, name, priceText, quantity, buysell, account, dealId);
    QString side = buysell.startsWith(QLatin1Char('B')) ? tr("покупку") : tr("продажу");
    // One pass, so that a "%" in the name is never taken for a marker.
    QString text = tr("Квазисделка %1 на %2 %3 %4 по цене %5 требует подтверждения")
                       .arg(QString::number(dealId), side, QString::number(quantity), UserNotification::escaped(name),
                            priceText);
    UserNotification(1, text, link.toString()).sendTo(ICore::instance());
}

void DealsDirectory::endUpdate() { Q_EMIT dataChanged(); }

// The one instance of each directory class here.
DIRECTORY_SINGLETON_DEFINE(DealsDirectory)
