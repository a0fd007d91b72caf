// replication-bench COMMAND [--market DIR] [--schema FILE] [...]: following an
// exchange over the network, measured against the files it serves.
//
//   connect --runs N --json FILE   loading the snapshot from its file, against
//       connecting to an exchange that serves it and reaching live: the first
//       connection (the exchange writes and compresses its snapshot) and a
//       second one (it has it already); then the bytes that crossed the
//       connection for that snapshot, against the file's size.
//   fanout --clients N [--pace MS] --json FILE   N followers of one exchange
//       while it plays the day's log at full speed (or MS apart): batches per
//       second, the delay from
//       the exchange having applied a batch to each follower having applied
//       it, the exchange's memory, and every follower's tables checked
//       against the exchange's.
//   serve   the exchange itself, in a process of its own (servedexchange.h).
#include "servedexchange.h"

#include "context.h"
#include "startup.h"
#include "server.h"

#include <core/defaultcore.h>
#include <gateway/simulatedgateway.h>

#include <database/batchencoder.h>
#include <database/batchreader.h>
#include <database/database.h>
#include <database/exception.h>
#include <database/replicationclient.h>

#include <QCoreApplication>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>
#include <QSocketNotifier>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <memory>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace bench;

namespace {

QString g_loadAtStart;

struct Options
{
    QString market = QStringLiteral(SOURCE_DIR "/data/market");
    QString schema = QStringLiteral(SOURCE_DIR "/data/schema.json");
    QString json;
    int runs = 3;
    int clients = 50;
    int pace = 0;   // milliseconds between the log's batches; 0: full speed
    QString security;   // serve: the folder of ServedExchange's certificates and users
    QString streamOf;   // serve: the login whose stream's sequences it tells
    int messagesPerSecond = 0, messageBurst = 0;   // serve: the sessions' limit; 0: the server's default
    int seconds = 10;      // orders: how long each measurement sends
    int outstanding = 4;   // orders: a session's orders awaiting their answers, in the closed loop
    int rate = 10;         // orders: a session's orders a second, in the open loop
};

// What a follower logs in and verifies the exchange with.
struct Credentials
{
    QByteArray password;
    QList<QSslCertificate> authorities;

    explicit Credentials(ServedExchange const& x) : password(x.password()), authorities(x.authorities()) {}
    void use(ReplicationClient& client) const
    {
        ReplicationClient::Settings settings = client.settings();
        settings.authorities = authorities;
        client.setSettings(settings);
    }
};

[[noreturn]] void fail(QString const& message)
{
    std::fprintf(stderr, "replication-bench: %s\n", qPrintable(message));
    std::fflush(stdout);
    std::_Exit(1);
}

apps::TerminalContext contextOf(QString const& market)
{
    apps::TerminalContext context;
    QString error;
    if (!apps::readTerminalContext(QDir(market).filePath(QStringLiteral("terminal.json")), context, error)) fail(error);
    if (context.login.isEmpty()) context.login = QStringLiteral("BENCH");
    return context;
}

QMap<QString, QByteArray> checksums(Database const& db)
{
    QMap<QString, QByteArray> sums;
    for (QString const& name : db.tableNames()) sums.insert(name, tableChecksum(*db.table(name)));
    return sums;
}

double median(std::vector<double> v)
{
    if (v.empty()) return 0;
    std::sort(v.begin(), v.end());
    return v.size() % 2 ? v[v.size() / 2] : (v[v.size() / 2 - 1] + v[v.size() / 2]) / 2;
}

double percentile(std::vector<double> const& sorted, double p)
{
    return sorted.empty() ? 0 : sorted[std::size_t(double(sorted.size() - 1) * p)];
}

// The machine's load average as the benchmark starts: figures of a shared
// machine mean little without it.
QString loadAverage()
{
    QFile file(QStringLiteral("/proc/loadavg"));
    return file.open(QIODevice::ReadOnly) ? QString::fromLatin1(file.readAll()).section(QLatin1Char(' '), 0, 2) : QStringLiteral("?");
}

void writeJson(QString const& path, QJsonObject object)
{
    object.insert(QStringLiteral("load_average_at_start"), g_loadAtStart);
    if (path.isEmpty()) return;
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly)) fail(QStringLiteral("cannot write %1").arg(path));
    file.write(QJsonDocument(object).toJson());
    if (!file.commit()) fail(QStringLiteral("cannot write %1").arg(path));
}

