#include "streams_fixture.h"

#include <core/defaultcore.h>

#include <QSignalSpy>

namespace {

class Streams : public StreamTablesTest
{
protected:
    void SetUp() override
    {
        StreamTablesTest::SetUp();
        security(1, 20, 77, "Фьючерс Альфа-12.26", 2);   // stock 5 is read as 1
    }
};

} // namespace

TEST_F(Streams, OpenAndCloseAreNotifiedOnlyWithLiquidityProviderUsers)
{
    RFSStreamsDirectory* streams = RFSStreamsDirectory::i();

    // No liquidity-provider user yet: shown, not announced.
    insert("k3.rfs.streams", stream("7", 77, 10));
    EXPECT_EQ(streams->getStreamsMap().value(7), "7 (Фьючерс Альфа-12.26 * 10)");
    EXPECT_TRUE(notifications().isEmpty());

    lpUser("LP01", "AB01001");
    insert("k3.rfs.streams", stream("8", 77, 25));
    remove("k3.rfs.streams", {{"stream_id", "8"}});
    ASSERT_EQ(notifications().size(), 2);
    EXPECT_EQ(notifications()[0],
              "1|Открыт поток ликвидности 8 (Фьючерс Альфа-12.26 * 25)|"
              "vtrm+stream://stream/addorder?stock_id=5&board_id=20&sec_id=77&stream_id=8");
    // The close is a plain text: no kind, no link.
    EXPECT_EQ(notifications()[1], "Закрыт поток ликвидности 8 (Фьючерс Альфа-12.26 * 25)");
    UserNotification closed = UserNotification::parse(notifications()[1]);
    EXPECT_EQ(closed.kind, 0);
    EXPECT_TRUE(closed.link.isEmpty());
    EXPECT_EQ(streams->getStreamsList(), QStringList({"7 (Фьючерс Альфа-12.26 * 10)"}));

    // An update is told as a close and an open, and forgets the last deal's state.
    streams->updateLastDealState(7, 4);
    update("k3.rfs.streams", {{"stream_id", "7"}, {"amount", 20}});
    ASSERT_EQ(notifications().size(), 4);
    EXPECT_EQ(notifications()[2], "Закрыт поток ликвидности 7 (Фьючерс Альфа-12.26 * 10)");
    EXPECT_TRUE(notifications()[3].startsWith("1|Открыт поток ликвидности 7 (Фьючерс Альфа-12.26 * 20)|"));
    EXPECT_EQ(streams->getStreamsMap().value(7), "7 (Фьючерс Альфа-12.26 * 20)");
    EXPECT_EQ(streams->getLastDealState(7), -1);
}

TEST_F(Streams, AStreamTheUserHasAnOrderOnIsNeitherOpenedNorClosedAloud)
{
    lpUser("LP01", "AB01001");
    RFSStreamsDirectory::i();
    insert("orders", order(1, "9", "AB01001", "A", "B", "101.5"));
    insert("k3.rfs.streams", stream("9", 77, 10));
    remove("k3.rfs.streams", {{"stream_id", "9"}});
    EXPECT_TRUE(notifications().isEmpty());

    // An inactive order does not count.
    insert("orders", order(2, "10", "AB01001", "W", "B", "101.5"));
    insert("k3.rfs.streams", stream("10", 77, 10));
    EXPECT_EQ(notifications().size(), 1);
}

TEST_F(Streams, BuildAnnouncesTheStreamsAlreadyOpen)
{
    lpUser("LP01", "AB01001");
    insert("k3.rfs.streams", stream("3", 77, 10));
    insert("k3.rfs.streams", stream("4", 999, 50));   // a security nobody knows
    insert("k3.rfs.streams", stream("-1", 77, 1));    // read as 2^64 - 1
    RFSStreamsDirectory* streams = RFSStreamsDirectory::i();
    ASSERT_EQ(notifications().size(), 3);
    EXPECT_EQ(streams->getStreamsList(), QStringList({"3 (Фьючерс Альфа-12.26 * 10)", "4 (<инструмент не найден> * 50)",
                                                      "18446744073709551615 (Фьючерс Альфа-12.26 * 1)"}));
    // In the master index's order: -1 first.
    EXPECT_EQ(itemOf(UserNotification::parse(notifications()[0]).link, "stream_id"), "18446744073709551615");
    EXPECT_EQ(UserNotification::parse(notifications()[2]).message,
              "Открыт поток ликвидности 4 (&lt;инструмент не найден&gt; * 50)");   // shown as markup
    EXPECT_EQ(streams->recordByStreamId(18446744073709551615ull).data("amount").toInteger(), 1);
    EXPECT_EQ(streams->securityByStreamId(4), 999);
    EXPECT_EQ(streams->securityByStreamId(5), 0);
}

