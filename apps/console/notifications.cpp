#include "notifications.h"
#include "output.h"

#include <core/defaultcore.h>

namespace console {

NotificationPrinter::NotificationPrinter(QTextStream& out, QObject* parent) : QObject(parent), m_out(out) {}

void NotificationPrinter::listen(CoreSignals const* core)
{
    connect(core, &CoreSignals::userNotification, this, &NotificationPrinter::print);
}

QString NotificationPrinter::line(QString const& notificationText)
{
    UserNotification n = UserNotification::parse(notificationText);
    QString text = QStringLiteral("notification kind %1: %2").arg(n.kind).arg(printable(n.message));
    if (!n.link.isEmpty()) text += QStringLiteral(" | link: ") + printable(n.link);
    return text;
}

void NotificationPrinter::print(QString const& notificationText)
{
    Progress::clearLine();
    m_out << line(notificationText) << '\n';
    m_out.flush();
}

} // namespace console
