// directory-exchange: loads a market folder, serves its tables' replication
// over TCP (docs/replication.md), and plays the day's log into them at a
// pace, so that connected terminals follow a live day. Every batch applied
// is journalled (with --journal) before anyone is sent it.
#include "context.h"
#include "password.h"
#include "server.h"
#include "startup.h"

#include <core/defaultcore.h>
#include <database/batchreader.h>
#include <database/database.h>
#include <database/exception.h>
#include <gateway/simulatedgateway.h>

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QSocketNotifier>
#include <QTextStream>
#include <QTimer>
#include <csignal>
#include <memory>
#include <sys/socket.h>
#include <unistd.h>

using namespace apps;

namespace {

QTextStream& out()
{
    static QTextStream stream(stdout);
    return stream;
}

int fail(QString const& message)
{
    QTextStream(stderr) << "directory-exchange: " << message << "\n";
    return BadInput;
}

// SIGINT and SIGTERM end the session from the event loop: the handler only
// writes to a socket that the loop watches.
int signalPipe[2] = {-1, -1};
void onSignal(int)
{
    char const c = 1;
    ssize_t const n = ::write(signalPipe[1], &c, 1);
    (void)n;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("directory-exchange"));
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Serves a market's replication over TCP: loads the folder's snapshot, plays its day's log at a pace\n"
                       "into its tables, and sends every client a snapshot and then each batch in order. With --journal,\n"
                       "every batch is written to FILE before it is sent; a restarted exchange goes on from there.\n"
                       "Sessions are TLS (--cert, --key) and log in with a password of --users FILE; --add-user LOGIN\n"
                       "sets a login's password there (read from standard input, without echo at a terminal) and ends.\n"
                       "SIGINT or SIGTERM tells the clients and ends.\n") +
        exitStatusHelp({Done, BadInput}));
    parser.addHelpOption();
    CommonOptions common(parser, dataRoot(DIRECTORY_DATA_FROM_BINARY), CommonOptions::Replay::Served);
    QCommandLineOption const listen(QStringLiteral("listen"), QStringLiteral("Address and port to serve on (port 0: a free one, printed)."),
                                    QStringLiteral("host:port"));
    QCommandLineOption const journal(QStringLiteral("journal"), QStringLiteral("Journal every applied batch to this file, and go on from it."),
                                     QStringLiteral("file"));
    QCommandLineOption const users(QStringLiteral("users"), QStringLiteral("The logins that may open a session, with their password hashes."),
                                   QStringLiteral("file"));
    QCommandLineOption const addUser(QStringLiteral("add-user"), QStringLiteral("Set LOGIN's password in --users FILE (created if need be), then end."),
                                     QStringLiteral("login"));
    parser.addOptions({listen, journal, users, addUser});
    parser.process(app);

    if (parser.isSet(addUser)) {
        if (!parser.isSet(users)) return fail(QStringLiteral("--add-user needs --users FILE"));
        QByteArray password = readPassword(QStringLiteral("Password for %1: ").arg(parser.value(addUser)));
        try {
            exchange::Users::setPassword(parser.value(users), parser.value(addUser), password);
        } catch (QString const& why) {
            password.fill('\0');
            return fail(why);
        }
        password.fill('\0');
        out() << "The password of " << parser.value(addUser) << " is set in " << parser.value(users) << "\n";
        return Done;
    }

    QString problem = common.check();
    QString host;
    quint16 port = 0;
    if (problem.isEmpty() && !parser.isSet(listen)) problem = QStringLiteral("--listen HOST:PORT is needed");
    if (problem.isEmpty() && !parser.isSet(users)) problem = QStringLiteral("--users FILE is needed: sessions log in with a password");
    std::shared_ptr<exchange::Users const> logins;
    if (problem.isEmpty()) {
        try {
            logins = std::make_shared<exchange::Users const>(parser.value(users));
        } catch (QString const& why) {
            problem = why;
        }
    }
    if (problem.isEmpty()) problem = parseEndpoint(parser.value(listen), host, port, true);
    if (problem.isEmpty() && common.context().day.isEmpty())
        problem = QStringLiteral("%1: the market names no trading day ('day' or 'now')").arg(common.dataFile(QStringLiteral("terminal.json")));
    if (!problem.isEmpty()) return fail(problem);

    DefaultCore& core = common.startCore();
    Database* db = core.database();
    // Transactions the exchange accepts change its tables like the log does.
    SimulatedGateway gateway(&core);
    gateway.plugInto(core.transactions());
    std::unique_ptr<BatchReader> log;
    int resumeAfter = 0;
    try {
        db->loadSchema(common.schema());
        db->loadFileAtomically(common.snapshot());
    } catch (Exception const& e) {
        return fail(e.message());
    }
    // Sequence 0 is the folder's snapshot: only what changes it from here on is served.
    exchange::ReplicationServer server(db, common.context().day);
    server.setUsers(logins);
    // The sessions' transactions go to the gateway, each checked against its session's firm.
    server.setGateway(&gateway);
    // The exchange reads none of the notifications its gateway raises.
    core.setKeepingNotifications(false);
    if (!common.insecure()) server.setTls(common.certificateChain(), common.privateKey());
    try {
        if (parser.isSet(journal)) {
            resumeAfter = server.openJournal(parser.value(journal));
            if (!server.journalAside().isEmpty()) out() << "Journal of another day kept as " << server.journalAside() << "\n";
            out() << "Journal " << parser.value(journal) << ": " << server.lastSequence() << " batches of day " << server.day() << "\n";
        }
        if (!common.log().isEmpty()) log.reset(new BatchReader(*db, common.log()));
    } catch (Exception const& e) {
        return fail(e.message());
    } catch (QString const& e) {
        return fail(e);
    }
    QString error;
    if (!server.listen(QHostAddress(host), port, error)) return fail(QStringLiteral("cannot listen on %1: %2").arg(parser.value(listen), error));
    out() << "directory-exchange: listening on " << host << ":" << server.port() << ", day " << server.day() << ", history "
          << server.history() << ", sequence " << server.lastSequence() << (server.encrypted() ? ", TLS" : ", INSECURE: plain TCP") << ", "
          << logins->size() << " users\n";
    out().flush();

    QObject::connect(&server, &exchange::ReplicationServer::connectionRefused, [](QString const& peer, QString const& why) {
        out() << "connection " << peer << " refused: " << why << "\n";
        out().flush();
    });
    QObject::connect(&server, &exchange::ReplicationServer::sessionOpened, [](QString const& peer, QString const& login, bool resumed, quint64 from) {
        out() << "session " << peer << " (" << login << "): " << (resumed ? "resumes after " : "snapshot at ") << from << "\n";
        out().flush();
    });
    QObject::connect(&server, &exchange::ReplicationServer::sessionClosed, [](QString const& peer, QString const& why) {
        out() << "session " << peer << " closed: " << why << "\n";
        out().flush();
    });
    QObject::connect(&server, &exchange::ReplicationServer::batchRejected,
                     [](QString const& peer, quint64 seq, QString const& origin, QString const& reason) {
                         out() << "session " << peer << " rejected batch " << seq << " (" << origin << "): " << reason << "\n";
                         out().flush();
                     });
    int status = Done;
    QObject::connect(&server, &exchange::ReplicationServer::journalFailed, [&](QString const& why) {
        QTextStream(stderr) << "directory-exchange: the journal failed: " << why << "\n";
        status = BadInput;
        QTimer::singleShot(500, &app, &QCoreApplication::quit);
    });

    // The day's log, one batch a turn at the pace; lines the journal already
    // holds are not applied again.
    QTimer player;
    player.setSingleShot(true);
    int played = 0;
    QObject::connect(&player, &QTimer::timeout, [&] {
        BatchReader::Item item;
        while (log) {
            if (!log->next(item)) {
                out() << "The day's log is played: " << played << " batches; sequence " << server.lastSequence() << "\n";
                out().flush();
                log.reset();
                return;
            }
            if (!item.error.isEmpty()) {
                QTextStream(stderr) << "directory-exchange: " << item.error << "; the log stops here\n";
                log.reset();
                return;
            }
            int const line = item.batch.origin.mid(item.batch.origin.lastIndexOf(QLatin1Char(':')) + 1).toInt();
            if (line <= resumeAfter) continue;
            try {
                server.applyLogBatch(item.batch, line);
                ++played;
            } catch (Exception const& e) {
                QTextStream(stderr) << "directory-exchange: " << e.message() << "; the log stops here\n";
                log.reset();
                return;
            }
            break;
        }
        player.start(common.pace());
    });
    player.start(0);

    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, signalPipe) != 0) return fail(QStringLiteral("cannot watch for signals"));
    QSocketNotifier stopper(signalPipe[0], QSocketNotifier::Read);
    QObject::connect(&stopper, &QSocketNotifier::activated, [&] {
        stopper.setEnabled(false);
        out() << "Stopping: telling " << server.sessionCount() << " sessions\n";
        out().flush();
        player.stop();
        server.shutdown(QStringLiteral("the exchange is stopping"));
        // The farewells go out before the program ends.
        QTimer::singleShot(300, &app, &QCoreApplication::quit);
    });
    std::signal(SIGINT, onSignal);
    std::signal(SIGTERM, onSignal);
    app.exec();
    return status;
}
