// The simulated exchange on the bundled market, loaded batch by batch on this
// thread (the updating thread), driven through the core's transaction service.
#include <gateway/simulatedgateway.h>

#include <core/clock.h>
#include <core/defaultcore.h>
#include <core/transactions.h>
#include <database/batch.h>
#include <database/database.h>
#include <database/index.h>

#include <QCoreApplication>
#include <QFile>
#include <QThread>
#include <QTranslator>
#include <gtest/gtest.h>
#include <thread>

// Readable QStrings in assertion messages.
inline void PrintTo(QString const& s, std::ostream* os) { *os << '"' << s.toStdString() << '"'; }

namespace {

using Params = QMap<QString, QVariant>;

Database* db() { return DefaultCore::global()->database(); }
TransactionService* service() { return DefaultCore::global()->transactions(); }
void apply(QByteArray const& json) { db()->apply(BatchDecoder(*db()).decode(json, QStringLiteral("test:1"))); }

Record orderRow(qint64 orderId)
{
    QSharedPointer<Table> t = db()->table("orders");
    for (auto it = t->masterIndex()->begin(); it != t->masterIndex()->end(); ++it)
        if (it->data("order_id").rawInt64() == orderId) return *it;
    return Record();
}

// What a view of the orders table is told, row by row ("add ID STATUS",
// "update ID STATUS BALANCE", "remove ID"), and how many batches it saw end.
class OrderWatch : public Index
{
public:
    explicit OrderWatch(QSharedPointer<Table> table) : m_table(std::move(table)) { m_table->addIndex(this); }
    ~OrderWatch() override { m_table->removeIndex(this); }
    void clear() override {}   // a view's index keeps nothing
    void build() override {}
    void add(Record const& r) override { events << QStringLiteral("add %1 %2").arg(id(r)).arg(r.data("status").toString()); }
    void remove(Record const& r, int) override { events << QStringLiteral("remove %1").arg(id(r)); }
    void update(Record const& r, int, int, int) override
    {
        events << QStringLiteral("update %1 %2 %3").arg(id(r)).arg(r.data("status").toString()).arg(r.data("balance").rawInt32());
    }
    bool filter(Record const&) const override { return true; }
    bool contains(Record const&) const override { return false; }
    void endUpdate() override { ++batches; }
    QString getClassName() const override { return QStringLiteral("OrderWatch"); }
    QStringList events;
    int batches = 0;

private:
    static qint64 id(Record const& r) { return r.data("order_id").rawInt64(); }
    QSharedPointer<Table> m_table;
};

class GatewayTest : public ::testing::Test
{
protected:
    // Schema, snapshot and templates at the market's moment, and securities of
    // the tests' own with the price limits written here whatever the market's are.
    static void SetUpTestSuite()
    {
        Clock::setFixed(QDateTime(QDate(2026, 11, 20), QTime(10, 0), Qt::UTC).toMSecsSinceEpoch());
        db()->loadSchema(QStringLiteral(SOURCE_DIR "/data/schema.json"));
        QFile snapshot(QStringLiteral(SOURCE_DIR "/data/market/snapshot.jsonl"));
        ASSERT_TRUE(snapshot.open(QIODevice::ReadOnly));
        while (!snapshot.atEnd())
            if (QByteArray line = snapshot.readLine().trimmed(); !line.isEmpty()) apply(line);
        QString error;
        ASSERT_TRUE(service()->loadTemplates(QStringLiteral(SOURCE_DIR "/data/market/templates.json"), error)) << error.toStdString();
        apply(R"({"table":"securities","ops":[)"
              R"({"insert":{"stock_id":1,"board_id":1,"sec_id":990001,"isin_id":990001,"sec_code":"LIM-F","price_step":"0.5","price_lmt_low":"90","price_lmt_high":"110"}},)"
              R"({"insert":{"stock_id":1,"board_id":1,"sec_id":990002,"isin_id":990002,"sec_code":"FREE-F","price_step":"0.5"}},)"
              R"({"insert":{"stock_id":1,"board_id":1,"sec_id":990003,"isin_id":990003,"sec_code":"HALF-F","price_step":"0.5","price_lmt_high":"110"}},)"
              R"({"insert":{"stock_id":1,"board_id":1,"sec_id":990004,"isin_id":990004,"sec_code":"ODD-F","price_step":"0.5","price_lmt_low":"110","price_lmt_high":"90"}},)"
              R"({"insert":{"stock_id":1,"board_id":10,"sec_id":990005,"isin_id":990005,"sec_code":"LIM-S","price_step":"0.01","price_lmt_low":"-1","price_lmt_high":"1"}},)"
              R"({"insert":{"stock_id":1,"board_id":11,"sec_id":990006,"isin_id":990006,"sec_code":"FREE-S","price_step":"0.01"}}]})");
    }
    void SetUp() override
    {
        gateway.plugInto(service());
        DefaultCore::global()->clearNotifications();
    }

