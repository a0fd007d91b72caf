#include "queriesgen.h"

#include "enumerations.h"
#include "frame.h"
#include "securities.h"

#include <core/icore.h>
#include <database/field.h>

#include <QMap>
#include <algorithm>
#include <limits>
#include <QVariant>

namespace {

using Params = QMap<QString, QVariant>;

constexpr long long kSignsBit47 = 0x800000000000LL;

// A core without its service (not started, or shutting down) builds nothing.
ITransactionService* service()
{
    ITransactionService* service = ICore::instance()->transactionService();
    if (!service) throw QueriesGen::tr("Служба транзакций ядра недоступна");
    return service;
}

// The first template of the code for the market; the caller gets nothing
// built when there is none.
TransactionMeta templateFor(int messageCode, int stockId, int boardId)
{
    QList<QString> names;   // the service fills it; not needed here
    QList<TransactionMeta> found = service()->findTemplates(messageCode, MarketFilter::single(stockId, boardId), names);
    if (found.isEmpty()) throw QueriesGen::tr("Подходящая транзакция не найдена");
    return found.first();
}

// A parameter that the service left out of the built map (its template
// does not know it) would be missing from what is sent while the question
// still shows it: refused before anyone is asked.
RawTransaction built(TransactionMeta const& meta, Params const& params, int boardId)
{
    RawTransaction tx = service()->build(meta, params);
    for (auto it = params.cbegin(); it != params.cend(); ++it)
        if (!tx.params.contains(it.key()))
            throw QueriesGen::tr("Транзакция %1 собрана без параметра %2").arg(meta.messageCode).arg(it.key());
    tx.boardId = boardId;
    return tx;
}

// The price at the security's number of decimals; kept as given when the
// security is unknown (-1) or the value does not fit that scale.
decimal atDecimals(decimal price, int decimals)
{
    if (decimals >= 0) price.trySetScale(short(decimals));
    return price;
}

decimal priceForSecurity(decimal price, int stockId, int boardId, long long secId)
{
    return atDecimals(price, SecurityDirectory::i()->decimalsById(stockId, boardId, secId));
}

QString sideName(QChar side)
{
    // Without the buy/sell table the code itself says the side.
    BuySellDirectory* sides = directoryOrNull<BuySellDirectory>();
    return sides ? sides->nameById(side) : QString(side);
}

// Signs as a 64-bit set: a 32-bit column is sign-extended, so a negative
// value counts as bit 47 set.
bool hasBit47(Field const& signs) { return (signs.toInteger64() & kSignsBit47) != 0; }

bool sameOrder(QueriesGen::OrderDescr const& a, QueriesGen::OrderDescr const& b)
{
    return a.direction == b.direction && a.price.compare(b.price) == 0 && a.security == b.security
           && a.account == b.account;
}

// Open balances of one security add up; a sum past the 32-bit range stays
// at its end instead of wrapping to the other sign.
int saturatedSum(int a, int b)
{
    long long sum = static_cast<long long>(a) + b;
    return int(qBound<long long>(std::numeric_limits<int>::min(), sum, std::numeric_limits<int>::max()));
}

} // namespace

QueriesGen* QueriesGen::i() { return QSingleton<QueriesGen>::get(); }

QueriesGen::QueriesGen(QObject* parent) : QObject(parent) {}

RawTransaction QueriesGen::addOrder(int stockId, int boardId, long long secId, const QString& account, decimal price,
                                    QChar buySell, int quantity, QueriesGen::OrderDescr* descr)
{
    TransactionMeta meta = templateFor(AddOrderCode, stockId, boardId);
    SecurityDirectory* securities = SecurityDirectory::i();
    // The question shows the price at the security's decimals and the order
    // carries it as given: a price that the re-scaling would round is
    // refused, so that what is confirmed is what is sent. Padding ("12.5"
    // as "12.50") keeps the value and passes.
    int decimals = securities->decimalsById(stockId, boardId, secId);
    decimal shown = atDecimals(price, decimals);
    if (shown.compare(price) != 0)
        throw tr("Цена %1 содержит больше знаков после запятой, чем допускает инструмент (%2)")
            .arg(price.toSystemString())
            .arg(decimals);
    Params params;
    params.insert(QStringLiteral("Security"), securities->codeById(stockId, boardId, secId));
    params.insert(QStringLiteral("Account"), account);
    params.insert(QStringLiteral("BuySell"), QVariant::fromValue(buySell));
    params.insert(QStringLiteral("Price"), price.toString());
    params.insert(QStringLiteral("Quantity"), QStringLiteral("%1").arg(quantity));
    params.insert(QStringLiteral("Type"), QStringLiteral("1"));
    RawTransaction tx = built(meta, params, boardId);
    if (descr) {
        descr->security = securities->nameById(stockId, boardId, secId);
        descr->direction = sideName(buySell);
        descr->price = shown;
        descr->quantity = quantity;
        descr->account = account;
    }
    return tx;
}

