// directory-console: loads the replicated tables from a schema and a
// snapshot (the bundled market unless told otherwise), optionally replays a
// replication log, and prints what the database holds.
#include <core/icore.h>
#include <database/database.h>
#include <database/exception.h>
#include <database/index.h>

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QTextStream>
#include <cstdio>

namespace {
QTextStream& out()
{
    static QTextStream s(stdout);
    return s;
}
int fail(QString const& message)
{
    QTextStream(stderr) << "directory-console: " << message << "\n";
    return 1;
}
} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("directory-console"));
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Loads a replicated market (schema + snapshot) and prints a summary of every table."));
    parser.addHelpOption();
    QCommandLineOption marketOpt(QStringLiteral("market"),
        QStringLiteral("Folder with snapshot.jsonl (and replication.jsonl). Default: the bundled market."),
        QStringLiteral("dir"), QStringLiteral(SOURCE_DIR "/data/market"));
    QCommandLineOption schemaOpt(QStringLiteral("schema"), QStringLiteral("Schema of the tables. Default: the bundled one."),
        QStringLiteral("file"), QStringLiteral(SOURCE_DIR "/data/schema.json"));
    QCommandLineOption replayOpt(QStringLiteral("replay"), QStringLiteral("Also replay the market's replication.jsonl."));
    parser.addOptions({marketOpt, schemaOpt, replayOpt});
    parser.process(app);
    if (!parser.positionalArguments().isEmpty())
        return fail(QStringLiteral("unexpected argument '%1' (see --help)").arg(parser.positionalArguments().first()));

    Database* db = ICore::instance()->database();
    QDir market(parser.value(marketOpt));
    QString snapshot = market.filePath(QStringLiteral("snapshot.jsonl"));
    QString log = market.filePath(QStringLiteral("replication.jsonl"));
    try {
        QElapsedTimer timer;
        timer.start();
        db->loadSchema(parser.value(schemaOpt));
        if (!QFileInfo::exists(snapshot)) return fail(QStringLiteral("%1: no such file").arg(snapshot));
        int batches = db->loadFileAtomically(snapshot);
        out() << "Loaded " << batches << " batches from " << snapshot << " in " << timer.elapsed() << " ms\n";
        if (parser.isSet(replayOpt)) {
            timer.restart();
            if (!QFileInfo::exists(log)) return fail(QStringLiteral("%1: no such file").arg(log));
            int replayed = db->loadFileAtomically(log);
            out() << "Replayed " << replayed << " batches from " << log << " in " << timer.elapsed() << " ms\n";
        }
    } catch (Exception const& e) {
        return fail(e.message());
    }
    out() << QStringLiteral("%1 %2 %3\n").arg(QStringLiteral("table"), -36).arg(QStringLiteral("rows"), 8).arg(QStringLiteral("row bytes"), 10);
    qint64 rows = 0;
    for (QString const& name : db->tableNames()) {
        QSharedPointer<Table> t = db->table(name);
        rows += t->rowCount();
        out() << QStringLiteral("%1 %2 %3\n").arg(name, -36).arg(t->rowCount(), 8).arg(t->rowSize(), 10);
    }
    out() << QStringLiteral("%1 tables, %2 rows\n").arg(db->tableNames().size()).arg(rows);
    return 0;
}
