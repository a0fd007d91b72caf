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
        } else {
            return refuse(QStringLiteral("unknown key '%1'").arg(key));
        }
    }
    return true;
}

} // namespace apps
