#pragma once
#include <QObject>
#include <QTimer>
#include <functional>

// Runs a function once at the next turn of the event loop however often it
// is asked within this one: a batch that fires several directories' signals
// redraws a view once, after the batch.
class Coalesced : public QObject
{
    Q_OBJECT
public:
    Coalesced(QObject* parent, std::function<void()> f) : QObject(parent), m_f(std::move(f))
    {
        m_timer.setSingleShot(true);
        m_timer.setInterval(0);
        connect(&m_timer, &QTimer::timeout, this, [this] { m_f(); });
    }
    void request() { m_timer.start(); }

private:
    std::function<void()> m_f;
    QTimer m_timer;
};
