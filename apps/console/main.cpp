// directory-console: loads a replicated market (schema and snapshot; the
// bundled one unless told otherwise), optionally replays a replication log,
// reports which directories signalled for each replayed batch, prints every
// user notification the core raises, and answers the commands given on the
// command line.
#include "binding.h"
#include "commands.h"
#include "context.h"
#include "notifications.h"
#include "output.h"
#include "signallog.h"
#include "startup.h"

#include <core/defaultcore.h>
#include <database/database.h>
#include <database/exception.h>
#include <database/replicationclient.h>

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QThread>

using namespace console;
using namespace apps;

namespace {

// The one way the console ends on an error.
int fail(QString const& message)
{
    out().flush();
    QTextStream(stderr) << "directory-console: " << printable(message) << "\n";
    return BadInput;
}

void deliverQueuedNotifications() { QCoreApplication::sendPostedEvents(nullptr, QEvent::MetaCall); }

int rowCount(Database const* db)
{
    int rows = 0;
    for (QString const& name : db->tableNames()) rows += db->table(name)->rowCount();
    return rows;
}

// The directories a view would use, bound once the snapshot is in so that
// they build from the full tables; from here on every batch is listed.
void bindViews(Database* db, QList<QObject*> const& boundAtStart, SignalLog& signalLog)
{
    QList<QObject*> const watched = bindDirectories(db, DirectoryClass::AfterLoading);
    for (QObject* d : watched + boundAtStart) signalLog.watch(d);
    deliverQueuedNotifications();
}

// One line for a batch after which directories signalled (every batch
// with `every`): its number, its table and who signalled.
void listBatch(qint64 number, QString const& table, bool quiet, bool every, SignalLog& signalLog)
{
    deliverQueuedNotifications();
    QString const signalled = signalLog.take();
    if (!quiet && (every || !signalled.isEmpty())) {
        Progress::clearLine();
        out() << QStringLiteral("batch %1 %2: ").arg(number, 4).arg(table, -32)
              << (signalled.isEmpty() ? QStringLiteral("(none)") : signalled) << "\n";
    }
    out().flush();
}

// Loads the snapshot and replays the log, if any, listing the batches that
// directories signalled for (all of them with `every`). Throws what the
// loader refuses.
void load(Database* db, CommonOptions const& common, bool quiet, bool every, SignalLog& signalLog)
{
    QElapsedTimer timer;
    timer.start();
    db->loadSchema(common.schema());
    // Logins, accounts, streams and quasi-deals are followed from the first
    // batch, as a terminal binds them at start: they warn of expiring
    // passwords and notify the user.
    QList<QObject*> const boundAtStart = bindDirectories(db, DirectoryClass::AtStart);
    Progress loading("snapshot", !quiet);
    int batches = db->loadFileAtomically(common.snapshot(), [&](int done, int total, QString const&) {
        deliverQueuedNotifications();
        loading.step(done, total);
    });
    out() << "Loaded " << common.snapshot() << ": " << batches << " batches, " << rowCount(db) << " rows in " << db->tableNames().size()
          << " tables, " << timer.elapsed() << " ms\n";
    out().flush();
    bindViews(db, boundAtStart, signalLog);

    QString const log = common.log();
    if (log.isEmpty()) return;
    timer.restart();
    if (!quiet)
        out() << "Replaying " << log << "\n"
              << (every ? "Listed: every batch" : "Listed: each batch after which directories signalled dataChanged")
              << " (number, table: directories; \"x20\": 20 signals in that batch)\n";
    Progress replaying("replay", !quiet);
    int replayed = db->loadFileAtomically(log, [&](int done, int total, QString const& table) {
        listBatch(done, table, quiet, every, signalLog);
        replaying.step(done, total);
        if (common.pace() > 0) QThread::msleep(ulong(common.pace()));
    });
    out() << "Replayed " << log << ": " << replayed << " batches in " << timer.elapsed() << " ms\n";
    out().flush();
}

// Follows the exchange at --connect: the snapshot, then each batch as it
// comes, listed as a replay's are. With `untilLive`, returns once caught up,
// the session still open for the commands' orders; else follows until the
// exchange stops the client. Throws why it stopped.
void follow(Database* db, CommonOptions const& common, bool quiet, bool every, bool untilLive, SignalLog& signalLog,
            ReplicationClient& client)
{
    db->loadSchema(common.schema());
    QList<QObject*> const boundAtStart = bindDirectories(db, DirectoryClass::AtStart);
    QEventLoop loop;
    QString stoppedWhy;
    bool bound = false;
    QObject::connect(&client, &ReplicationClient::stateChanged, [&](ReplicationClient::State state, QString const& text) {
        if (!quiet) {
            Progress::clearLine();
            out() << "replication: " << text << "\n";
            out().flush();
        }
        if (state == ReplicationClient::State::Stopped) {
            stoppedWhy = client.reason();
            loop.quit();
        } else if (state == ReplicationClient::State::Live && untilLive) {
            loop.quit();
        }
    });
    QObject::connect(&client, &ReplicationClient::snapshotLoaded, [&](quint64 sequence) {
        deliverQueuedNotifications();
        out() << "Loaded the snapshot of " << client.endpoint() << " at sequence " << sequence << ": " << rowCount(db) << " rows in "
              << db->tableNames().size() << " tables\n";
        out().flush();
        if (bound) return;
        bound = true;
        bindViews(db, boundAtStart, signalLog);
        signalLog.take();
    });
    QObject::connect(&client, &ReplicationClient::batchApplied, [&](quint64 sequence, QString const& table) {
        listBatch(qint64(sequence), table, quiet, every, signalLog);
    });
    QObject::connect(&client, &ReplicationClient::indexFailed, [](QString const& message) {
        QTextStream(stderr) << "directory-console: " << printable(message) << "\n";
    });
    client.setSettings(common.replicationSettings());
    QByteArray password = common.readSessionPassword();
    client.start(common.host(), common.port(), common.context().login, password);
    password.fill('\0');
    loop.exec();
    // What follows is the commands': these handlers' state ends here.
    client.disconnect();
    if (!stoppedWhy.isEmpty()) throw QStringLiteral("the replication stopped: ") + stoppedWhy;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("directory-console"));
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Loads a replicated market into the terminal's database, replays its replication log if asked,\n"
        "lists which directories signalled for each replayed batch, prints every user notification\n"
        "(\"notification kind K: text | link: L\"), and answers lookups. Lookup options may be repeated;\n"
        "they are answered after loading (and replaying).\n") + exitStatusHelp({Done, BadInput, NotFound, Rejected}));
    parser.addHelpOption();
    CommonOptions common(parser, dataRoot(DIRECTORY_DATA_FROM_BINARY), CommonOptions::Replay::AfterSnapshot);
    QCommandLineOption const every(QStringLiteral("every-batch"), QStringLiteral("List every replayed batch, also those no directory signalled for."));
    QCommandLineOption const quiet(QStringLiteral("quiet"), QStringLiteral("Neither list replayed batches nor show progress."));
    QCommandLineOption const untilLive(QStringLiteral("until-live"),
                                       QStringLiteral("With --connect: stop following once caught up with the exchange, answer the lookups and end."));
    parser.addOptions({every, quiet, untilLive});
    Commands const commands = consoleCommands();
    for (auto const& command : commands) command->addOptions(parser);
    parser.process(app);

    QString problem = common.check();
    if (problem.isEmpty()) problem = checkCommands(commands, parser);
    if (problem.isEmpty() && parser.isSet(untilLive) && !common.connects()) problem = QStringLiteral("--until-live needs --connect");
    if (!problem.isEmpty()) return fail(problem);

    DefaultCore& core = common.startCore();
    TerminalContext const& context = common.context();
    out() << "Terminal: now " << (context.hasNow ? formatMoment(context.now) : QStringLiteral("by the machine's clock"))
          << ", user " << (context.login.isEmpty() ? QStringLiteral("(none)") : context.login)
          << ", texts " << (common.language() == QLatin1String("ru") ? "in Russian" : "in English") << "\n";
    out().flush();

    NotificationPrinter notifications(out());
    notifications.listen(core.coreSignals());
    SignalLog signalLog;
    ReplicationClient session(core.database());
    RunContext run{parser, core, common.dataFile(QStringLiteral("templates.json")), signalLog, out(), common.connects() ? &session : nullptr};
    int status = Done;
    try {
        if (common.connects())
            follow(core.database(), common, parser.isSet(quiet), parser.isSet(every), parser.isSet(untilLive), signalLog, session);
        else
            load(core.database(), common, parser.isSet(quiet), parser.isSet(every), signalLog);
        for (auto const& command : commands) {
            int const ran = command->run(run);
            if (ran != Done) status = ran;
        }
    } catch (Exception const& e) {
        return fail(e.message());
    } catch (QString const& e) {
        return fail(e);
    }
    deliverQueuedNotifications();
    return status;
}
