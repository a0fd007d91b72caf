#pragma once
#include "firms.h"
#include "journal.h"
#include "passwords.h"

#include <database/replication.h>

#include <QHostAddress>
#include <QElapsedTimer>
#include <QHash>
#include <QObject>
#include <core/transactions.h>
#include <database/batchencoder.h>
#include <QSslCertificate>
#include <QSslKey>
#include <functional>
#include <QString>
#include <memory>
#include <vector>

class Database;
struct Batch;
class QTcpServer;
class SimulatedGateway;
struct RawTransaction;

namespace exchange {

class Session;

// What a client says, as the exchange reads it (docs/replication.md): the
// one decoder of the client's messages, so that every one a session takes
// has passed it.
struct Hello
{
    QString login;
    QByteArray password;
    QString day, history;
    quint64 after = 0;
    bool zstd = false;
};
// Empty when `payload` is a HELLO the exchange can take; else the ERROR
// text it is answered with.
QString readHello(QByteArray const& payload, Hello& hello);

struct Rejection
{
    quint64 sequence = 0;
    QString origin, reason;
};
// Empty when `payload` is a well-formed REJECTED; else what is wrong.
QString readRejected(QByteArray const& payload, Rejection& rejection);

// Empty when `payload` is a well-formed TRANSACTION; else what is wrong.
// `id` is the client's number for it, which its ANSWER carries back.
QString readTransaction(QByteArray const& payload, quint64& id, RawTransaction& transaction);

// The exchange's side of the replication sessions (docs/replication.md):
// every batch its database applies (from the day's log, or from a
// transaction its gateway accepted) gets the next sequence and goes to the
// journal; then each firm's stream gets what of it is the firm's (market-wide
// tables whole, the firm's own rows of the others), under the stream's own
// next sequence, and every session follows its login's firm's stream.
// Lives on the database's updating thread.
class ReplicationServer : public QObject
{
    Q_OBJECT
public:
    struct Settings
    {
        int heartbeatIntervalMs = 1000;
        int heartbeatTimeoutMs = 5000;
        // Batches a session may be behind, in bytes, before it is too slow.
        qint64 maxSendBuffer = 64 * 1024 * 1024;

        // Against abuse. A client's frames are small (HELLO, HEARTBEAT, REJECTED).
        qint64 maxClientFrame = 64 * 1024;
        // From accepting a connection to its HELLO, the TLS handshake included.
        int helloTimeoutMs = 10000;
        // Frames a session may send: this many a second on average, in bursts of `messageBurst`.
        int messagesPerSecond = 20;
        int messageBurst = 100;
        // A wrong login or password is answered after this delay, doubled
        // for each further failure from the same address up to the maximum;
        // an address is forgotten after `failuresForgottenMs` without one.
        int refusalDelayFirstMs = 500;
        int refusalDelayMaxMs = 16000;
        int failuresForgottenMs = 10 * 60 * 1000;
        // Connections not yet logged in, from one address and in all.
        int pendingPerAddress = 16;
        int pendingTotal = 512;
    };

    // `database` holds the market folder's snapshot (sequence 0); `day` is
    // its trading day. From here on, each batch the database applies is
    // served.
    ReplicationServer(Database* database, QString const& day, QObject* parent = nullptr);
    // Before listen().
    void setSettings(Settings const& settings) { m_settings = settings; }
    // Who may log in. Without users, every login is refused.
    void setUsers(std::shared_ptr<Users const> users) { m_users = std::move(users); }
    // Where the sessions' transactions go, answered on the session they
    // came from; without, a session's transaction is refused.
    void setGateway(SimulatedGateway* gateway);
    // TLS with this certificate (its chain first) and key, before listen();
    // without, sessions are plain TCP (for local demos only).
    void setTls(QList<QSslCertificate> const& chain, QSslKey const& key);
    bool encrypted() const { return !m_chain.isEmpty(); }
    ~ReplicationServer() override;

    // Opens the journal and applies the batches it holds of this day.
    // Gives the last log line among them (0: none). Throws a text naming
    // the file, or the database's refusal, before anything is served.
    int openJournal(QString const& path);