    // As the transaction generator does: the market's template, the map, then the order's board.
    static RawTransaction build(int code, int stock, int board, Params const& params)
    {
        QList<QString> names;
        QList<TransactionMeta> found = service()->findTemplates(code, MarketFilter::single(stock, board), names);
        EXPECT_FALSE(found.isEmpty());
        if (found.isEmpty()) return RawTransaction();
        RawTransaction tx = service()->build(found.first(), params);
        tx.boardId = board;
        return tx;
    }
    static RawTransaction place(QString const& security, QString const& price, QString const& quantity = "1",
                                QString const& account = "FB02001", QString const& side = "B", int stock = 1, int board = 1)
    {
        return build(1025, stock, board, {{"Security", security}, {"Account", account},
                                          {"BuySell", side.size() == 1 ? QVariant(side.at(0)) : QVariant(side)},
                                          {"Price", price}, {"Quantity", quantity}, {"Type", "1"}});
    }
    // The cancel of an order row, with the keys the generator fills.
    static RawTransaction cancel(Record const& order, int code = 1028)
    {
        int const stock = order.data("stock_id").rawInt32();
        Params p{{"Account", order.data("account").toString()}, {"order_id", QString::number(order.data("order_id").rawInt64())},
                 {"Security", "VLT-1226"}, {"sec_id", QString::number(order.data("sec_id").rawInt64())},
                 {"dkh_request", order.data("dkh_request").rawInt32()}};
        if (stock == 5) {
            p.insert("BuySell", order.data("buysell").toString());
            p.insert("Stream", order.data("stream_id").toString());
        }
        return build(code, stock, order.data("board_id").rawInt32(), p);
    }

    // Sends, shows that nothing is answered inside send, then lets the event loop answer.
    static RawAnswer sendAndProcess(RawTransaction const& tx)
    {
        EXPECT_EQ(service()->send(tx), 1);
        EXPECT_FALSE(tx.answer.isAnswered());
        QCoreApplication::processEvents();
        EXPECT_TRUE(tx.answer.isAnswered());
        return tx.answer;
    }
    qint64 placeAccepted(QString const& account, QString const& side, QString const& price = "337.95")
    {
        RawAnswer a = sendAndProcess(place("VLT-1226", price, "2", account, side));
        EXPECT_EQ(a.code(), SimulatedGateway::Accepted) << a.text().toStdString();
        return gateway.lastOrderId();
    }

