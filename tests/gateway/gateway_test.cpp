#include <gateway/simulatedgateway.h>

#include "bundled_market.h"

#include <core/clock.h>
#include <core/defaultcore.h>
#include <core/transactions.h>
#include <database/batch.h>
#include <database/database.h>
#include <database/index.h>

#include <QCoreApplication>
#include <QFile>
#include <QMap>
#include <QThread>
#include <QTranslator>
#include <gtest/gtest.h>
#include <thread>

namespace {

using namespace bundled;
using Params = QMap<QString, QVariant>;

Record orderRow(qint64 orderId)
{
    QSharedPointer<Table> t = db()->table(QStringLiteral("orders"));
    for (auto it = t->masterIndex()->begin(); it != t->masterIndex()->end(); ++it)
        if (it->data(QStringLiteral("order_id")).rawInt64() == orderId) return *it;
    return Record();
}

qint64 maxOrderId()
{
    qint64 top = 0;
    QSharedPointer<Table> t = db()->table(QStringLiteral("orders"));
    for (auto it = t->masterIndex()->begin(); it != t->masterIndex()->end(); ++it)
        top = std::max<qint64>(top, it->data(QStringLiteral("order_id")).rawInt64());
    return top;
}

class GatewayTest : public ::testing::Test
{
protected:
    // The bundled market, applied batch by batch on this thread (the
    // updating thread), and its templates, loaded once.
    static void SetUpTestSuite() { load(); }

    void SetUp() override
    {
        gateway.plugInto(service());
        DefaultCore::global()->clearNotifications();
    }

    // As the transaction generator does: the market's template, the map,
    // then the order's board.
    RawTransaction build(int code, int stock, int board, Params const& params)
    {
        QList<QString> names;
        QList<TransactionMeta> found = service()->findTemplates(code, MarketFilter::single(stock, board), names);
        EXPECT_FALSE(found.isEmpty());
        if (found.isEmpty()) return RawTransaction();
        RawTransaction tx = service()->build(found.first(), params);
        tx.boardId = board;
        return tx;
    }
    RawTransaction place(QString const& security, QString const& account, QString const& side, QString const& price,
                         QString const& quantity, int stock = 1, int board = 1)
    {
        return build(1025, stock, board, {{QStringLiteral("Security"), security}, {QStringLiteral("Account"), account},
                                          {QStringLiteral("BuySell"), side.size() == 1 ? QVariant(side.at(0)) : QVariant(side)},
                                          {QStringLiteral("Price"), price}, {QStringLiteral("Quantity"), quantity},
                                          {QStringLiteral("Type"), QStringLiteral("1")}});
    }
    // The cancel of an order row, with the keys the generator fills.
    RawTransaction cancel(Record const& order, int code = 1028, QString const& security = QStringLiteral("VLT-1226"))
    {
        int const stock = order.data(QStringLiteral("stock_id")).rawInt32();
        Params p{{QStringLiteral("Account"), order.data(QStringLiteral("account")).toString()},
                 {QStringLiteral("order_id"), QString::number(order.data(QStringLiteral("order_id")).rawInt64())},
                 {QStringLiteral("Security"), security},
                 {QStringLiteral("sec_id"), QString::number(order.data(QStringLiteral("sec_id")).rawInt64())},
                 {QStringLiteral("dkh_request"), order.data(QStringLiteral("dkh_request")).rawInt32()}};
        if (stock == 5) {
            p.insert(QStringLiteral("BuySell"), order.data(QStringLiteral("buysell")).toString());
            p.insert(QStringLiteral("Stream"), order.data(QStringLiteral("stream_id")).toString());
        }
        return build(code, stock, order.data(QStringLiteral("board_id")).rawInt32(), p);
    }

