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
//   orders --clients N [--seconds S] [--outstanding K] [--rate R] --json FILE
//       N sessions of the market's logins, spread over its firms, placing
//       orders on one exchange: the rate it accepts them at when each session
//       keeps K awaiting their answers for S seconds (its message limit
//       raised, so that the exchange is measured, not the limit), then, on a
//       fresh exchange with its default limit, the time from a send to its
//       answer when each sends R a second, and to the firm's other sessions.
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
#include <database/decimal.h>
#include <database/exception.h>
#include <database/field.h>
#include <database/index.h>
#include <database/record.h>
#include <database/replicationclient.h>
#include <database/table.h>

#include <QCoreApplication>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>
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

// A follower of the served exchange: a database of its own and a client
// that verifies and logs in with the exchange's credentials.
struct BenchClient
{
    Database db;
    ReplicationClient client{&db};
    Credentials const& credentials;

    BenchClient(QString const& schema, Credentials const& with) : credentials(with)
    {
        db.loadSchema(schema);
        credentials.use(client);
    }
    void start(quint16 port, QString const& login) { client.start(QStringLiteral("127.0.0.1"), port, login, credentials.password); }
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
    object.insert(QStringLiteral("command_line"), QCoreApplication::arguments().join(QLatin1Char(' ')));
    object.insert(QStringLiteral("load_average_at_start"), g_loadAtStart);
    object.insert(QStringLiteral("load_average_at_end"), loadAverage());
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
    core.setKeepingNotifications(false);   // one per order, read by nobody: as the exchange program
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
                    QByteArray const sum = login.isEmpty() ? tableChecksum(*db.table(name)) : tableChecksum(*db.table(name), server.router().filter(firm, name));
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
    BenchClient follower(o.schema, credentials);
    ReplicationClient& client = follower.client;
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
    follower.start(port, login);
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
        BenchClient follower(o.schema, credentials);
        ReplicationClient& client = follower.client;
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
        follower.start(port, login);
        loop.exec();
        detach();
        client.stop();
        sums = checksums(follower.db);
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
void waitFollowers(std::vector<std::unique_ptr<F>> const& followers, qint64 since, char const* what, Done const& done, int limitMs = 60 * 60 * 1000)
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
        if (waited > limitMs) fail(QStringLiteral("%1 followers not %2 after %3 s").arg(behind).arg(what).arg(limitMs / 1000));
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

// ---------------------------------------------------------------- orders

// What the orders are made of, read from the market's snapshot as a
// terminal shows it: each firm's logins and accounts, and securities with
// prices the exchange takes (on the price step, within the price limits).
struct OrderMarket
{
    struct Security
    {
        int stock = 0, board = 0;
        QString code;
        QStringList prices;
    };
    QMap<QString, QStringList> logins;     // by firm: firms without an account are left out
    QMap<QString, QStringList> accounts;   // by firm
    std::vector<Security> securities;
};

// Up to `steps` prices from the low limit up, on the step, within the limits;
// none when the security publishes no step or no range.
QStringList pricesOf(Field const& step, Field const& low, Field const& high, int steps)
{
    if (!step.hasValue() || !low.hasValue() || !high.hasValue()) return {};
    decimal const s = step.rawDecimal(), l = low.rawDecimal(), h = high.rawDecimal();
    int const scale = std::max({s.scale(), l.scale(), h.scale()});
    if (std::min({s.scale(), l.scale(), h.scale()}) < 0 || scale > 10) return {};
    auto at = [scale](decimal d) {   // the mantissa at the common scale
        __int128 m = d.mantissa();
        for (int k = d.scale(); k < scale; ++k) m *= 10;
        return m;
    };
    __int128 const st = at(s), lo = at(l), hi = at(h);
    if (st <= 0 || lo <= 0 || hi <= lo) return {};
    QStringList prices;
    for (__int128 p = (lo + st - 1) / st * st; p <= hi && prices.size() < steps; p += st)
        prices << decimal::fromMantissa(std::int64_t(p), scale).toString();
    return prices;
}

OrderMarket readOrderMarket(Options const& o)
{
    Database db;
    try {
        db.loadSchema(o.schema);
        db.loadFile(QDir(o.market).filePath(QStringLiteral("snapshot.jsonl")));
    } catch (Exception const& e) {
        fail(e.message());
    }
    auto table = [&](char const* name) {
        QSharedPointer<Table> t = db.table(QLatin1String(name));
        if (!t || !t->masterIndex()) fail(QStringLiteral("the market has no table %1").arg(QLatin1String(name)));
        return t;
    };
    auto column = [](Table const& t, char const* name) {
        int const c = t.columnIndex(QLatin1String(name));
        if (c < 0) fail(QStringLiteral("%1 has no column %2").arg(t.name(), QLatin1String(name)));
        return c;
    };
    OrderMarket m;
    // The exchange's own reading of who is whose.
    exchange::FirmRouter const router(&db);
    QSharedPointer<Table> const users = table("k3.user");
    int const cLogin = column(*users, "login");
    for (Record const& r : *users->masterIndex()) {
        QString const login = users->dataPtr(r.row(), cLogin).toString().trimmed();
        QString const firm = router.firmOfLogin(login);
        if (!firm.isEmpty()) m.logins[firm] << login;
    }
    QSharedPointer<Table> const investors = table("k3.investor");
    int const cCode = column(*investors, "client_code");
    for (Record const& r : *investors->masterIndex()) {
        QString const account = investors->dataPtr(r.row(), cCode).toString().trimmed();
        QString const firm = exchange::firmOf(account);
        if (m.logins.contains(firm)) m.accounts[firm] << account;
    }
    for (auto it = m.logins.begin(); it != m.logins.end();) it = m.accounts.contains(it.key()) ? std::next(it) : m.logins.erase(it);

    // Markets with a current session, where an order can go.
    QSharedPointer<Table> const sessions = table("sessions");
    QSet<qint64> markets;
    for (Record const& r : *sessions->masterIndex()) markets.insert(sessions->dataPtr(r.row(), column(*sessions, "stock_id")).toInteger64());
    // A request-for-stream order answers a stream: not the order measured here.
    markets.remove(5);
    QSharedPointer<Table> const securities = table("securities");
    Table const& t = *securities;
    int const cStock = column(t, "stock_id"), cBoard = column(t, "board_id"), cSec = column(t, "sec_code"), cStep = column(t, "price_step"),
              cLow = column(t, "price_lmt_low"), cHigh = column(t, "price_lmt_high");
    // The exchange refuses a code its board holds twice.
    QHash<QString, int> codes;
    auto keyOf = [&](Record const& r) {
        return QStringLiteral("%1/%2/%3").arg(t.dataPtr(r.row(), cStock).toInteger64()).arg(t.dataPtr(r.row(), cBoard).toInteger64()).arg(
            t.dataPtr(r.row(), cSec).toString().trimmed());
    };
    for (Record const& r : *t.masterIndex()) ++codes[keyOf(r)];
    for (Record const& r : *t.masterIndex()) {
        int const stock = int(t.dataPtr(r.row(), cStock).toInteger64());
        QString const code = t.dataPtr(r.row(), cSec).toString().trimmed();
        if (!markets.contains(stock) || code.isEmpty() || codes.value(keyOf(r)) != 1) continue;
        QStringList const prices = pricesOf(t.dataPtr(r.row(), cStep), t.dataPtr(r.row(), cLow), t.dataPtr(r.row(), cHigh), 8);
        if (prices.isEmpty()) continue;
        m.securities.push_back({stock, int(t.dataPtr(r.row(), cBoard).toInteger64()), code, prices});
        if (m.securities.size() == 64) break;
    }
    if (m.logins.isEmpty()) fail(QStringLiteral("%1: no firm has both a login and an account").arg(o.market));
    if (m.securities.empty()) fail(QStringLiteral("%1: no security with a price step and price limits").arg(o.market));
    return m;
}

// A trader's terminal: a follower that also sends orders on its session,
// in a closed loop (a few awaiting their answers, the next one sent on each
// answer) or an open loop (at a steady pace, whatever the answers do).
struct OrderSession : Follower
{
    enum Mode { Waiting, ClosedLoop, OpenLoop };
    struct Order
    {
        qint64 due = 0;        // when the open loop's schedule had it go
        qint64 sent = 0;       // sendTransaction called
        qint64 answered = 0;   // its answer (or loss) signalled
        quint64 batch = 0;     // the last batch applied before the answer: the order's own
        int code = 0;          // 1 accepted, 2 rejected, 3 lost
    };