RawTransaction QueriesGen::dropOrder(const Record& order, RawAnswer answer, QueriesGen::OrderDescr* descr)
{
    int stockId = order.data(QStringLiteral("stock_id")).toInteger();
    int boardId = order.data(QStringLiteral("board_id")).toInteger();
    int code = hasBit47(order.data(QStringLiteral("signs"))) ? DropOrderBit47Code : DropOrderCode;
    TransactionMeta meta = templateFor(code, stockId, boardId);

    long long secId = order.data(QStringLiteral("sec_id")).toInteger64();
    long long orderId = order.data(QStringLiteral("order_id")).toInteger64();
    QString account = order.data(QStringLiteral("account")).toString();
    int dkhRequest = order.data(QStringLiteral("dkh_request")).toInteger();

    SecurityDirectory* securities = SecurityDirectory::i();
    Params params;
    params.insert(QStringLiteral("Account"), account);
    params.insert(QStringLiteral("order_id"), QStringLiteral("%1").arg(orderId));
    params.insert(QStringLiteral("Security"), securities->codeById(stockId, boardId, secId));
    params.insert(QStringLiteral("sec_id"), QStringLiteral("%1").arg(secId));
    params.insert(QStringLiteral("dkh_request"), dkhRequest);
    if (stockId == StreamStockId) {
        params.insert(QStringLiteral("BuySell"), order.data(QStringLiteral("buysell")).toString());
        params.insert(QStringLiteral("Stream"), order.data(QStringLiteral("stream_id")).toString());
    }
    RawTransaction tx = built(meta, params, boardId);
    tx.answer = answer;

    if (descr) {
        secId = order.data(QStringLiteral("sec_id")).toInteger64();
        descr->security = securities->nameById(stockId, boardId, secId);
        descr->direction = sideName(order.data(QStringLiteral("buysell")).toChar());
        descr->price = priceForSecurity(order.data(QStringLiteral("price")).toDecimal(), stockId, boardId, secId);
        descr->quantity = order.data(QStringLiteral("balance")).toInteger();
        descr->account = account;
    }
    return tx;
}

QList<RawTransaction> QueriesGen::dropOrders(const QList<Record>& orders, RawAnswer answer,
                                             QList<QueriesGen::OrderDescr>* descrs)
{
    QList<RawTransaction> result;
    // Merged into a copy, handed back only when every record built.
    QList<OrderDescr> merged = descrs ? *descrs : QList<OrderDescr>();
    for (Record const& order : orders) {
        OrderDescr descr;
        RawTransaction tx = QueriesGen::i()->dropOrder(order, answer, &descr);
        if (descrs) {
            auto same = std::find_if(merged.begin(), merged.end(),
                                     [&](OrderDescr const& d) { return sameOrder(d, descr); });
            if (same != merged.end())
                same->quantity = saturatedSum(same->quantity, descr.quantity);
            else
                merged.append(descr);
        }
        result.append(tx);
    }
    if (descrs) *descrs = merged;
    return result;
}

RawTransaction QueriesGen::dropOrdersBySecurity(int stockId, int boardId, long long secId, const QString& account,
                                                QChar buySell)
{
    TransactionMeta meta = templateFor(DropOrdersBySecurityCode, stockId, boardId);
    Params params;
    params.insert(QStringLiteral("Account"), account);
    params.insert(QStringLiteral("Security"), SecurityDirectory::i()->codeById(stockId, boardId, secId));
    params.insert(QStringLiteral("BuySell"), QVariant::fromValue(buySell));
    return built(meta, params, boardId);
}
