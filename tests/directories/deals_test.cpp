#include "streams_fixture.h"

#include <core/defaultcore.h>

#include <QSignalSpy>

namespace {

class Deals : public StreamTablesTest
{
protected:
    void SetUp() override
    {
        StreamTablesTest::SetUp();
        core()->setCurrentLogin("FA01U01");
        security(1, 20, 77, "Фьючерс Альфа-12.26", 2);   // stock 5 is read as 1
        DealsDirectory::i();
    }
    static QString confirmation(QString const& id, QString const& side, QString const& name = "Фьючерс Альфа-12.26",
                                QString const& price = "101.50")
    {
        return QStringLiteral("Квазисделка %1 на %2 12 %3 по цене %4 требует подтверждения").arg(id, side, name, price);
    }
    QStringList messages() const
    {
        QStringList out;
        for (QString const& n : notifications()) out << UserNotification::parse(n).message;
        return out;
    }
};

} // namespace

// Each outcome of a deal seen waiting, with the error texts a rejection carries.
TEST_F(Deals, OutcomeAfterWaitingIsReportedOnce)
{
    struct Case { qint64 id; int state; int error; char const* text; };
    Case const cases[] = {
        {17, 4, 0, "Квазисделка 17 подтверждена"},
        {18, 3, 5, "Квазисделка 18 отклонена. Ошибка ОТС: Таймаут в системе TALMERA"},
        {19, 3, -1, "Квазисделка 19 отклонена. Ошибка ОТС: Системная ошибка"},
        {20, 3, 7, "Квазисделка 20 отклонена. Ошибка ОТС: Системная ошибка"},
        {21, 3, -2147483647 - 1, "Квазисделка 21 отклонена. Ошибка ОТС: Системная ошибка"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.text);
        core()->clearNotifications();
        insert("deals", deal(c.id, 1));
        EXPECT_TRUE(notifications().isEmpty());   // arrivals raise nothing
        update("deals", deal(c.id, 1));
        update("deals", deal(c.id, c.state, "FA01U01", "B", c.error));
        update("deals", deal(c.id, c.state, "FA01U01", "B", c.error));   // no change, no news
        ASSERT_EQ(notifications().size(), 2);
        EXPECT_EQ(messages()[0], confirmation(QString::number(c.id), "покупку"));
        EXPECT_EQ(notifications()[1], QString::fromUtf8(c.text));   // plain text
    }
    EXPECT_EQ(DealsDirectory::i()->errorMessageFromCode(0), QString());
}

TEST_F(Deals, OnlyADealSeenWaitingByAnUpdateReportsItsOutcome)
{
    // Arrived waiting, first seen by an update already rejected.
    insert("deals", deal(18, 1));
    update("deals", deal(18, 3, "FA01U01", "B", 5));
    // Another login: nothing at all, and nothing remembered.
    insert("deals", deal(19, 1, "FB01U02"));
    update("deals", deal(19, 1, "FB01U02"));
    update("deals", deal(19, 4, "FB01U02"));
    EXPECT_TRUE(notifications().isEmpty());

    // Unknown states are not reported and leave the memory alone.
    insert("deals", deal(20, 1));
    update("deals", deal(20, 1));
    update("deals", deal(20, 9));
    update("deals", deal(20, -3));
    update("deals", deal(20, 4));
    EXPECT_EQ(messages(), QStringList({confirmation("20", "покупку"), "Квазисделка 20 подтверждена"}));
}

TEST_F(Deals, EveryQualifyingUpdateAsksAgainAndOnlyBBuys)
{
    insert("deals", deal(21, 1, "FA01U01", "S"));
    insert("deals", deal(22, 1, "FA01U01", "b"));
    update("deals", deal(21, 1, "FA01U01", "S"));
    update("deals", deal(21, 1, "FA01U01", "S"));
    update("deals", deal(22, 1, "FA01U01", "b"));
    EXPECT_EQ(messages(), QStringList({confirmation("21", "продажу"), confirmation("21", "продажу"),
                                       confirmation("22", "продажу")}));
}

TEST_F(Deals, TheConfirmationLinkReadsBack)
{
    QString const odd = "Нефть | A&B #1 + 50% = x%41y";
    security(1, 20, 78, odd, 3);
    qint64 const id = 9223372036854775807LL;
    insert("deals", deal(id, 1, "FA01U01", "B", 0, 78));
    update("deals", deal(id, 1, "FA01U01", "B", 0, 78));
    ASSERT_EQ(notifications().size(), 1);
    UserNotification n = UserNotification::parse(notifications()[0]);
    EXPECT_EQ(n.kind, 1);
    EXPECT_EQ(n.message, confirmation("9223372036854775807", "покупку", "Нефть | A&amp;B #1 + 50% = x%41y", "101.500"));
    EXPECT_EQ(QUrl(n.link).adjusted(QUrl::RemoveQuery).toString(), "vtrm+stream://deal/confirmdeal");
    QList<QPair<QString, QString>> items = queryOf(n.link).queryItems(QUrl::FullyDecoded);
    QList<QPair<QString, QString>> expected{
        {"stock_id", "5"}, {"board_id", "20"}, {"security", odd}, {"price", "101.500"},
        {"amount", "12"}, {"dir", "B"}, {"account", "FA01001"}, {"deal_id", "9223372036854775807"}};
    EXPECT_EQ(items, expected);
}

TEST_F(Deals, AnUnknownSecurityKeepsThePriceAsStored)
{
    qint64 const id = -9223372036854775807LL - 1;
    insert("deals", deal(id, 1, "FA01U01", "B", 0, 999));
    update("deals", deal(id, 1, "FA01U01", "B", 0, 999));
    ASSERT_EQ(notifications().size(), 1);
    UserNotification n = UserNotification::parse(notifications()[0]);
    EXPECT_EQ(n.message, confirmation("-9223372036854775808", "покупку", "&lt;инструмент не найден&gt;", "101.50000"));
    EXPECT_EQ(itemOf(n.link, "price"), "101.50000");
    EXPECT_EQ(itemOf(n.link, "deal_id").toLongLong(), id);
    EXPECT_EQ(itemOf(n.link, "security"), "<инструмент не найден>");

    // Decimals no price can take leave it as stored too.
    security(1, 20, 79, "Дельта", 65538);   // 2 if cut to 16 bits
    insert("deals", deal(30, 1, "FA01U01", "B", 0, 79));
    update("deals", deal(30, 1, "FA01U01", "B", 0, 79));
    EXPECT_EQ(itemOf(UserNotification::parse(notifications().last()).link, "price"), "101.50000");
}

TEST_F(Deals, RowsWithNullsRaiseNothingAndThrowNothing)
{
    QSignalSpy spy(DealsDirectory::i(), &DealsDirectory::dataChanged);
    insert("deals", {{"deal_id", "5"}});
    EXPECT_NO_THROW(update("deals", {{"deal_id", "5"}, {"state", 1}}));   // no login: not this user's
    EXPECT_TRUE(notifications().isEmpty());
    EXPECT_EQ(spy.count(), 2);
    Record row(db()->table("deals").data(), QStringLiteral("5"));
    EXPECT_FALSE(DealsDirectory::i()->checkLoginPreference(row));
    EXPECT_FALSE(DealsDirectory::i()->checkLoginPreference(Record()));
}
