#include "startup.h"

#include "password.h"

#include <core/clock.h>
#include <core/defaultcore.h>

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLocale>
#include <QTextStream>

namespace apps {

QString exitStatusHelp(QList<ExitStatus> const& statuses)
{
    QString help = QStringLiteral("Exit status:");
    for (ExitStatus s : statuses) {
        char const* meaning = s == Done       ? "done"
                            : s == BadInput   ? "a bad argument or file (nothing was sent)"
                            : s == NotFound   ? "a lookup found nothing"
                                              : "the exchange rejected what was sent";
        help += QStringLiteral("\n  %1  %2").arg(int(s)).arg(QLatin1String(meaning));
    }
    return help;
}

QString dataRoot(char const* fromBinary)
{
    return QDir::cleanPath(QDir(QCoreApplication::applicationDirPath()).filePath(QString::fromUtf8(fromBinary)));
}

CommonOptions::CommonOptions(QCommandLineParser& parser, QString const& dataRoot, Replay replay)
    : m_parser(parser), m_root(dataRoot), m_use(replay),
      m_data(QStringLiteral("data"),
             QStringLiteral("Folder holding snapshot.jsonl, replication.jsonl and terminal.json (default: the bundled market)."),
             QStringLiteral("dir"), dataRoot + QStringLiteral("/market")),
      m_schema(QStringLiteral("schema"), QStringLiteral("Schema of the tables (default: the bundled one)."), QStringLiteral("file"),
               dataRoot + QStringLiteral("/schema.json")),
      m_replay(QStringLiteral("replay"), replay == Replay::AfterSnapshot
                                             ? QStringLiteral("Replay the folder's replication.jsonl after the snapshot.")
                                             : QStringLiteral("Start replaying the log as soon as the snapshot is loaded.")),
      m_log(QStringLiteral("log"),
            replay == Replay::AfterSnapshot ? QStringLiteral("Replay this replication log after the snapshot.")
                                            : QStringLiteral("Replication log to replay (default: the folder's replication.jsonl)."),
            QStringLiteral("file")),
      m_pace(QStringLiteral("pace"), QStringLiteral("Wait this many milliseconds between replayed batches (default 0: full speed)."),
             QStringLiteral("ms"), QStringLiteral("0")),
      m_now(QStringLiteral("now"),
            QStringLiteral("Run the terminal's clock from this moment of the exchange's day (default: the moment in the "
                           "folder's terminal.json, else the machine's clock)."),
            QStringLiteral("yyyy-MM-dd HH:mm:ss")),
      m_as(QStringLiteral("as"), QStringLiteral("The terminal user's login, the core's current login (default: the login in terminal.json)."),
           QStringLiteral("login")),
      m_lang(QStringLiteral("lang"), QStringLiteral("Language of the library's texts: ru or en (default: ru in a Russian locale, else en)."),
             QStringLiteral("ru|en")),
      m_connect(QStringLiteral("connect"),
                QStringLiteral("Follow the exchange at HOST:PORT (directory-exchange) instead of loading the folder's files; the schema is still "
                               "read here. The password is read from standard input (typed without echo at a terminal)."),
                QStringLiteral("host:port")),
      m_ca(QStringLiteral("ca"), QStringLiteral("With --connect: the certificate authorities (PEM) the exchange's TLS certificate must chain to."),
           QStringLiteral("file")),
      m_cert(QStringLiteral("cert"), QStringLiteral("The exchange's TLS certificate, its chain after it (PEM)."), QStringLiteral("file")),
      m_key(QStringLiteral("key"), QStringLiteral("The private key of --cert (PEM, unencrypted)."), QStringLiteral("file")),
      m_insecure(QStringLiteral("insecure"),
                 replay == Replay::Served ? QStringLiteral("Serve plain TCP instead of TLS: passwords travel readable. For a local demo only.")
                                          : QStringLiteral("With --connect: plain TCP instead of TLS, the password readable on the way. For a local demo only."))
{
    parser.addOptions({m_data, m_schema, m_log, m_pace, m_now, m_as, m_lang, m_insecure});
    if (replay != Replay::Served) parser.addOptions({m_replay, m_connect, m_ca});
    else parser.addOptions({m_cert, m_key});
}

QString CommonOptions::dataFile(QString const& name) const { return QDir(m_parser.value(m_data)).filePath(name); }
QString CommonOptions::schema() const { return m_parser.value(m_schema); }
QString CommonOptions::snapshot() const { return dataFile(QStringLiteral("snapshot.jsonl")); }
bool CommonOptions::replay() const { return m_use == Replay::Served || m_parser.isSet(m_replay); }

QString CommonOptions::log() const
{
    if (m_parser.isSet(m_log)) return m_parser.value(m_log);
    QString const own = dataFile(QStringLiteral("replication.jsonl"));
    if (m_use == Replay::AfterSnapshot) return replay() ? own : QString();
    return QFileInfo(own).isFile() ? own : QString();   // a folder without a day has nothing to offer
}

QString readPrivateKey(QString const& path, QSslKey& key)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) return QStringLiteral("%1: %2").arg(path, file.errorString());
    QByteArray const pem = file.readAll();
    for (QSsl::KeyAlgorithm algorithm : {QSsl::Rsa, QSsl::Ec, QSsl::Dsa}) {
        key = QSslKey(pem, algorithm, QSsl::Pem);
        if (!key.isNull()) return QString();
    }
    return QStringLiteral("%1: no unencrypted PEM private key in it").arg(path);
}

