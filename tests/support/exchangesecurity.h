#pragma once
// What tests that run an exchange share: its users and its TLS
// certificates, made once per test program in a folder of its own.
#include "passwords.h"

#include <QFile>
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
// localhost, and a second authority that signed nothing of ours. Made with
// the openssl command when first asked for; empty paths when it failed.
struct TestCertificates
{
    QString ca, cert, key, otherCa;
    QString error;   // what openssl said when it failed

    QList<QSslCertificate> chain() const { return QSslCertificate::fromPath(cert); }
    QSslKey privateKey() const
    {
        QFile f(key);
        f.open(QIODevice::ReadOnly);
        return QSslKey(f.readAll(), QSsl::Ec);
    }
    QList<QSslCertificate> authorities() const { return QSslCertificate::fromPath(ca); }
};

inline TestCertificates const& testCertificates()
{
    static QTemporaryDir dir;
    static TestCertificates const made = [] {
        TestCertificates c;
        auto run = [&](QStringList const& args) {
            QProcess p;
            p.setWorkingDirectory(dir.path());
            p.start(QStringLiteral("openssl"), args);
            if (!p.waitForFinished(30000) || p.exitCode() != 0) {
                c.error = QStringLiteral("openssl %1: %2").arg(args.join(' '), QString::fromLocal8Bit(p.readAllStandardError()));
                return false;
            }
            return true;
        };
        QString const ext = dir.filePath(QStringLiteral("server.ext"));
        QFile f(ext);
        f.open(QIODevice::WriteOnly);
        f.write("subjectAltName=IP:127.0.0.1,DNS:localhost\nbasicConstraints=CA:FALSE\nkeyUsage=digitalSignature\nextendedKeyUsage=serverAuth\n");
        f.close();
        QStringList const ec{QStringLiteral("-newkey"), QStringLiteral("ec"), QStringLiteral("-pkeyopt"), QStringLiteral("ec_paramgen_curve:P-256"),
                             QStringLiteral("-nodes")};
        bool const ok =
            run(QStringList{"req", "-x509", "-days", "2", "-subj", "/CN=Test exchange CA", "-keyout", "ca.key", "-out", "ca.pem"} + ec) &&
            run(QStringList{"req", "-x509", "-days", "2", "-subj", "/CN=Another CA", "-keyout", "other.key", "-out", "other.pem"} + ec) &&
            run(QStringList{"req", "-subj", "/CN=127.0.0.1", "-keyout", "server.key", "-out", "server.csr"} + ec) &&
            run({"x509", "-req", "-in", "server.csr", "-CA", "ca.pem", "-CAkey", "ca.key", "-CAcreateserial", "-days", "2", "-extfile",
                 "server.ext", "-out", "server.pem"});
        if (ok) {
            c.ca = dir.filePath(QStringLiteral("ca.pem"));
            c.cert = dir.filePath(QStringLiteral("server.pem"));
            c.key = dir.filePath(QStringLiteral("server.key"));
            c.otherCa = dir.filePath(QStringLiteral("other.pem"));
        }
        return c;
    }();
    return made;
}
