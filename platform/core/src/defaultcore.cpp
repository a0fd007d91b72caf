#include <core/defaultcore.h>
#include <core/transactions.h>
#include <database/database.h>

DefaultCore::DefaultCore()
    : m_database(new Database)
    , m_transactions(new TransactionService)
    , m_signals(new CoreSignals)
{
}

DefaultCore::~DefaultCore() = default;

DefaultCore* DefaultCore::global()
{
    // A function static: built on first use, thread-safe, and destroyed after
    // the directories that fetched it while they were being created.
    static DefaultCore core;
    return &core;
}

Database* DefaultCore::database() const { return m_database.get(); }
ITransactionService* DefaultCore::transactionService() const { return m_transactions.get(); }
TransactionService* DefaultCore::transactions() const { return m_transactions.get(); }
CoreSignals* DefaultCore::coreSignals() const { return m_signals.get(); }

void DefaultCore::notify(QString const& text, int, void*, void*)
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_keepNotifications) m_notifications.append(text);
    }
    // Emitted unlocked: a receiver may read the list back.
    emit m_signals->userNotification(text);
}

void DefaultCore::setKeepingNotifications(bool keep)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_keepNotifications = keep;
    if (!keep) m_notifications.clear();
}

QString DefaultCore::currentLogin() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_login;
}

bool DefaultCore::passwordWarningEnabled() const { return m_passwordWarning.load(); }
int DefaultCore::passwordWarningDays() const { return m_passwordWarningDays.load(); }

void DefaultCore::setCurrentLogin(QString const& login)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_login = login;
}

void DefaultCore::setPasswordWarningEnabled(bool enabled) { m_passwordWarning.store(enabled); }
void DefaultCore::setPasswordWarningDays(int days) { m_passwordWarningDays.store(days); }

QStringList DefaultCore::notifications() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_notifications;
}

void DefaultCore::clearNotifications()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_notifications.clear();
}
