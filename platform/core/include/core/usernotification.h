#pragma once
#include <core/core_export.h>

#include <QList>
#include <QPair>
#include <QString>
#include <QUrl>

class ICore;

// A user notification as the core takes it: "<kind>|<message>|<link>", or a
// plain message alone. Every writer builds its text here (text()) and every
// reader takes one apart here (parse()), so the record is spelled once.
//
// Kinds in use: 0 a plain message (a stream closed, a deal's outcome); 1 a
// notice, with the link to follow when there is one (a stream opened, a
// deal to confirm, the exchange's acceptance); 2 the password warning; 3 the
// exchange's refusal. Kinds 2 and 3 carry no link.
//
// How each part is written:
// - message: shown as markup. The writer's own (translated) text stands as
//   it is; outside text placed in it (a login, a security or stream name)
//   goes through escaped(). Bars may stay: the reader takes the kind to the
//   first bar and the link after the last one, and a link never holds one.
// - a message that is an outside answer as a whole (the exchange's reply)
//   goes through escapedAnswer(): escaped, and its bars written "&#124;" for
//   readers that split at every bar.
// - link: made by linkTo(), every query value reading back exactly.
struct CORE_EXPORT UserNotification
{
    int kind = 0;
    QString message;
    QString link;

    explicit UserNotification(int kind = 0, QString message = QString(), QString link = QString());

    // The kind runs to the first bar and the link starts after the last one.
    // A text without a numeric kind and two bars is a plain message of kind 0.
    static UserNotification parse(QString const& text);
    // The record: the message alone for a plain message (kind 0, no link)
    // that reads back as one, else "kind|message|link". parse() gives back
    // kind, message and link.
    QString text() const;
    // Hands text() to the core's user notification; nothing without a core.
    void sendTo(ICore* core) const;

    // Outside text to stand in a message: "<", ">", "&" and '"' as entities.
    static QString escaped(QString const& outside);
    // An outside answer as the whole message: escaped, bars as "&#124;".
    static QString escapedAnswer(QString const& answer);
    // A link of scheme "vtrm+stream" with this host, path and query items in
    // order. Every value reads back exactly through QUrl(link.toString()) and
    // QUrlQuery: "%" and "+" go encoded (QUrlQuery would take "%41" for "A",
    // a form decoder "+" for a space); QUrl encodes bars, "&", "#" and "=".
    static QUrl linkTo(QString const& host, QString const& path, QList<QPair<QString, QString>> const& items);
};
