// What the replication tests share: an exchange serving on 127.0.0.1, and a
// follower with the core's database and the library's directories.
#pragma once
#include "binding.h"
#include "exchangesecurity.h"
#include "server.h"

#include <core/defaultcore.h>
#include <core/icore.h>
#include <database/batch.h>
#include <database/batchencoder.h>
#include <database/batchreader.h>
#include <database/database.h>
#include <database/replicationclient.h>
#include <gateway/simulatedgateway.h>
#include <registry.h>

#include <QTest>
#include <gtest/gtest.h>
#include <memory>
#include <utility>

// Readable texts in assertion messages.
inline void PrintTo(QString const& s, std::ostream* os) { *os << '"' << s.toStdString() << '"'; }

// Short enough for the tests to see a dead peer soon, long enough that a
// loaded machine (sanitizers, parallel tests) does not fake one.
constexpr int kHeartbeatTimeoutMs = 3000;

// A client as the tests run it: quick heartbeats and retries, plain TCP
// (TLS has tests of its own).
inline ReplicationClient::Settings testClientSettings()
{
    ReplicationClient::Settings s;
    s.heartbeatIntervalMs = 100;
    s.heartbeatTimeoutMs = kHeartbeatTimeoutMs;
    s.backoffFirstMs = 20;
    s.backoffMaxMs = 200;
    s.insecure = true;
    return s;
}

inline QString const kSchema = QStringLiteral(SOURCE_DIR "/data/schema.json");
inline QString const kMarket = QStringLiteral(SOURCE_DIR "/data/market");

using State = ReplicationClient::State;

inline QMap<QString, QByteArray> checksums(Database const& db)
{
    QMap<QString, QByteArray> sums;
    for (QString const& name : db.tableNames()) sums.insert(name, tableChecksum(*db.table(name)));
    return sums;
}

// The tables whose checksums differ between two sets, by name: a readable failure.
inline QStringList differing(QMap<QString, QByteArray> const& a, QMap<QString, QByteArray> const& b)
{
    QStringList names;
    for (QString const& name : a.keys() + b.keys())
        if (a.value(name) != b.value(name) && !names.contains(name)) names << name;
    return names;
}

struct Exchange;
// What a session of `login` must hold: each table as its firm's copy.
QMap<QString, QByteArray> checksums(Exchange const& x, QString const& login);

// One exchange: its own database, loaded from the market folder, serving
// on a free port.
struct Exchange
{
    // The exchange's own core: its database, and the simulated exchange's
    // gateway taking the sessions' transactions.
    DefaultCore core;
    Database& db = *core.database();
    SimulatedGateway gateway{&core};
    std::unique_ptr<exchange::ReplicationServer> server;
    std::unique_ptr<BatchReader> log;

    int resumeAfter = 0;   // the log's lines the journal already held

    explicit Exchange(QString const& day, quint16 port = 0, QString const& journal = QString())
    {
        db.loadSchema(kSchema);
        db.loadFileAtomically(kMarket + QStringLiteral("/snapshot.jsonl"));
        server.reset(new exchange::ReplicationServer(&db, day));
        server->setUsers(testUsers());
        server->setGateway(&gateway);
        if (!journal.isEmpty()) resumeAfter = server->openJournal(journal);
        exchange::ReplicationServer::Settings s;
        s.heartbeatIntervalMs = 100;
        s.heartbeatTimeoutMs = kHeartbeatTimeoutMs;
        server->setSettings(s);
        QString error;
        EXPECT_TRUE(server->listen(QHostAddress::LocalHost, port, error)) << error.toStdString();
        log.reset(new BatchReader(db, kMarket + QStringLiteral("/replication.jsonl")));
    }
    // The stream a session of `login` follows: its firm's.
    quint64 lastFor(QString const& login) const { return server->lastSequence(server->router().firmOfLogin(login)); }
    // Plays `n` more batches of the day's log; false once it is played.
    bool play(int n)
    {
        BatchReader::Item item;
        for (int i = 0; i < n;) {
            if (!log->next(item)) return false;
            EXPECT_TRUE(item.error.isEmpty()) << item.error.toStdString();
            if (!item.error.isEmpty()) return false;
            int const line = item.batch.origin.section(QLatin1Char(':'), -1).toInt();
            if (line <= resumeAfter) continue;
            server->applyLogBatch(item.batch, line);
            ++i;
        }
        return true;
    }
};

