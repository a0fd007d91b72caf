#pragma once
#include <gateway/gateway_export.h>
#include <core/transactions.h>

#include <QHash>
#include <QObject>
#include <QString>

class ICore;
class ReplicationClient;
class TransactionService;

// The transport of the core's transaction service through the exchange's
// session (docs/replication.md, "Transactions"), as the simulated exchange
// is one in-process: it takes the order transactions while the session is
// live, sends each on the connection, and answers it with the exchange's
// answer (Accepted or Rejected, the exchange's text) and the same core
// notification the simulated exchange raises (kind 1 accepted, 3 rejected),
// after every batch the exchange sent before the answer was applied.
//
// While the session is not live it declines them at once, so the service's
// send gives 0, and a notification (kind 3) says the transaction was not
// sent and why. Nothing is kept to be sent later: an order sent minutes late
// would go at a stale price. A transaction whose connection closed before
// its answer is answered Lost, with a notification that the orders will
// tell what became of it.
//
// Lives on the client's thread (the database's updating thread).
class GATEWAY_EXPORT SessionTransport : public QObject, public ITransport
{
    Q_OBJECT
public:
    // Answer codes on the RawAnswer: the exchange's two, and one of its own.
    enum AnswerCode : int { Accepted = 1, Rejected = 2, Lost = 3 };
    // Kinds of the core notifications it raises.
    enum NotificationKind : int { AcceptedKind = 1, RejectedKind = 3 };

    SessionTransport(ICore* core, ReplicationClient* client, QObject* parent = nullptr);
    ~SessionTransport() override;

    // Plugs the transport into the service; unplugged when it goes.
    void plugInto(TransactionService* service);

    bool accepts(RawTransaction const& transaction) const override;
    void take(RawTransaction const& transaction) override;

    // Transactions sent and not answered yet.
    int pending() const { return m_pending.size(); }

signals:
    // After the transaction's answer was set; `orderIds` are the orders the
    // exchange says it placed or cancelled.
    void answered(RawTransaction const& transaction, int code, QString const& text, QList<qint64> const& orderIds);

private:
    void declined(QString const& why) const;
    void finish(quint64 id, int code, QString const& text, QList<qint64> const& orderIds = {});

    ICore* m_core;
    ReplicationClient* m_client;
    TransactionService* m_service = nullptr;
    quint64 m_lastId = 0;
    QHash<quint64, RawTransaction> m_pending;
};