TEST_F(Streams, LastDealStateIsKeptPerStreamAndDroppedWithIt)
{
    insert("k3.rfs.streams", stream("7", 77, 10));
    RFSStreamsDirectory* streams = RFSStreamsDirectory::i();
    QSignalSpy spy(streams, &RFSStreamsDirectory::lastDealStateDataChanged);
    EXPECT_EQ(streams->getLastDealState(7), -1);
    streams->updateLastDealState(7, 2);
    EXPECT_EQ(streams->getLastDealState(7), 2);
    EXPECT_EQ(spy.count(), 1);
    remove("k3.rfs.streams", {{"stream_id", "7"}});
    EXPECT_EQ(streams->getLastDealState(7), -1);
    EXPECT_TRUE(streams->getStreamsMap().isEmpty());
}

TEST(StreamMinMax, SpeedBumpAndDurationSteps)
{
    struct Case { int bump, duration, first, second; };
    const Case cases[] = {
        {-1, 1, 0, 30}, {0, 2, 0, 60}, {1, 3, 1, 90}, {2, 4, 1, 120}, {3, 0, 1, 36000},
        {4, 5, 3, 36000}, {4, 7, 3, 36000}, {5, -1, 0, 36000}, {1000, 2147483647, 0, 36000},
    };
    for (Case const& c : cases) {
        QPair<int, int> got = RFSStreamsDirectory::minMax(c.bump, c.duration);
        EXPECT_EQ(got.first, c.first) << c.bump;
        EXPECT_EQ(got.second, c.second) << c.duration;
    }
}

TEST_F(Streams, MinMaxOfAStreamAndOfNone)
{
    insert("k3.rfs.streams", stream("7", 77, 10, 4, 7));
    RFSStreamsDirectory* streams = RFSStreamsDirectory::i();
    EXPECT_EQ(streams->minMaxByStreamId(7), qMakePair(3, 36000));
    EXPECT_EQ(streams->minMaxByStreamId(8), qMakePair(0, 0));
    // Null columns read as 0: the first table's 0 and the fallback.
    insert("k3.rfs.streams", {{"stream_id", "9"}});
    EXPECT_EQ(streams->minMaxByStreamId(9), qMakePair(0, 36000));
    EXPECT_EQ(streams->getStreamsMap().value(9), "9 (<инструмент не найден> * 0)");
}

TEST_F(Streams, LinksReadBackWhateverTheSecurityIsCalled)
{
    lpUser("LP01", "AB01001");
    RFSStreamsDirectory::i();
    QString const odd = "Нефть | A&B #1 + 50% = x%41y ü";
    security(1, 20, 9223372036854775807LL, odd, 2);
    insert("k3.rfs.streams", stream("9223372036854775807", 9223372036854775807LL, 10));
    ASSERT_EQ(notifications().size(), 1);
    UserNotification n = UserNotification::parse(notifications()[0]);
    EXPECT_EQ(n.kind, 1);
    EXPECT_EQ(n.message, "Открыт поток ликвидности 9223372036854775807 (Нефть | A&amp;B #1 + 50% = x%41y ü * 10)");
    EXPECT_EQ(QUrl(n.link).toString(), n.link);
    EXPECT_EQ(QUrl(n.link).adjusted(QUrl::RemoveQuery).toString(), "vtrm+stream://stream/addorder");
    using Items = QList<QPair<QString, QString>>;
    EXPECT_EQ(queryOf(n.link).queryItems(QUrl::FullyDecoded),
              (Items{{"stock_id", "5"}, {"board_id", "20"}, {"sec_id", "9223372036854775807"}, {"stream_id", "9223372036854775807"}}));
}

TEST(StreamLinks, NumbersAtTheEdgesReadBack)
{
    QUrl link = RFSStreamsDirectory::addOrderLink(-2147483647 - 1, 2147483647, -9223372036854775807LL - 1, 18446744073709551615ull);
    EXPECT_EQ(QUrlQuery(QUrl(link.toString())).toString(QUrl::FullyDecoded),
              "stock_id=-2147483648&board_id=2147483647&sec_id=-9223372036854775808&stream_id=18446744073709551615");
}

