#include <core/icore.h>
#include <core/usernotification.h>

#include <QUrlQuery>

UserNotification::UserNotification(int kind, QString message, QString link)
    : kind(kind), message(std::move(message)), link(std::move(link))
{
}

UserNotification UserNotification::parse(QString const& text)
{
    // The kind runs to the first bar and the link starts after the last one:
    // a link never holds a bar (it goes encoded), a message may.
    UserNotification n;
    int first = text.indexOf(QLatin1Char('|'));
    int last = text.lastIndexOf(QLatin1Char('|'));
    bool numeric = false;
    int kind = first < 0 ? 0 : text.leftRef(first).toInt(&numeric);
    if (last == first || !numeric) {
        n.message = text;
        return n;
    }
    n.kind = kind;
    n.message = text.mid(first + 1, last - first - 1);
    n.link = text.mid(last + 1);
    return n;
}

QString UserNotification::text() const
{
    // A plain message is written alone unless it would read back as a record
    // of its own (a number and two bars at its start).
    if (kind == 0 && link.isEmpty() && parse(message).message == message) return message;
    return QString::number(kind) + QLatin1Char('|') + message + QLatin1Char('|') + link;
}

void UserNotification::sendTo(ICore* core) const
{
    if (core) core->notify(text(), 0, nullptr, nullptr);
}

QString UserNotification::escaped(QString const& outside) { return outside.toHtmlEscaped(); }

QString UserNotification::escapedAnswer(QString const& answer)
{
    return escaped(answer).replace(QLatin1Char('|'), QStringLiteral("&#124;"));
}

QUrl UserNotification::linkTo(QString const& host, QString const& path, QList<QPair<QString, QString>> const& items)
{
    QUrl link;
    link.setScheme(QStringLiteral("vtrm+stream"));
    link.setHost(host, QUrl::DecodedMode);
    link.setPath(path, QUrl::DecodedMode);
    QUrlQuery query;
    for (QPair<QString, QString> const& item : items) {
        QString value = item.second;
        value.replace(QLatin1Char('%'), QLatin1String("%25"));
        value.replace(QLatin1Char('+'), QLatin1String("%2B"));
        query.addQueryItem(item.first, value);
    }
    link.setQuery(query);
    return link;
}