    // Set before the thread starts.
    QString login, firm;
    QStringList accounts;
    OrderMarket const* market = nullptr;
    int index = 0;
    // Set once every session is live, before `mode`.
    qint64 startAt = 0, endAt = 0, intervalNs = 0, offsetNs = 0;
    int outstanding = 0;
    std::atomic<int> mode{Waiting};
    std::atomic<bool> drained{false};   // past the end, and no order awaits its answer
    // Written on the session's thread, read after it joined.
    std::vector<Order> orders;   // by id - 1
    QStringList refusals;        // the first rejections', losses' and refused sends' texts
    int notSent = 0;             // the open loop's sends the client declined
    int heldBack = 0;            // the closed loop's sends held back until the client was live again

protected:
    void attach(ReplicationClient& client) override
    {
        m_client = &client;
        QObject::connect(&client, &ReplicationClient::transactionAnswered,
                         [this](quint64 id, int code, QString const& text, QList<qint64> const&) { answered(id, code, text); });
        QObject::connect(&client, &ReplicationClient::transactionLost, [this](quint64 id, QString const& why) { answered(id, 3, why); });
        m_pace.reset(new QTimer);
        m_pace->setSingleShot(true);
        m_pace->setTimerType(Qt::PreciseTimer);
        QObject::connect(m_pace.get(), &QTimer::timeout, [this] {
            if (mode == ClosedLoop) {
                for (int k = 0; k < outstanding; ++k) sendOrHold();
            } else {
                paceOpenLoop();
            }
        });
        orders.reserve(8192);
    }
    void tick() override
    {
        if (!m_armed && mode.load(std::memory_order_acquire) != Waiting) {
            m_armed = true;
            m_pace->start(msUntil(startAt));
        }
        if (m_armed && mode == ClosedLoop) sendHeld();
        if (m_armed && !drained && !m_pace->isActive() && m_awaiting == 0 && monotonicNs() >= endAt) drained = true;
    }
    void detach() override { m_pace.reset(); }

private:
    static int msUntil(qint64 at) { return int(std::max<qint64>(0, (at - monotonicNs() + 999999) / 1000000)); }

