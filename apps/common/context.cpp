#include "context.h"

#include <QDateTime>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

namespace apps {

bool parseMoment(QString const& text, qint64& msecs)
{
    // Qt's own parser accepts a few looser forms; the shape is checked first.
    static QRegularExpression const shape(QStringLiteral("^\\d{4}-\\d{2}-\\d{2} \\d{2}:\\d{2}:\\d{2}$"));
    if (!shape.match(text).hasMatch()) return false;
    QDateTime moment = QDateTime::fromString(text, QStringLiteral("yyyy-MM-dd HH:mm:ss"));
    if (!moment.isValid()) return false;
    msecs = QDateTime(moment.date(), moment.time(), Qt::UTC).toMSecsSinceEpoch();
    return true;
}

QString formatMoment(qint64 msecs)
{
    return QDateTime::fromMSecsSinceEpoch(msecs, Qt::UTC).toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"));
}

QString loginProblem(QString const& login)
{
    if (login.isEmpty()) return QStringLiteral("a login cannot be empty");
    if (login.size() > 12) return QStringLiteral("a login has at most 12 characters");
    for (QChar c : login)
        if (!c.isPrint() || c.isSpace() || c == QLatin1Char('|'))
            return QStringLiteral("a login has no spaces, bars or control characters");
    return QString();
}

bool readTerminalContext(QString const& path, TerminalContext& context, QString& error)
{
    context = TerminalContext();
    QFile file(path);
    if (!file.exists()) return true;
    auto refuse = [&](QString const& why) {
        error = QStringLiteral("%1: %2").arg(path, why);
        return false;
    };
    if (!file.open(QIODevice::ReadOnly)) return refuse(file.errorString());
    if (file.size() > 4096) return refuse(QStringLiteral("larger than 4096 bytes"));
    QJsonParseError parseError;
    QJsonDocument doc = QJsonDocument::fromJson(file.readAll(), &parseError);
    if (parseError.error != QJsonParseError::NoError) return refuse(QStringLiteral("bad JSON: ") + parseError.errorString());
    if (!doc.isObject()) return refuse(QStringLiteral("not a JSON object"));
    QJsonObject const object = doc.object();
    for (auto it = object.begin(); it != object.end(); ++it) {
        QString const key = it.key();
        if (key == QLatin1String("now")) {
            if (!it.value().isString() || !parseMoment(it.value().toString(), context.now))
                return refuse(QStringLiteral("'now' needs a moment as \"yyyy-MM-dd HH:mm:ss\""));
            context.hasNow = true;
        } else if (key == QLatin1String("login")) {
            if (!it.value().isString()) return refuse(QStringLiteral("'login' needs a string"));
            QString why = loginProblem(it.value().toString());
            if (!why.isEmpty()) return refuse(QStringLiteral("'login': ") + why);
            context.login = it.value().toString();
        } else if (key == QLatin1String("day")) {
            static QRegularExpression const shape(QStringLiteral("^[0-9A-Za-z._-]{1,32}$"));
            if (!it.value().isString() || !shape.match(it.value().toString()).hasMatch())
                return refuse(QStringLiteral("'day' needs 1 to 32 letters, digits, '.', '_' or '-'"));
            context.day = it.value().toString();
        } else {
            return refuse(QStringLiteral("unknown key '%1'").arg(key));
        }
    }
    if (context.day.isEmpty() && context.hasNow) context.day = formatMoment(context.now).left(10);
    return true;
}

QString parseEndpoint(QString const& text, QString& host, quint16& port, bool anyPort)
{
    int const colon = text.lastIndexOf(QLatin1Char(':'));
    bool ok = false;
    uint const number = colon > 0 ? text.mid(colon + 1).toUInt(&ok) : 0;
    if (colon <= 0 || !ok || number > 65535 || (number == 0 && !anyPort))
        return QStringLiteral("'%1' is not HOST:PORT").arg(text);
    host = text.left(colon);
    if (host.startsWith(QLatin1Char('[')) && host.endsWith(QLatin1Char(']'))) host = host.mid(1, host.size() - 2);
    port = quint16(number);
    return QString();
}

} // namespace apps