    // Sends, shows that nothing is answered inside send, then lets the
    // event loop deliver the answer.
    RawAnswer sendAndProcess(RawTransaction const& tx)
    {
        EXPECT_EQ(service()->send(tx), 1);
        EXPECT_FALSE(tx.answer.isAnswered());
        QCoreApplication::processEvents();
        EXPECT_TRUE(tx.answer.isAnswered());
        return tx.answer;
    }
    qint64 placeAccepted(QString const& account, QString const& side, QString const& price = QStringLiteral("337.95"))
    {
        RawAnswer a = sendAndProcess(place(QStringLiteral("VLT-1226"), account, side, price, QStringLiteral("2")));
        EXPECT_EQ(a.code(), SimulatedGateway::Accepted) << a.text().toStdString();
        return gateway.lastOrderId();
    }

    // Securities of the tests' own, with the price limits written here
    // whatever the bundled market's are; added once.
    static void addOwnSecurities()
    {
        static bool added = false;
        if (added) return;
        added = true;
        db()->apply(BatchDecoder(*db()).decode(
            R"({"table":"securities","ops":[)"
            R"({"insert":{"stock_id":1,"board_id":1,"sec_id":990001,"isin_id":990001,"sec_code":"LIM-F","price_step":"0.5","price_lmt_low":"90","price_lmt_high":"110"}},)"
            R"({"insert":{"stock_id":1,"board_id":1,"sec_id":990002,"isin_id":990002,"sec_code":"FREE-F","price_step":"0.5"}},)"
            R"({"insert":{"stock_id":1,"board_id":1,"sec_id":990003,"isin_id":990003,"sec_code":"HALF-F","price_step":"0.5","price_lmt_high":"110"}},)"
            R"({"insert":{"stock_id":1,"board_id":1,"sec_id":990004,"isin_id":990004,"sec_code":"ODD-F","price_step":"0.5","price_lmt_low":"110","price_lmt_high":"90"}},)"
            R"({"insert":{"stock_id":1,"board_id":10,"sec_id":990005,"isin_id":990005,"sec_code":"LIM-S","price_step":"0.01","price_lmt_low":"-1","price_lmt_high":"1"}},)"
            R"({"insert":{"stock_id":1,"board_id":11,"sec_id":990006,"isin_id":990006,"sec_code":"FREE-S","price_step":"0.01"}}]})",
            QStringLiteral("test:limits")));
    }