    // False, with nothing kept, when the client declines it (not live).
    bool send(qint64 due)
    {
        std::size_t const n = orders.size();
        auto const& s = market->securities[(std::size_t(index) * 7 + n) % market->securities.size()];
        QJsonObject const params{{QStringLiteral("Security"), s.code},
                                 {QStringLiteral("Account"), accounts[int(n % std::size_t(accounts.size()))]},
                                 {QStringLiteral("BuySell"), (n + std::size_t(index)) % 2 ? QStringLiteral("S") : QStringLiteral("B")},
                                 {QStringLiteral("Price"), s.prices[int(n % std::size_t(s.prices.size()))]},
                                 {QStringLiteral("Quantity"), QStringLiteral("1")},
                                 {QStringLiteral("Type"), QStringLiteral("1")}};
        quint64 const id = n + 1;
        QJsonObject const transaction{{QStringLiteral("id"), double(id)},       {QStringLiteral("code"), 1025},
                                      {QStringLiteral("template"), QStringLiteral("Order")}, {QStringLiteral("stock"), s.stock},
                                      {QStringLiteral("board"), s.board},       {QStringLiteral("params"), params}};
        qint64 const sent = monotonicNs();
        if (!m_client->sendTransaction(id, transaction)) return false;
        orders.emplace_back();
        orders.back().due = due;
        orders.back().sent = sent;
        ++m_awaiting;
        return true;
    }

