#pragma once
#include <database/replicationclient.h>

#include <QMainWindow>
#include <QStringList>

class AccountPanel;
class DefaultCore;
class FeedPlayer;
class MarketView;
class NotificationsPanel;
class OptionBoardView;
class OrderTicket;
class OrdersView;
class QLabel;
class QTabWidget;

class ReplayPanel;
class TradingPath;
struct NotificationLink;

// Where the terminal's market comes from.
struct TerminalOptions
{
    QString snapshot;      // loaded at start
    QString log;           // replayed on demand; empty: none
    bool replay = false;   // start replaying as soon as the snapshot is in
    int pace = 0;          // milliseconds between replayed batches
    // Set: the market comes from the exchange at host:port instead (no replay).
    QString host;
    quint16 port = 0;
    QString login;
    QByteArray password;                      // forgotten once the session is started
    ReplicationClient::Settings replication;  // TLS or not (the status line says when not)
};

// The demo terminal's main window over the library's directories. The
// database must have its schema loaded before the window is built (the
// views bind their directories then); the market itself comes in through
// loadMarket(), batch by batch, on this thread between events. `core` is the
// one the program set up: its database, and its signals for the
// notifications and the trading path.
class TerminalWindow : public QMainWindow
{
    Q_OBJECT
public:
    TerminalWindow(TerminalOptions const& options, DefaultCore& core, QWidget* parent = nullptr);
    ~TerminalWindow() override;

    // Starts loading the snapshot behind a progress dialog.
    void loadMarket();
    bool isMarketLoaded() const { return m_loaded; }

    MarketView* market() const { return m_market; }
    OptionBoardView* optionBoard() const { return m_optionBoard; }
    OrderTicket* ticket() const { return m_ticket; }
    OrdersView* orders() const { return m_orders; }
    AccountPanel* accounts() const { return m_accounts; }
    NotificationsPanel* notifications() const { return m_notifications; }
    ReplayPanel* replay() const { return m_replay; }
    FeedPlayer* snapshotPlayer() const { return m_snapshotPlayer; }
    FeedPlayer* logPlayer() const { return m_logPlayer; }
    TradingPath* trading() const { return m_trading; }
    // Following an exchange: the client, and the status line that shows its
    // state, sequence and lag. Null when the market comes from files.
    ReplicationClient* replication() const { return m_replication; }
    QLabel* connectionStatus() const { return m_connectionStatus; }
    QTabWidget* tabs() const { return m_tabs; }
    // Every error shown so far, oldest first.
    QStringList const& errors() const { return m_errors; }

    // Shows an error without blocking the window (a message box the user
    // closes) and keeps it in errors().
    void reportError(QString const& title, QString const& message);

signals:
    void marketLoaded();
    void errorReported(QString const& message);

private:
    void followExchange(class Database* db);
    void openStreamTicket(int stock, int board, long long secId, long long streamId);
    void showDeal(NotificationLink const& deal);

    TerminalOptions m_options;
    FeedPlayer* m_snapshotPlayer;
    FeedPlayer* m_logPlayer;
    MarketView* m_market;
    OptionBoardView* m_optionBoard;
    OrderTicket* m_ticket;
    OrdersView* m_orders;
    AccountPanel* m_accounts;
    NotificationsPanel* m_notifications;
    ReplayPanel* m_replay;
    ReplicationClient* m_replication = nullptr;
    QLabel* m_connectionStatus = nullptr;
    TradingPath* m_trading;
    QTabWidget* m_tabs;
    QStringList m_errors;
    bool m_loaded = false;
};
