#pragma once
#include <gateway/gateway_export.h>
#include <core/transactions.h>

#include <QList>
#include <QObject>
#include <QWeakPointer>
#include <database/table.h>
#include <QString>
#include <mutex>

class ICore;
class Database;
class Record;
struct Batch;
class Table;
class TransactionService;

// A simulated exchange behind the core's transaction service: a transport
// that takes the order transactions (1025 place, 1028 and 1280 cancel one,
// 1032 cancel by security), checks each as the exchange would, answers it,
// and sends back the replication batch the exchange would, into the core's
// database through the normal batch path.
//
// Per transaction, later, from the event loop (never inside take()):
//   1. the checks: known security (market 5 reads the securities of market
//      1), an account of the client tables (k3.investor, or a code of
//      k3.fut_settlement_account), side B or S, a price on the security's
//      price step, a positive whole quantity, for a cancel an active order of
//      that account whose "signs" bit 47 matches the code;
//   2. accepted: one batch into "orders" (a new row with status 'A'; a
//      cancel sets status 'W' and balance 0, keeping the row, as the
//      exchange's own log does), applied whole or not at all;
//   3. the answer on the transaction's RawAnswer (Accepted with the order
//      id, or Rejected with the reason), then the same text as a core
//      notification (kind 1 accepted, kind 3 rejected) and `answered`.
// A rejected transaction changes no table.
//
// Threading: lives on the database's updating thread (the GUI thread),
// where it applies its batches. take() may be called from any thread; the
// work is queued to the gateway's own thread.
class GATEWAY_EXPORT SimulatedGateway : public QObject, public ITransport
{
    Q_OBJECT
public:
    // Answer codes on the RawAnswer (the service's own are zero or negative).
    enum AnswerCode : int { Accepted = 1, Rejected = 2 };
    // Kinds of the core notifications it raises.
    enum NotificationKind : int { AcceptedKind = 1, RejectedKind = 3 };

    explicit SimulatedGateway(ICore* core, QObject* parent = nullptr);
    ~SimulatedGateway() override;

    // Plugs the gateway into the service as a transport; unplugged again
    // when the gateway goes.
    void plugInto(TransactionService* service);

    // The message codes it serves (and so does the exchange's session).
    static bool serves(int messageCode);
    bool accepts(RawTransaction const& transaction) const override { return serves(transaction.messageCode); }
    void take(RawTransaction const& transaction) override;
    // A transaction of a member's session: an account that is not of
    // `firm` (the first 4 characters of a client code or an account) is
    // answered as one that does not exist, and another firm's order as
    // one not found, so that nothing of another firm is told.
    void takeFromFirm(RawTransaction const& transaction, QString const& firm);

    // Transactions taken and not yet answered.
    int pending() const;
    // The last order id given out (0 before the first).
    qint64 lastOrderId() const { return m_lastOrderId; }

signals:
    // After a batch of the gateway went through the database's batch path
    // (before the transaction's answer).
    void batchApplied(QString const& origin, QString const& table, int operations);
    // After the transaction's answer was set; `orderIds` are the orders the
    // transaction placed or cancelled.
    void answered(RawTransaction const& transaction, int code, QString const& text, QList<qint64> const& orderIds);

private slots:
    void processPending();

private:
    struct Outcome;
    struct Item
    {
        RawTransaction tx;
        bool restricted = false;   // to the accounts of `firm`
        QString firm;
    };
    void enqueue(Item&& item);
    Outcome handle(RawTransaction const& tx);
    void checkFirm(QString const& account) const;   // rejects as "not found"
    bool ofFirm(QString const& account) const;
    Outcome placeOrder(RawTransaction const& tx);
    Outcome cancelOrder(RawTransaction const& tx);
    Outcome cancelBySecurity(RawTransaction const& tx);
    void apply(Database* db, Batch const& batch);   // Exception when refused whole
    void finish(RawTransaction const& tx, Outcome const& outcome);

    ICore* m_core;
    TransactionService* m_service = nullptr;
    qint64 m_lastOrderId = 0;
    // The highest order id of the orders table, kept by watching it.
    QWeakPointer<Table> m_watchedOrders;
    TableWatch m_ordersWatch;
    qint64 m_topOrderId = 0;
    mutable std::mutex m_mutex;   // the queue: take() may come from any thread
    QList<Item> m_queue;
    bool m_scheduled = false;
    // The firm the transaction being handled is restricted to.
    bool m_restricted = false;
    QString m_firm;
};
