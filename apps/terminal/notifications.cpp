#include "notifications.h"

#include <core/clock.h>
#include <core/defaultcore.h>
#include <core/icore.h>
#include <database/database.h>

#include <QDateTime>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QTextDocumentFragment>
#include <QUrl>
#include <QUrlQuery>
#include <QVBoxLayout>

namespace {
int const kPasswordWarning = 2;

bool readNumber(QUrlQuery const& q, char const* key, long long& out)
{
    bool ok = false;
    long long v = q.queryItemValue(QString::fromLatin1(key), QUrl::FullyDecoded).toLongLong(&ok);
    if (ok) out = v;
    return ok;
}
bool readNumber(QUrlQuery const& q, char const* key, int& out)
{
    bool ok = false;
    int v = q.queryItemValue(QString::fromLatin1(key), QUrl::FullyDecoded).toInt(&ok);
    if (ok) out = v;
    return ok;
}
} // namespace

NotificationLink NotificationLink::parse(QString const& text)
{
    NotificationLink link;
    if (text.trimmed().isEmpty()) return link;
    link.kind = Unknown;
    // The library's links show spaces and letters as they are (QUrl::toString).
    QUrl const url(text.trimmed(), QUrl::TolerantMode);
    if (!url.isValid() || url.scheme() != QLatin1String("vtrm+stream")) return link;
    QUrlQuery const q(url);
    if (url.host() == QLatin1String("stream") && url.path() == QLatin1String("/addorder")) {
        if (readNumber(q, "stock_id", link.stock) && readNumber(q, "board_id", link.board) && readNumber(q, "sec_id", link.secId) &&
            readNumber(q, "stream_id", link.streamId))
            link.kind = Stream;
    } else if (url.host() == QLatin1String("deal") && url.path() == QLatin1String("/confirmdeal")) {
        auto text = [&q](char const* key) { return q.queryItemValue(QString::fromLatin1(key), QUrl::FullyDecoded); };
        link.security = text("security");
        link.price = text("price");
        link.amount = text("amount");
        link.dir = text("dir");
        link.account = text("account");
        if (readNumber(q, "stock_id", link.stock) && readNumber(q, "board_id", link.board) && readNumber(q, "deal_id", link.dealId))
            link.kind = Deal;
    }
    return link;
}

NotificationsPanel::NotificationsPanel(QWidget* parent) : QWidget(parent), m_list(new QListWidget)
{
    m_list->setSelectionMode(QAbstractItemView::NoSelection);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_list);
}

void NotificationsPanel::listen(CoreSignals const* core)
{
    connect(core, &CoreSignals::userNotification, this, &NotificationsPanel::add);
}

void NotificationsPanel::add(QString const& notificationText)
{
    UserNotification const n = UserNotification::parse(notificationText);
    bool const rich = n.kind == kPasswordWarning;
    // The library writes its messages as markup with every name escaped;
    // only their text is shown, so a tag, escaped or not, never renders.
    QString shown = rich ? n.message : QTextDocumentFragment::fromHtml(n.message).toPlainText();
    shown.remove(QChar::ObjectReplacementCharacter);   // where an image tag stood
    Entry entry{n.kind, shown, n.link, rich};
    if (m_skipRepeats)
        for (Entry const& e : qAsConst(m_entries))
            if (e.kind == entry.kind && e.message == entry.message && e.link == entry.link) return;
    int const row = m_entries.size();
    m_entries.append(entry);

    auto* line = new QWidget;
    auto* layout = new QHBoxLayout(line);
    layout->setContentsMargins(4, 2, 4, 2);
    // The terminal's clock, not the machine's: a replayed day shows its own times.
    auto* time = new QLabel(QDateTime::fromMSecsSinceEpoch(Clock::nowMSecs(), Qt::UTC).toString(QStringLiteral("HH:mm:ss")));
    time->setTextFormat(Qt::PlainText);
    auto* text = new QLabel;
    // Qt::AutoText would guess rich text from any tag in a login or a name.
    text->setTextFormat(entry.richText ? Qt::RichText : Qt::PlainText);
    text->setText(entry.message);
    text->setWordWrap(true);
    text->setTextInteractionFlags(Qt::TextSelectableByMouse);
    text->setOpenExternalLinks(false);
    layout->addWidget(time);
    layout->addWidget(text, 1);
    NotificationLink const link = NotificationLink::parse(entry.link);
    if (link.kind == NotificationLink::Stream || link.kind == NotificationLink::Deal) {
        auto* button = new QPushButton(link.kind == NotificationLink::Stream ? tr("Заявка на поток") : tr("Проверить сделку"));
        connect(button, &QPushButton::clicked, this, [this, row] { follow(row); });
        layout->addWidget(button);
    }
    auto* item = new QListWidgetItem(m_list);
    item->setSizeHint(line->sizeHint());
    m_list->setItemWidget(item, line);
    m_list->scrollToBottom();
}

