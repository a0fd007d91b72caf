#pragma once
// What tests that run an exchange share: its users and its TLS
// certificates, made once per test program in a folder of its own.
#include "passwords.h"
#include "startup.h"

#include <QProcess>
#include <QSslCertificate>
#include <QSslKey>
#include <QStringList>
#include <QTemporaryDir>
#include <memory>

// The password of each test login.
inline QByteArray testPassword(QString const& login) { return "pw-" + login.toUtf8(); }

// A users file of the bundled market's logins FA01U01, FA01U02 and FB01U01.
inline QString testUsersFile()
{
    static QTemporaryDir dir;
    static QString const path = [] {
        QString const file = dir.filePath(QStringLiteral("users"));
        for (char const* login : {"FA01U01", "FA01U02", "FB01U01"})
            exchange::Users::setPassword(file, QString::fromLatin1(login), testPassword(QString::fromLatin1(login)));
        return file;
    }();
    return path;
}

inline std::shared_ptr<exchange::Users const> testUsers()
{
    static std::shared_ptr<exchange::Users const> const users = std::make_shared<exchange::Users const>(testUsersFile());
    return users;
}

// A certificate authority, a server certificate it signed for 127.0.0.1 and
// localhost, and a second authority that signed nothing of ours, made by
// scripts/make-certs.sh when first asked for; empty paths when it failed.
struct TestCertificates
{
    QString ca, cert, key, otherCa;
    QString error;   // what openssl said when it failed

    QList<QSslCertificate> chain() const { return QSslCertificate::fromPath(cert); }
    QSslKey privateKey() const
    {
        QSslKey read;
        apps::readPrivateKey(key, read);
        return read;
    }
    QList<QSslCertificate> authorities() const { return QSslCertificate::fromPath(ca); }
};

inline TestCertificates const& testCertificates()
{
    static QTemporaryDir dir;
    static TestCertificates const made = [] {
        TestCertificates c;
        for (char const* folder : {"ours", "other"}) {
            QProcess p;
            p.start(QStringLiteral("bash"), {QStringLiteral(SOURCE_DIR "/scripts/make-certs.sh"), dir.filePath(QString::fromLatin1(folder))});
            if (!p.waitForFinished(30000) || p.exitStatus() != QProcess::NormalExit || p.exitCode() != 0) {
                c.error = QStringLiteral("make-certs.sh: ") + QString::fromLocal8Bit(p.readAllStandardError());
                return c;
            }
        }
        c.ca = dir.filePath(QStringLiteral("ours/ca.pem"));
        c.cert = dir.filePath(QStringLiteral("ours/server.pem"));
        c.key = dir.filePath(QStringLiteral("ours/server.key"));
        c.otherCa = dir.filePath(QStringLiteral("other/ca.pem"));
        return c;
    }();
    return made;
}
