#pragma once
#include "library.h"

#include <core/transactions.h>
#include <database/decimal.h>
#include <database/record.h>

#include <QChar>
#include <QList>
#include <QObject>
#include <QString>

// Builds the order transactions of the core's transaction service: place an
// order, cancel one, several, or all of a security. It sends nothing and
// asks nothing; QueriesFast does both.
//
// Failures: no template for the market is thrown as a QString ("Подходящая
// транзакция не найдена"); so is a price with more places than the security
// allows (it would be confirmed rounded and sent as given), and a built
// transaction that lost a parameter given to it (its template does not
// know it). A record column of the wrong type is thrown as Exception
// ("Incorrect type conversion."). Nothing is returned half-built.
//
// Threading: GUI thread (or the database's updating thread); it reads the
// securities and buy/sell directories, so it must not run beside a batch.
class DIRECTORY_EXPORT QueriesGen : public QObject
{
    Q_OBJECT
public:
    // What the confirmation texts say about one order.
    struct OrderDescr
    {
        QString direction;   // the side's display name
        QString security;    // the security's display name
        decimal price;       // at the security's number of decimals
        int quantity = 0;    // for cancels: the part still open
        QString account;
    };

    // Message codes of the templates.
    enum MessageCode : int {
        AddOrderCode = 1025,
        DropOrderCode = 1028,
        DropOrderBit47Code = 1280,
        DropOrdersBySecurityCode = 1032,
    };
    // The market of stock 5 trades by request for stream: its cancels carry
    // the side and the stream.
    static constexpr int StreamStockId = 5;

    static QueriesGen* i();
    explicit QueriesGen(QObject* parent);

    // `descr` may be null.
    RawTransaction addOrder(int stockId, int boardId, long long secId, const QString& account, decimal price,
                            QChar buySell, int quantity, QueriesGen::OrderDescr* descr);
    RawTransaction dropOrder(const Record& order, RawAnswer answer, QueriesGen::OrderDescr* descr);
    // One cancel per record, in record order; `descrs`, when given, receives
    // the descriptions merged by side, price, security and account.
    QList<RawTransaction> dropOrders(const QList<Record>& orders, RawAnswer answer,
                                     QList<QueriesGen::OrderDescr>* descrs);
    RawTransaction dropOrdersBySecurity(int stockId, int boardId, long long secId, const QString& account,
                                        QChar buySell);
};