void NotificationsPanel::follow(int row)
{
    if (row < 0 || row >= m_entries.size()) return;
    NotificationLink const link = NotificationLink::parse(m_entries[row].link);
    switch (link.kind) {
    case NotificationLink::Stream:
        emit streamOrderRequested(link.stock, link.board, link.secId, link.streamId);
        break;
    case NotificationLink::Deal:
        emit dealDetailsRequested(link);
        break;
    case NotificationLink::Unknown:
        emit unknownLink(m_entries[row].link);
        break;
    case NotificationLink::None:
        break;
    }
}

DealDetailsDialog::DealDetailsDialog(NotificationLink const& deal, QWidget* parent) : QWidget(parent, Qt::Dialog)
{
    setWindowTitle(tr("Квазисделка %1").arg(deal.dealId));
    QStringList lines;
    lines << tr("Сделка: %1").arg(deal.dealId) << tr("Инструмент: %1").arg(deal.security)
          << tr("Направление: %1").arg(deal.dir == QLatin1String("B") ? tr("покупка") : tr("продажа"))
          << tr("Количество: %1").arg(deal.amount) << tr("Цена: %1").arg(deal.price) << tr("Счёт: %1").arg(deal.account)
          << tr("Рынок и режим: %1, %2").arg(deal.stock).arg(deal.board);
    // The row the terminal holds, to check the link against.
    Database* db = ICore::instance()->database();
    QSharedPointer<Table> deals = db->hasTable(QStringLiteral("deals")) ? db->table(QStringLiteral("deals")) : QSharedPointer<Table>();
    Record const row = deals ? Record(deals.data(), QString::number(deal.dealId)) : Record();
    if (row.isEmpty())
        lines << tr("В таблице сделок её нет");
    else
        lines << tr("В таблице сделок: %1 %2 по цене %3, счёт %4, состояние %5")
                     .arg(row.data("buysell").toString().trimmed(), row.data("quantity").toString(), row.data("price").toString(),
                          row.data("account").toString().trimmed())
                     .arg(row.data("state").toInteger());
    m_details = lines.join(QLatin1Char('\n'));
    auto* details = new QLabel(m_details);
    details->setTextFormat(Qt::PlainText);   // every field comes from the link
    details->setTextInteractionFlags(Qt::TextSelectableByMouse);
    auto* where = new QLabel(tr("Этот терминал не подтверждает квазисделки: транзакции подтверждения в нём нет. "
                                "Проверьте условия и подтвердите или отклоните сделку в системе внебиржевых сделок (ОТС), "
                                "где она заключена."));
    where->setTextFormat(Qt::PlainText);
    where->setWordWrap(true);
    auto* close = new QPushButton(tr("Закрыть"));
    connect(close, &QPushButton::clicked, this, &QWidget::close);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(details);
    layout->addWidget(where);
    layout->addWidget(close, 0, Qt::AlignRight);
    setAttribute(Qt::WA_DeleteOnClose);
}
