// directory-console: loads a replicated market (schema and snapshot; the
// bundled one unless told otherwise), optionally replays a replication log,
// reports which directories signalled for each replayed batch, and answers
// lookups given on the command line.
#include "accounts.h"
#include "lookups.h"
#include "signallog.h"

#include <core/icore.h>
#include <database/database.h>
#include <database/exception.h>
#include <directories>

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QMap>
#include <QTextStream>
#include <QThread>
#include <cstdio>
#include <unistd.h>

namespace {

QTextStream& out()
{
    static QTextStream s(stdout);
    return s;
}

int fail(QString const& message)
{
    out().flush();
    QTextStream(stderr) << "directory-console: " << message << "\n";
    return 1;
}

void progress(char const* what, int done, int total)
{
    static bool tty = isatty(fileno(stderr));
    if (!tty || total < 20) return;
    if (done == total || done % std::max(1, total / 50) == 0)
        std::fprintf(stderr, "\r%s: %3d%% (%d of %d batches)%s", what, done * 100 / total, done, total, done == total ? "\n" : "");
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("directory-console"));
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Loads a replicated market into the terminal's database, replays its replication log if asked,\n"
        "reports which directories signalled for each replayed batch, and answers lookups.\n"
        "Lookup options may be repeated; they are answered after loading (and replaying)."));
    parser.addHelpOption();
    QCommandLineOption dataOpt(QStringLiteral("data"),
        QStringLiteral("Folder holding snapshot.jsonl and replication.jsonl (default: the bundled market)."),
        QStringLiteral("dir"), QStringLiteral(SOURCE_DIR "/data/market"));
    QCommandLineOption schemaOpt(QStringLiteral("schema"), QStringLiteral("Schema of the tables (default: the bundled one)."),
        QStringLiteral("file"), QStringLiteral(SOURCE_DIR "/data/schema.json"));
    QCommandLineOption replayOpt(QStringLiteral("replay"), QStringLiteral("Replay the folder's replication.jsonl after the snapshot."));
    QCommandLineOption logOpt(QStringLiteral("log"), QStringLiteral("Replay this replication log after the snapshot."), QStringLiteral("file"));
    QCommandLineOption paceOpt(QStringLiteral("pace"), QStringLiteral("Wait this many milliseconds between replayed batches (default 0: full speed)."),
        QStringLiteral("ms"), QStringLiteral("0"));
    QCommandLineOption quietOpt(QStringLiteral("quiet"), QStringLiteral("Do not list the signals of each replayed batch."));
    QCommandLineOption tablesOpt(QStringLiteral("tables"), QStringLiteral("Print the rows of every table."));
    QCommandLineOption securityOpt(QStringLiteral("security"), QStringLiteral("Look up a security by text id, e.g. 1,14,2000001."), QStringLiteral("stock,board,id"));
    QCommandLineOption codeOpt(QStringLiteral("sec-code"), QStringLiteral("Look up a security by code, optionally on a market and board: CODE[@STOCK[,BOARD]]."), QStringLiteral("code"));
    QCommandLineOption isinOpt(QStringLiteral("isin"), QStringLiteral("Look up a security by its series: STOCK,BOARD,ISIN."), QStringLiteral("stock,board,isin"));
    QCommandLineOption boardOpt(QStringLiteral("board"), QStringLiteral("Look up a board: STOCK,BOARD."), QStringLiteral("stock,board"));
    QCommandLineOption boardCodeOpt(QStringLiteral("board-code"), QStringLiteral("Look up a board by codes: STOCKCODE,BOARDCODE."), QStringLiteral("codes"));
    QCommandLineOption marketOpt(QStringLiteral("market"), QStringLiteral("Look up a market by number or code."), QStringLiteral("id|code"));
    parser.addOptions({dataOpt, schemaOpt, replayOpt, logOpt, paceOpt, quietOpt, tablesOpt, securityOpt, codeOpt, isinOpt,
                       boardOpt, boardCodeOpt, marketOpt});
    console::addAccountOptions(parser);
    parser.process(app);
    if (!parser.positionalArguments().isEmpty())
        return fail(QStringLiteral("unexpected argument '%1' (see --help)").arg(parser.positionalArguments().first()));
    bool paceOk = false;
    int pace = parser.value(paceOpt).toInt(&paceOk);
    if (!paceOk || pace < 0) return fail(QStringLiteral("--pace needs a number of milliseconds, not '%1'").arg(parser.value(paceOpt)));

    QDir data(parser.value(dataOpt));
    QString snapshot = data.filePath(QStringLiteral("snapshot.jsonl"));
    QString log = parser.isSet(logOpt) ? parser.value(logOpt)
                : parser.isSet(replayOpt) ? data.filePath(QStringLiteral("replication.jsonl")) : QString();
    for (QString const& file : {parser.value(schemaOpt), snapshot, log})
        if (!file.isEmpty() && !QFileInfo(file).isFile()) return fail(QStringLiteral("%1: no such file").arg(file));

    Database* db = ICore::instance()->database();
    SignalLog signalLog;
    try {
        QElapsedTimer timer;
        timer.start();
        db->loadSchema(parser.value(schemaOpt));
        console::bindAccountDirectories(db);
        int batches = db->loadFileAtomically(snapshot, [](int done, int total, QString const&) { progress("snapshot", done, total); });
        int rows = 0;
        for (QString const& name : db->tableNames()) rows += db->table(name)->rowCount();
        out() << "Loaded " << snapshot << ": " << batches << " batches, " << rows << " rows in " << db->tableNames().size()
              << " tables, " << timer.elapsed() << " ms\n";

        // The directories a view would use, bound after the snapshot so that
        // they build from the full tables.
        QList<QObject*> watched{SecurityDirectory::i(), StockSecDirectory::i(), BoardDirectory::i(), StockDirectory::i()};
        if (db->hasTable(QStringLiteral("buysells"))) watched << BuySellDirectory::i();
        if (db->hasTable(QStringLiteral("statuses"))) watched << StatusDirectory::i();
        if (db->hasTable(QStringLiteral("sectypes"))) watched << SecTypeDirectory::i();
        if (db->hasTable(QStringLiteral("secstates"))) watched << SecStateDirectory::i();
        if (db->hasTable(QStringLiteral("sessstates"))) watched << SessStateDirectory::i();
        for (QObject* d : watched) signalLog.watch(d);

        if (!log.isEmpty()) {
            timer.restart();
            bool quiet = parser.isSet(quietOpt);
            int replayed = db->loadFileAtomically(log, [&](int done, int total, QString const& table) {
                if (!quiet) out() << QStringLiteral("batch %1 %2: ").arg(done, 4).arg(table, -32) << signalLog.take() << "\n";
                else signalLog.take();
                progress("replay", done, total);
                if (pace > 0) QThread::msleep(ulong(pace));
            });
            out() << "Replayed " << log << ": " << replayed << " batches in " << timer.elapsed() << " ms\n";
        }
    } catch (Exception const& e) {
        return fail(e.message());
    } catch (QString const& e) {
        return fail(e);
    }

    if (parser.isSet(tablesOpt)) {
        for (QString const& name : db->tableNames())
            out() << QStringLiteral("  %1 %2\n").arg(name, -36).arg(db->table(name)->rowCount(), 8);
    }
    struct Lookup { QCommandLineOption const& option; bool (*answer)(QTextStream&, QString const&); };
    for (Lookup const& l : {Lookup{securityOpt, console::lookupSecurity}, Lookup{codeOpt, console::lookupSecurityByCode},
                            Lookup{isinOpt, console::lookupIsin}, Lookup{boardOpt, console::lookupBoard},
                            Lookup{boardCodeOpt, console::lookupBoardByCode}, Lookup{marketOpt, console::lookupMarket}}) {
        for (QString const& value : parser.values(l.option))
            if (!l.answer(out(), value))
                return fail(QStringLiteral("--%1: cannot read '%2' (see --help)").arg(l.option.names().first(), value));
    }
    if (!console::answerAccountOptions(parser, out())) return 1;
    return 0;
}
