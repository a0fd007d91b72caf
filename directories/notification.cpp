#include "notification.h"

#include <core/icore.h>

namespace notification {

void addQueryItem(QUrlQuery& query, QString const& key, QString const& value)
{
    QString encoded = value;
    encoded.replace(QLatin1Char('%'), QLatin1String("%25"));
    encoded.replace(QLatin1Char('+'), QLatin1String("%2B"));
    query.addQueryItem(key, encoded);
}

void send(QString const& text)
{
    if (ICore* core = ICore::instance()) core->notify(text, 0, nullptr, nullptr);
}

} // namespace notification
