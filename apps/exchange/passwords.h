#pragma once
#include <QByteArray>
#include <QHash>
#include <QObject>
#include <QPointer>
#include <QString>
#include <functional>
#include <memory>
#include <thread>

class QSocketNotifier;

namespace exchange {

// Who may open a session: a file of logins and their password hashes, one
// "LOGIN HASH" a line ('#' starts a comment), where HASH is argon2id's
// encoded form ("$argon2id$v=19$m=...,t=...,p=...$salt$hash"), so that the
// cost it was made with travels with it.
//
// Why argon2id (Debian's libargon2) and not PBKDF2: it is memory-hard, so a
// stolen file costs an attacker's graphics cards as much memory per guess as
// it costs us; and at its recommended cost (19 MiB, 2 passes) a check takes
// about 20 ms here, where PBKDF2-SHA256 at its recommended 600,000 rounds
// through Qt's QPasswordDigestor takes 630 ms on the same machine.
class Users
{
public:
    // Reads `path`. Throws a text naming the file and line of what is wrong.
    explicit Users(QString const& path);

    // The login's hash, or empty when it is not in the file.
    QByteArray hashOf(QString const& login) const { return m_hashes.value(login); }
    int size() const { return m_hashes.size(); }

    // Sets LOGIN's password in `path` (adding the login, or replacing its
    // hash), writing the whole file anew, readable by its owner only.
    // Throws a text when the login, the password or the disk refuses.
    static void setPassword(QString const& path, QString const& login, QByteArray const& password);

    static QByteArray hash(QByteArray const& password);
    // False for a wrong password and for a malformed hash.
    static bool verify(QByteArray const& encoded, QByteArray const& password);
    // A hash of nothing anybody's password is, checked for unknown logins so
    // that a refusal takes as long whichever of the two was wrong.
    static QByteArray const& decoy();

private:
    QHash<QString, QByteArray> m_hashes;
};

// Checks passwords on a thread of its own, one at a time: a slow,
// memory-hard check must not stall the sessions being served, and a flood
// of logins then costs one core and one check's memory, never more. Results
// come back on the thread that made the checker, through its event loop.
class PasswordChecker : public QObject
{
public:
    using Done = std::function<void(bool ok)>;
    explicit PasswordChecker(QObject* parent = nullptr);
    ~PasswordChecker() override;
    // `done` is called later, on this object's thread, unless `context` is
    // gone by then.
    void check(QByteArray const& encoded, QByteArray const& password, QObject* context, Done done);

private:
    struct Shared;
    struct Pending
    {
        QPointer<QObject> context;
        Done done;
    };
    void deliver();
    std::shared_ptr<Shared> m_shared;
    QHash<quint64, Pending> m_pending;   // by id, waiting for their results
    quint64 m_nextId = 0;
    std::thread m_thread;
    QSocketNotifier* m_notifier;
};

} // namespace exchange
