#pragma once
#include "frame.h"

#include <database/record.h>

#include <QMap>
#include <QString>
#include <QUrl>

class decimal;

// Quasi-deals of the request-for-stream market ("deals"): deals the passive
// side confirms in the over-the-counter system. Keeps no lookup data; turns
// row updates into user notifications:
//  - a deal of this terminal's login waiting for confirmation (state 1),
//    with a link that opens its confirmation, on every such update;
//  - a deal moving to confirmed (4) or rejected (3), with the error text,
//    once this directory has seen an earlier state of it through an update.
// Rows that arrive (add, build) raise nothing and are not remembered, so a
// deal's first update never reports an outcome.
//
// Threading: registered as an index; hooks on the updating thread. The
// hooks reach the security directory, which never reaches back.
class DIRECTORY_EXPORT DealsDirectory : public Directory
{
    Q_OBJECT
    DIRECTORY_SINGLETON(DealsDirectory)
public:
    enum State { WaitingForConfirmation = 1, Rejected = 3, Confirmed = 4 };

    explicit DealsDirectory(QObject* parent);

    // The over-the-counter system's error text; "" for 0, "Системная
    // ошибка" for any code it does not know.
    QString errorMessageFromCode(int code);
    // The deal waits for this terminal's user: state 1 and "login" equal to
    // the core's current login.
    bool checkLoginPreference(Record const& deal) const;

    // vtrm+stream://deal/confirmdeal with stock_id, board_id, security,
    // price, amount, dir, account and deal_id, each reading back exactly.
    static QUrl confirmationLink(int stockId, int boardId, QString const& security, QString const& price,
                                 long long amount, QString const& dir, QString const& account, long long dealId);

    void update(Record const& record, int firstColumn, int lastColumn, int position) override;
    void endUpdate() override;
Q_SIGNALS:
    void dataChanged();

private:
    void notifyOutcome(Record const& deal, long long dealId, long long state);
    void notifyConfirmationNeeded(Record const& deal, long long dealId);

    int m_stockId = -1, m_boardId = -1, m_secId = -1, m_price = -1, m_quantity = -1, m_buysell = -1, m_account = -1,
        m_login = -1, m_dealId = -1, m_state = -1, m_errorCode = -1, m_talmeraErrorCode = -1, m_signs = -1;
    QMap<long long, long long> m_states;   // deal id -> last state seen by update
};
