#pragma once
#include <core/core_export.h>
#include "icore.h"
#include "usernotification.h"
#include <mutex>
#include <QObject>
#include <QStringList>
#include <atomic>
#include <memory>

class TransactionService;

// Signals of the default core. Kept apart from the core itself because a
// QObject base ahead of ICore would shift the slot numbers.
class CORE_EXPORT CoreSignals : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;

signals:
    // Emitted on the thread that notified; receivers in other threads get a
    // queued call through an automatic connection.
    void userNotification(QString const& text);
};

// The core a program gets when it installs none: owns an empty database and
// a transaction service without templates or transports; records every user
// notification. Login and password-warning settings are set by the program
// (warning on, 7 days ahead, empty login until told otherwise).
class CORE_EXPORT DefaultCore final : public ICore
{
public:
    DefaultCore();
    ~DefaultCore() override;

    // The process-wide default, created on first use and destroyed at exit
    // after everything that fetched it during start-up.
    static DefaultCore* global();

    Database* database() const override;
    ITransactionService* transactionService() const override;
    void notify(QString const& text, int flags, void* context, void* data) override;
    QString currentLogin() const override;
    bool passwordWarningEnabled() const override;
    int passwordWarningDays() const override;

    // The concrete service, for registering templates and plugging transports.
    TransactionService* transactions() const;
    CoreSignals* coreSignals() const;

    void setCurrentLogin(QString const& login);
    void setPasswordWarningEnabled(bool enabled);
    void setPasswordWarningDays(int days);

    // Every notification text received, oldest first.
    QStringList notifications() const;
    void clearNotifications();
    // Whether received notifications are kept for notifications() (they are
    // by default); a server that raises one per order and reads none keeps
    // none, so that its memory does not grow with its day.
    void setKeepingNotifications(bool keep);

private:
    std::unique_ptr<Database> m_database;
    std::unique_ptr<TransactionService> m_transactions;
    std::unique_ptr<CoreSignals> m_signals;

    mutable std::mutex m_mutex;   // guards the login and the notification list
    QString m_login;
    QStringList m_notifications;
    bool m_keepNotifications = true;
    std::atomic<bool> m_passwordWarning{true};
    std::atomic<int> m_passwordWarningDays{7};
};
