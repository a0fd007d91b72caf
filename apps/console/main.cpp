// directory-console: loads a replicated market (schema and snapshot; the
// bundled one unless told otherwise), optionally replays a replication log,
// reports which directories signalled for each replayed batch, prints every
// user notification the core raises, and answers lookups given on the
// command line.
#include "context.h"
#include "startup.h"
#include "accounts.h"
#include "binding.h"
#include "lookups.h"
#include "options.h"
#include "orders.h"
#include "notifications.h"
#include "output.h"
#include "signallog.h"

#include <core/clock.h>
#include <core/defaultcore.h>
#include <database/database.h>
#include <database/exception.h>
#include <directories>

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QHash>
#include <QLocale>
#include <QThread>
#include <QTranslator>
#include <vector>

using namespace console;
using namespace apps;

namespace {

enum Exit { Done = 0, BadInput = 1, NotFound = 2 };

// Every lookup option the console offers. A group of lookups lives in a
// source of its own and joins here.
QList<LookupOption> lookupOptions()
{
    return marketLookups();
}

int fail(QString const& message)
{
    out().flush();
    QTextStream(stderr) << "directory-console: " << printable(message) << "\n";
    return BadInput;
}

QString dataRoot() { return apps::dataRoot(DIRECTORY_DATA_FROM_BINARY); }

// Russian texts are the sources; any other language reads English. A
// language not asked for but missing leaves the texts Russian.
QString loadTranslation(QTranslator& translator, QString const& lang, bool asked)
{
    QString message = apps::installTranslation(translator, lang, dataRoot());
    if (message.isEmpty() || asked) return message;
    QTextStream(stderr) << "directory-console: " << message << "; texts stay Russian\n";
    return QString();
}

void deliverQueuedNotifications() { QCoreApplication::sendPostedEvents(nullptr, QEvent::MetaCall); }

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
        "they are answered after loading (and replaying).\n"
        "Exit status: 0 when every lookup found what it looked for, 1 on a bad argument or file,\n"
        "2 when a lookup found nothing."));
    parser.addHelpOption();
    QString const root = dataRoot();
    QCommandLineOption dataOpt(QStringLiteral("data"),
        QStringLiteral("Folder holding snapshot.jsonl, replication.jsonl and terminal.json (default: the bundled market)."),
        QStringLiteral("dir"), root + QStringLiteral("/market"));
    QCommandLineOption schemaOpt(QStringLiteral("schema"), QStringLiteral("Schema of the tables (default: the bundled one)."),
        QStringLiteral("file"), root + QStringLiteral("/schema.json"));
    QCommandLineOption replayOpt(QStringLiteral("replay"), QStringLiteral("Replay the folder's replication.jsonl after the snapshot."));
    QCommandLineOption logOpt(QStringLiteral("log"), QStringLiteral("Replay this replication log after the snapshot."), QStringLiteral("file"));
    QCommandLineOption paceOpt(QStringLiteral("pace"), QStringLiteral("Wait this many milliseconds between replayed batches (default 0: full speed)."),
        QStringLiteral("ms"), QStringLiteral("0"));
    QCommandLineOption everyOpt(QStringLiteral("every-batch"), QStringLiteral("List every replayed batch, also those no directory signalled for."));
    QCommandLineOption quietOpt(QStringLiteral("quiet"), QStringLiteral("Neither list replayed batches nor show progress."));
    QCommandLineOption tablesOpt(QStringLiteral("tables"), QStringLiteral("List every table with its number of rows."));
    QCommandLineOption nowOpt(QStringLiteral("now"),
        QStringLiteral("Run the terminal's clock from this moment of the exchange's day (default: the moment in the "
                       "folder's terminal.json, else the machine's clock)."),
        QStringLiteral("yyyy-MM-dd HH:mm:ss"));
    QCommandLineOption asOpt(QStringLiteral("as"),
        QStringLiteral("The terminal user's login, the core's current login (default: the login in terminal.json)."),
        QStringLiteral("login"));
    QCommandLineOption langOpt(QStringLiteral("lang"),
        QStringLiteral("Language of the library's texts: ru or en (default: ru in a Russian locale, else en)."),
        QStringLiteral("ru|en"));
    parser.addOptions({dataOpt, schemaOpt, replayOpt, logOpt, paceOpt, everyOpt, quietOpt, tablesOpt, nowOpt, asOpt, langOpt});

    QList<LookupOption> const lookups = lookupOptions();
    std::vector<QCommandLineOption> lookupOpts;
    for (LookupOption const& l : lookups)
        lookupOpts.emplace_back(QLatin1String(l.name), QLatin1String(l.description), QLatin1String(l.valueName));
    for (QCommandLineOption const& o : lookupOpts) parser.addOption(o);
    OptionViews optionViews(parser);   // --option-board, --time
    addAccountOptions(parser);         // --login, --account
    OrderCommands orders(parser);      // --order, --cancel, --cancel-all, --send
    parser.process(app);

    if (!parser.positionalArguments().isEmpty())
        return fail(QStringLiteral("unexpected argument '%1' (see --help)").arg(parser.positionalArguments().first()));
    bool paceOk = false;
    int pace = parser.value(paceOpt).toInt(&paceOk);
    if (!paceOk || pace < 0) return fail(QStringLiteral("--pace needs a number of milliseconds, not '%1'").arg(parser.value(paceOpt)));
    QString lang = chosenLanguage(parser.value(langOpt));
    if (lang != QLatin1String("ru") && lang != QLatin1String("en"))
        return fail(QStringLiteral("--lang needs ru or en, not '%1'").arg(lang));
    QTranslator translator;
    QString noTranslation = loadTranslation(translator, lang, parser.isSet(langOpt));
    if (!noTranslation.isEmpty()) return fail(noTranslation);
    for (std::size_t k = 0; k < lookupOpts.size(); ++k)
        for (QString const& value : parser.values(lookupOpts[k])) {
            QString why = lookups[int(k)].check(value);
            if (!why.isEmpty()) return fail(QStringLiteral("--%1 %2: %3").arg(QLatin1String(lookups[int(k)].name), value, why));
        }

    QString const orderProblem = orders.check(parser);
    if (!orderProblem.isEmpty()) return fail(orderProblem);
    QString const optionProblem = optionViews.check(parser);
    if (!optionProblem.isEmpty()) return fail(optionProblem);

    QDir data(parser.value(dataOpt));
    QString snapshot = data.filePath(QStringLiteral("snapshot.jsonl"));
    QString log = parser.isSet(logOpt) ? parser.value(logOpt)
                : parser.isSet(replayOpt) ? data.filePath(QStringLiteral("replication.jsonl")) : QString();
    for (QString const& file : {parser.value(schemaOpt), snapshot, log})
        if (!file.isEmpty() && !QFileInfo(file).isFile()) return fail(QStringLiteral("%1: no such file").arg(file));

    // The moment and the user come from the command line, else from the market's own folder.
    TerminalContext context;
    QString error;
    if (!readTerminalContext(data.filePath(QStringLiteral("terminal.json")), context, error)) return fail(error);
    if (parser.isSet(nowOpt)) {
        if (!parseMoment(parser.value(nowOpt), context.now))
            return fail(QStringLiteral("--now needs a moment as \"yyyy-MM-dd HH:mm:ss\", not '%1'").arg(parser.value(nowOpt)));
        context.hasNow = true;
    }
    if (parser.isSet(asOpt)) {
        QString why = loginProblem(parser.value(asOpt));
        if (!why.isEmpty()) return fail(QStringLiteral("--as '%1': %2").arg(parser.value(asOpt), why));
        context.login = parser.value(asOpt);
    }
    if (context.hasNow) Clock::setRunningFrom(context.now);
    DefaultCore* core = DefaultCore::global();
    core->setCurrentLogin(context.login);
    out() << "Terminal: now " << (context.hasNow ? formatMoment(context.now) : QStringLiteral("by the machine's clock"))
          << ", user " << (context.login.isEmpty() ? QStringLiteral("(none)") : context.login)
          << ", texts " << (lang == QLatin1String("ru") ? "in Russian" : "in English") << "\n";
    out().flush();

    NotificationPrinter notifications(out());
    notifications.listen(core->coreSignals());
    bool const quiet = parser.isSet(quietOpt);
    Database* db = ICore::instance()->database();
    SignalLog signalLog;
    try {
        QElapsedTimer timer;
        timer.start();
        db->loadSchema(parser.value(schemaOpt));
        // Logins, accounts, streams and quasi-deals are followed from the
        // first batch, as a terminal binds them at start: they warn of
        // expiring passwords and notify the user.
        QList<QObject*> const boundAtStart = bindDirectories(db, DirectoryClass::AtStart);
        Progress loading("snapshot", !quiet);
        int batches = db->loadFileAtomically(snapshot, [&](int done, int total, QString const&) {
            deliverQueuedNotifications();
            loading.step(done, total);
        });
        int rows = 0;
        for (QString const& name : db->tableNames()) rows += db->table(name)->rowCount();
        out() << "Loaded " << snapshot << ": " << batches << " batches, " << rows << " rows in " << db->tableNames().size()
              << " tables, " << timer.elapsed() << " ms\n";
        out().flush();

        // The directories a view would use, bound after the snapshot so that
        // they build from the full tables.
        QList<QObject*> const watched = bindDirectories(db, DirectoryClass::AfterLoading);
        for (QObject* d : watched + boundAtStart) signalLog.watch(d);
        deliverQueuedNotifications();

        if (!log.isEmpty()) {
            timer.restart();
            bool const every = parser.isSet(everyOpt);
            if (!quiet)
                out() << "Replaying " << log << "\n"
                      << (every ? "Listed: every batch" : "Listed: each batch after which directories signalled dataChanged")
                      << " (number, table: directories; \"x20\": 20 signals in that batch)\n";
            Progress replaying("replay", !quiet);
            int replayed = db->loadFileAtomically(log, [&](int done, int total, QString const& table) {
                deliverQueuedNotifications();
                QString signalled = signalLog.take();
                if (!quiet && (every || !signalled.isEmpty())) {
                    Progress::clearLine();
                    out() << QStringLiteral("batch %1 %2: ").arg(done, 4).arg(table, -32)
                          << (signalled.isEmpty() ? QStringLiteral("(none)") : signalled) << "\n";
                }
                out().flush();
                replaying.step(done, total);
                if (pace > 0) QThread::msleep(ulong(pace));
            });
            out() << "Replayed " << log << ": " << replayed << " batches in " << timer.elapsed() << " ms\n";
            out().flush();
        }
    } catch (Exception const& e) {
        return fail(e.message());
    } catch (QString const& e) {
        return fail(e);
    }

    if (parser.isSet(tablesOpt)) {
        out() << "Tables:\n";
        for (QString const& name : db->tableNames())
            out() << QStringLiteral("  %1 %2 rows\n").arg(name, -36).arg(db->table(name)->rowCount(), 8);
        out().flush();
    }
    // A question whose directory has no table in this market is refused with
    // the directory's own message.
    int status = Done;
    try {
        // Answered in the order given.
        QHash<QString, int> seen;
        for (QString const& name : parser.optionNames())
            for (LookupOption const& l : lookups) {
                if (name != QLatin1String(l.name)) continue;
                if (!l.answer(out(), parser.values(name).value(seen[name]++))) status = NotFound;
                out().flush();
            }
        QString optionError;
        if (!optionViews.answer(parser, out(), optionError)) return fail(optionError);
        if (!orders.requested(parser) && !answerAccountOptions(parser, out())) return BadInput;
        int const ordered = orders.run(parser, data.filePath(QStringLiteral("templates.json")), signalLog, out(), optionError);
        if (ordered == BadInput) return fail(optionError);
        if (ordered != Done) status = ordered;
    } catch (QString const& e) {
        return fail(e);
    }
    deliverQueuedNotifications();
    return status;
}