// ---------------------------------------------------------------- serve

int serve(Options const& o)
{
    QDir const dir(o.market);
    apps::TerminalContext const context = contextOf(o.market);
    if (context.day.isEmpty()) fail(QStringLiteral("%1 names no trading day").arg(dir.filePath(QStringLiteral("terminal.json"))));
    // The exchange's own core, so that its simulated exchange takes the
    // sessions' transactions against the tables it serves.
    DefaultCore core;
    Database& db = *core.database();
    SimulatedGateway gateway(&core);
    std::unique_ptr<BatchReader> log;
    try {
        db.loadSchema(o.schema);
        db.loadFileAtomically(dir.filePath(QStringLiteral("snapshot.jsonl")));
    } catch (Exception const& e) {
        fail(e.message());
    }
    exchange::ReplicationServer server(&db, context.day);
    server.setGateway(&gateway);
    exchange::ReplicationServer::Settings settings = server.settings();
    if (o.messagesPerSecond > 0) settings.messagesPerSecond = o.messagesPerSecond;
    if (o.messageBurst > 0) settings.messageBurst = o.messageBurst;
    server.setSettings(settings);
    // What a session of that login sees: its firm's stream, numbered on its own.
    QString const streamFirm = server.router().firmOfLogin(o.streamOf);
    auto streamLast = [&] { return o.streamOf.isEmpty() ? server.lastSequence() : server.lastSequence(streamFirm); };
    // As a real exchange serves: TLS, and logins with their passwords.
    if (o.security.isEmpty()) fail(QStringLiteral("serve needs --security FOLDER"));
    QDir const security(o.security);
    try {
        server.setUsers(std::make_shared<exchange::Users const>(security.filePath(QStringLiteral("users"))));
    } catch (QString const& why) {
        fail(why);
    }
    QSslKey key;
    QString const keyProblem = apps::readPrivateKey(security.filePath(QStringLiteral("server.key")), key);
    if (!keyProblem.isEmpty()) fail(keyProblem);
    server.setTls(QSslCertificate::fromPath(security.filePath(QStringLiteral("server.pem"))), key);
    QString error;
    if (!server.listen(QHostAddress::LocalHost, 0, error)) fail(error);
    // Why sessions closed, told once at the end: a benchmark's figures with
    // dropped sessions in them need saying so.
    QMap<QString, int> closed;
    QObject::connect(&server, &exchange::ReplicationServer::sessionClosed, [&](QString const&, QString const& why) { ++closed[why]; });
    std::printf("listening %u %llu %lld %d %d\n", unsigned(server.port()), (unsigned long long)streamLast(), peakResidentBytes(),
                server.settings().messagesPerSecond, server.settings().messageBurst);
    std::fflush(stdout);

    // The day's log as directory-exchange plays it at pace 0: one batch a turn
    // of the event loop, so that the sessions write between batches.
    std::vector<ServedExchange::Stamp> stamps;
    int pace = 0, played = 0;
    QTimer player;
    player.setSingleShot(true);
    QObject::connect(&player, &QTimer::timeout, [&] {
        BatchReader::Item item;
        if (!log->next(item)) {
            for (auto const& s : stamps) std::printf("stamp %llu %lld %lld\n", (unsigned long long)s.sequence, s.before, s.after);
            std::printf("played %d %llu\n", played, (unsigned long long)streamLast());
            std::fflush(stdout);
            log.reset();
            return;
        }
        if (!item.error.isEmpty()) fail(item.error);
        int const line = item.batch.origin.section(QLatin1Char(':'), -1).toInt();
        qint64 const before = monotonicNs();
        quint64 const last = streamLast();
        try {
            server.applyLogBatch(item.batch, line);
        } catch (Exception const& e) {
            fail(e.message());
        }
        ++played;
        // Only the batches the stream got: the others no follower of it sees.
        if (streamLast() != last) stamps.push_back({streamLast(), before, monotonicNs()});
        player.start(pace);
    });

    QByteArray input;
    QSocketNotifier commands(STDIN_FILENO, QSocketNotifier::Read);
    QObject::connect(&commands, &QSocketNotifier::activated, [&] {
        char buffer[256];
        ssize_t const n = ::read(STDIN_FILENO, buffer, sizeof buffer);
        if (n <= 0) {   // the benchmark went away
            commands.setEnabled(false);
            QCoreApplication::quit();
            return;
        }
        input.append(buffer, int(n));
        int end;
        while ((end = input.indexOf('\n')) >= 0) {
            QByteArray const command = input.left(end).trimmed();
            input.remove(0, end + 1);
            if (command.startsWith("play ") && !log) {
                pace = command.mid(5).toInt();
                try {
                    log.reset(new BatchReader(db, dir.filePath(QStringLiteral("replication.jsonl"))));
                } catch (Exception const& e) {
                    fail(e.message());
                }
                player.start(0);
            } else if (command == "checksums" || command.startsWith("checksums ")) {
                // With a login, the copy its sessions hold: the per-firm tables' rows of its firm only.
                QString const login = QString::fromUtf8(command.mid(10));
                QString const firm = server.router().firmOfLogin(login);
                for (QString const& name : db.tableNames()) {
                    QByteArray const sum = login.isEmpty() ? tableChecksum(*db.table(name)) : tableChecksum(*db.table(name), server.rowsOf(firm, name));
                    std::printf("checksum %s %s\n", qPrintable(name), sum.toHex().constData());
                }
                std::printf("checksums end\n");
            } else if (command.startsWith("last ")) {
                std::printf("last %llu\n", (unsigned long long)server.lastSequence(server.router().firmOfLogin(QString::fromUtf8(command.mid(5)))));
            } else if (command == "usage") {
                std::printf("usage %lld %lld %lld\n", peakResidentBytes(), residentNowBytes(), processCpuNs());
            } else if (command == "quit") {
                QStringList whys;
                for (auto it = closed.begin(); it != closed.end(); ++it) whys << QStringLiteral("%1: %2").arg(it.key()).arg(it.value());
                if (!whys.isEmpty()) std::fprintf(stderr, "exchange: sessions closed (%s)\n", qPrintable(whys.join(QStringLiteral(", "))));
                commands.setEnabled(false);
                server.shutdown(QStringLiteral("the exchange is stopping"));
                QTimer::singleShot(100, QCoreApplication::instance(), &QCoreApplication::quit);
            }
            std::fflush(stdout);
        }
    });
    return QCoreApplication::exec();
}

