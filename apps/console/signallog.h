#pragma once
#include <QMap>
#include <QObject>
#include <QStringList>

// Counts the dataChanged signals of the watched directories during one batch:
// take() gives "A, B x20" (B signalled 20 times), or an empty text.
class SignalLog : public QObject
{
    Q_OBJECT
public:
    void watch(QObject* directory)
    {
        // StockSecDirectory signals per pair; the others once per batch.
        if (directory->metaObject()->indexOfSignal("dataChanged(int,qlonglong)") >= 0)
            connect(directory, SIGNAL(dataChanged(int, qlonglong)), this, SLOT(hit()));
        else
            connect(directory, SIGNAL(dataChanged()), this, SLOT(hit()));
    }
    QString take()
    {
        QStringList parts;
        for (auto it = m_counts.constBegin(); it != m_counts.constEnd(); ++it)
            parts << (it.value() > 1 ? QStringLiteral("%1 x%2").arg(it.key()).arg(it.value()) : it.key());
        m_counts.clear();
        return parts.join(QStringLiteral(", "));
    }

private Q_SLOTS:
    void hit() { ++m_counts[QString::fromLatin1(sender()->metaObject()->className())]; }

private:
    QMap<QString, int> m_counts;
};
