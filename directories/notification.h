#pragma once
#include "library.h"

#include <QString>
#include <QUrlQuery>

// User notifications handed to the core: "kind|message|link", or a plain
// message. The core's reader takes the kind up to the first bar and the link
// after the last one, so a message may hold bars; a link never does (QUrl
// encodes them in a query).
namespace notification {
// Adds a query item whose value reads back exactly through QUrl(text) and
// QUrlQuery, whatever it holds: QUrlQuery would take "%41" in a value as an
// encoded "A", and "+" means a space to form decoders, so both go encoded.
DIRECTORY_EXPORT void addQueryItem(QUrlQuery& query, QString const& key, QString const& value);
// Hands the text to the core's user notification.
DIRECTORY_EXPORT void send(QString const& text);
} // namespace notification