    SimulatedGateway gateway{DefaultCore::global()};
    OrderWatch watch{db()->table(QStringLiteral("orders"))};
};

TEST_F(GatewayTest, AcceptedOrderIsAnsweredNotifiedAndReplicatedIntoOrders)
{
    qint64 const before = maxOrderId();
    RawTransaction tx = place(QStringLiteral("VLT-1226"), QStringLiteral("FB02001"), QStringLiteral("B"),
                              QStringLiteral("337.95"), QStringLiteral("3"));
    ASSERT_TRUE(tx.isComplete());
    EXPECT_EQ(service()->send(tx), 1);
    // A connection answers later: nothing has happened yet.
    EXPECT_FALSE(tx.answer.isAnswered());
    EXPECT_EQ(gateway.pending(), 1);
    EXPECT_TRUE(watch.events.isEmpty());
    EXPECT_TRUE(DefaultCore::global()->notifications().isEmpty());

    QCoreApplication::processEvents();
    qint64 const id = before + 1;
    ASSERT_TRUE(tx.answer.isAnswered());
    EXPECT_EQ(tx.answer.code(), SimulatedGateway::Accepted);
    EXPECT_EQ(tx.answer.text(), QStringLiteral("Заявка %1 принята").arg(id));
    EXPECT_EQ(DefaultCore::global()->notifications(), QStringList{QStringLiteral("1|Заявка %1 принята|").arg(id)});
    EXPECT_EQ(watch.events, QStringList{QStringLiteral("add %1 A").arg(id)});
    EXPECT_EQ(watch.batches, 1);

    Record row = orderRow(id);
    ASSERT_FALSE(row.isEmpty());
    QStringList cells;
    for (char const* column : {"stock_id", "board_id", "sess_id", "sec_id", "account", "buysell", "price", "quantity", "balance",
                               "signs", "dkh_request", "stream_id"})
        cells << (row.data(QLatin1String(column)).isNull() ? QStringLiteral("null") : row.data(QLatin1String(column)).toString());
    EXPECT_EQ(cells.join(' '), QStringLiteral("1 1 7302 100001 FB02001 B 337.95000 3 3 0 0 null"));
    EXPECT_EQ(row.data(QStringLiteral("moment")).rawDateTime(), Clock::nowMSecs());

    // Ids keep rising, also across several transactions answered together.
    RawTransaction second = place(QStringLiteral("VLT-1226"), QStringLiteral("FB02001"), QStringLiteral("S"),
                                  QStringLiteral("338"), QStringLiteral("1"));
    RawTransaction third = place(QStringLiteral("VLT-1226"), QStringLiteral("FB02001"), QStringLiteral("S"),
                                 QStringLiteral("338.01"), QStringLiteral("1"));
    EXPECT_EQ(service()->send(second), 1);
    EXPECT_EQ(service()->send(third), 1);
    EXPECT_FALSE(second.answer.isAnswered());
    QCoreApplication::processEvents();
    EXPECT_EQ(second.answer.text(), QStringLiteral("Заявка %1 принята").arg(id + 1));
    EXPECT_EQ(third.answer.text(), QStringLiteral("Заявка %1 принята").arg(id + 2));
}

TEST_F(GatewayTest, EveryRejectionIsExplainedAndChangesNoTable)
{
    qint64 const mine = placeAccepted(QStringLiteral("FB02001"), QStringLiteral("B"));
    RawTransaction cancelMine = cancel(orderRow(mine));
    ASSERT_EQ(sendAndProcess(cancelMine).code(), SimulatedGateway::Accepted);
    qint64 const open = placeAccepted(QStringLiteral("FB02001"), QStringLiteral("S"));
    Record openRow = orderRow(open);

    struct Case
    {
        char const* what;
        RawTransaction tx;
        char const* reason;
    };
    QString const vlt = QStringLiteral("VLT-1226");
    RawTransaction otherAccount = cancel(openRow);
    otherAccount.params[QStringLiteral("Account")] = QStringLiteral("FB02002");
    RawTransaction otherSecId = cancel(openRow);
    otherSecId.params[QStringLiteral("sec_id")] = QStringLiteral("100002");
    RawTransaction unknownId = cancel(openRow);
    unknownId.params[QStringLiteral("order_id")] = QStringLiteral("99999999999");
    RawTransaction badId = cancel(openRow);
    badId.params[QStringLiteral("order_id")] = QStringLiteral("-5");
    RawTransaction missing = place(vlt, QStringLiteral("FB02001"), QStringLiteral("B"), QStringLiteral("1"), QStringLiteral("1"));
    missing.params.remove(QStringLiteral("Price"));   // reaches the gateway only when taken directly
    RawTransaction otherCode = place(vlt, QStringLiteral("FB02001"), QStringLiteral("B"), QStringLiteral("1"), QStringLiteral("1"));
    otherCode.messageCode = 1030;
    QList<Case> cases{
        {"unknown security", place(QStringLiteral("NOPE-1"), QStringLiteral("FB02001"), QStringLiteral("B"), QStringLiteral("1"), QStringLiteral("1")), "инструмент «NOPE-1» не найден"},
        {"security of another board", place(vlt, QStringLiteral("FB02001"), QStringLiteral("B"), QStringLiteral("1"), QStringLiteral("1"), 1, 14), "инструмент «VLT-1226» не найден"},
        {"unknown account", place(vlt, QStringLiteral("ZZ99001"), QStringLiteral("B"), QStringLiteral("337.95"), QStringLiteral("1")), "счёт «ZZ99001» не найден"},
        {"account that only fits when cut", place(vlt, QStringLiteral("FB020019"), QStringLiteral("B"), QStringLiteral("337.95"), QStringLiteral("1")), "счёт «FB020019» не найден"},
        {"side", place(vlt, QStringLiteral("FB02001"), QStringLiteral("X"), QStringLiteral("337.95"), QStringLiteral("1")), "направление должно быть B или S, а не «X»"},
        {"side of two letters", place(vlt, QStringLiteral("FB02001"), QStringLiteral("BS"), QStringLiteral("337.95"), QStringLiteral("1")), "а не «BS»"},
        {"price off the step", place(vlt, QStringLiteral("FB02001"), QStringLiteral("B"), QStringLiteral("337.955"), QStringLiteral("1")), "цена 337.955 не кратна шагу цены 0.01"},
        {"price text", place(vlt, QStringLiteral("FB02001"), QStringLiteral("B"), QStringLiteral("3e2"), QStringLiteral("1")), "цена «3e2» не является числом"},
        {"price with a comma", place(vlt, QStringLiteral("FB02001"), QStringLiteral("B"), QStringLiteral("337,95"), QStringLiteral("1")), "не является числом"},
        {"zero price", place(vlt, QStringLiteral("FB02001"), QStringLiteral("B"), QStringLiteral("0"), QStringLiteral("1")), "цена 0 должна быть больше нуля"},
        {"negative price", place(vlt, QStringLiteral("FB02001"), QStringLiteral("B"), QStringLiteral("-337.95"), QStringLiteral("1")), "цена -337.95 должна быть больше нуля"},
        {"zero quantity", place(vlt, QStringLiteral("FB02001"), QStringLiteral("B"), QStringLiteral("337.95"), QStringLiteral("0")), "а не «0»"},
        {"negative quantity", place(vlt, QStringLiteral("FB02001"), QStringLiteral("B"), QStringLiteral("337.95"), QStringLiteral("-2")), "а не «-2»"},
        {"fractional quantity", place(vlt, QStringLiteral("FB02001"), QStringLiteral("B"), QStringLiteral("337.95"), QStringLiteral("1.5")), "а не «1.5»"},
        {"quantity beyond 32 bits", place(vlt, QStringLiteral("FB02001"), QStringLiteral("B"), QStringLiteral("337.95"), QStringLiteral("2147483648")), "целым положительным числом"},
        {"missing parameter", missing, "нет параметра «Price»"},
        {"unserved code", otherCode, "транзакция 1030 не обслуживается"},
        {"order of another account", otherAccount, "не найдена"},
        {"unknown order", unknownId, "заявка 99999999999 не найдена"},
        {"malformed order id", badId, "заявка -5 не найдена"},
        {"order and sec_id disagree", otherSecId, "не совпадает с транзакцией по полю «sec_id»"},
        {"cancelled already", cancel(orderRow(mine)), "не активна"},
        {"plain order cancelled as flagged", cancel(openRow, 1280), "снимают транзакцией 1028"},
    };
    QStringList const orders = rowsOf(QStringLiteral("orders"));
    int const batches = watch.batches;
    qint64 const lastId = gateway.lastOrderId();
    for (Case const& c : cases) {
        DefaultCore::global()->clearNotifications();
        gateway.take(c.tx);
        EXPECT_FALSE(c.tx.answer.isAnswered());
        QCoreApplication::processEvents();
        EXPECT_EQ(c.tx.answer.code(), SimulatedGateway::Rejected) << c.what;
        EXPECT_TRUE(c.tx.answer.text().startsWith(QStringLiteral("Транзакция отвергнута: "))) << c.what;
        EXPECT_TRUE(c.tx.answer.text().contains(QString::fromUtf8(c.reason))) << c.what << ": " << c.tx.answer.text().toStdString();
        EXPECT_EQ(DefaultCore::global()->notifications().value(0), QStringLiteral("3|%1|").arg(c.tx.answer.text().toHtmlEscaped())) << c.what;
    }
    EXPECT_EQ(rowsOf(QStringLiteral("orders")), orders);
    EXPECT_EQ(watch.batches, batches);
    EXPECT_EQ(gateway.lastOrderId(), lastId);
}

// A price above zero, within the limits where both are published and make a
// range; on the swap boards (10, 11) zero and below as well.
TEST_F(GatewayTest, PricesArePositiveOffTheSwapBoardsAndWithinTheLimits)
{
    addOwnSecurities();
    struct Case
    {
        char const* security;
        int board;
        char const* price;
        char const* reason;   // null: accepted
    };
    Case const cases[] = {
        {"LIM-F", 1, "90", nullptr},
        {"LIM-F", 1, "110.0", nullptr},
        {"LIM-F", 1, "89.5", "цена 89.5 вне лимитов цены 90 – 110"},
        {"LIM-F", 1, "110.5", "цена 110.5 вне лимитов цены 90 – 110"},
        {"LIM-F", 1, "0", "цена 0 должна быть больше нуля"},
        {"FREE-F", 1, "100000.5", nullptr},
        {"FREE-F", 1, "0.5", nullptr},
        {"FREE-F", 1, "-0.5", "цена -0.5 должна быть больше нуля"},
        {"FREE-F", 1, "0.0", "цена 0.0 должна быть больше нуля"},
        {"HALF-F", 1, "500", nullptr},   // one limit alone bounds nothing
        {"ODD-F", 1, "500", nullptr},    // nor a low one above the high one
        {"LIM-S", 10, "0", nullptr},
        {"LIM-S", 10, "-0.75", nullptr},
        {"LIM-S", 10, "-1", nullptr},
        {"LIM-S", 10, "-1.01", "цена -1.01 вне лимитов цены -1 – 1"},
        {"LIM-S", 10, "1.01", "цена 1.01 вне лимитов цены -1 – 1"},
        {"FREE-S", 11, "-250.5", nullptr},
        {"FREE-S", 11, "0", nullptr},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(testing::Message() << c.security << " at " << c.price);
        qint64 const before = gateway.lastOrderId();
        RawAnswer a = sendAndProcess(place(QLatin1String(c.security), QStringLiteral("FB02001"), QStringLiteral("S"),
                                           QLatin1String(c.price), QStringLiteral("1"), 1, c.board));
        if (c.reason) {
            EXPECT_EQ(a.code(), SimulatedGateway::Rejected);
            EXPECT_EQ(a.text(), QStringLiteral("Транзакция отвергнута: %1").arg(QString::fromUtf8(c.reason)));
            EXPECT_EQ(gateway.lastOrderId(), before);
        } else {
            ASSERT_EQ(a.code(), SimulatedGateway::Accepted) << a.text().toStdString();
            EXPECT_EQ(orderRow(gateway.lastOrderId()).data(QStringLiteral("price")).rawDecimal().compare(decimal(QLatin1String(c.price))), 0);
        }
    }
}

TEST_F(GatewayTest, NamesFromOutsideCannotInjectMarkupIntoNotifications)
{
    RawTransaction tx = place(QStringLiteral("<b>x</b>|2|y"), QStringLiteral("FB02001"), QStringLiteral("B"),
                              QStringLiteral("1"), QStringLiteral("1"));
    RawAnswer a = sendAndProcess(tx);
    EXPECT_EQ(a.code(), SimulatedGateway::Rejected);
    QString const n = DefaultCore::global()->notifications().value(0);
    EXPECT_EQ(n, QStringLiteral("3|Транзакция отвергнута: инструмент «&lt;b&gt;x&lt;/b&gt;&#124;2&#124;y» не найден|"));
    UserNotification parsed = UserNotification::parse(n);
    EXPECT_EQ(parsed.kind, 3);
    EXPECT_TRUE(parsed.link.isEmpty());
}

TEST_F(GatewayTest, CancelOfAnOrderWithdrawsItKeepingTheRow)
{
    qint64 const id = placeAccepted(QStringLiteral("FB02001"), QStringLiteral("B"));
    watch.events.clear();
    DefaultCore::global()->clearNotifications();
    RawAnswer a = sendAndProcess(cancel(orderRow(id)));
    EXPECT_EQ(a.code(), SimulatedGateway::Accepted);
    EXPECT_EQ(a.text(), QStringLiteral("Заявка %1 снята").arg(id));
    EXPECT_EQ(DefaultCore::global()->notifications(), QStringList{QStringLiteral("1|Заявка %1 снята|").arg(id)});
    EXPECT_EQ(watch.events, QStringList{QStringLiteral("update %1 W 0").arg(id)});
    Record row = orderRow(id);
    EXPECT_EQ(row.data(QStringLiteral("quantity")).rawInt32(), 2);

    // An order flagged by bit 47 of its signs is cancelled with 1280 only.
    db()->apply(BatchDecoder(*db()).decode(
        "{\"table\":\"orders\",\"ops\":[{\"insert\":{\"stock_id\":1,\"board_id\":1,\"sess_id\":7302,\"order_id\":52000000001,"
        "\"sec_id\":100001,\"status\":\"A\",\"account\":\"FB02001\",\"price\":\"337.90\",\"buysell\":\"S\",\"quantity\":4,"
        "\"balance\":4,\"signs\":140737488355328,\"dkh_request\":0}}]}", QStringLiteral("test:1")));
    EXPECT_EQ(sendAndProcess(cancel(orderRow(52000000001), 1028)).code(), SimulatedGateway::Rejected);
    EXPECT_EQ(sendAndProcess(cancel(orderRow(52000000001), 1280)).code(), SimulatedGateway::Accepted);
    EXPECT_EQ(orderRow(52000000001).data(QStringLiteral("status")).toString(), QStringLiteral("W"));
    // The ids given out next stand above the one replicated meanwhile.
    EXPECT_EQ(placeAccepted(QStringLiteral("FB02001"), QStringLiteral("B")), 52000000002);
}

TEST_F(GatewayTest, CancelBySecurityWithdrawsEveryMatchingOrderInOneBatch)
{
    qint64 const b1 = placeAccepted(QStringLiteral("FB02003"), QStringLiteral("B"));
    qint64 const b2 = placeAccepted(QStringLiteral("FB02003"), QStringLiteral("B"), QStringLiteral("337.90"));
    qint64 const s1 = placeAccepted(QStringLiteral("FB02003"), QStringLiteral("S"));
    qint64 const other = placeAccepted(QStringLiteral("FB02002"), QStringLiteral("B"));
    watch.events.clear();
    int const batches = watch.batches;
    Params p{{QStringLiteral("Account"), QStringLiteral("FB02003")}, {QStringLiteral("Security"), QStringLiteral("VLT-1226")},
             {QStringLiteral("BuySell"), QChar('B')}};
    RawAnswer a = sendAndProcess(build(1032, 1, 1, p));
    EXPECT_EQ(a.code(), SimulatedGateway::Accepted);
    EXPECT_EQ(a.text(), QStringLiteral("Снято заявок: 2"));
    EXPECT_EQ(watch.batches, batches + 1);
    EXPECT_EQ(watch.events, (QStringList{QStringLiteral("update %1 W 0").arg(b1), QStringLiteral("update %1 W 0").arg(b2)}));
    for (qint64 id : {s1, other}) EXPECT_EQ(orderRow(id).data(QStringLiteral("status")).toString(), QStringLiteral("A"));

    // Nothing left to cancel: answered, no batch.
    RawAnswer again = sendAndProcess(build(1032, 1, 1, p));
    EXPECT_EQ(again.text(), QStringLiteral("Снято заявок: 0"));
    EXPECT_EQ(watch.batches, batches + 1);
}

TEST_F(GatewayTest, StreamMarketOrdersCarryTheStreamAndItsCancelNamesIt)
{
    RawTransaction tx = place(QStringLiteral("VLT-1226"), QStringLiteral("FA01000"), QStringLiteral("B"),
                              QStringLiteral("337.92"), QStringLiteral("5"), 5, 20);
    ASSERT_EQ(sendAndProcess(tx).code(), SimulatedGateway::Accepted) << tx.answer.text().toStdString();
    Record row = orderRow(gateway.lastOrderId());
    EXPECT_EQ(row.data(QStringLiteral("stock_id")).rawInt32(), 5);
    EXPECT_EQ(row.data(QStringLiteral("sec_id")).rawInt64(), 100058);
    EXPECT_EQ(row.data(QStringLiteral("stream_id")).rawInt64(), 9000000001LL);

    RawTransaction wrongStream = cancel(row);
    ASSERT_TRUE(wrongStream.params.contains(QStringLiteral("Stream")));
    wrongStream.params[QStringLiteral("Stream")] = QStringLiteral("9000000002");
    EXPECT_TRUE(sendAndProcess(wrongStream).text().contains(QStringLiteral("«Stream»")));
    EXPECT_EQ(sendAndProcess(cancel(row)).code(), SimulatedGateway::Accepted);
}

TEST_F(GatewayTest, AnswersReadInTheTerminalsLanguage)
{
    QTranslator english;
    ASSERT_TRUE(english.load(QStringLiteral("libdirectory_en"), QStringLiteral(TRANSLATIONS_DIR)));
    QCoreApplication::installTranslator(&english);
    qint64 const id = placeAccepted(QStringLiteral("FB02001"), QStringLiteral("B"));
    RawAnswer bad = sendAndProcess(place(QStringLiteral("VLT-1226"), QStringLiteral("FB02001"), QStringLiteral("B"),
                                         QStringLiteral("337.955"), QStringLiteral("1")));
    addOwnSecurities();
    RawAnswer low = sendAndProcess(place(QStringLiteral("LIM-F"), QStringLiteral("FB02001"), QStringLiteral("B"),
                                         QStringLiteral("89.5"), QStringLiteral("1")));
    RawAnswer zero = sendAndProcess(place(QStringLiteral("VLT-1226"), QStringLiteral("FB02001"), QStringLiteral("B"),
                                          QStringLiteral("0"), QStringLiteral("1")));
    RawAnswer cancelled = sendAndProcess(cancel(orderRow(id)));
    QCoreApplication::removeTranslator(&english);
    EXPECT_EQ(DefaultCore::global()->notifications().value(0), QStringLiteral("1|Order %1 accepted|").arg(id));
    EXPECT_EQ(bad.text(), QStringLiteral("Transaction rejected: price 337.955 is not a multiple of the price step 0.01"));
    EXPECT_EQ(low.text(), QStringLiteral("Transaction rejected: price 89.5 is outside the price limits 90 to 110"));
    EXPECT_EQ(zero.text(), QStringLiteral("Transaction rejected: price 0 must be above zero"));
    EXPECT_EQ(cancelled.text(), QStringLiteral("Order %1 cancelled").arg(id));
}

TEST_F(GatewayTest, TransactionSentFromAWorkerThreadIsAnsweredOnTheGatewaysThread)
{
    RawTransaction tx = place(QStringLiteral("VLT-1226"), QStringLiteral("FB02001"), QStringLiteral("B"),
                              QStringLiteral("337.95"), QStringLiteral("1"));
    Qt::HANDLE answeredOn = nullptr;
    QObject::connect(&gateway, &SimulatedGateway::answered, [&] { answeredOn = QThread::currentThreadId(); });
    int taken = 0;
    std::thread worker([&] { taken = service()->send(tx); });
    worker.join();
    EXPECT_EQ(taken, 1);
    EXPECT_FALSE(tx.answer.isAnswered());
    QCoreApplication::processEvents();
    EXPECT_EQ(tx.answer.code(), SimulatedGateway::Accepted);
    EXPECT_EQ(answeredOn, QThread::currentThreadId());
    EXPECT_FALSE(orderRow(gateway.lastOrderId()).isEmpty());
}

} // namespace

// The gateway answers through the event loop: tests run inside an application.
int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