    // The closed loop's send: one the client declines while it is behind
    // goes as soon as it is live again, as a trader waits for the screen to
    // catch up; the slot is not lost.
    void sendOrHold()
    {
        ++m_held;
        sendHeld();
        if (m_held > 0) ++heldBack;
    }
    void sendHeld()
    {
        while (m_held > 0 && monotonicNs() < endAt && send(monotonicNs())) --m_held;
    }

    void answered(quint64 id, int code, QString const& text)
    {
        qint64 const now = monotonicNs();
        if (id == 0 || id > orders.size() || orders[id - 1].answered) return;
        Order& order = orders[id - 1];
        order.answered = now;
        order.code = code;
        order.batch = applied;
        --m_awaiting;
        if (code != 1 && refusals.size() < 5) refusals << text;
        if (mode == ClosedLoop && now < endAt) sendOrHold();
    }

    // Sends what is due by now (all of it, when the thread was held up: the
    // pace is the schedule's, not the answers'), then waits for the next one.
    void paceOpenLoop()
    {
        qint64 const now = monotonicNs();
        for (;;) {
            qint64 const due = startAt + offsetNs + qint64(m_paced) * intervalNs;
            if (due >= endAt) return;
            if (due > now) return m_pace->start(msUntil(due));
            ++m_paced;
            if (!send(due)) {   // a click the terminal refused: counted, never sent later
                ++notSent;
                if (refusals.size() < 5) refusals << QStringLiteral("not sent: ") + m_client->stateText();
            }
        }
    }

