// One-click trading end to end: the fast transaction path asks in its
// dialog, the core sends to the simulated exchange, and the order comes back
// into the orders table.
#include <gateway/simulatedgateway.h>

#include "bundled_market.h"
#include "modalanswerer.h"

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

namespace {

using namespace bundled;

QStringList orderRows() { return rowsOf(QStringLiteral("orders")); }

class OneClickTest : public ::testing::Test
{
protected:
    static void SetUpTestSuite() { load(); }

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
    {
        ModalAnswerer yes(ModalAnswerer::PressYes);
        EXPECT_TRUE(QueriesFast::i()->addOrder(1, 1, 100001, QStringLiteral("FB02001"), decimal(QStringLiteral("337.95")), QChar('B'), 2));
        EXPECT_EQ(yes.title, QStringLiteral("Отправка заявки"));
        EXPECT_EQ(yes.extra, 0);
    }
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
    ModalAnswerer yesAgain(ModalAnswerer::PressYes);
    EXPECT_TRUE(QueriesFast::i()->dropOrder(row, answer));
    EXPECT_EQ(yesAgain.title, QStringLiteral("Отмена заявки"));
    EXPECT_EQ(yesAgain.extra, 0);
    EXPECT_FALSE(answer.isAnswered());
    QCoreApplication::processEvents();
    EXPECT_EQ(answer.code(), SimulatedGateway::Accepted);
    EXPECT_EQ(answer.text(), QStringLiteral("Заявка %1 снята").arg(id));
    EXPECT_EQ(watch.events.last(), QStringLiteral("update %1 W 0").arg(id));
}

TEST_F(OneClickTest, DeclinedOrderNeverReachesTheExchange)
{
    QStringList const before = orderRows();
    qint64 const lastId = gateway.lastOrderId();
    ModalAnswerer no(ModalAnswerer::PressNo);
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