    SimulatedGateway gateway{DefaultCore::global()};
    OrderWatch watch{db()->table("orders")};
};

TEST_F(GatewayTest, AcceptedOrderIsAnsweredNotifiedAndReplicatedIntoOrders)
{
    qint64 top = 0;   // new ids start above the replicated ones
    QSharedPointer<Table> orders = db()->table("orders");
    for (auto it = orders->masterIndex()->begin(); it != orders->masterIndex()->end(); ++it) top = std::max<qint64>(top, it->data("order_id").rawInt64());
    RawTransaction tx = place("VLT-1226", "337.95", "3");
    EXPECT_EQ(service()->send(tx), 1);
    // A connection answers later: nothing has happened yet.
    EXPECT_FALSE(tx.answer.isAnswered());
    EXPECT_EQ(gateway.pending(), 1);
    EXPECT_TRUE(watch.events.isEmpty());
    EXPECT_TRUE(DefaultCore::global()->notifications().isEmpty());

    QCoreApplication::processEvents();
    qint64 const id = top + 1;
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
        cells << (row.data(column).isNull() ? QStringLiteral("null") : row.data(column).toString());
    EXPECT_EQ(cells.join(' '), QStringLiteral("1 1 7302 100001 FB02001 B 337.95000 3 3 0 0 null"));
    EXPECT_EQ(row.data("moment").rawDateTime(), Clock::nowMSecs());

    // Ids keep rising, also across several transactions answered together.
    RawTransaction second = place("VLT-1226", "338", "1", "FB02001", "S"), third = place("VLT-1226", "338.01", "1", "FB02001", "S");
    EXPECT_EQ(service()->send(second) + service()->send(third), 2);
    EXPECT_FALSE(second.answer.isAnswered());
    QCoreApplication::processEvents();
    EXPECT_EQ(second.answer.text(), QStringLiteral("Заявка %1 принята").arg(id + 1));
    EXPECT_EQ(third.answer.text(), QStringLiteral("Заявка %1 принята").arg(id + 2));
}

TEST_F(GatewayTest, EveryRejectionIsExplainedAndChangesNoTable)
{
    qint64 const mine = placeAccepted("FB02001", "B");
    ASSERT_EQ(sendAndProcess(cancel(orderRow(mine))).code(), SimulatedGateway::Accepted);
    Record const open = orderRow(placeAccepted("FB02001", "S"));
    auto cancelWith = [&](QString const& key, QString const& value) {
        RawTransaction tx = cancel(open);
        tx.params[key] = value;
        return tx;
    };
    RawTransaction missing = place("VLT-1226", "1");
    missing.params.remove("Price");   // reaches the gateway only when taken directly
    RawTransaction otherCode = place("VLT-1226", "1");
    otherCode.messageCode = 1030;
    struct Case { RawTransaction tx; char const* reason; };
    QList<Case> const cases{
        {place("NOPE-1", "1"), "инструмент «NOPE-1» не найден"},
        {place("VLT-1226", "1", "1", "FB02001", "B", 1, 14), "инструмент «VLT-1226» не найден"},   // another board's
        {place("<b>x</b>|2|y", "1"), "инструмент «<b>x</b>|2|y» не найден"},   // markup and separators stay text
        {place("VLT-1226", "337.95", "1", "ZZ99001"), "счёт «ZZ99001» не найден"},
        {place("VLT-1226", "337.95", "1", "FB020019"), "счёт «FB020019» не найден"},   // fits only when cut
        {place("VLT-1226", "337.95", "1", "FB02001", "X"), "направление должно быть B или S, а не «X»"},
        {place("VLT-1226", "337.95", "1", "FB02001", "BS"), "а не «BS»"},
        {place("VLT-1226", "337.955"), "цена 337.955 не кратна шагу цены 0.01"},
        {place("VLT-1226", "3e2"), "цена «3e2» не является числом"},
        {place("VLT-1226", "337,95"), "не является числом"},
        {place("VLT-1226", "337.95", "0"), "а не «0»"},
        {place("VLT-1226", "337.95", "-2"), "а не «-2»"},
        {place("VLT-1226", "337.95", "1.5"), "а не «1.5»"},
        {place("VLT-1226", "337.95", "2147483648"), "целым положительным числом"},
        {missing, "нет параметра «Price»"},
        {otherCode, "транзакция 1030 не обслуживается"},
        {cancelWith("Account", "FB02002"), "не найдена"},
        {cancelWith("order_id", "99999999999"), "заявка 99999999999 не найдена"},
        {cancelWith("order_id", "-5"), "заявка -5 не найдена"},
        {cancelWith("sec_id", "100002"), "не совпадает с транзакцией по полю «sec_id»"},
        {cancel(orderRow(mine)), "не активна"},
        {cancel(open, 1280), "снимают транзакцией 1028"},
    };
    watch.events.clear();
    int const batches = watch.batches;
    qint64 const lastId = gateway.lastOrderId();
    for (Case const& c : cases) {
        SCOPED_TRACE(c.reason);
        DefaultCore::global()->clearNotifications();
        gateway.take(c.tx);
        EXPECT_FALSE(c.tx.answer.isAnswered());
        QCoreApplication::processEvents();
        EXPECT_EQ(c.tx.answer.code(), SimulatedGateway::Rejected);
        EXPECT_TRUE(c.tx.answer.text().startsWith("Транзакция отвергнута: "));
        EXPECT_TRUE(c.tx.answer.text().contains(QString::fromUtf8(c.reason))) << c.tx.answer.text().toStdString();
        EXPECT_EQ(DefaultCore::global()->notifications().value(0),
                  QStringLiteral("3|%1|").arg(c.tx.answer.text().toHtmlEscaped().replace('|', "&#124;")));
    }
    EXPECT_TRUE(watch.events.isEmpty()) << watch.events.join(", ").toStdString();
    EXPECT_EQ(watch.batches, batches);
    EXPECT_EQ(gateway.lastOrderId(), lastId);
}

// A price above zero, within the limits where both are published and make a
// range; on the swap boards (10, 11) zero and below as well.
TEST_F(GatewayTest, PricesArePositiveOffTheSwapBoardsAndWithinTheLimits)
{
    struct Case { char const* security; int board; char const* price; char const* reason; };   // null reason: accepted
    Case const cases[] = {
        {"LIM-F", 1, "90", nullptr},
        {"LIM-F", 1, "110.0", nullptr},
        {"LIM-F", 1, "89.5", "цена 89.5 вне лимитов цены 90 – 110"},
        {"LIM-F", 1, "110.5", "цена 110.5 вне лимитов цены 90 – 110"},
        {"FREE-F", 1, "100000.5", nullptr},
        {"FREE-F", 1, "0.5", nullptr},
        {"FREE-F", 1, "-0.5", "цена -0.5 должна быть больше нуля"},
        {"FREE-F", 1, "0.0", "цена 0.0 должна быть больше нуля"},
        {"HALF-F", 1, "500", nullptr},   // one limit alone bounds nothing
        {"ODD-F", 1, "500", nullptr},    // nor a low one above the high one
        {"LIM-S", 10, "0", nullptr},
        {"LIM-S", 10, "-1", nullptr},
        {"LIM-S", 10, "-1.01", "цена -1.01 вне лимитов цены -1 – 1"},
        {"LIM-S", 10, "1.01", "цена 1.01 вне лимитов цены -1 – 1"},
        {"FREE-S", 11, "-250.5", nullptr},
        {"FREE-S", 11, "0", nullptr},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(testing::Message() << c.security << " at " << c.price);
        qint64 const before = gateway.lastOrderId();
        RawAnswer a = sendAndProcess(place(c.security, c.price, "1", "FB02001", "S", 1, c.board));
        if (c.reason) {
            EXPECT_EQ(a.text(), "Транзакция отвергнута: " + QString::fromUtf8(c.reason));
            EXPECT_EQ(gateway.lastOrderId(), before);
        } else {
            ASSERT_EQ(a.code(), SimulatedGateway::Accepted) << a.text().toStdString();
            EXPECT_EQ(orderRow(gateway.lastOrderId()).data("price").rawDecimal().compare(decimal(c.price)), 0);
        }
    }
}

TEST_F(GatewayTest, CancelsWithdrawOrdersKeepingTheirRows)
{
    qint64 const id = placeAccepted("FB02001", "B");
    watch.events.clear();
    DefaultCore::global()->clearNotifications();
    RawAnswer const a = sendAndProcess(cancel(orderRow(id)));
    EXPECT_EQ(a.code(), SimulatedGateway::Accepted);
    EXPECT_EQ(a.text(), QStringLiteral("Заявка %1 снята").arg(id));
    EXPECT_EQ(DefaultCore::global()->notifications(), QStringList{QStringLiteral("1|Заявка %1 снята|").arg(id)});
    EXPECT_EQ(watch.events, QStringList{QStringLiteral("update %1 W 0").arg(id)});
    EXPECT_EQ(orderRow(id).data("quantity").rawInt32(), 2);

    // An order flagged by bit 47 of its signs is cancelled with 1280 only.
    apply(R"({"table":"orders","ops":[{"insert":{"stock_id":1,"board_id":1,"sess_id":7302,"order_id":52000000001,"sec_id":100001,
          "status":"A","account":"FB02001","price":"337.90","buysell":"S","quantity":4,"balance":4,"signs":140737488355328,"dkh_request":0}}]})");
    EXPECT_EQ(sendAndProcess(cancel(orderRow(52000000001), 1028)).code(), SimulatedGateway::Rejected);
    EXPECT_EQ(sendAndProcess(cancel(orderRow(52000000001), 1280)).code(), SimulatedGateway::Accepted);
    EXPECT_EQ(orderRow(52000000001).data("status").toString(), QStringLiteral("W"));
    // The ids given out next stand above the one replicated meanwhile.
    EXPECT_EQ(placeAccepted("FB02001", "B"), 52000000002);

    // By security: every matching order withdrawn in one batch.
    qint64 const b1 = placeAccepted("FB02003", "B"), b2 = placeAccepted("FB02003", "B", "337.90");
    qint64 const s1 = placeAccepted("FB02003", "S"), other = placeAccepted("FB02002", "B");
    watch.events.clear();
    int const batches = watch.batches;
    Params const p{{"Account", "FB02003"}, {"Security", "VLT-1226"}, {"BuySell", QChar('B')}};
    RawAnswer const all = sendAndProcess(build(1032, 1, 1, p));
    EXPECT_EQ(all.code(), SimulatedGateway::Accepted);
    EXPECT_EQ(all.text(), QStringLiteral("Снято заявок: 2"));
    EXPECT_EQ(watch.batches, batches + 1);
    EXPECT_EQ(watch.events, (QStringList{QStringLiteral("update %1 W 0").arg(b1), QStringLiteral("update %1 W 0").arg(b2)}));
    for (qint64 id : {s1, other}) EXPECT_EQ(orderRow(id).data("status").toString(), QStringLiteral("A"));

    // Nothing left to cancel: answered, no batch.
    EXPECT_EQ(sendAndProcess(build(1032, 1, 1, p)).text(), QStringLiteral("Снято заявок: 0"));
    EXPECT_EQ(watch.batches, batches + 1);

    // The stream market's orders carry the stream, and their cancel names it.
    RawTransaction tx = place("VLT-1226", "337.92", "5", "FA01000", "B", 5, 20);
    ASSERT_EQ(sendAndProcess(tx).code(), SimulatedGateway::Accepted) << tx.answer.text().toStdString();
    Record row = orderRow(gateway.lastOrderId());
    EXPECT_EQ(QStringList({row.data("stock_id").toString(), row.data("sec_id").toString(), row.data("stream_id").toString()}),
              QStringList({"5", "100058", "9000000001"}));
    RawTransaction wrongStream = cancel(row);
    wrongStream.params["Stream"] = "9000000002";
    EXPECT_TRUE(sendAndProcess(wrongStream).text().contains("«Stream»"));
    EXPECT_EQ(sendAndProcess(cancel(row)).code(), SimulatedGateway::Accepted);
}

