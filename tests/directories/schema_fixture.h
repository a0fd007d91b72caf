#pragma once
// The real definitions of named tables, taken from the bundled schema.
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStringList>

inline QByteArray bundledSchema(QStringList const& names)
{
    QFile f(QStringLiteral(SOURCE_DIR "/data/schema.json"));
    f.open(QIODevice::ReadOnly);
    QJsonArray picked;
    for (QJsonValue const& t : QJsonDocument::fromJson(f.readAll()).object().value("tables").toArray())
        if (names.contains(t.toObject().value("name").toString())) picked.append(t);
    return QJsonDocument(QJsonObject{{"tables", picked}}).toJson(QJsonDocument::Compact);
}
