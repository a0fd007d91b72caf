#pragma once
#include "library.h"

#include <core/transactions.h>
#include <database/decimal.h>
#include <database/record.h>

#include <QChar>
#include <QList>
#include <QObject>
#include <QString>

// One-action trading: builds the transaction (QueriesGen), asks the user in
// a ConfirmationDialog unless that question is switched off, and sends on
// consent. Placing and cancelling several orders share the question
// "questionOnSingleClickTrade"; a single cancel asks "questionOnDropOrder".
//
// Failures propagate from QueriesGen before anything is shown; a single
// cancel that no transport takes is thrown as a QString after the user
// confirmed it.
//
// GUI thread of a QApplication only: each call makes a dialog and may run
// its modal event loop.
class DIRECTORY_EXPORT QueriesFast : public QObject
{
    Q_OBJECT
public:
    static QueriesFast* i();
    explicit QueriesFast(QObject* parent);

    // True when handed to the core, false when the user declined.
    bool addOrder(int stockId, int boardId, long long secId, const QString& account, decimal price, QChar buySell,
                  int quantity);
    // True when a transport took the cancel, false when the user declined.
    bool dropOrder(const Record& order, RawAnswer answer);
    // The number of cancels that a transport took (0 when declined).
    int dropOrders(const QList<Record>& orders, RawAnswer answer);
};
