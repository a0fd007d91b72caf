#pragma once
#include <database/database_export.h>
#include "replication.h"

#include <QList>
#include <QObject>
#include <QSslCertificate>
#include <QString>
#include <memory>
#include <mutex>
#include <thread>

class Database;

// Follows an exchange's replication session (docs/replication.md) into a
// database: a snapshot of every table, then each batch in order, and after
// a lost connection it comes back to the batch it applied last.
//
// The connection is read and its batches decoded on a worker thread of the
// client's own; the batches are applied here, on the thread the client
// lives on, which must be the database's updating thread, through
// Database::apply as batches from files are, a few at a time between
// events. A batch is applied once, in order, never across a gap; one the
// database refuses stops the client, which tells the server and does not
// go on.
class DATABASE_EXPORT ReplicationClient : public QObject
{
    Q_OBJECT
public:
    enum class State { Disconnected, Connecting, LoadingSnapshot, Behind, Live, Stopped };
    Q_ENUM(State)

    struct Settings
    {
        int heartbeatIntervalMs = 1000;
        int heartbeatTimeoutMs = 5000;
        int backoffFirstMs = 250;
        int backoffMaxMs = 10000;
        qint64 maxFrame = replication::kDefaultMaxFrame;
        // Unsent bytes towards the server past which the connection is given up.
        qint64 maxSendBuffer = 1024 * 1024;
        // Batches more than this behind the server count as "behind".
        int behindTolerance = 10;
        // Decoded batches waiting to be applied before the worker stops reading.
        int readAhead = 64;
        // The longest a turn of applying holds the thread before letting events in.
        int applySliceMs = 10;
        // TLS, the server verified against these authorities (its
        // certificate must also name the host connected to). A server that
        // cannot be verified stops the client, saying why.
        QList<QSslCertificate> authorities;
        // Plain TCP instead: for a local demo only.
        bool insecure = false;
    };

    explicit ReplicationClient(Database* database, QObject* parent = nullptr);
    ~ReplicationClient() override;

    // Before start().
    void setSettings(Settings const& settings);
    Settings const& settings() const { return m_settings; }

    using Position = replication::Position;

    // Connects and follows until stop(), reconnecting as often as needed.
    // `login` and `password` as docs/replication.md says. `from`: where the
    // database stands (the position() of a client that followed into it
    // before); the exchange resumes from there when it still can, else
    // sends a snapshot. A refused login stops the client.
    void start(QString const& host, quint16 port, QString const& login, QByteArray const& password, Position const& from = Position());
    // Closes the connection and ends the worker; nothing more is applied.
    void stop();

    State state() const { return m_state; }
    // "live at sequence 240", "behind by 12 batches", "disconnected since
    // 10:02:03: connection lost" ...
    QString stateText() const;
    static QString stateName(State state);
    quint64 lastApplied() const { return m_lastApplied; }
    Position position() const;
    quint64 serverLast() const { return m_serverLast; }
    quint64 lag() const { return m_serverLast > m_lastApplied ? m_serverLast - m_lastApplied : 0; }
    QString const& day() const { return m_day; }
    QString const& history() const { return m_history; }
    QString const& reason() const { return m_reason; }   // of the last disconnection or stop
    QString endpoint() const;

    // Sends a transaction (docs/replication.md, "Transactions") on the
    // connection as it is now, and only when live: false, with nothing
    // kept to be sent later, when not. `id` is the caller's number for it;
    // its fate comes as transactionAnswered or transactionLost.
    bool sendTransaction(quint64 id, QJsonObject const& transaction);

signals:
    void stateChanged(ReplicationClient::State state, QString const& text);
    void snapshotProgress(qint64 bytes, qint64 total);
    // After a whole snapshot was applied: the tables are the server's at `sequence`.
    void snapshotLoaded(quint64 sequence);
    void batchApplied(quint64 sequence, QString const& table);
    // A batch applied although an index failed on it; following goes on.
    void indexFailed(QString const& message);
    // The exchange's answer to transaction `id`, after every batch it sent
    // before it was applied; `orders` are those it placed or cancelled.
    void transactionAnswered(quint64 id, int code, QString const& text, QList<qint64> const& orders);
    // Transaction `id` was not sent after all, or its connection closed
    // before its answer came: what became of it, the orders will tell.
    void transactionLost(quint64 id, QString const& why);

private:
    class Link;
    struct Event;
    struct Shared;
    void drain();
    void handle(Event& event);
    QString applyBatch(Event& event, std::unique_lock<std::mutex>& lock);
    void reject(quint64 sequence, QString const& message);
    void evaluate();
    void setState(State state, QString const& reason = QString());

    Database* m_database;
    Settings m_settings;
    std::shared_ptr<Shared> m_shared;
    std::thread m_thread;
    class QSocketNotifier* m_notifier = nullptr;
    QString m_host;
    quint16 m_port = 0;

    State m_state = State::Disconnected;
    QString m_reason;
    qint64 m_since = 0;
    quint64 m_lastApplied = 0;
    quint64 m_serverLast = 0;
    quint64 m_snapshotSequence = 0;
    qint64 m_snapshotBytes = 0;
    QString m_day, m_history;
    int m_applying = 0;
    bool m_streaming = false;   // past WELCOME and any snapshot: batches come one by one
    bool m_stopRequested = false;
};
