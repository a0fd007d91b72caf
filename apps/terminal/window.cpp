#include "window.h"
#include "accounts.h"
#include "feed.h"
#include "marketview.h"
#include "notifications.h"
#include "optionboard.h"
#include "orderentry.h"
#include "orders.h"
#include "replay.h"
#include "trading.h"

#include <core/defaultcore.h>
#include <core/icore.h>
#include <database/database.h>

#include <QComboBox>
#include <QDockWidget>
#include <QFileInfo>
#include <QMessageBox>
#include <database/replicationclient.h>

#include <QLabel>
#include <QProgressDialog>
#include <QStatusBar>
#include <QTabWidget>
#include <QTimer>
#include <QToolBar>

TerminalWindow::TerminalWindow(TerminalOptions const& options, DefaultCore& core, QWidget* parent)
    : QMainWindow(parent), m_options(options)
{
    setWindowTitle(tr("Терминал срочного рынка"));
    Database* db = core.database();
    m_snapshotPlayer = new FeedPlayer(db, this);
    m_logPlayer = new FeedPlayer(db, this);

    // Notifications first: the other views' directories may raise some as
    // they bind.
    m_notifications = new NotificationsPanel;
    m_notifications->listen(core.coreSignals());

    m_market = new MarketView;
    m_optionBoard = new OptionBoardView;
    m_orders = new OrdersView;
    m_ticket = new OrderTicket;
    m_accounts = new AccountPanel;
    m_replay = new ReplayPanel(m_logPlayer);
    m_replay->setLog(options.log);
    m_replay->setPace(options.pace);

    m_tabs = new QTabWidget;
    m_tabs->addTab(m_market, tr("Рынок"));
    m_tabs->addTab(m_optionBoard, tr("Опционная доска"));
    m_tabs->addTab(m_orders, tr("Заявки"));
    setCentralWidget(m_tabs);

    auto dock = [this](QWidget* w, QString const& title, Qt::DockWidgetArea area) {
        auto* d = new QDockWidget(title, this);
        d->setObjectName(title);
        d->setWidget(w);
        if (area == Qt::RightDockWidgetArea) w->setMaximumWidth(400);   // the boards keep the width
        d->setFeatures(QDockWidget::DockWidgetMovable | QDockWidget::DockWidgetFloatable);
        addDockWidget(area, d);
        return d;
    };
    QDockWidget* ticketDock = dock(m_ticket, tr("Заявка"), Qt::RightDockWidgetArea);
    dock(m_accounts, tr("Счёт"), Qt::RightDockWidgetArea);
    QDockWidget* notificationsDock = dock(m_notifications, tr("Уведомления"), Qt::BottomDockWidgetArea);
    // Sized once the window has its own size, so that the board keeps most of it.
    QTimer::singleShot(0, this, [this, ticketDock, notificationsDock] {
        resizeDocks({ticketDock}, {380}, Qt::Horizontal);
        resizeDocks({notificationsDock}, {120}, Qt::Vertical);
    });
    auto* bar = addToolBar(tr("Воспроизведение"));
    bar->setObjectName(QStringLiteral("replay"));
    bar->setMovable(false);
    bar->addWidget(m_replay);
    statusBar()->showMessage(tr("Загрузка рынка…"));
    if (!options.host.isEmpty()) {
        bar->hide();
        followExchange(db);
    }

    connect(m_market, &MarketView::securityChosen, m_ticket, &OrderTicket::setSecurity);
    connect(m_optionBoard, &OptionBoardView::optionChosen, m_ticket, &OrderTicket::setSecurity);
    connect(m_accounts, &AccountPanel::accountChosen, m_ticket, &OrderTicket::setAccount);
    connect(m_notifications, &NotificationsPanel::streamOrderRequested, this, &TerminalWindow::openStreamTicket);
    connect(m_notifications, &NotificationsPanel::dealDetailsRequested, this, &TerminalWindow::showDeal);
    connect(m_notifications, &NotificationsPanel::unknownLink, this,
            [this](QString const& link) { statusBar()->showMessage(tr("Ссылка не поддерживается: %1").arg(link.left(200))); });
    auto accountsChanged = [this] {
        QStringList accounts;
        for (int k = 0; k < m_accounts->accountBox()->count(); ++k) accounts << m_accounts->accountBox()->itemText(k);
        m_ticket->setAccounts(accounts);
        m_ticket->setAccount(m_accounts->account());
    };
    connect(m_accounts, &AccountPanel::accountChosen, this, accountsChanged);
    accountsChanged();

    // Orders leave through the library's fast path to whatever transport the
    // core's transaction service has (the simulated exchange in the demo).
    m_trading = new TradingPath(m_ticket, m_orders, this);
    m_trading->listen(core.coreSignals());

    connect(m_snapshotPlayer, &FeedPlayer::failed, this, [this](QString const& message) {
        reportError(tr("Ошибка загрузки рынка"), message);
        statusBar()->showMessage(tr("Рынок загружен не полностью"));
    });
    connect(m_snapshotPlayer, &FeedPlayer::indexFailed, this,
            [this](QString const& message) { reportError(tr("Ошибка обработки пакета"), message); });
    connect(m_logPlayer, &FeedPlayer::indexFailed, this,
            [this](QString const& message) { reportError(tr("Ошибка обработки пакета"), message); });
    connect(m_replay, &ReplayPanel::failed, this,
            [this](QString const& message) { reportError(tr("Ошибка журнала репликации"), message); });
    connect(m_snapshotPlayer, &FeedPlayer::finished, this, [this](int batches) {
        m_loaded = true;
        statusBar()->showMessage(tr("Рынок загружен: %1 пакетов из %2").arg(batches).arg(QFileInfo(m_options.snapshot).fileName()));
        emit marketLoaded();
        if (m_options.replay) m_replay->start();
    });
    resize(1560, 960);
}

