// One-click trading end to end: the fast transaction path asks in its
// dialog, the core sends to the simulated exchange, and the order comes back
// into the orders table.
#include <gateway/simulatedgateway.h>

#include <core/clock.h>
#include <core/defaultcore.h>
#include <core/transactions.h>
#include <database/batch.h>
#include <database/database.h>
#include <database/index.h>
#include <database/settings.h>
#include <directories>
#include <queries>

#include <QApplication>
#include <QDialogButtonBox>
#include <QFile>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <gtest/gtest.h>

void PrintTo(QString const& s, std::ostream* os) { *os << '"' << s.toStdString() << '"'; }

namespace {

Database* db() { return DefaultCore::global()->database(); }

// Rows the orders table was told of, as a view's index is.
class OrderWatch : public Index
{
public:
    explicit OrderWatch(QSharedPointer<Table> table) : m_table(std::move(table)) { m_table->addIndex(this); }
    ~OrderWatch() override { m_table->removeIndex(this); }
    void clear() override {}
    void build() override {}
    void add(Record const& r) override
    {
        events << QStringLiteral("add %1 %2").arg(r.data(QStringLiteral("order_id")).rawInt64()).arg(r.data(QStringLiteral("status")).toString());
    }
    void remove(Record const& r, int) override { events << QStringLiteral("remove %1").arg(r.data(QStringLiteral("order_id")).rawInt64()); }
    void update(Record const& r, int, int, int) override
    {
        events << QStringLiteral("update %1 %2").arg(r.data(QStringLiteral("order_id")).rawInt64()).arg(r.data(QStringLiteral("status")).toString());
    }
    bool filter(Record const&) const override { return true; }
    bool contains(Record const&) const override { return false; }
    QString getClassName() const override { return QStringLiteral("OrderWatch"); }
    QStringList events;

private:
    QSharedPointer<Table> m_table;
};

// Presses a button of the next modal dialog, as the user would, and keeps
// what the dialog said.
class ModalClick : public QObject
{
public:
    explicit ModalClick(QDialogButtonBox::StandardButton button) : m_button(button)
    {
        connect(&m_poll, &QTimer::timeout, this, [this] {
            auto* dialog = qobject_cast<QDialog*>(QApplication::activeModalWidget());
            if (!dialog || !dialog->isVisible()) return;
            m_poll.stop();
            title = dialog->windowTitle();
            auto* box = dialog->findChild<QDialogButtonBox*>();
            if (box && box->button(m_button)) QTest::mouseClick(box->button(m_button), Qt::LeftButton);
            else dialog->reject();
        });
        m_poll.start(5);
    }
    QString title;

private:
    QDialogButtonBox::StandardButton m_button;
    QTimer m_poll;
};

QStringList orderRows()
{
    QSharedPointer<Table> t = db()->table(QStringLiteral("orders"));
    QStringList rows;
    for (auto it = t->masterIndex()->begin(); it != t->masterIndex()->end(); ++it) {
        QStringList cells;
        for (int c = 0; c < t->columnCount(); ++c) cells << t->dataPtr(it->row(), c).toString();
        rows << cells.join(QLatin1Char(';'));
    }
    return rows;
}

class OneClickTest : public ::testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        Clock::setFixed(QDateTime(QDate(2026, 11, 20), QTime(10, 0), Qt::UTC).toMSecsSinceEpoch());
        db()->loadSchema(QStringLiteral(SOURCE_DIR "/data/schema.json"));
        QFile snapshot(QStringLiteral(SOURCE_DIR "/data/market/snapshot.jsonl"));
        ASSERT_TRUE(snapshot.open(QIODevice::ReadOnly));
        BatchDecoder decoder(*db());
        for (int line = 1; !snapshot.atEnd(); ++line) {
            QByteArray text = snapshot.readLine().trimmed();
            if (!text.isEmpty()) db()->apply(decoder.decode(text, QStringLiteral("snapshot:%1").arg(line)));
        }
        QString error;
        ASSERT_TRUE(DefaultCore::global()->transactions()->loadTemplates(QStringLiteral(SOURCE_DIR "/data/market/templates.json"), error))
            << error.toStdString();
    }

    void SetUp() override
    {
        // The user's answers never reach the real settings of whoever runs the tests.
        ASSERT_TRUE(settingsDir.isValid());
        Settings::setStorageFile(settingsDir.filePath(QStringLiteral("settings.ini")));
        gateway.plugInto(DefaultCore::global()->transactions());
        DefaultCore::global()->clearNotifications();
    }

    QTemporaryDir settingsDir;
    SimulatedGateway gateway{DefaultCore::global()};
    OrderWatch watch{db()->table(QStringLiteral("orders"))};
};