inline QMap<QString, QByteArray> checksums(Exchange const& x, QString const& login)
{
    QString const firm = x.server->router().firmOfLogin(login);
    QMap<QString, QByteArray> sums;
    for (QString const& name : x.db.tableNames()) sums.insert(name, tableChecksum(*x.db.table(name), x.server->router().filter(firm, name)));
    return sums;
}

// Live at the end of the stream of `login`'s firm.
inline bool caughtUp(ReplicationClient const& client, Exchange const& x, QString const& login, int ms)
{
    return QTest::qWaitFor([&] { return client.state() == State::Live && client.lastApplied() == x.lastFor(login); }, ms);
}

// A terminal's side: the core's database, so that the library's directories
// can be bound to it and asked.
struct Follower
{
    Database& db = *ICore::instance()->database();
    ReplicationClient client{&db};
    QList<State> states;
    QList<quint64> applied;
    // Every snapshot loaded (true) and batch applied (false), with its sequence, in order.
    QList<QPair<bool, quint64>> trail;
    QStringList disconnections;   // why, each time
    QString login = QStringLiteral("FA01U01");

    Follower()
    {
        if (db.tableNames().isEmpty()) db.loadSchema(kSchema);
        client.setSettings(testClientSettings());
        QObject::connect(&client, &ReplicationClient::stateChanged, [this](State state, QString const&) {
            states << state;
            if (state == State::Disconnected) disconnections << client.reason();
        });
        QObject::connect(&client, &ReplicationClient::batchApplied, [this](quint64 seq, QString const&) {
            applied << seq;
            trail << qMakePair(false, seq);
        });
        QObject::connect(&client, &ReplicationClient::snapshotLoaded, [this](quint64 seq) { trail << qMakePair(true, seq); });
    }
    // The directories a terminal binds: those that follow every batch now,
    // the others once the first snapshot is in.
    void bindDirectories()
    {
        apps::bindDirectories(&db, DirectoryClass::AtStart);
        QObject::connect(&client, &ReplicationClient::snapshotLoaded, [this, bound = false]() mutable {
            if (!std::exchange(bound, true)) apps::bindDirectories(&db, DirectoryClass::AfterLoading);
        });
    }
    void start(quint16 port, ReplicationClient::Position const& from = ReplicationClient::Position())
    {
        client.start(QStringLiteral("127.0.0.1"), port, login, testPassword(login), from);
    }
    bool caughtUpWith(Exchange const& x, int ms = 15000) { return caughtUp(client, x, login, ms); }
};

// A follower of its own database (not the core's), with a login, a password
// and a transport of the test's choosing: several in one test.
struct Client
{
    Database db;
    ReplicationClient client{&db};

    explicit Client(ReplicationClient::Settings const& settings = testClientSettings())
    {
        db.loadSchema(kSchema);
        client.setSettings(settings);
    }
    static ReplicationClient::Settings tls(QList<QSslCertificate> const& authorities)
    {
        ReplicationClient::Settings s = testClientSettings();
        s.insecure = false;
        s.authorities = authorities;
        return s;
    }
    QString login;
    void start(quint16 port, QString const& as, QByteArray const& password)
    {
        login = as;
        client.start(QStringLiteral("127.0.0.1"), port, login, password);
    }
    // Live at the end of its firm's stream.
    bool caughtUpWith(Exchange const& x, int ms = 15000) { return caughtUp(client, x, login, ms); }
    bool stopped(int ms = 15000)
    {
        return QTest::qWaitFor([&] { return client.state() == State::Stopped; }, ms);
    }
    bool live(int ms = 15000)
    {
        return QTest::qWaitFor([&] { return client.state() == State::Live; }, ms);
    }
};

// Every batch applied once, in order, with none skipped.
inline void expectConsecutive(QList<quint64> const& applied)
{
    for (int i = 1; i < applied.size(); ++i) ASSERT_EQ(applied[i], applied[i - 1] + 1) << "at " << i;
}

// The same through snapshots: after each, the batches from just after it,
// each once, in order.
inline void expectEachBatchOnceInOrder(QList<QPair<bool, quint64>> const& trail)
{
    quint64 next = 0;
    for (int i = 0; i < trail.size(); ++i) {
        if (trail[i].first) next = trail[i].second + 1;
        else ASSERT_EQ(trail[i].second, next++) << "at " << i;
    }
}