// ---- quotes ------------------------------------------------------------------

TEST_F(Streams, PreviousQuoteIsTheOneBeforeTheLatestChange)
{
    auto quote = [](int dir, int id, QString const& price) {
        return QJsonObject{{"stream_id", "7"}, {"dir", dir}, {"quote_id", id}, {"price", price},
                           {"moment", "2026-11-20 10:00:00.000"}};
    };
    insert("k3.rfs.quotes", quote(1, 100, "101.25"));
    RFSQuoteDirectory* quotes = RFSQuoteDirectory::i();
    EXPECT_FALSE(quotes->previousQuote(7, 1).valid);   // arrived, nothing before it
    EXPECT_EQ(quotes->recordByStreamIdAndDir(7, 1).data("quote_id").toInteger64(), 100);
    EXPECT_TRUE(quotes->recordByStreamIdAndDir(7, 2).isEmpty());

    QSignalSpy spy(quotes, &RFSQuoteDirectory::dataChanged);
    update("k3.rfs.quotes", quote(1, 101, "101.50"));
    update("k3.rfs.quotes", quote(1, 101, "101.50"));   // the same again: not a change
    EXPECT_EQ(spy.count(), 2);
    RFSQuoteDirectory::Quote before = quotes->previousQuote(7, 1);
    ASSERT_TRUE(before.valid);
    EXPECT_EQ(before.quoteId, 100);
    EXPECT_EQ(before.price.toString(), "101.25000");

    update("k3.rfs.quotes", quote(1, 102, "101.00"));
    EXPECT_EQ(quotes->previousQuote(7, 1).quoteId, 101);
    EXPECT_FALSE(quotes->previousQuote(7, 2).valid);   // the other direction is its own

    remove("k3.rfs.quotes", {{"stream_id", "7"}, {"dir", 1}});
    EXPECT_FALSE(quotes->previousQuote(7, 1).valid);
    EXPECT_TRUE(quotes->recordByStreamIdAndDir(7, 1).isEmpty());
    EXPECT_NE(db()->table("k3.rfs.quotes")->indexByName(QStringLiteral("stream_id,dir")), nullptr);
}

// ---- orders ------------------------------------------------------------------

TEST_F(Streams, OnlyOrdersActiveOnArrivalEnterAndOnlyOnStock5)
{
    RFSOrdersDirectory* orders = RFSOrdersDirectory::i();
    insert("orders", order(1, "7", "AB01001", "W", "B", "100"));
    insert("orders", order(2, "7", "AB01001", "A", "B", "100", 1));   // another market
    EXPECT_TRUE(orders->isEmpty());
    EXPECT_FALSE(orders->hasOrderByStreamId(7));

    // Becoming active later does not enter it.
    update("orders", order(1, "7", "AB01001", "A", "B", "100"));
    EXPECT_FALSE(orders->exists(1));
    EXPECT_EQ(orders->getPricesByKey({7, "AB01001"}), nullptr);

    insert("orders", order(3, "7", "AB01001", "A", "S", "105.5"));
    EXPECT_TRUE(orders->exists(3));
    EXPECT_TRUE(orders->hasOrderByStreamId(7));
    RFSOrdersDirectory::Prices const* p = orders->getPricesByKey({7, "AB01001"});
    ASSERT_NE(p, nullptr);
    EXPECT_FALSE(p->buySet);
    EXPECT_TRUE(p->sellSet);
    EXPECT_EQ(p->sell.toString(), "105.50000");
    EXPECT_EQ(p->buy.toDouble(), 0);
}

