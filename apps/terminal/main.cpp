// directory-terminal: a desktop window over the library. Loads a replicated
// market (the bundled one unless told otherwise) batch by batch without
// blocking the window, and replays its replication log on demand.
#include "binding.h"
#include "context.h"
#include "startup.h"
#include "window.h"

#include <core/clock.h>
#include <core/defaultcore.h>
#include <core/transactions.h>
#include <database/database.h>
#include <database/exception.h>
#include <gateway/simulatedgateway.h>

#include <QApplication>
#include <QCommandLineParser>
#include <QDir>
#include <QFileInfo>
#include <QMessageBox>
#include <QTextStream>
#include <QTranslator>

using namespace apps;

namespace {
// Before the window exists, a refusal goes to the terminal and, where there
// is a screen, to a message box.
int refuse(QString const& message)
{
    QTextStream(stderr) << "directory-terminal: " << message << "\n";
    QMessageBox box(QMessageBox::Critical, QStringLiteral("directory-terminal"), message);
    box.setTextFormat(Qt::PlainText);
    box.exec();
    return 1;
}
} // namespace

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("directory-terminal"));
    QString const root = dataRoot(DIRECTORY_DATA_FROM_BINARY);
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("A trading terminal's window over the replicated market: markets and securities, "
                                                    "option board and smile, order ticket and orders, account, notifications."));
    parser.addHelpOption();
    QCommandLineOption dataOpt(QStringLiteral("data"),
        QStringLiteral("Folder holding snapshot.jsonl, replication.jsonl and terminal.json (default: the bundled market)."),
        QStringLiteral("dir"), root + QStringLiteral("/market"));
    QCommandLineOption schemaOpt(QStringLiteral("schema"), QStringLiteral("Schema of the tables (default: the bundled one)."),
        QStringLiteral("file"), root + QStringLiteral("/schema.json"));
    QCommandLineOption replayOpt(QStringLiteral("replay"), QStringLiteral("Start replaying the log as soon as the snapshot is loaded."));
    QCommandLineOption logOpt(QStringLiteral("log"), QStringLiteral("Replication log to replay (default: the folder's replication.jsonl)."),
        QStringLiteral("file"));
    QCommandLineOption paceOpt(QStringLiteral("pace"), QStringLiteral("Milliseconds between replayed batches (default 0: full speed)."),
        QStringLiteral("ms"), QStringLiteral("0"));
    QCommandLineOption nowOpt(QStringLiteral("now"), QStringLiteral("Run the terminal's clock from this moment (default: terminal.json)."),
        QStringLiteral("yyyy-MM-dd HH:mm:ss"));
    QCommandLineOption asOpt(QStringLiteral("as"), QStringLiteral("The terminal user's login (default: terminal.json)."), QStringLiteral("login"));
    QCommandLineOption langOpt(QStringLiteral("lang"), QStringLiteral("Language of the texts: ru or en (default: by the locale)."),
        QStringLiteral("ru|en"));
    parser.addOptions({dataOpt, schemaOpt, replayOpt, logOpt, paceOpt, nowOpt, asOpt, langOpt});
    parser.process(app);

    QString const lang = chosenLanguage(parser.value(langOpt));
    if (lang != QLatin1String("ru") && lang != QLatin1String("en")) return refuse(QStringLiteral("--lang needs ru or en, not '%1'").arg(lang));
    QTranslator translator;
    QString const noTranslation = installTranslation(translator, lang, root);
    if (!noTranslation.isEmpty() && parser.isSet(langOpt)) return refuse(noTranslation);
    bool paceOk = false;
    int const pace = parser.value(paceOpt).toInt(&paceOk);
    if (!paceOk || pace < 0) return refuse(QStringLiteral("--pace needs a number of milliseconds, not '%1'").arg(parser.value(paceOpt)));

    QDir const data(parser.value(dataOpt));
    TerminalOptions options;
    options.snapshot = data.filePath(QStringLiteral("snapshot.jsonl"));
    options.log = parser.isSet(logOpt) ? parser.value(logOpt) : data.filePath(QStringLiteral("replication.jsonl"));
    if (!QFileInfo(options.log).isFile() && !parser.isSet(logOpt)) options.log.clear();
    options.replay = parser.isSet(replayOpt);
    options.pace = pace;

    TerminalContext context;
    QString error;
    if (!readTerminalContext(data.filePath(QStringLiteral("terminal.json")), context, error)) return refuse(error);
    if (parser.isSet(nowOpt)) {
        if (!parseMoment(parser.value(nowOpt), context.now))
            return refuse(QStringLiteral("--now needs a moment as \"yyyy-MM-dd HH:mm:ss\", not '%1'").arg(parser.value(nowOpt)));
        context.hasNow = true;
    }
    if (parser.isSet(asOpt)) {
        QString const why = loginProblem(parser.value(asOpt));
        if (!why.isEmpty()) return refuse(QStringLiteral("--as '%1': %2").arg(parser.value(asOpt), why));
        context.login = parser.value(asOpt);
    }
    if (context.hasNow) Clock::setRunningFrom(context.now);
    DefaultCore::global()->setCurrentLogin(context.login);

    // The tables must exist before the views bind their directories; the
    // rows come later, batch by batch, with the window up.
    Database* db = ICore::instance()->database();
    try {
        db->loadSchema(parser.value(schemaOpt));
        bindDirectories(db, DirectoryClass::AtStart);
    } catch (Exception const& e) {
        return refuse(e.message());
    } catch (QString const& e) {
        return refuse(e);
    }
    // The simulated exchange stands where the connection to the exchange
    // would: the transport of the core's transaction service, answering from
    // the templates of the market folder.
    QString const templates = data.filePath(QStringLiteral("templates.json"));
    if (QFileInfo(templates).isFile() && !DefaultCore::global()->transactions()->loadTemplates(templates, error))
        return refuse(error);
    SimulatedGateway exchange(ICore::instance());
    exchange.plugInto(DefaultCore::global()->transactions());
    TerminalWindow window(options);
    window.show();
    window.loadMarket();
    return app.exec();
}
