#include "users.h"

#include "datetime.h"
#include "masterindex.h"
#include "masterindex.h"

#include <core/icore.h>
#include <core/usernotification.h>

#include <mutex>

namespace {
constexpr int kSmaFlag = 4;
constexpr quint32 kDayMSecs = 86400000u;
} // namespace

K3UserDirectory::K3UserDirectory(QObject* parent)
    : Directory(parent, staticMetaObject)
{
    resolveColumns({{m_login, "login"}, {m_clientCode, "client_code"}, {m_smaFlags, "sma_flags"},
                    {m_aspref, "aspref"}, {m_passwordExpiration, "password_expiration_date"}});
    // The first pass feeds add() with every row, so logins whose passwords
    // are about to expire are warned of while the directory is created.
    build();
    if (QSharedPointer<Table> t = table()) {
        m_loginIndex = ownIndex(new MasterIndex_Column(t.data(), QList<int>{m_login}));
        m_loginIndex->build();
        m_asprefIndex = ownIndex(new MasterIndex_Column(t.data(), QList<int>{m_aspref}));
        m_asprefIndex->build();
        m_byLogin = DirectoryKey<QString>(t, m_loginIndex, {m_login});
        m_byAspref = DirectoryKey<int>(t, m_asprefIndex, {m_aspref});
    }
}

QStringList K3UserDirectory::getUserList() const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    return m_users.keys();   // a QMap's keys are ascending and distinct
}

bool K3UserDirectory::isUser(QString const& login) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    auto it = m_users.lowerBound(login);
    // An empty text is a prefix of anything, even of a null key.
    return it != m_users.end() && (login.isEmpty() || it.key().startsWith(login));
}

bool K3UserDirectory::isSMALogin(QString const& login) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    return m_smaLogins.contains(login);
}

bool K3UserDirectory::isSMALogin(Record const& row)
{
    if (row.isEmpty()) return false;
    Field flags = row.data(QStringLiteral("sma_flags"));
    return flags.hasValue() && (flags.toInteger() & kSmaFlag) != 0;
}

QStringList K3UserDirectory::getSMALogins() const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    return m_smaLogins;
}

QString K3UserDirectory::loginByAspref(int aspref) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    Record row = m_byAspref.find(aspref);
    return row.isEmpty() ? QString() : row.data(m_login).toString();
}

QString K3UserDirectory::clientCodeByUser(QString const& login) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    if (login.isEmpty()) return QString();
    Record row = m_byLogin.find(login);
    return row.isEmpty() ? QString() : row.data(m_clientCode).toString();
}

int K3UserDirectory::asprefByLogin(QString const& login) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    if (login.isEmpty()) return 0;
    Record row = m_byLogin.find(login);
    return row.isEmpty() ? 0 : row.data(m_aspref).toInteger();
}

qint64 K3UserDirectory::warningSpanMSecs(int days)
{
    // Unsigned multiplication wraps without undefined behaviour; the
    // conversion back to 32 bits signed is taken modulo 2^32 (two's
    // complement), which is the wrap the horizon has always had.
    quint32 product = quint32(days) * kDayMSecs;
    return qint64(qint32(product));
}

void K3UserDirectory::clear()
{
    m_users.clear();
    m_smaLogins.clear();
}

void K3UserDirectory::build()
{
    QSharedPointer<Table> t = table();
    if (!t) return;
    std::lock_guard<Table const> lock(*t);
    for (auto it = t->masterIndex()->begin(); it != t->masterIndex()->end(); ++it) add(*it);
}

void K3UserDirectory::add(Record const& record)
{
    QString login = record.data(m_login).toString().trimmed();
    m_users.insert(login, record.data(m_clientCode).toString());
    if (isSMALogin(record)) m_smaLogins.append(login);
    warnOfPasswordExpiry(record, login);
}

void K3UserDirectory::remove(Record const& record, int)
{
    QString login = record.data(m_login).toString().trimmed();
    m_users.remove(login);
    m_smaLogins.removeOne(login);
}

void K3UserDirectory::endUpdate() { Q_EMIT dataChanged(); }

void K3UserDirectory::warnOfPasswordExpiry(Record const& record, QString const& login)
{
    ICore* core = ICore::instance();
    if (!core || !core->passwordWarningEnabled()) return;
    qint64 span = warningSpanMSecs(core->passwordWarningDays());
    qint64 expiry = record.data(m_passwordExpiration).toDatetime().toMSecs();
    if (!(expiry < datetime::now().toMSecs() + span)) return;
    if (expiry < datetime::now().toMSecs()) return;   // already expired: not warned of

    // The link to the password dialog is composed but not attached: the
    // receiver of a notification with a link offers it to the user, and
    // this notification has always come without one.
    QUrl const link = UserNotification::linkTo(QStringLiteral("password"), QStringLiteral("/passwordExpirationDate"),
                                               {{QStringLiteral("login"), login}});
    Q_UNUSED(link);

    QString shown = UserNotification::escaped(login);
    QString text = login == core->currentLogin()
        ? tr("<p>По данным на конец вчерашнего дня у логина <span style=\"color: blue;\"><b>%1</b></span> "
             "вашего участника торгов/клиринга приближается дата истечения пароля</p>").arg(shown)
        : tr("<p>По данным на конец вчерашнего дня у логина <b>%1</b> вашего участника торгов/клиринга "
             "приближается дата истечения пароля</p>").arg(shown);
    UserNotification(2, text).sendTo(core);
}

// The one instance of each directory class here.
DIRECTORY_SINGLETON_DEFINE(K3UserDirectory)
