#include "trading_fixture.h"

#include "queriesgen.h"

namespace {

using Params = QMap<QString, QVariant>;

class QueriesGenTest : public TradingTest
{
protected:
    void SetUp() override
    {
        TradingTest::SetUp();
        if (HasFatalFailure()) return;
        insertOrder("orders", R"("stock_id":4,"board_id":1,"sess_id":1,"order_id":9000000001,"sec_id":100,
            "account":"ACC1","price":"12.5","buysell":"B","quantity":10,"balance":7,"signs":0,"dkh_request":3)");
        insertOrder("orders", R"("stock_id":4,"board_id":1,"sess_id":1,"order_id":2,"sec_id":100,
            "account":"ACC1","price":"12.50","buysell":"B","quantity":5,"balance":5,"signs":140737488355328)");
        insertOrder("orders", R"("stock_id":4,"board_id":1,"sess_id":1,"order_id":3,"sec_id":100,
            "account":"ACC1","price":"12.5","buysell":"S","balance":4)");
        insertOrder("orders", R"("stock_id":5,"board_id":2,"sess_id":1,"order_id":4,"sec_id":200,"stream_id":77,
            "account":"ACC5","price":"101","buysell":"S","balance":1,"dkh_request":-8)");
        for (char const* o : {R"("order_id":5,"signs":-1,"dkh_request":9000000000)", R"("order_id":6,"signs":2147483647,"dkh_request":-9000000000)"})
            insertOrder("orders_narrow", QStringLiteral(R"("stock_id":4,"board_id":1,"sec_id":100,"account":"ACC1","price":"1","buysell":"B","balance":1,%1)").arg(o));
        insertOrder("orders_wrong", R"("stock_id":4,"board_id":1,"order_id":7,"sec_id":100,"account":"ACC1",
            "price":"1","buysell":"B","balance":1,"signs":0,"dkh_request":1.5)");
    }
    QueriesGen* gen() { return QueriesGen::i(); }
};

TEST_F(QueriesGenTest, AddOrderAndCancelBySecurityFillTheirMaps)
{
    QueriesGen::OrderDescr descr;
    RawTransaction tx = gen()->addOrder(4, 1, 100, "ACC1", decimal("12.5"), 'B', 30, &descr);
    EXPECT_EQ(tx.messageCode, 1025);
    EXPECT_EQ(tx.boardId, 1);
    EXPECT_EQ(tx.params, (Params{{"Security", "ALFA-12"}, {"Account", "ACC1"}, {"BuySell", QVariant::fromValue(QChar('B'))},
                                 {"Price", "12.5"}, {"Quantity", "30"}, {"Type", "1"}}));
    EXPECT_EQ(tx.params.value("BuySell").userType(), int(QMetaType::QChar));
    // The price at the security's two decimals.
    EXPECT_EQ(QStringList({descr.direction, descr.security, descr.price.toString(), QString::number(descr.quantity), descr.account}),
              QStringList({"Покупка", "Alfa fut", "12.50", "30", "ACC1"}));
    EXPECT_FALSE(tx.answer.isAnswered());
    EXPECT_EQ(gen()->addOrder(4, 1, 100, "ACC1", decimal("12.5"), 'B', 30, nullptr).params, tx.params);

    tx = gen()->dropOrdersBySecurity(4, 12, 112, "ACC9", 'S');
    EXPECT_EQ(tx.messageCode, 1032);
    EXPECT_EQ(tx.boardId, 12);
    EXPECT_EQ(tx.params, (Params{{"Account", "ACC9"}, {"Security", "OT-C"}, {"BuySell", QVariant::fromValue(QChar('S'))}}));
}

// The cancel's code follows bit 47 of "signs" at any width, and its
// "dkh_request" is clamped to 32 bits.
TEST_F(QueriesGenTest, DropOrderPicksTheCodeByBit47OfSignsAndClampsDkhRequest)
{
    struct Case { char const* table; long long orderId; int code; QVariant dkh; };
    for (Case c : {Case{"orders", 9000000001, 1028, 3},                // 64-bit signs 0
                   Case{"orders", 2, 1280, QVariant()},                // 64-bit signs with bit 47 alone
                   Case{"orders", 3, 1028, QVariant()},                // null signs
                   Case{"orders_narrow", 5, 1280, 2147483647},         // negative 32-bit signs, sign-extended
                   Case{"orders_narrow", 6, 1028, -2147483647 - 1}}) { // largest positive 32-bit signs
        SCOPED_TRACE(c.orderId);
        Record r = order(c.table, c.orderId);
        ASSERT_FALSE(r.isEmpty());
        RawTransaction tx = gen()->dropOrder(r, RawAnswer(), nullptr);
        EXPECT_EQ(tx.messageCode, c.code);
        if (c.dkh.isValid()) {
            EXPECT_EQ(tx.params.value("dkh_request"), c.dkh);
        }
    }
}

TEST_F(QueriesGenTest, DropOrderMapsPerMarketWithThatMarketsTemplate)
{
    RawAnswer answer;
    QueriesGen::OrderDescr descr;
    RawTransaction tx = gen()->dropOrder(order("orders", 9000000001), answer, &descr);
    EXPECT_EQ(tx.params, (Params{{"Account", "ACC1"}, {"order_id", "9000000001"}, {"Security", "ALFA-12"},
                                 {"sec_id", "100"}, {"dkh_request", 3}}));
    EXPECT_EQ(tx.params.value("dkh_request").userType(), int(QMetaType::Int));
    EXPECT_EQ(tx.boardId, 1);
    EXPECT_TRUE(tx.answer == answer);
    // The open balance, not the quantity entered.
    EXPECT_EQ(QStringList({descr.direction, descr.security, descr.price.toString(), QString::number(descr.quantity), descr.account}),
              QStringList({"Покупка", "Alfa fut", "12.50", "7", "ACC1"}));

    // The request-for-stream market adds the side and the stream.
    tx = gen()->dropOrder(order("orders", 4), answer, nullptr);
    EXPECT_EQ(tx.params, (Params{{"Account", "ACC5"}, {"order_id", "4"}, {"Security", "RFS-X"}, {"sec_id", "200"},
                                 {"dkh_request", -8}, {"BuySell", "S"}, {"Stream", "77"}}));
    EXPECT_EQ(tx.boardId, 2);

    // A template of market 5 alone serves its order and no other.
    transactions()->clearTemplates();
    TransactionMeta onlyMarket5 = freeFormTemplate(1028);
    onlyMarket5.stockId = 5;
    transactions()->registerTemplate(onlyMarket5);
    EXPECT_NO_THROW(gen()->dropOrder(order("orders", 4), RawAnswer(), nullptr));
    EXPECT_THROW(gen()->dropOrder(order("orders", 9000000001), RawAnswer(), nullptr), QString);
}

TEST_F(QueriesGenTest, DropOrdersMergesDescriptionsButKeepsEveryTransaction)
{
    RawAnswer answer;
    QList<QueriesGen::OrderDescr> descrs;
    QList<Record> orders{order("orders", 9000000001), order("orders", 3), order("orders", 2)};
    QList<RawTransaction> txs = gen()->dropOrders(orders, answer, &descrs);
    ASSERT_EQ(txs.size(), 3);
    EXPECT_EQ(QStringList({txs[0].params.value("order_id").toString(), txs[1].params.value("order_id").toString(),
                           txs[2].params.value("order_id").toString()}), QStringList({"9000000001", "3", "2"}));
    EXPECT_TRUE(txs[2].answer == answer);
    // 12.5 and 12.50 are the same price; the sell is another line.
    ASSERT_EQ(descrs.size(), 2);
    EXPECT_EQ(descrs[0].quantity, 7 + 5);
    EXPECT_EQ(descrs[0].direction, QStringLiteral("Покупка"));
    EXPECT_EQ(descrs[1].quantity, 4);
    EXPECT_EQ(descrs[1].direction, QStringLiteral("Продажа"));

    EXPECT_EQ(gen()->dropOrders(orders, answer, nullptr).size(), 3);
    transactions()->clearTemplates();
    EXPECT_TRUE(gen()->dropOrders({}, answer, &descrs).isEmpty());   // asks for no template
}

// A bad record, a missing template or a core without its service: refused
// with a message, nothing built, descriptions left empty.
TEST_F(QueriesGenTest, RefusalsBuildNothing)
{
    try {
        gen()->dropOrder(order("orders_wrong", 7), RawAnswer(), nullptr);
        ADD_FAILURE() << "a double dkh_request was read as an integer";
    } catch (Exception const& e) {
        EXPECT_EQ(e.message(), "Incorrect type conversion.");
    }
    QList<RawTransaction> built;
    QList<QueriesGen::OrderDescr> descrs;
    EXPECT_THROW(built = gen()->dropOrders({order("orders", 2), order("orders_wrong", 7)}, RawAnswer(), &descrs), Exception);
    EXPECT_TRUE(built.isEmpty());
    EXPECT_TRUE(descrs.isEmpty());

    QueriesGen::OrderDescr descr;
    std::function<void()> const calls[] = {
        [&] { gen()->addOrder(4, 1, 100, "ACC1", decimal("12.5"), 'B', 1, &descr); },
        [&] { gen()->dropOrder(order("orders", 2), RawAnswer(), &descr); },
        [&] { gen()->dropOrders({order("orders", 2), order("orders", 3)}, RawAnswer(), &descrs); },
        [&] { gen()->dropOrdersBySecurity(4, 1, 100, "ACC1", 'S'); }};
    ForwardingCore core;
    core.service = nullptr;
    {
        InstalledCore installed(&core);
        for (auto const& call : calls) EXPECT_EQ(refusal(call), QStringLiteral("Служба транзакций ядра недоступна"));
    }
    transactions()->clearTemplates();
    for (auto const& call : calls) EXPECT_EQ(refusal(call), QStringLiteral("Подходящая транзакция не найдена"));
    EXPECT_TRUE(descr.security.isEmpty());
    EXPECT_EQ(descr.quantity, 0);
    EXPECT_TRUE(descrs.isEmpty());
    EXPECT_TRUE(transport.taken().isEmpty());
}

} // namespace
