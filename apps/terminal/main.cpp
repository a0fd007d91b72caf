// directory-terminal: a desktop window over the library. Loads a replicated
// market (the bundled one unless told otherwise) batch by batch without
// blocking the window, and replays its replication log on demand.
#include "binding.h"
#include "startup.h"
#include "window.h"

#include <core/defaultcore.h>
#include <core/transactions.h>
#include <database/database.h>
#include <database/exception.h>
#include <gateway/sessiontransport.h>
#include <gateway/simulatedgateway.h>

#include <QApplication>
#include <QCommandLineParser>
#include <QFileInfo>
#include <QMessageBox>
#include <QTextStream>
#include <memory>

using namespace apps;

namespace {
// Before the window exists, a refusal goes to the terminal and, where there
// is a screen, to a message box. Without one (offscreen, minimal) nobody
// could close the box and the program would never end.
int refuse(QString const& message)
{
    QTextStream(stderr) << "directory-terminal: " << message << "\n";
    QString const platform = QGuiApplication::platformName();
    if (platform == QLatin1String("offscreen") || platform == QLatin1String("minimal")) return BadInput;
    QMessageBox box(QMessageBox::Critical, QStringLiteral("directory-terminal"), message);
    box.setTextFormat(Qt::PlainText);
    box.exec();
    return BadInput;
}
} // namespace

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("directory-terminal"));
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("A trading terminal's window over the replicated market: markets and securities, "
                                                    "option board and smile, order ticket and orders, account, notifications.\n") +
                                     exitStatusHelp({Done, BadInput}));
    parser.addHelpOption();
    CommonOptions common(parser, dataRoot(DIRECTORY_DATA_FROM_BINARY), CommonOptions::Replay::OnDemand);
    parser.process(app);
    QString error = common.check();
    if (!error.isEmpty()) return refuse(error);
    DefaultCore& core = common.startCore();

    // The tables must exist before the views bind their directories; the
    // rows come later, batch by batch, with the window up.
    try {
        core.database()->loadSchema(common.schema());
        bindDirectories(core.database(), DirectoryClass::AtStart);
    } catch (Exception const& e) {
        return refuse(e.message());
    } catch (QString const& e) {
        return refuse(e);
    }
    QString const templates = common.dataFile(QStringLiteral("templates.json"));
    if (QFileInfo(templates).isFile() && !core.transactions()->loadTemplates(templates, error)) return refuse(error);
    TerminalOptions options;
    options.snapshot = common.snapshot();
    options.log = common.log();
    options.replay = common.replay();
    options.pace = common.pace();
    options.host = common.host();
    options.port = common.port();
    options.login = common.context().login;
    if (common.connects()) {
        options.password = common.readSessionPassword();
        options.replication = common.replicationSettings();
    }
    TerminalWindow window(options, core);
    options.password.fill('\0');
    // Orders go where the market comes from: over the exchange's session
    // when connected, else to the simulated exchange in-process, which
    // answers from the templates of the market folder.
    std::unique_ptr<SessionTransport> session;
    std::unique_ptr<SimulatedGateway> simulated;
    if (window.replication()) {
        session.reset(new SessionTransport(&core, window.replication()));
        session->plugInto(core.transactions());
    } else {
        simulated.reset(new SimulatedGateway(&core));
        simulated->plugInto(core.transactions());
    }
    window.show();
    window.loadMarket();
    return app.exec();
}
