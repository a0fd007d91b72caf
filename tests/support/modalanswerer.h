#pragma once
// Answers a modal confirmation dialog from inside its own event loop, as a
// user would, for tests of anything that asks before it sends.
#include "confirmationdialog.h"

#include <QApplication>
#include <QCheckBox>
#include <QDialogButtonBox>
#include <QElapsedTimer>
#include <QPushButton>
#include <QTest>
#include <QTimer>
#include <functional>

// Answers the next modal dialog: waits for it to show, lets the test look at
// it, ticks the check box if asked, then presses Yes or No or closes it. It
// never lets a test hang: a dialog not seen within the deadline is closed
// and `timedOut` set; any further dialog is closed and counted in `extra`.
class ModalAnswerer : public QObject
{
public:
    enum Action { PressYes, PressNo, CloseWindow };

    explicit ModalAnswerer(Action action, bool tickDontAsk = false, int deadlineMs = 10000)
        : m_action(action), m_tick(tickDontAsk), m_deadlineMs(deadlineMs)
    {
        m_clock.start();
        connect(&m_poll, &QTimer::timeout, this, [this] { poll(); });
        m_poll.start(5);
    }

    std::function<void(ConfirmationDialog*)> inspect;   // runs once the dialog shows
    bool seen = false;
    bool timedOut = false;
    int extra = 0;
    QString title;
    QString text;
    bool checkBoxVisible = false;
    QElapsedTimer answeredAt;   // started just before the button press

private:
    void poll()
    {
        QWidget* modal = QApplication::activeModalWidget();
        if (!modal || !modal->isVisible()) {
            if (!seen && m_clock.elapsed() > m_deadlineMs) timedOut = true;
            return;
        }
        auto* dialog = qobject_cast<ConfirmationDialog*>(modal);
        if (seen || timedOut || !dialog) {
            ++extra;
            modal->close();
            return;
        }
        seen = true;
        title = dialog->windowTitle();
        text = dialog->text();
        auto* checkBox = dialog->findChild<QCheckBox*>(QStringLiteral("checkBox"));
        checkBoxVisible = checkBox->isVisible();
        if (inspect) inspect(dialog);
        if (m_tick) QTest::mouseClick(checkBox, Qt::LeftButton);
        auto* box = dialog->findChild<QDialogButtonBox*>(QStringLiteral("buttonBox"));
        answeredAt.start();
        if (m_action == CloseWindow)
            dialog->close();
        else
            QTest::mouseClick(box->button(m_action == PressYes ? QDialogButtonBox::Yes : QDialogButtonBox::No),
                              Qt::LeftButton);
    }

    Action m_action;
    bool m_tick;
    int m_deadlineMs;
    QElapsedTimer m_clock;
    QTimer m_poll;
};