// Acceptance and cancel in English are the console's order cases; here the values of price refusals.
TEST_F(GatewayTest, AnswersReadInTheTerminalsLanguage)
{
    QTranslator english;
    ASSERT_TRUE(english.load("libdirectory_en", TRANSLATIONS_DIR));
    QCoreApplication::installTranslator(&english);
    RawAnswer bad = sendAndProcess(place("VLT-1226", "337.955")), low = sendAndProcess(place("LIM-F", "89.5"));
    RawAnswer zero = sendAndProcess(place("VLT-1226", "0"));
    QCoreApplication::removeTranslator(&english);
    EXPECT_EQ(bad.text(), QStringLiteral("Transaction rejected: price 337.955 is not a multiple of the price step 0.01"));
    EXPECT_EQ(low.text(), QStringLiteral("Transaction rejected: price 89.5 is outside the price limits 90 to 110"));
    EXPECT_EQ(zero.text(), QStringLiteral("Transaction rejected: price 0 must be above zero"));
}

TEST_F(GatewayTest, TransactionSentFromAWorkerThreadIsAnsweredOnTheGatewaysThread)
{
    RawTransaction tx = place("VLT-1226", "337.95");
    Qt::HANDLE answeredOn = nullptr;
    QObject::connect(&gateway, &SimulatedGateway::answered, [&] { answeredOn = QThread::currentThreadId(); });
    std::thread([&] { EXPECT_EQ(service()->send(tx), 1); }).join();
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