// Sessions are encrypted unless --insecure: the exchange needs its
// certificate and key, a client the authorities to verify it with.
QString CommonOptions::checkTls()
{
    m_insecureSet = m_parser.isSet(m_insecure);
    if (m_use == Replay::Served) {
        if (m_insecureSet) {
            if (m_parser.isSet(m_cert) || m_parser.isSet(m_key)) return QStringLiteral("--insecure serves no TLS: no --cert or --key with it");
            return QString();
        }
        if (!m_parser.isSet(m_cert) || !m_parser.isSet(m_key))
            return QStringLiteral("sessions are encrypted: give --cert and --key (or --insecure for a local demo)");
        m_chain = QSslCertificate::fromPath(m_parser.value(m_cert), QSsl::Pem);
        if (m_chain.isEmpty()) return QStringLiteral("--cert %1: no PEM certificate in it").arg(m_parser.value(m_cert));
        QString const why = readPrivateKey(m_parser.value(m_key), m_privateKey);
        return why.isEmpty() ? QString() : QStringLiteral("--key ") + why;
    }
    if (!m_parser.isSet(m_connect)) {
        if (m_parser.isSet(m_ca) || m_insecureSet) return QStringLiteral("--ca and --insecure go with --connect");
        return QString();
    }
    if (m_insecureSet) {
        if (m_parser.isSet(m_ca)) return QStringLiteral("--insecure verifies no server: no --ca with it");
        return QString();
    }
    if (!m_parser.isSet(m_ca)) return QStringLiteral("--connect verifies the exchange: give --ca (or --insecure for a local demo)");
    m_authorities = QSslCertificate::fromPath(m_parser.value(m_ca), QSsl::Pem);
    if (m_authorities.isEmpty()) return QStringLiteral("--ca %1: no PEM certificate in it").arg(m_parser.value(m_ca));
    return QString();
}

ReplicationClient::Settings CommonOptions::replicationSettings() const
{
    ReplicationClient::Settings settings;
    settings.insecure = m_insecureSet;
    settings.authorities = m_authorities;
    return settings;
}

QByteArray CommonOptions::readSessionPassword() const
{
    return readPassword(QStringLiteral("Password of %1 at %2:%3: ").arg(m_context.login, m_host).arg(m_port));
}

QString CommonOptions::check()
{
    if (!m_parser.positionalArguments().isEmpty())
        return QStringLiteral("unexpected argument '%1' (see --help)").arg(m_parser.positionalArguments().first());
    bool paceOk = false;
    m_paceMs = m_parser.value(m_pace).toInt(&paceOk);
    if (!paceOk || m_paceMs < 0) return QStringLiteral("--pace needs a number of milliseconds, not '%1'").arg(m_parser.value(m_pace));

    // Russian texts are the sources; English is read from the translation. A
    // language not asked for but missing leaves the texts Russian.
    m_language = m_parser.value(m_lang);
    if (m_language.isEmpty())
        m_language = QLocale::system().language() == QLocale::Russian ? QStringLiteral("ru") : QStringLiteral("en");
    if (m_language != QLatin1String("ru") && m_language != QLatin1String("en"))
        return QStringLiteral("--lang needs ru or en, not '%1'").arg(m_language);
    if (m_language == QLatin1String("en")) {
        QString const dir = m_root + QStringLiteral("/translations");
        if (m_translator.load(QStringLiteral("libdirectory_en"), dir)) {
            QCoreApplication::installTranslator(&m_translator);
        } else {
            QString const missing = QStringLiteral("no 'en' translation in %1").arg(dir);
            if (m_parser.isSet(m_lang)) return missing;
            QTextStream(stderr) << QCoreApplication::applicationName() << ": " << missing << "; texts stay Russian\n";
            m_language = QStringLiteral("ru");
        }
    }

    if (m_use != Replay::Served && m_parser.isSet(m_connect)) {
        QString const why = parseEndpoint(m_parser.value(m_connect), m_host, m_port);
        if (!why.isEmpty()) return QStringLiteral("--connect: ") + why;
        if (m_parser.isSet(m_replay) || m_parser.isSet(m_log))
            return QStringLiteral("--connect follows the exchange's own day: no --replay or --log with it");
    }
    QString const tls = checkTls();
    if (!tls.isEmpty()) return tls;
    QStringList files{schema()};
    if (!connects()) files << snapshot() << log();
    for (QString const& file : files)
        if (!file.isEmpty() && !QFileInfo(file).isFile()) return QStringLiteral("%1: no such file").arg(file);

    // The moment and the user come from the command line, else from the market's own folder.
    QString error;
    if (!readTerminalContext(dataFile(QStringLiteral("terminal.json")), m_context, error)) return error;
    if (m_parser.isSet(m_now)) {
        if (!parseMoment(m_parser.value(m_now), m_context.now))
            return QStringLiteral("--now needs a moment as \"yyyy-MM-dd HH:mm:ss\", not '%1'").arg(m_parser.value(m_now));
        m_context.hasNow = true;
    }
    if (m_parser.isSet(m_as)) {
        QString const why = loginProblem(m_parser.value(m_as));
        if (!why.isEmpty()) return QStringLiteral("--as '%1': %2").arg(m_parser.value(m_as), why);
        m_context.login = m_parser.value(m_as);
    }
    if (connects() && m_context.login.isEmpty()) return QStringLiteral("--connect logs in: give --as LOGIN (or a login in terminal.json)");
    return QString();
}

DefaultCore& CommonOptions::startCore() const
{
    if (m_context.hasNow) Clock::setRunningFrom(m_context.now);
    DefaultCore* core = DefaultCore::global();
    core->setCurrentLogin(m_context.login);
    return *core;
}

} // namespace apps
