#pragma once
#include <QString>
#include <QVector>
#include <QWidget>

class CoreSignals;
class QListWidget;

// What a notification's link asks for. Links come from the library
// ("vtrm+stream" scheme): host "stream", path "/addorder" opens the order
// ticket on a liquidity stream; host "deal", path "/confirmdeal" shows a
// quasi-deal for the user to check. Anything else is not followed.
struct NotificationLink
{
    enum Kind { None, Stream, Deal, Unknown };
    Kind kind = None;
    int stock = 0;
    int board = 0;
    long long secId = 0;
    long long streamId = 0;
    // Deal links only; texts as the link carries them (untrusted).
    QString security, price, amount, dir, account;
    long long dealId = 0;

    static NotificationLink parse(QString const& link);
};

// Every user notification the core raises, newest last. Logins and security
// names reach the texts from outside, so a text is shown as plain text: the
// text of its markup (the library escapes the names it puts in), never the
// markup itself. Only the password warning (kind 2), which the library
// builds with the login escaped, is shown as rich text.
class NotificationsPanel : public QWidget
{
    Q_OBJECT
public:
    struct Entry {
        int kind = 0;
        QString message;   // as shown: plain text unless richText
        QString link;
        bool richText = false;
    };

    explicit NotificationsPanel(QWidget* parent = nullptr);
    void listen(CoreSignals const* core);

    QVector<Entry> const& entries() const { return m_entries; }
    // Follows the link of entry `row`, as a click on it does.
    void follow(int row);
    // While the market is loaded again (a resynchronisation), a notification
    // identical to one already shown (kind, text and link) is not shown again.
    void setSkipRepeats(bool skip) { m_skipRepeats = skip; }

public slots:
    void add(QString const& notificationText);

signals:
    void streamOrderRequested(int stock, int board, long long secId, long long streamId);
    void dealDetailsRequested(NotificationLink const& deal);
    void unknownLink(QString const& link);

private:
    QListWidget* m_list;
    QVector<Entry> m_entries;
    bool m_skipRepeats = false;
};

// The details of a quasi-deal from its notification's link, beside the row
// the terminal holds for it, for the user to check. No transaction confirms
// a quasi-deal from this terminal; the dialog says so and where it is done.
class DealDetailsDialog : public QWidget
{
    Q_OBJECT
public:
    explicit DealDetailsDialog(NotificationLink const& deal, QWidget* parent = nullptr);
    QString detailsText() const { return m_details; }

private:
    QString m_details;
};
