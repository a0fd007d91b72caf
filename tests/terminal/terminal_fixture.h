#pragma once
// Opens the terminal's window on the bundled market as main() sets it up;
// the views and the core the window's tests reach.
#include "accounts.h"
#include "binding.h"
#include "context.h"
#include "feed.h"
#include "marketview.h"
#include "optionboard.h"
#include "replay.h"
#include "window.h"

#include <core/clock.h>
#include <core/defaultcore.h>
#include <core/transactions.h>
#include <database/batch.h>
#include <database/database.h>
#include <database/settings.h>
#include <directories>

#include <QComboBox>
#include <QPushButton>
#include <QSignalSpy>
#include <QTabWidget>
#include "exchangesecurity.h"

#include <QTableView>
#include <QTemporaryDir>
#include <QTest>
#include <QTreeWidget>
#include <QtCharts/QLineSeries>
#include <gtest/gtest.h>
#include <memory>

QString const kMarket = QStringLiteral(MARKET_DIR);

// The terminal as main() sets it up: the market's moment and user, the
// schema, the directories bound at start, the window, then the snapshot
// (from the files, or from the exchange on `exchangePort` of 127.0.0.1,
// over TLS verified against `authorities`, or plain TCP without them).
inline std::unique_ptr<TerminalWindow> openTerminal(QString const& log = kMarket + "/replication.jsonl", quint16 exchangePort = 0,
                                                    QList<QSslCertificate> const& authorities = {})
{
    apps::TerminalContext context;
    QString error;
    EXPECT_TRUE(apps::readTerminalContext(kMarket + "/terminal.json", context, error)) << error.toStdString();
    Clock::setFixed(context.now);
    DefaultCore::global()->setCurrentLogin(context.login);
    // Confirmation answers stay in a file of this case's own.
    static QTemporaryDir settings;
    Settings::setStorageFile(settings.filePath("settings.ini"));
    Database* db = ICore::instance()->database();
    db->loadSchema(QStringLiteral(SCHEMA_FILE));
    EXPECT_TRUE(DefaultCore::global()->transactions()->loadTemplates(kMarket + "/templates.json", error)) << error.toStdString();
    apps::bindDirectories(db, DirectoryClass::AtStart);
    TerminalOptions options;
    options.snapshot = kMarket + "/snapshot.jsonl";
    options.log = log;
    if (exchangePort) {
        options.host = QStringLiteral("127.0.0.1");
        options.port = exchangePort;
        options.login = context.login;
        options.password = testPassword(context.login);
        options.replication.insecure = authorities.isEmpty();
        options.replication.authorities = authorities;
    }
    auto window = std::make_unique<TerminalWindow>(options, *DefaultCore::global());
    window->show();
    QSignalSpy loaded(window.get(), &TerminalWindow::marketLoaded);
    window->loadMarket();
    EXPECT_TRUE(loaded.wait(20000));
    return window;
}