    ReplicationClient* m_client = nullptr;
    std::unique_ptr<QTimer> m_pace;
    bool m_armed = false;
    int m_awaiting = 0;
    int m_paced = 0;
    int m_held = 0;   // the closed loop's sends waiting for the client to be live
};

double ms(qint64 ns) { return double(ns) / 1e6; }

struct Spread
{
    double p50 = 0, p99 = 0, max = 0;
    explicit Spread(std::vector<double> v)
    {
        std::sort(v.begin(), v.end());
        p50 = percentile(v, 0.5);
        p99 = percentile(v, 0.99);
        max = v.empty() ? 0 : v.back();
    }
    QString text() const { return QStringLiteral("p50 %1 ms, p99 %2 ms, max %3 ms").arg(p50, 0, 'f', 1).arg(p99, 0, 'f', 1).arg(max, 0, 'f', 1); }
    void into(QJsonObject& json, QString const& prefix) const
    {
        json.insert(prefix + QStringLiteral("_p50_ms"), p50);
        json.insert(prefix + QStringLiteral("_p99_ms"), p99);
        json.insert(prefix + QStringLiteral("_max_ms"), max);
    }
};

// One measurement on an exchange of its own: the sessions connected one
// after the other, then sending for o.seconds as `mode` says, every answer
// waited for, and every session's tables compared with its firm's copy at
// the exchange. Prints and gives its figures.
QJsonObject measureOrders(Options const& o, OrderMarket const& market, std::vector<std::pair<QString, QString>> const& plan,
                          OrderSession::Mode mode, QStringList const& serveArguments)
{
    QStringList logins;
    for (auto const& p : plan)
        if (!logins.contains(p.first)) logins << p.first;
    ServedExchange x;
    QString error;
    if (!x.start(QCoreApplication::applicationFilePath(), o.market, o.schema, logins, error, serveArguments)) fail(error);
    Credentials const credentials(x);
    std::printf("exchange pid %lld\n", x.pid());
    std::fflush(stdout);
    std::vector<std::unique_ptr<OrderSession>> sessions;
    qint64 const connecting = monotonicNs();
    // One at a time, as the fanout does: fifty snapshots at once starve the heartbeats.
    for (std::size_t k = 0; k < plan.size(); ++k) {
        sessions.emplace_back(new OrderSession);
        OrderSession* s = sessions.back().get();
        s->login = plan[k].first;
        s->firm = plan[k].second;
        s->accounts = market.accounts.value(s->firm);
        s->market = &market;
        s->index = int(k);
        s->thread = std::thread([s, &o, &credentials, port = x.port()] { s->run(o, s->login, credentials, port); });
        waitFollowers(sessions, connecting, "live", [](OrderSession const&) { return true; });
    }
    double const allLive = double(monotonicNs() - connecting) / 1e9;
    ServedExchange::Usage const live = x.usage();
    std::printf("%zu sessions live after %.1f s; sending for %d s\n", sessions.size(), allLive, o.seconds);
    std::fflush(stdout);

    // All start together, a little ahead, so that every session has set its timer by then.
    qint64 const startAt = monotonicNs() + 300000000, endAt = startAt + qint64(o.seconds) * 1000000000;
    qint64 const interval = 1000000000 / o.rate;
    for (std::size_t k = 0; k < sessions.size(); ++k) {
        OrderSession& s = *sessions[k];
        s.startAt = startAt;
        s.endAt = endAt;
        s.outstanding = o.outstanding;
        s.intervalNs = interval;
        s.offsetNs = interval * qint64(k) / qint64(sessions.size());   // spread evenly over the interval
        s.mode.store(mode, std::memory_order_release);
    }
    ServedExchange::Usage const before = x.usage();
    qint64 const cpuBefore = processCpuNs();
    std::this_thread::sleep_for(std::chrono::nanoseconds(endAt - monotonicNs()));
    // An answer a minute late is as good as none: the figures would not hold.
    waitFollowers(sessions, connecting, "answered", [](OrderSession const& s) { return s.drained.load(); }, (o.seconds + 60) * 1000);
    ServedExchange::Usage const after = x.usage();
    double const sessionsCpu = double(processCpuNs() - cpuBefore) / 1e9, exchangeCpu = double(after.cpuNs - before.cpuNs) / 1e9;
    // Every batch delivered before the tables are compared.
    QHash<QString, quint64> last;
    for (QString const& login : logins) last.insert(login, x.lastSequenceOf(login));
    waitFollowers(sessions, connecting, "caught up", [&](OrderSession const& s) { return s.applied >= last.value(s.login); });
    QHash<QString, QMap<QString, QByteArray>> reference;
    for (QString const& login : logins) reference.insert(login, x.checksums(login));
    for (auto& s : sessions) s->finish = true;
    for (auto& s : sessions) s->thread.join();
    x.quit();

    int accepted = 0, inWindow = 0, rejected = 0, lost = 0, notSent = 0, heldBack = 0, reconnections = 0, identical = 0;
    std::vector<double> latency, fromSchedule, secondSession;
    std::vector<int> perSecondOfWindow(std::size_t(o.seconds), 0);   // accepted, by the second of the window its answer came in
    QStringList refusals;
    QMap<QString, std::vector<OrderSession const*>> byFirm;
    for (auto const& s : sessions) {
        byFirm[s->firm].push_back(s.get());
        reconnections += s->disconnections;
        notSent += s->notSent;
        heldBack += s->heldBack;
        if (s->sums == reference.value(s->login) && !s->sums.isEmpty()) ++identical;
        for (QString const& r : s->refusals)
            if (refusals.size() < 5) refusals << QStringLiteral("%1: %2").arg(s->login, r);
        for (auto const& order : s->orders) {
            if (order.code == 1 || order.code == 2) {
                latency.push_back(ms(order.answered - order.sent));
                fromSchedule.push_back(ms(order.answered - order.due));
            }
            if (order.code == 1) ++accepted;
            if (order.code == 1 && order.answered <= endAt) {
                ++inWindow;
                if (order.answered >= startAt) ++perSecondOfWindow[std::min(std::size_t((order.answered - startAt) / 1000000000), perSecondOfWindow.size() - 1)];
            }
            if (order.code == 2) ++rejected;
            if (order.code == 3) ++lost;
        }
    }
    // The order's batch at the firm's other sessions: a firm's sessions follow
    // one stream, so its sequence names the same batch at each of them.
    int unattributed = 0;
    for (auto const& firm : byFirm) {
        QSet<quint64> seen;
        for (OrderSession const* s : firm)
            for (auto const& order : s->orders) {
                if (order.code != 1) continue;
                if (seen.contains(order.batch)) {   // its answer came before its batch: nothing to time
                    ++unattributed;
                    continue;
                }
                seen.insert(order.batch);
                for (OrderSession const* other : firm) {
                    if (other == s) continue;
                    auto it = std::lower_bound(other->stamps.begin(), other->stamps.end(), std::make_pair(order.batch, qint64(0)));
                    if (it != other->stamps.end() && it->first == order.batch) secondSession.push_back(ms(it->second - order.sent));
                }
            }
    }
    Spread const answers(latency), scheduled(fromSchedule), others(secondSession);
    int const sent = int(latency.size()) + lost;
    double const perSecond = double(inWindow) / o.seconds;
    std::printf("the exchange's limit: %d messages a second a session, in bursts of %d%s\n", x.messagesPerSecond(), x.messageBurst(),
                serveArguments.isEmpty() ? " (its default)" : " (raised for this measurement)");
    if (mode == OrderSession::ClosedLoop)
        std::printf("closed loop, %d orders awaiting their answers in each session, %d s: %d accepted in the window, %.0f orders/s over all sessions\n",
                    o.outstanding, o.seconds, inWindow, perSecond);
    else
        std::printf("open loop, %d orders a second in each session (%d a second in all), %d s: %d sent\n", o.rate, o.rate * int(sessions.size()),
                    o.seconds, sent);
    std::printf("answers: %d accepted, %d rejected, %d lost; send -> answer %s\n", accepted, rejected, lost, qPrintable(answers.text()));
    QStringList seconds;
    for (int n : perSecondOfWindow) seconds << QString::number(n);
    std::printf("accepted in each second of the window: %s\n", qPrintable(seconds.join(QStringLiteral(", "))));
    if (mode == OrderSession::ClosedLoop)
        std::printf("sends held back while a session was behind its firm's stream (sent once live again): %d\n", heldBack);
    else
        std::printf("sends the client declined (not live): %d\n", notSent);
    if (mode == OrderSession::OpenLoop) std::printf("from the time the schedule had each order go to its answer: %s\n", qPrintable(scheduled.text()));
    std::printf("the order's batch applied by the firm's other sessions, from the send: %s over %zu deliveries (%d orders unattributed)\n",
                qPrintable(others.text()), secondSession.size(), unattributed);
    std::printf("CPU from the start to the last answer: exchange %.2f s, sessions %.2f s\n", exchangeCpu, sessionsCpu);
    std::printf("exchange memory: %.0f MB loaded, %.0f MB with every session live, peak %.0f MB; %d reconnections; "
                "%d of %zu sessions ended identical to their firm's copy\n",
                x.loadedPeakBytes() / 1e6, live.peak / 1e6, after.peak / 1e6, reconnections, identical, sessions.size());
    for (QString const& r : refusals) std::printf("  refused: %s\n", qPrintable(r));
    std::fflush(stdout);

    QJsonObject result{{"messages_per_second", x.messagesPerSecond()},
                       {"message_burst", x.messageBurst()},
                       {"all_live_s", allLive},
                       {"sent", sent},
                       {"accepted", accepted},
                       {"accepted_in_window", inWindow},
                       {"accepted_per_s", perSecond},
                       {"accepted_by_second", QJsonArray::fromVariantList([&] {
                            QVariantList v;
                            for (int n : perSecondOfWindow) v << n;
                            return v;
                        }())},
                       {"rejected", rejected},
                       {"lost", lost},
                       {"not_sent", notSent},
                       {"held_back", heldBack},
                       {"reconnections", reconnections},
                       {"identical", identical},
                       {"second_session_deliveries", double(secondSession.size())},
                       {"unattributed", unattributed},
                       {"exchange_cpu_s", exchangeCpu},
                       {"sessions_cpu_s", sessionsCpu},
                       {"exchange_peak_bytes", double(after.peak)},
                       {"exchange_loaded_peak_bytes", double(x.loadedPeakBytes())},
                       {"exchange_all_live_peak_bytes", double(live.peak)},
                       {"refusals", QJsonArray::fromStringList(refusals)}};
    answers.into(result, QStringLiteral("latency"));
    scheduled.into(result, QStringLiteral("from_schedule"));
    others.into(result, QStringLiteral("second_session"));
    if (identical != int(sessions.size()))
        fail(QStringLiteral("%1 of %2 sessions did not end identical to their firm's copy").arg(int(sessions.size()) - identical).arg(sessions.size()));
    return result;
}

int ordersBench(Options const& o)
{
    std::printf("command: %s\nload average at start %s\n", qPrintable(QCoreApplication::arguments().join(QLatin1Char(' '))), qPrintable(g_loadAtStart));
    OrderMarket const market = readOrderMarket(o);
    // Sessions spread over the firms in turn, and over each firm's logins.
    QStringList const firms = market.logins.keys();
    std::vector<std::pair<QString, QString>> plan;
    for (int k = 0; k < o.clients; ++k) {
        QString const& firm = firms[k % firms.size()];
        QStringList const& logins = market.logins[firm];
        plan.emplace_back(logins[(k / firms.size()) % logins.size()], firm);
    }
    QSet<QString> distinct;
    for (auto const& p : plan) distinct.insert(p.first);
    int const logins = distinct.size();
    std::printf("market %s: %d sessions of %d logins of %d firms; orders of 1 on %zu securities at prices within their limits\n", qPrintable(o.market),
                o.clients, logins, int(firms.size()), market.securities.size());
    std::fflush(stdout);

    // The server measured, not the limit: a limit far above what the sessions can send.
    std::printf("== the rate the exchange takes orders at\n");
    std::fflush(stdout);
    QJsonObject const rate = measureOrders(o, market, plan, OrderSession::ClosedLoop,
                                           {QStringLiteral("--messages-per-second"), QStringLiteral("1000000"), QStringLiteral("--message-burst"),
                                            QStringLiteral("1000000")});
    std::printf("== a steady pace within the exchange's default limit\n");
    std::fflush(stdout);
    QJsonObject const pace = measureOrders(o, market, plan, OrderSession::OpenLoop, {});
    int const ceiling = o.clients * pace.value(QStringLiteral("messages_per_second")).toInt();
    std::printf("the default limit lets %d sessions send at most %d messages a second in all (heartbeats among them); the exchange took %.0f orders a "
                "second with the limit raised\n",
                o.clients, ceiling, rate.value(QStringLiteral("accepted_per_s")).toDouble());
    std::printf("load average at start %s, at the end %s\n", qPrintable(g_loadAtStart), qPrintable(loadAverage()));
    writeJson(o.json, QJsonObject{{"market", o.market},
                                  {"clients", o.clients},
                                  {"firms", int(firms.size())},
                                  {"logins", logins},
                                  {"seconds", o.seconds},
                                  {"outstanding", o.outstanding},
                                  {"rate_per_session", o.rate},
                                  {"default_limit_ceiling_per_s", ceiling},
                                  {"closed_loop", rate},
                                  {"open_loop", pace}});
    int const refused = rate.value(QStringLiteral("rejected")).toInt() + pace.value(QStringLiteral("rejected")).toInt();
    if (refused) fail(QStringLiteral("%1 orders were rejected").arg(refused));
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    char const* usage = "usage: replication-bench connect|fanout|orders|serve [--market DIR] [--schema FILE] [--runs N] [--clients N] [--pace MS]\n"
                        "       [--seconds S] [--outstanding K] [--rate R] [--json FILE]\n";
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
    if (!std::strcmp(argv[1], "orders")) return ordersBench(o);
    std::fputs(usage, stderr);
    return 2;
}