// ---------------------------------------------------------------- connect

// Forwards one connection both ways and counts what crosses it, on a thread
// of its own so that the client's applying never holds the bytes back.
class CountingRelay
{
public:
    explicit CountingRelay(quint16 target)
    {
        m_thread = std::thread([this, target] { run(target); });
        while (!m_port.load()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    ~CountingRelay()
    {
        m_stop = true;
        m_thread.join();
    }
    quint16 port() const { return m_port; }
    // Bytes of the last connection each way.
    qint64 toClient() const { return m_toClient; }
    qint64 toServer() const { return m_toServer; }

private:
    void run(quint16 target)
    {
        QEventLoop loop;
        QTcpServer listener;
        if (!listener.listen(QHostAddress::LocalHost, 0)) fail(QStringLiteral("relay: ") + listener.errorString());
        QObject::connect(&listener, &QTcpServer::newConnection, [&] {
            // Only the last connection counts: one lost before live is tried again.
            m_toClient = 0;
            m_toServer = 0;
            QTcpSocket* client = listener.nextPendingConnection();
            auto* upstream = new QTcpSocket(client);
            // Nothing is read from the client until the exchange's end is open.
            QObject::connect(upstream, &QTcpSocket::connected, [=] {
                auto forward = [](QTcpSocket* from, QTcpSocket* to, std::atomic<qint64>& count) {
                    QByteArray const data = from->readAll();
                    count += data.size();
                    to->write(data);
                };
                QObject::connect(client, &QTcpSocket::readyRead, [=] { forward(client, upstream, m_toServer); });
                QObject::connect(upstream, &QTcpSocket::readyRead, [=] { forward(upstream, client, m_toClient); });
                QObject::connect(client, &QTcpSocket::disconnected, upstream, &QTcpSocket::disconnectFromHost);
                QObject::connect(upstream, &QTcpSocket::disconnected, client, &QTcpSocket::disconnectFromHost);
                forward(client, upstream, m_toServer);
            });
            upstream->connectToHost(QHostAddress::LocalHost, target);
        });
        QTimer poll;
        QObject::connect(&poll, &QTimer::timeout, [&] { if (m_stop) loop.quit(); });
        poll.start(10);
        m_port = listener.serverPort();
        loop.exec();
    }

    std::thread m_thread;
    std::atomic<quint16> m_port{0};
    std::atomic<qint64> m_toClient{0}, m_toServer{0};
    std::atomic<bool> m_stop{false};
};

struct Connection
{
    double seconds = 0;          // start() to live
    double firstData = 0;        // start() to the first snapshot bytes
    double snapshotLoaded = 0;   // start() to the whole snapshot applied
    QString lost;                // why the connection dropped before live
};

Connection connectOnce(Options const& o, QString const& login, Credentials const& credentials, quint16 port)
{
    Database db;
    db.loadSchema(o.schema);
    ReplicationClient client(&db);
    credentials.use(client);
    QEventLoop loop;
    Connection c;
    QString stopped;
    qint64 const started = monotonicNs();
    auto since = [started] { return double(monotonicNs() - started) / 1e9; };
    QObject::connect(&client, &ReplicationClient::snapshotProgress, [&](qint64, qint64) {
        if (c.firstData == 0) c.firstData = since();
    });
    QObject::connect(&client, &ReplicationClient::snapshotLoaded, [&](quint64) { c.snapshotLoaded = since(); });
    QObject::connect(&client, &ReplicationClient::stateChanged, [&](ReplicationClient::State state, QString const& text) {
        if (state == ReplicationClient::State::Live) {
            c.seconds = since();
            loop.quit();
        } else if (state == ReplicationClient::State::Stopped) {
            stopped = text;
            loop.quit();
        } else if (state == ReplicationClient::State::Disconnected) {
            c.lost = text;   // a time with a reconnection in it measures something else
            loop.quit();
        }
    });
    QTimer::singleShot(30 * 60 * 1000, &loop, [&] { stopped = QStringLiteral("not live after 30 minutes"); loop.quit(); });
    client.start(QStringLiteral("127.0.0.1"), port, login, credentials.password);
    loop.exec();
    client.stop();
    if (!stopped.isEmpty()) fail(QStringLiteral("connecting: ") + stopped);
    return c;
}

int connectBench(Options const& o)
{
    QDir const dir(o.market);
    QString const snapshot = dir.filePath(QStringLiteral("snapshot.jsonl"));
    QString const login = contextOf(o.market).login;
    qint64 const fileBytes = QFileInfo(snapshot).size();
    QStringList lost;   // connections dropped before live, each tried again
    auto connectLive = [&](Credentials const& credentials, quint16 port) {
        for (int attempt = 1;; ++attempt) {
            Connection const c = connectOnce(o, login, credentials, port);
            if (c.lost.isEmpty()) return c;
            std::printf("a connection was lost before live (%s); trying again\n", qPrintable(c.lost));
            std::fflush(stdout);
            lost << c.lost;
            if (attempt == 3) fail(QStringLiteral("three connections in a row were lost before live"));
        }
    };
    std::vector<double> file, first, second, firstData, secondData, firstLoaded, secondLoaded;
    qint64 toClient = 0, toServer = 0;
    int batches = 0;
    for (int run = 0; run < o.runs; ++run) {
        {
            // The peer: the same snapshot from its file, into the same empty database.
            Database db;
            db.loadSchema(o.schema);
            qint64 const started = monotonicNs();
            try {
                batches = db.loadFile(snapshot);
            } catch (Exception const& e) {
                fail(e.message());
            }
            file.push_back(double(monotonicNs() - started) / 1e9);
        }
        // A new exchange each run, so that each first connection finds no snapshot made.
        ServedExchange x;
        QString error;
        if (!x.start(QCoreApplication::applicationFilePath(), o.market, o.schema, login, error)) fail(error);
        Credentials const credentials(x);
        Connection const a = connectLive(credentials, x.port());
        Connection const b = connectLive(credentials, x.port());
        first.push_back(a.seconds);
        firstData.push_back(a.firstData);
        firstLoaded.push_back(a.snapshotLoaded);
        second.push_back(b.seconds);
        secondData.push_back(b.firstData);
        secondLoaded.push_back(b.snapshotLoaded);
        std::printf("run %d: file %.3f s; connect to live: first %.3f s (first snapshot bytes at %.3f s), second %.3f s (at %.3f s)\n",
                    run + 1, file.back(), a.seconds, a.firstData, b.seconds, b.firstData);
        std::fflush(stdout);
        if (run + 1 == o.runs) {
            // Counted apart from the timed connections: the relay is a hop they do not have.
            CountingRelay relay(x.port());
            connectLive(credentials, relay.port());
            toClient = relay.toClient();
            toServer = relay.toServer();
        }
        x.quit();
    }
    double const f = median(file), a = median(first), b = median(second);
    std::printf("market %s: %d tables, snapshot.jsonl %lld bytes; medians of %d runs; load average at start %s\n",
                qPrintable(o.market), batches, fileBytes, o.runs, qPrintable(g_loadAtStart));
    std::printf("file load %.3f s; connect to live: first %.3f s (%.2fx the file), second %.3f s (%.2fx the file)\n", f, a, a / f, b, b / f);
    if (!lost.isEmpty()) std::printf("%d connections were lost before live and tried again\n", int(lost.size()));
    std::printf("bytes on the wire for the snapshot: %lld to the client, %lld to the exchange; %.4f of snapshot.jsonl (1/%.1f)\n",
                toClient, toServer, double(toClient) / double(fileBytes), double(fileBytes) / double(toClient));
    QJsonObject result{{"market", o.market},
                       {"runs", o.runs},
                       {"tables", batches},
                       {"snapshot_file_bytes", double(fileBytes)},
                       {"file_load_s", f},
                       {"connect_first_s", a},
                       {"connect_second_s", b},
                       {"first_data_first_s", median(firstData)},
                       {"first_data_second_s", median(secondData)},
                       {"snapshot_loaded_first_s", median(firstLoaded)},
                       {"snapshot_loaded_second_s", median(secondLoaded)},
                       {"wire_bytes_to_client", double(toClient)},
                       {"wire_bytes_to_server", double(toServer)},
                       {"connections_lost", QJsonArray::fromStringList(lost)}};
    writeJson(o.json, result);
    return 0;
}

// ---------------------------------------------------------------- fanout

// One follower: its database and client on a thread of their own, with an
// event loop, as a terminal's updating thread.
struct Follower
{
    virtual ~Follower() = default;

    std::thread thread;
    std::atomic<int> state{int(ReplicationClient::State::Disconnected)};
    std::atomic<quint64> applied{0};
    std::atomic<int> disconnections{0};
    std::atomic<bool> finish{false};
    std::atomic<bool> stopped{false};
    // Written on the follower's thread, read after it joined.
    std::vector<std::pair<quint64, qint64>> stamps;   // sequence, when applied
    QMap<QString, QByteArray> sums;
    QString why;

    void run(Options const& o, QString const& login, Credentials const& credentials, quint16 port)
    {
        Database db;
        db.loadSchema(o.schema);
        ReplicationClient client(&db);
        credentials.use(client);
        QEventLoop loop;
        stamps.reserve(4096);
        QObject::connect(&client, &ReplicationClient::batchApplied, [&](quint64 sequence, QString const&) {
            stamps.emplace_back(sequence, monotonicNs());
            applied = sequence;
        });
        QObject::connect(&client, &ReplicationClient::snapshotLoaded, [&](quint64 sequence) { applied = sequence; });
        QObject::connect(&client, &ReplicationClient::stateChanged, [&](ReplicationClient::State s, QString const& text) {
            state = int(s);
            if (s == ReplicationClient::State::Disconnected) {
                ++disconnections;
                why = text;
                std::fprintf(stderr, "a follower was disconnected: %s\n", qPrintable(text));
            }
            if (s == ReplicationClient::State::Stopped) {
                why = text;
                stopped = true;
            }
        });
        attach(client);
        QTimer poll;
        QObject::connect(&poll, &QTimer::timeout, [&] {
            if (finish) loop.quit();
            else tick();
        });
        poll.start(5);
        client.start(QStringLiteral("127.0.0.1"), port, login, credentials.password);
        loop.exec();
        detach();
        client.stop();
        sums = checksums(db);
    }

protected:
    // What a follower does besides following, on its own thread: set up
    // with its client before it connects, called every few milliseconds
    // while it runs, and torn down before the client stops.
    virtual void attach(ReplicationClient&) {}
    virtual void tick() {}
    virtual void detach() {}
};

// Waits until every follower is done by `done` (live, caught up...), failing
// when one stops or it takes an hour; says what a long wait is made of.
template <class F, class Done>
void waitFollowers(std::vector<std::unique_ptr<F>> const& followers, qint64 since, char const* what, Done const& done)
{
    for (int waited = 0;; waited += 20) {
        int behind = 0;
        for (auto const& f : followers) {
            if (f->stopped) fail(QStringLiteral("a follower stopped: %1").arg(f->why));
            if (f->state != int(ReplicationClient::State::Live) || !done(*f)) ++behind;
        }
        if (!behind) return;
        if (waited && waited % 5000 == 0) {
            int byState[6] = {}, reconnects = 0;
            for (auto const& f : followers) {
                ++byState[f->state];
                reconnects += f->disconnections;
            }
            std::fprintf(stderr, "%.0f s: %d not %s; connecting %d, loading %d, behind %d, live %d, disconnected %d; %d reconnections\n",
                         double(monotonicNs() - since) / 1e9, behind, what, byState[1], byState[2], byState[3], byState[4], byState[0],
                         reconnects);
        }
        if (waited > 60 * 60 * 1000) fail(QStringLiteral("%1 followers not %2 after an hour").arg(behind).arg(what));
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

int fanoutBench(Options const& o)
{
    QString const login = contextOf(o.market).login;
    ServedExchange x;
    QString error;
    if (!x.start(QCoreApplication::applicationFilePath(), o.market, o.schema, login, error)) fail(error);
    Credentials const credentials(x);
    quint64 const start = x.startSequence();
    std::vector<std::unique_ptr<Follower>> followers;
    qint64 const connecting = monotonicNs();
    auto waitAll = [&](quint64 sequence, char const* what) {
        waitFollowers(followers, connecting, what, [sequence](Follower const& f) { return f.applied >= sequence; });
    };
    // One at a time: fifty snapshots applied at once on a small machine starve
    // the sessions' heartbeats, and those reconnections are not what is measured.
    for (int k = 0; k < o.clients; ++k) {
        followers.emplace_back(new Follower);
        Follower* f = followers.back().get();
        f->thread = std::thread([f, &o, login, &credentials, port = x.port()] { f->run(o, login, credentials, port); });
        waitAll(start, "live");
    }
    double const allLive = double(monotonicNs() - connecting) / 1e9;
    ServedExchange::Usage const servingAllLive = x.usage();
    std::printf("%d followers live after %.1f s; the exchange's peak memory %.0f MB (%.0f MB once loaded)\n", o.clients, allLive,
                servingAllLive.peak / 1e6, x.loadedPeakBytes() / 1e6);
    std::fflush(stdout);

    qint64 const cpuBefore = processCpuNs();
    x.play(o.pace);
    if (!x.waitPlayed(60 * 60 * 1000)) fail(QStringLiteral("the exchange did not play its log"));
    quint64 const last = x.lastSequence();
    waitAll(last, "caught up");
    // What the day cost: the followers' applying against the exchange's serving.
    double const followersCpu = double(processCpuNs() - cpuBefore) / 1e9;
    for (auto& f : followers) f->finish = true;
    for (auto& f : followers) f->thread.join();
    ServedExchange::Usage const served = x.usage();
    // What a session of the login holds: its firm's copy.
    QMap<QString, QByteArray> const reference = x.checksums(login);
    qint64 const serverPid = x.pid();
    x.quit();

    // Every follower's tables against the exchange's.
    int identical = 0;
    for (std::size_t k = 0; k < followers.size(); ++k) {
        if (followers[k]->sums == reference && !reference.isEmpty()) {
            ++identical;
            continue;
        }
        for (auto it = reference.begin(); it != reference.end(); ++it)
            if (followers[k]->sums.value(it.key()) != it.value())
                std::fprintf(stderr, "follower %zu: table %s differs from the exchange's\n", k, qPrintable(it.key()));
    }

    std::vector<qint64> after(last + 1, 0), before(last + 1, 0);
    for (auto const& s : x.stamps())
        if (s.sequence <= last) {
            after[s.sequence] = s.after;
            before[s.sequence] = s.before;
        }
    std::vector<double> latencies, fromBefore;
    qint64 end = 0;
    int reconnects = 0;
    for (auto const& f : followers) {
        reconnects += f->disconnections;
        for (auto const& [sequence, at] : f->stamps) {
            if (sequence <= start || sequence > last || !after[sequence]) continue;
            latencies.push_back(double(at - after[sequence]) / 1e6);
            fromBefore.push_back(double(at - before[sequence]) / 1e6);
            end = std::max(end, at);
        }
    }
    std::sort(latencies.begin(), latencies.end());
    std::sort(fromBefore.begin(), fromBefore.end());
    quint64 const batches = last - start;
    double const seconds = batches && before[start + 1] ? double(end - before[start + 1]) / 1e9 : 0;
    std::vector<double> serverTurn;   // the exchange applying and handing out one batch
    for (quint64 s = start + 1; s <= last; ++s) serverTurn.push_back(double(after[s] - before[s]) / 1e6);
    std::sort(serverTurn.begin(), serverTurn.end());

    std::printf("exchange (pid %lld) played the day's %d batches at pace %d ms, %llu of them to %s's firm; the last follower applied the last one "
                "%.3f s after the first was played: %.1f batches/s\n",
                serverPid, x.playedBatches(), o.pace, (unsigned long long)batches, qPrintable(login), seconds,
                seconds > 0 ? double(batches) / seconds : 0.0);
    std::printf("exchange applied -> follower applied, %zu deliveries: p50 %.1f ms, p99 %.1f ms, max %.1f ms "
                "(from the exchange starting to apply: p99 %.1f ms; its own turn per batch: median %.2f ms, max %.2f ms)\n",
                latencies.size(), percentile(latencies, 0.5), percentile(latencies, 0.99), latencies.empty() ? 0 : latencies.back(),
                percentile(fromBefore, 0.99), percentile(serverTurn, 0.5), serverTurn.empty() ? 0 : serverTurn.back());
    std::printf("exchange memory: peak %.0f MB (%.0f MB once loaded, %.0f MB with every follower live); resident at the end %.0f MB\n",
                served.peak / 1e6, x.loadedPeakBytes() / 1e6, servingAllLive.peak / 1e6, served.resident / 1e6);
    double const exchangeCpu = double(served.cpuNs - servingAllLive.cpuNs) / 1e9;
    std::printf("CPU while the day played: followers %.2f s (%.1f ms a follower), exchange %.2f s\n", followersCpu,
                followersCpu * 1e3 / o.clients, exchangeCpu);
    std::printf("followers' process: peak %.0f MB; %d reconnections; %d of %d followers ended identical to the exchange; "
                "load average at start %s\n",
                peakResidentBytes() / 1e6, reconnects, identical, o.clients, qPrintable(g_loadAtStart));
    QJsonObject result{{"market", o.market},
                       {"clients", o.clients},
                       {"pace_ms", o.pace},
                       {"day_batches", x.playedBatches()},
                       {"batches", double(batches)},
                       {"seconds", seconds},
                       {"batches_per_s", seconds > 0 ? double(batches) / seconds : 0.0},
                       {"latency_p50_ms", percentile(latencies, 0.5)},
                       {"latency_p99_ms", percentile(latencies, 0.99)},
                       {"latency_max_ms", latencies.empty() ? 0 : latencies.back()},
                       {"latency_from_apply_start_p99_ms", percentile(fromBefore, 0.99)},
                       {"deliveries", double(latencies.size())},
                       {"server_peak_bytes", double(served.peak)},
                       {"server_loaded_peak_bytes", double(x.loadedPeakBytes())},
                       {"server_all_live_peak_bytes", double(servingAllLive.peak)},
                       {"all_live_s", allLive},
                       {"reconnections", reconnects},
                       {"followers_cpu_s", followersCpu},
                       {"exchange_cpu_s", exchangeCpu},
                       {"identical", identical}};
    writeJson(o.json, result);
    if (identical != o.clients) fail(QStringLiteral("%1 of %2 followers did not end identical to the exchange").arg(o.clients - identical).arg(o.clients));
    if (latencies.size() != std::size_t(batches) * std::size_t(o.clients))
        fail(QStringLiteral("%1 deliveries measured, %2 expected: a follower missed batches (reconnected with a snapshot?)")
                 .arg(latencies.size())
                 .arg(quint64(batches) * quint64(o.clients)));
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    char const* usage = "usage: replication-bench connect|fanout|serve [--market DIR] [--schema FILE] [--runs N] [--clients N] [--pace MS] [--json FILE]\n";
    if (argc < 2) {
        std::fputs(usage, stderr);
        return 2;
    }
    g_loadAtStart = loadAverage();
    Options o;
    for (int k = 2; k < argc; ++k) {
        bool const hasValue = k + 1 < argc;
        if (!std::strcmp(argv[k], "--market") && hasValue) o.market = QString::fromLocal8Bit(argv[++k]);
        else if (!std::strcmp(argv[k], "--schema") && hasValue) o.schema = QString::fromLocal8Bit(argv[++k]);
        else if (!std::strcmp(argv[k], "--json") && hasValue) o.json = QString::fromLocal8Bit(argv[++k]);
        else if (!std::strcmp(argv[k], "--runs") && hasValue) o.runs = std::max(1, std::atoi(argv[++k]));
        else if (!std::strcmp(argv[k], "--clients") && hasValue) o.clients = std::max(1, std::atoi(argv[++k]));
        else if (!std::strcmp(argv[k], "--pace") && hasValue) o.pace = std::max(0, std::atoi(argv[++k]));
        else if (!std::strcmp(argv[k], "--security") && hasValue) o.security = QString::fromLocal8Bit(argv[++k]);
        else if (!std::strcmp(argv[k], "--stream-of") && hasValue) o.streamOf = QString::fromLocal8Bit(argv[++k]);
        else if (!std::strcmp(argv[k], "--messages-per-second") && hasValue) o.messagesPerSecond = std::max(0, std::atoi(argv[++k]));
        else if (!std::strcmp(argv[k], "--message-burst") && hasValue) o.messageBurst = std::max(0, std::atoi(argv[++k]));
        else if (!std::strcmp(argv[k], "--seconds") && hasValue) o.seconds = std::max(1, std::atoi(argv[++k]));
        else if (!std::strcmp(argv[k], "--outstanding") && hasValue) o.outstanding = std::max(1, std::atoi(argv[++k]));
        else if (!std::strcmp(argv[k], "--rate") && hasValue) o.rate = std::max(1, std::atoi(argv[++k]));
        else {
            std::fprintf(stderr, "replication-bench: unknown argument '%s'\n%s", argv[k], usage);
            return 2;
        }
    }
    if (!std::strcmp(argv[1], "serve")) return serve(o);
    if (!std::strcmp(argv[1], "connect")) return connectBench(o);
    if (!std::strcmp(argv[1], "fanout")) return fanoutBench(o);
    std::fputs(usage, stderr);
    return 2;
}
