#include "servedexchange.h"

#include "passwords.h"

#include <QRandomGenerator>

#include <QDeadlineTimer>
#include <QFile>
#include <algorithm>

namespace bench {


namespace {
// A login goes to the served process as a word of a command line.
bool isWord(QString const& text)
{
    return !text.isEmpty() && std::none_of(text.begin(), text.end(), [](QChar c) { return c.isSpace() || c.category() == QChar::Other_Control; });
}

} // namespace

ServedExchange::~ServedExchange()
{
    if (m_process.state() != QProcess::NotRunning) quit();
}

bool ServedExchange::start(QString const& program, QString const& market, QString const& schema, QStringList const& logins, QString& error,
                           QStringList const& serveArguments)
{
    if (logins.isEmpty() || !std::all_of(logins.begin(), logins.end(), isWord)) {
        error = QStringLiteral("an exchange needs logins without spaces to serve: %1").arg(logins.join(QStringLiteral(", ")));
        return false;
    }
    QProcess certificates;
    certificates.start(QStringLiteral("bash"), {QStringLiteral(SOURCE_DIR "/scripts/make-certs.sh"), m_security.path()});
    if (!certificates.waitForFinished(60000) || certificates.exitCode() != 0) {
        error = QStringLiteral("make-certs.sh: ") + QString::fromLocal8Bit(certificates.readAllStandardError());
        return false;
    }
    m_password = QByteArray("bench-") + QByteArray::number(QRandomGenerator::system()->generate64(), 16);
    try {
        for (QString const& login : logins) exchange::Users::setPassword(m_security.filePath(QStringLiteral("users")), login, m_password);
    } catch (QString const& why) {
        error = why;
        return false;
    }
    m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    connect(&m_process, &QProcess::readyReadStandardOutput, this, &ServedExchange::readLines);
    m_process.start(program, QStringList{QStringLiteral("serve"), QStringLiteral("--market"), market, QStringLiteral("--schema"), schema,
                                         QStringLiteral("--security"), m_security.path(), QStringLiteral("--stream-of"), logins.first()}
                                 + serveArguments);
    if (!m_process.waitForStarted(30000)) {
        error = QStringLiteral("cannot start %1: %2").arg(program, m_process.errorString());
        return false;
    }
    QByteArray line;
    // Loading the 1M market's snapshot takes a while.
    if (!waitLine("listening ", 600000, line)) {
        error = QStringLiteral("%1 serve did not start listening").arg(program);
        return false;
    }
    QList<QByteArray> const words = line.split(' ');
    m_port = quint16(words.value(1).toUInt());
    m_startSequence = words.value(2).toULongLong();
    m_loadedPeak = words.value(3).toLongLong();
    m_messagesPerSecond = words.value(4).toInt();
    m_messageBurst = words.value(5).toInt();
    return m_port != 0;
}

QList<QSslCertificate> ServedExchange::authorities() const { return QSslCertificate::fromPath(m_security.filePath(QStringLiteral("ca.pem"))); }

void ServedExchange::play(int pace)
{
    m_process.write(QByteArray("play ") + QByteArray::number(pace) + '\n');
}

bool ServedExchange::waitPlayed(int ms)
{
    QDeadlineTimer deadline(ms);
    while (!m_played && m_process.state() == QProcess::Running && !deadline.hasExpired()) {
        m_process.waitForReadyRead(int(qMax<qint64>(1, deadline.remainingTime())));
        readLines();
    }
    return m_played;
}

QMap<QString, QByteArray> ServedExchange::checksums(QString const& login, int ms)
{
    QMap<QString, QByteArray> sums;
    if (!login.isEmpty() && !isWord(login)) return sums;
    m_process.write(login.isEmpty() ? QByteArray("checksums\n") : "checksums " + login.toUtf8() + '\n');
    QByteArray line;
    while (waitLine("checksum", ms, line) && line != "checksums end") {
        QList<QByteArray> const words = line.split(' ');
        sums.insert(QString::fromUtf8(words.value(1)), QByteArray::fromHex(words.value(2)));
    }
    return sums;
}

quint64 ServedExchange::lastSequenceOf(QString const& login, int ms)
{
    if (!isWord(login)) return 0;
    m_process.write("last " + login.toUtf8() + '\n');
    QByteArray line;
    return waitLine("last ", ms, line) ? line.split(' ').value(1).toULongLong() : 0;
}

ServedExchange::Usage ServedExchange::usage(int ms)
{
    m_process.write("usage\n");
    QByteArray line;
    if (!waitLine("usage ", ms, line)) return {};
    QList<QByteArray> const words = line.split(' ');
    return {words.value(1).toLongLong(), words.value(2).toLongLong(), words.value(3).toLongLong()};
}

void ServedExchange::quit()
{
    m_process.write("quit\n");
    m_process.closeWriteChannel();
    if (!m_process.waitForFinished(30000)) {
        m_process.kill();
        m_process.waitForFinished(5000);
    }
}

void ServedExchange::readLines()
{
    m_buffer += m_process.readAllStandardOutput();
    int end;
    while ((end = m_buffer.indexOf('\n')) >= 0) {
        QByteArray const line = m_buffer.left(end);
        m_buffer.remove(0, end + 1);
        handle(line);
    }
}

void ServedExchange::handle(QByteArray const& line)
{
    if (line.startsWith("stamp ")) {
        QList<QByteArray> const w = line.split(' ');
        m_stamps.push_back({w.value(1).toULongLong(), w.value(2).toLongLong(), w.value(3).toLongLong()});
    } else if (line.startsWith("played ")) {
        m_playedBatches = line.split(' ').value(1).toInt();
        m_last = line.split(' ').value(2).toULongLong();
        m_played = true;
        emit played(m_last);
    } else {
        m_pending << line;
    }
}

bool ServedExchange::waitLine(QByteArray const& prefix, int ms, QByteArray& line)
{
    QDeadlineTimer deadline(ms);
    for (;;) {
        for (int k = 0; k < m_pending.size(); ++k)
            if (m_pending[k].startsWith(prefix)) {
                line = m_pending.takeAt(k);
                return true;
            }
        if (m_process.state() != QProcess::Running || deadline.hasExpired()) return false;
        m_process.waitForReadyRead(int(qMax<qint64>(1, deadline.remainingTime())));
        readLines();
    }
}

} // namespace bench