TEST_F(OneClickTest, ConfirmedOrderIsAcceptedAndComesBackAsARowOfOrders)
{
    ModalClick yes(QDialogButtonBox::Yes);
    EXPECT_TRUE(QueriesFast::i()->addOrder(1, 1, 100001, QStringLiteral("FB02001"), decimal(QStringLiteral("337.95")), QChar('B'), 2));
    EXPECT_EQ(yes.title, QStringLiteral("Отправка заявки"));
    // The caller holds no answer handle: the exchange's answer reaches it as
    // a notification, from the event loop.
    EXPECT_TRUE(watch.events.isEmpty());
    QCoreApplication::processEvents();
    qint64 const id = gateway.lastOrderId();
    ASSERT_GT(id, 0);
    EXPECT_EQ(DefaultCore::global()->notifications(), QStringList{QStringLiteral("1|Заявка %1 принята|").arg(id)});
    EXPECT_EQ(watch.events, QStringList{QStringLiteral("add %1 A").arg(id)});

    // And cancelled again from its row, the answer on the handle given.
    Record row;
    QSharedPointer<Table> t = db()->table(QStringLiteral("orders"));
    for (auto it = t->masterIndex()->begin(); it != t->masterIndex()->end(); ++it)
        if (it->data(QStringLiteral("order_id")).rawInt64() == id) row = *it;
    ASSERT_FALSE(row.isEmpty());
    RawAnswer answer;
    ModalClick yesAgain(QDialogButtonBox::Yes);
    EXPECT_TRUE(QueriesFast::i()->dropOrder(row, answer));
    EXPECT_EQ(yesAgain.title, QStringLiteral("Отмена заявки"));
    EXPECT_FALSE(answer.isAnswered());
    QCoreApplication::processEvents();
    EXPECT_EQ(answer.code(), SimulatedGateway::Accepted);
    EXPECT_EQ(answer.text(), QStringLiteral("Заявка %1 снята").arg(id));
    EXPECT_EQ(watch.events.last(), QStringLiteral("update %1 W").arg(id));
}

TEST_F(OneClickTest, DeclinedOrderNeverReachesTheExchange)
{
    QStringList const before = orderRows();
    qint64 const lastId = gateway.lastOrderId();
    ModalClick no(QDialogButtonBox::No);
    EXPECT_FALSE(QueriesFast::i()->addOrder(1, 1, 100001, QStringLiteral("FB02001"), decimal(QStringLiteral("337.95")), QChar('S'), 1));
    EXPECT_EQ(no.title, QStringLiteral("Отправка заявки"));
    EXPECT_EQ(gateway.pending(), 0);
    QCoreApplication::processEvents();
    EXPECT_EQ(gateway.lastOrderId(), lastId);
    EXPECT_TRUE(DefaultCore::global()->notifications().isEmpty());
    EXPECT_TRUE(watch.events.isEmpty());
    EXPECT_EQ(orderRows(), before);
}

} // namespace

#if defined(__SANITIZE_ADDRESS__)
// Fontconfig keeps its caches to the end of the process by design.
extern "C" const char* __lsan_default_suppressions() { return "leak:libfontconfig.so\n"; }
#endif

// The dialog is a widget: the tests run inside a GUI application.
int main(int argc, char** argv)
{
    // Without a display (test discovery, CI) the offscreen platform serves.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    // Kept to the end of the process: Qt 5.15's offscreen platform loses its
    // screen objects when the application is destroyed, which the leak
    // checker would report as ours.
    static int appArgc = argc;
    static QApplication* app = new QApplication(appArgc, argv);
    Q_UNUSED(app);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
