#pragma once
#include "frame.h"

#include <database/record.h>

#include <QMap>
#include <QString>
#include <QStringList>

class MasterIndex_Column;

// Exchange logins known to the terminal ("k3.user"): which logins exist,
// their client codes and numeric ids ("aspref"), which are SMA logins, and
// a warning to the user when a login's password is about to expire.
//
// The users map and SMA list are keyed by the trimmed login, while the login
// index matches the stored text exactly, so " abc " is the user abc but
// clientCodeByUser("abc") finds nothing. isUser is a prefix test on purpose.
//
// Threading: registered as an index; its hooks run on the updating thread,
// and so does the password warning, which is handed to the core from add()
// (also while the directory is being created, by its first build). Every
// lookup reads the directory's own map and list or live rows without a lock
// and belongs on the updating thread too.
class DIRECTORY_EXPORT K3UserDirectory : public Directory
{
    Q_OBJECT
    DIRECTORY_SINGLETON(K3UserDirectory)
public:
    explicit K3UserDirectory(QObject* parent);

    // Distinct trimmed logins in ascending order.
    QStringList getUserList() const;
    // True when some known login begins with `login` (an empty text is a
    // user whenever any user is known).
    bool isUser(QString const& login) const;
    bool isSMALogin(QString const& login) const;
    // Bit value 4 of "sma_flags"; a null value is not SMA.
    static bool isSMALogin(Record const& row);
    QStringList getSMALogins() const;
    // The stored login text (untrimmed), or empty.
    QString loginByAspref(int aspref) const;
    // Exact match on the stored login; empty when unknown.
    QString clientCodeByUser(QString const& login) const;
    // 0 when unknown.
    int asprefByLogin(QString const& login) const;

    // The warning horizon in milliseconds: days times a day's milliseconds
    // in 32-bit arithmetic, wrapped as the terminal has always wrapped it
    // (25 to 49 days give a negative span, so nothing warns), then widened.
    static qint64 warningSpanMSecs(int days);

    void clear() override;
    void build() override;
    void add(Record const& record) override;
    void remove(Record const& record, int position) override;
    void endUpdate() override;
Q_SIGNALS:
    void dataChanged();

private:
    void warnOfPasswordExpiry(Record const& record, QString const& login);

    int m_login = -1;
    int m_clientCode = -1;
    int m_smaFlags = -1;
    int m_aspref = -1;
    int m_passwordExpiration = -1;
    MasterIndex_Column* m_loginIndex = nullptr;
    MasterIndex_Column* m_asprefIndex = nullptr;
    DirectoryKey<QString> m_byLogin;
    DirectoryKey<int> m_byAspref;
    QMap<QString, QString> m_users;   // trimmed login -> client code as stored
    QStringList m_smaLogins;          // trimmed, in order of arrival
};