    // Plays one batch of the day's log, from its line `logLine`, into the
    // database (and so to everyone). Throws the database's refusal.
    void applyLogBatch(Batch const& batch, int logLine);

    // A new trading day without a restart: `load` replaces the database's
    // tables with the day's snapshot (its batches are not served as
    // batches); the sequence starts again from 0 under a new history (and
    // a new journal, the old one kept aside), and every session is sent the
    // new day's snapshot once any snapshot it is being sent is complete.
    void beginDay(QString const& day, std::function<void()> const& load);

    bool listen(QHostAddress const& address, quint16 port, QString& error);
    quint16 port() const;

    // BYE with `reason` to every session, then closes them and stops listening.
    void shutdown(QString const& reason);

    QString const& day() const { return m_day; }
    QString const& history() const { return m_history; }
    // Of every batch applied this day (the journal's numbering).
    quint64 lastSequence() const { return m_sequence; }
    // Of the stream of `firm` (empty: of the logins without a firm);
    // 0 for a firm the market's users do not name.
    quint64 lastSequence(QString const& firm) const;
    // Whom the tables' rows go to: what a session of each firm is sent.
    FirmRouter const& router() const { return m_router; }
    int sessionCount() const { return int(m_sessions.size()); }
    // What the sessions' connections hold unsent: a session is refilled up to
    // a high-water mark of 1 MiB and one frame, never with the whole backlog.
    qint64 queuedBytes() const;
    // Where openJournal() moved another day's journal; empty when it did not.
    QString journalAside() const { return m_journal ? m_journal->aside() : QString(); }
    Settings const& settings() const { return m_settings; }

signals:
    // A connection closed before it logged in: refused, timed out, or over a limit.
    void connectionRefused(QString const& peer, QString const& why);
    void sessionOpened(QString const& peer, QString const& login, bool resumed, quint64 from);
    void sessionClosed(QString const& peer, QString const& why);
    void batchRejected(QString const& peer, quint64 sequence, QString const& origin, QString const& reason);
    // The journal refused a batch: every session was told the exchange stops.
    void journalFailed(QString const& why);

private:
    friend class Session;
    struct Snapshot;
    struct Stream;
    void served(Batch const& batch);
    std::shared_ptr<Snapshot const> snapshot(Stream& stream, bool compressed);
    Stream* streamOf(QString const& firm);
    void addStreams();
    void checkLogins();
    void take(Session* session, quint64 id, RawTransaction const& transaction);
    void answered(RawTransaction const& transaction, int code, QString const& text, QList<qint64> const& orders);
    void closed(Session* session, QString const& why);
    void accept(qintptr descriptor);
    // How long to wait before refusing a wrong login from `address`; counts the failure.
    int refusalDelay(QHostAddress const& address);
    void loggedIn(QHostAddress const& address) { m_failures.remove(address.toString()); }
    bool isMarketUser(QString const& login) const;
    int pendingFrom(QString const& address) const;

    Database* m_database;
    QString m_day;
    int m_dayNumber = 0;   // how many times the day was begun anew
    QString m_history;
    Settings m_settings;
    std::unique_ptr<Journal> m_journal;
    QTcpServer* m_server = nullptr;
    std::vector<Session*> m_sessions;
    quint64 m_sequence = 0;
    FirmRouter m_router;
    std::map<QString, std::unique_ptr<Stream>> m_streams;   // by firm; never removed, so sessions keep theirs
    SimulatedGateway* m_gateway = nullptr;
    struct Pending   // a session's transaction, until the gateway answers it
    {
        Session* session = nullptr;   // forgotten when it closes
        quint64 id = 0;
        RawAnswer answer;
    };
    std::vector<Pending> m_pending;
    // Where the batch being applied came from, for the journal: set around
    // the log's own batches; anything else is the exchange's.
    QString m_pendingSource;
    bool m_replaying = false;   // the journal's own batches are not journalled again
    std::shared_ptr<Users const> m_users;
    PasswordChecker* m_checker = nullptr;
    QList<QSslCertificate> m_chain;
    QSslKey m_key;
    struct Failures
    {
        int count = 0;
        qint64 last = 0;   // ms on m_clock
    };
    QHash<QString, Failures> m_failures;   // by address
    QElapsedTimer m_clock;
};

} // namespace exchange