TerminalWindow::~TerminalWindow()
{
    // Stop the readers before the views they feed go.
    if (m_replication) m_replication->stop();
    m_logPlayer->stop();
    m_snapshotPlayer->stop();
}

// The market from the exchange: the replay controls go, a status line
// tells the connection's state, the sequence applied and the lag.
void TerminalWindow::followExchange(Database* db)
{
    m_replication = new ReplicationClient(db, this);
    m_connectionStatus = new QLabel;
    m_connectionStatus->setTextFormat(Qt::PlainText);
    m_connectionStatus->setObjectName(QStringLiteral("connectionStatus"));
    statusBar()->addPermanentWidget(m_connectionStatus);
    // Redrawn at most every 200 ms: a live day changes the sequence far more often.
    auto* redraw = new QTimer(this);
    redraw->setSingleShot(true);
    redraw->setInterval(200);
    connect(redraw, &QTimer::timeout, this, [this] {
        ReplicationClient::State const state = m_replication->state();
        QString shown = ReplicationClient::stateName(state);
        if (state == ReplicationClient::State::Disconnected || state == ReplicationClient::State::Stopped)
            shown = m_replication->stateText();
        QString const line = m_options.replication.insecure ? tr("Биржа %1 БЕЗ ШИФРОВАНИЯ: %2 · последовательность %3 · отставание %4")
                                                : tr("Биржа %1: %2 · последовательность %3 · отставание %4");
        m_connectionStatus->setText(line.arg(m_replication->endpoint(), shown).arg(m_replication->lastApplied()).arg(m_replication->lag()));
    });
    auto update = [redraw] { if (!redraw->isActive()) redraw->start(); };
    connect(m_replication, &ReplicationClient::stateChanged, this, [this, update](ReplicationClient::State state, QString const& text) {
        update();
        // A snapshot after the first one loads the market again: what it raises
        // again (password warnings, stream openings) is already on the screen.
        if (state == ReplicationClient::State::LoadingSnapshot) m_notifications->setSkipRepeats(m_loaded);
        if (state == ReplicationClient::State::Stopped) reportError(tr("Репликация остановлена"), text);
    });
    connect(m_replication, &ReplicationClient::batchApplied, this, update);
    connect(m_replication, &ReplicationClient::snapshotLoaded, this, [this, update] {
        update();
        m_notifications->setSkipRepeats(false);
        if (m_loaded) return;
        m_loaded = true;
        statusBar()->showMessage(tr("Рынок загружен с биржи %1").arg(m_replication->endpoint()));
        emit marketLoaded();
    });
    connect(m_replication, &ReplicationClient::indexFailed, this,
            [this](QString const& message) { reportError(tr("Ошибка обработки пакета"), message); });
    update();
}

void TerminalWindow::loadMarket()
{
    if (m_replication) {
        m_replication->setSettings(m_options.replication);
        m_replication->start(m_options.host, m_options.port, m_options.login, m_options.password);
        m_options.password.fill('\0');
        m_options.password.clear();
        return;
    }
    QString error;
    if (!m_snapshotPlayer->start(m_options.snapshot, error)) {
        reportError(tr("Ошибка загрузки рынка"), error);
        return;
    }
    auto* progress = new QProgressDialog(tr("Загрузка рынка…"), QString(), 0, 1000, this);
    progress->setWindowModality(Qt::WindowModal);
    progress->setMinimumDuration(300);
    progress->setAutoClose(false);
    connect(m_snapshotPlayer, &FeedPlayer::progress, progress, [progress](int, qint64 read, qint64 total) {
        progress->setValue(total > 0 ? int(read * 1000 / total) : 0);
    });
    auto done = [progress] { progress->deleteLater(); };
    connect(m_snapshotPlayer, &FeedPlayer::finished, progress, done);
    connect(m_snapshotPlayer, &FeedPlayer::failed, progress, done);
}

void TerminalWindow::reportError(QString const& title, QString const& message)
{
    m_errors << message;
    statusBar()->showMessage(message.left(300));
    auto* box = new QMessageBox(QMessageBox::Warning, title, message, QMessageBox::Ok, this);
    box->setTextFormat(Qt::PlainText);   // messages quote the data they refuse
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->open();
    emit errorReported(message);
}

void TerminalWindow::openStreamTicket(int stock, int board, long long secId, long long streamId)
{
    m_ticket->openOnStream(stock, board, secId, streamId);
    for (QDockWidget* d : findChildren<QDockWidget*>())
        if (d->widget() == m_ticket) {
            d->show();
            d->raise();
        }
    m_ticket->setFocus();
}

void TerminalWindow::showDeal(NotificationLink const& deal)
{
    auto* dialog = new DealDetailsDialog(deal, this);
    dialog->show();
}