TEST_F(Streams, OneSlotPerSideAndKeyAndUpdatesNeverRefreshAPrice)
{
    RFSOrdersDirectory* orders = RFSOrdersDirectory::i();
    insert("orders", order(1, "7", "AB01001", "A", "B", "100"));
    insert("orders", order(2, "7", "AB01001", "A", "B", "99"));   // the last added wins
    insert("orders", order(3, "7", "AB01001", "A", "S", "110"));
    RFSOrdersDirectory::Prices const* p = orders->getPricesByKey({7, "AB01001"});
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(p->buy.toString(), "99.00000");

    // A new price of an active order is not taken.
    update("orders", order(2, "7", "AB01001", "A", "B", "98"));
    EXPECT_EQ(orders->getPricesByKey({7, "AB01001"})->buy.toString(), "99.00000");

    // Removing either buy order clears the side, though the other is active.
    remove("orders", {{"stock_id", 5}, {"board_id", 20}, {"sess_id", 7302}, {"order_id", "1"}});
    p = orders->getPricesByKey({7, "AB01001"});
    ASSERT_NE(p, nullptr);
    EXPECT_FALSE(p->buySet);
    EXPECT_TRUE(p->sellSet);
    EXPECT_TRUE(orders->exists(2));

    // Leaving 'A' drops the order and its side; no side left, no entry.
    update("orders", order(3, "7", "AB01001", "M", "S", "110"));
    EXPECT_FALSE(orders->exists(3));
    EXPECT_EQ(orders->getPricesByKey({7, "AB01001"}), nullptr);
    EXPECT_TRUE(orders->hasOrderByStreamId(7));   // order 2 is still in the order map
}

TEST_F(Streams, AnInactiveOrdersUpdateClearsTheSideOfItsKey)
{
    RFSOrdersDirectory* orders = RFSOrdersDirectory::i();
    insert("orders", order(1, "7", "AB01001", "A", "B", "100"));
    insert("orders", order(2, "7", "AB01001", "W", "B", "100"));   // never entered
    update("orders", order(2, "7", "AB01001", "C", "B", "100"));
    EXPECT_EQ(orders->getPricesByKey({7, "AB01001"}), nullptr);
    EXPECT_TRUE(orders->exists(1));
    // Keys are (stream, account): another account is another slot.
    insert("orders", order(4, "7", "AB01002", "A", "S", "1"));
    EXPECT_NE(orders->getPricesByKey({7, "AB01002"}), nullptr);
    EXPECT_EQ(orders->getPricesByKey({7, "AB01001"}), nullptr);
}

// ---- liquidity-provider users, minimal amounts ---------------------------------

TEST_F(Streams, LiquidityProviderUsersByEitherCode)
{
    lpUser("LP02", "CD02001");
    lpUser("LP01", "AB01001");
    lpUser("LP01", "AB01002");
    LPUsersDirectory* lp = LPUsersDirectory::i();
    EXPECT_EQ(lp->clientCodesList(), QStringList({"AB01001", "AB01002", "CD02001"}));
    EXPECT_EQ(lp->lpCodeByClientCode("CD02001"), "LP02");
    EXPECT_EQ(lp->lpCodeByClientCode("XX"), QString());
    EXPECT_EQ(lp->clientCodeByLpCode("LP01"), "AB01001");
    EXPECT_EQ(lp->clientCodeByLpCode("LP0"), QString());
    EXPECT_TRUE(lp->recordByClientCode("AB01002").data("lp_code").toString() == "LP01");
    EXPECT_TRUE(lp->recordByClientCode(QString(40, 'A')).isEmpty());
}

TEST_F(Streams, MinimalAmountFallsBackToTheStarRow)
{
    insert("k3.rfs.base_contract_min_amount", {{"base_contract_code", "ALFA"}, {"min_amount", 10}});
    RFSMinAmountDirectory* amounts = RFSMinAmountDirectory::i();
    EXPECT_EQ(amounts->minAmountByBaseContractCode("ALFA"), 10);
    EXPECT_EQ(amounts->minAmountByBaseContractCode("BETA"), 0);   // no "*" row yet
    EXPECT_TRUE(amounts->recordByBaseContractCode("BETA").isEmpty());
    insert("k3.rfs.base_contract_min_amount", {{"base_contract_code", "*"}, {"min_amount", 1}});
    EXPECT_EQ(amounts->minAmountByBaseContractCode("BETA"), 1);
    EXPECT_EQ(amounts->recordByBaseContractCode("").data("base_contract_code").toString(), "*");
}

TEST_F(Streams, WithoutProviderAndOrderTablesStreamsAreShownNotAnnounced)
{
    db()->dropTable("k3.rfs.lp_users");
    db()->dropTable("orders");
    // A stream directory without them shows its streams and notifies nothing.
    insert("k3.rfs.streams", stream("7", 77, 10));
    EXPECT_EQ(RFSStreamsDirectory::i()->getStreamsList(), QStringList({"7 (Фьючерс Альфа-12.26 * 10)"}));
    EXPECT_TRUE(notifications().isEmpty());
}
