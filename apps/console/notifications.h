#pragma once
#include <QObject>
#include <QString>
#include <QTextStream>

class CoreSignals;

namespace console {

// Prints every user notification the core raises, one line each:
//   notification kind 2: <message> | link: <link>
// Texts are made printable (see printable()). Notifications raised on this
// thread are printed at once; those of other threads arrive queued and are
// printed when the program next processes events.
class NotificationPrinter : public QObject
{
    Q_OBJECT
public:
    explicit NotificationPrinter(QTextStream& out, QObject* parent = nullptr);
    void listen(CoreSignals const* core);

    static QString line(QString const& notificationText);

public Q_SLOTS:
    void print(QString const& notificationText);

private:
    QTextStream& m_out;
};

} // namespace console
