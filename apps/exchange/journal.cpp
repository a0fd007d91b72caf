#include "journal.h"

#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRandomGenerator>

namespace exchange {

QString newHistory()
{
    QByteArray bytes(16, Qt::Uninitialized);
    for (char& b : bytes) b = char(QRandomGenerator::system()->bounded(256));
    return QString::fromLatin1(bytes.toHex());
}

Journal::Journal(QString const& path, QString const& day) : m_path(path), m_file(path)
{
    if (QFileInfo(path).exists() && QFileInfo(path).size() > 0) read(day);
    else start(day);
}

void Journal::start(QString const& day)
{
    m_history = newHistory();
    if (!m_file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        throw QStringLiteral("%1: %2").arg(m_path, m_file.errorString());
    QJsonObject const header{{QStringLiteral("journal"), 1}, {QStringLiteral("day"), day}, {QStringLiteral("history"), m_history}};
    m_file.write(QJsonDocument(header).toJson(QJsonDocument::Compact) + '\n');
    if (!m_file.flush()) throw QStringLiteral("%1: %2").arg(m_path, m_file.errorString());
}

void Journal::read(QString const& day)
{
    if (!m_file.open(QIODevice::ReadWrite)) throw QStringLiteral("%1: %2").arg(m_path, m_file.errorString());
    auto refuse = [&](int line, QString const& why) { return QStringLiteral("%1:%2: %3").arg(m_path).arg(line).arg(why); };
    QByteArray const first = m_file.readLine();
    QJsonParseError parse;
    QJsonObject const header = QJsonDocument::fromJson(first.trimmed(), &parse).object();
    if (!first.endsWith('\n') || parse.error != QJsonParseError::NoError || header.value(QStringLiteral("journal")).toInt() != 1 ||
        !header.value(QStringLiteral("day")).isString() || !header.value(QStringLiteral("history")).isString())
        throw refuse(1, QStringLiteral("not a journal of this exchange"));
    QString const ownDay = header.value(QStringLiteral("day")).toString();
    if (ownDay != day) {
        // Another day's batches are no use to this one, and are not thrown away.
        m_file.close();
        m_aside = m_path + QLatin1Char('.') + QString(ownDay).replace(QLatin1Char('/'), QLatin1Char('-'));
        QFile::remove(m_aside);
        if (!QFile::rename(m_path, m_aside)) throw QStringLiteral("%1: cannot move it aside to %2").arg(m_path, m_aside);
        m_file.setFileName(m_path);
        return start(day);
    }
    m_history = header.value(QStringLiteral("history")).toString();
    qint64 good = m_file.pos();
    int line = 1;
    while (!m_file.atEnd()) {
        QByteArray text = m_file.readLine();
        ++line;
        if (!text.endsWith('\n')) break;   // cut short by a crash: never sent, dropped
        text.chop(1);
        int const a = text.indexOf(' ');
        int const b = a < 0 ? -1 : text.indexOf(' ', a + 1);
        bool ok = false;
        Entry e;
        e.sequence = a > 0 ? text.left(a).toULongLong(&ok) : 0;
        if (!ok || b < 0) throw refuse(line, QStringLiteral("not \"sequence source batch\""));
        if (e.sequence != quint64(m_entries.size()) + 1)
            throw refuse(line, QStringLiteral("sequence %1 where %2 was due").arg(e.sequence).arg(m_entries.size() + 1));
        e.source = QString::fromUtf8(text.mid(a + 1, b - a - 1));
        if (e.source.startsWith(QLatin1String("log:"))) {
            e.logLine = e.source.mid(4).toInt(&ok);
            if (!ok || e.logLine <= 0) throw refuse(line, QStringLiteral("a bad source '%1'").arg(e.source));
        } else if (e.source != QLatin1String("exchange")) {
            throw refuse(line, QStringLiteral("a bad source '%1'").arg(e.source));
        }
        e.batch = text.mid(b + 1);
        m_entries.push_back(std::move(e));
        good = m_file.pos();
    }
    if (!m_file.resize(good) || !m_file.seek(good)) throw QStringLiteral("%1: %2").arg(m_path, m_file.errorString());
}

void Journal::append(quint64 sequence, QString const& source, QByteArray const& batch)
{
    QByteArray line = QByteArray::number(sequence) + ' ' + source.toUtf8() + ' ' + batch + '\n';
    if (m_file.write(line) != line.size() || !m_file.flush()) throw QStringLiteral("%1: %2").arg(m_path, m_file.errorString());
}

} // namespace exchange
