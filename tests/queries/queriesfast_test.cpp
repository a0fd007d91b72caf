#include "trading_fixture.h"

#include "queriesfast.h"

#include <vector>

namespace {

// The default core's service, remembering every transaction built and sent:
// a restarted timer is one no built transaction had.
class SpyService final : public ITransactionService
{
public:
    QList<TransactionMeta> findTemplates(int code, MarketFilter const& markets, QList<QString>& names) const override
    {
        return inner()->findTemplates(code, markets, names);
    }
    RawTransaction build(TransactionMeta const& meta, QMap<QString, QVariant> const& params) const override
    {
        RawTransaction tx = inner()->build(meta, params);
        built << tx;
        return tx;
    }
    int send(RawTransaction const& tx) override
    {
        sent << tx;
        return inner()->send(tx);
    }
    mutable QList<RawTransaction> built;
    QList<RawTransaction> sent;

private:
    static ITransactionService* inner() { return DefaultCore::global()->transactionService(); }
};

class QueriesFastTest : public TradingTest
{
protected:
    void SetUp() override
    {
        TradingTest::SetUp();
        if (HasFatalFailure()) return;
        core.service = &spy;
        ICore::setInstance(&core);
        for (auto [id, price, side, balance] : {std::tuple{1, "12.5", "B", 7}, std::tuple{2, "12.5", "B", 5}, std::tuple{3, "13", "S", 4}})
            insertOrder("orders", QStringLiteral(R"("stock_id":4,"board_id":1,"sess_id":1,"order_id":%1,"sec_id":100,"account":"ACC1",)"
                                                 R"("price":"%2","buysell":"%3","balance":%4,"signs":0)").arg(id).arg(price, side).arg(balance));
    }
    void TearDown() override
    {
        ICore::setInstance(nullptr);
        TradingTest::TearDown();
    }

    static void switchOff(QString const& key) { Settings("Confirmations").setValue(key, false); }
    // The sent transaction's timer is no longer the one it was built with.
    bool restarted(int sentIndex) const
    {
        QElapsedTimer const& timer = spy.sent.at(sentIndex).timer;
        for (RawTransaction const& tx : spy.built)
            if (tx.timer == timer) return false;
        return true;
    }
    static QString price(char const* text) { return decimal(text).toSystemString(); }

    SpyService spy;
    ForwardingCore core;
    QueriesFast* fast() { return QueriesFast::i(); }
};

TEST_F(QueriesFastTest, PlacingAsksWithTheBoardsPriceWord)
{
    struct Case { int board; long long sec; char const* priceWord; char const* shown; };
    for (Case c : {Case{10, 110, "со своп-ценой", "1.5000"}, Case{11, 111, "со своп-ценой", "1.5000"}, Case{12, 112, "по цене", "1.5"}}) {
        SCOPED_TRACE(c.board);
        ModalAnswerer answerer(ModalAnswerer::PressNo);
        EXPECT_FALSE(fast()->addOrder(4, c.board, c.sec, "ACC1", decimal("1.5"), 'B', 3));
        EXPECT_EQ(answerer.title, QStringLiteral("Отправка заявки"));
        EXPECT_EQ(answerer.text, QStringLiteral("Вы действительно хотите поставить заявку на покупку %1 %2 в количестве 3 со счёта ACC1?")
                                     .arg(QString::fromUtf8(c.priceWord), price(c.shown)));
        EXPECT_TRUE(answerer.checkBoxVisible);
    }
    EXPECT_TRUE(transport.taken().isEmpty());
    EXPECT_TRUE(spy.sent.isEmpty());

    // Other sides are shown as given; markup in an account stays text.
    {
        ModalAnswerer answerer(ModalAnswerer::PressNo);
        Qt::TextFormat format = Qt::AutoText;
        answerer.inspect = [&](ConfirmationDialog* dialog) { format = dialog->textFormat(); };
        fast()->addOrder(4, 1, 100, "<b>X</b>", decimal("2"), 'S', 1);
        EXPECT_EQ(format, Qt::PlainText);
        EXPECT_EQ(answerer.text, QStringLiteral("Вы действительно хотите поставить заявку на продажу по цене %1 в количестве 1 со счёта <b>X</b>?")
                                     .arg(price("2.00")));
    }
    ModalAnswerer other(ModalAnswerer::PressNo);
    fast()->addOrder(4, 1, 100, "ACC1", decimal("2"), 'Z', 1);
    EXPECT_TRUE(other.text.contains(QStringLiteral("заявку на Z по цене")));
    EXPECT_EQ(other.extra, 0);
}

// Confirmed unticked: sent once, its timer restarted after the answer.
// Ticked: sent as built, and never asked again; without a transport it still
// counts as handed over.
TEST_F(QueriesFastTest, ConfirmedPlacingIsSentOnceAndTickingDontAskAsksNoMore)
{
    {
        ModalAnswerer answerer(ModalAnswerer::PressYes);
        EXPECT_TRUE(fast()->addOrder(4, 1, 100, "ACC1", decimal("12.5"), 'B', 30));
        ASSERT_EQ(transport.taken().size(), 1);
        EXPECT_TRUE(restarted(0));
        EXPECT_TRUE(answerer.answeredAt < transport.taken()[0].timer);   // restarted after the answer
    }
    {
        ModalAnswerer answerer(ModalAnswerer::PressYes, true);
        EXPECT_TRUE(fast()->addOrder(4, 1, 100, "ACC1", decimal("12.5"), 'B', 30));
        EXPECT_TRUE(answerer.seen);
    }
    ModalAnswerer none(ModalAnswerer::PressNo);
    EXPECT_TRUE(fast()->addOrder(4, 1, 100, "ACC1", decimal("12.5"), 'B', 31));
    EXPECT_FALSE(none.seen);
    ASSERT_EQ(spy.sent.size(), 3);
    EXPECT_FALSE(restarted(1));
    EXPECT_FALSE(restarted(2));
    EXPECT_EQ(transport.taken().size(), 3);
    transactions()->clearTransports();
    EXPECT_TRUE(fast()->addOrder(4, 1, 100, "ACC1", decimal("12.5"), 'B', 30));
    EXPECT_EQ(spy.sent.size(), 4);
}

// One cancel (a list of one is one) asks under its own key, several under the
// one-click key; neither key governs the other's question.
TEST_F(QueriesFastTest, CancelsAskUnderTheirOwnKey)
{
    struct Case
    {
        QList<int> ids;
        char const* title;
        QString text;
        char const* own;
        char const* other;
    };
    Case const cases[] = {
        {{1}, "Отмена заявки",
         QStringLiteral("Вы действительно хотите отменить заявку?\nПокупка по цене %1 в количестве 7 Alfa fut со счёта ACC1").arg(price("12.50")),
         "questionOnDropOrder", "questionOnSingleClickTrade"},
        {{1, 2, 3}, "Отмена заявок",
         QStringLiteral("Вы действительно хотите отменить заявки(3)?\n"
                        "Покупка по цене %1 в количестве 12 Alfa fut со счёта ACC1\n"
                        "Продажа по цене %2 в количестве 4 Alfa fut со счёта ACC1")
             .arg(price("12.50"), price("13.00")),
         "questionOnSingleClickTrade", "questionOnDropOrder"}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.text.toStdString());
        for (char const* key : {c.own, c.other}) Settings("Confirmations").setValue(key, true);
        QList<Record> records;
        for (int id : c.ids) records << order("orders", id);
        auto cancel = [&](RawAnswer const& answer) { return fast()->dropOrders(records, answer); };
        int const before = spy.sent.size();
        {
            ModalAnswerer answerer(ModalAnswerer::PressNo);
            EXPECT_EQ(cancel(RawAnswer()), 0);
            EXPECT_EQ(answerer.title, QString::fromUtf8(c.title));
            EXPECT_EQ(answerer.text, c.text);
            EXPECT_EQ(spy.sent.size(), before);
        }
        switchOff(c.other);
        {
            ModalAnswerer answerer(ModalAnswerer::PressYes);
            RawAnswer answer;
            EXPECT_EQ(cancel(answer), c.ids.size());
            EXPECT_TRUE(answerer.seen);
            ASSERT_EQ(spy.sent.size(), before + c.ids.size());
            EXPECT_TRUE(transport.taken().last().answer == answer);
            for (int k = before; k < spy.sent.size(); ++k) EXPECT_TRUE(restarted(k)) << k;
        }
        switchOff(c.own);
        ModalAnswerer none(ModalAnswerer::PressNo);
        EXPECT_EQ(cancel(RawAnswer()), c.ids.size());
        EXPECT_FALSE(none.seen);
        ASSERT_EQ(spy.sent.size(), before + 2 * c.ids.size());
        for (int k = before + c.ids.size(); k < spy.sent.size(); ++k) EXPECT_FALSE(restarted(k)) << k;
    }
    EXPECT_EQ(transport.taken().size(), spy.sent.size());
    EXPECT_EQ(fast()->dropOrders({}, RawAnswer()), 0);
}

TEST_F(QueriesFastTest, SingleCancelWithoutATransportThrowsAfterConsent)
{
    transactions()->clearTransports();
    {
        ModalAnswerer answerer(ModalAnswerer::PressYes);
        EXPECT_EQ(refusal([&] { fast()->dropOrder(order("orders", 1), RawAnswer()); }),
                  QStringLiteral("Ошибка при отправке транзакции: нет соответствующего транспорта."));
        EXPECT_TRUE(answerer.seen);
    }
    ModalAnswerer again(ModalAnswerer::PressYes);
    EXPECT_THROW(fast()->dropOrders({order("orders", 1)}, RawAnswer()), QString);
    EXPECT_TRUE(again.seen);

    // Several cancels only count what was taken.
    switchOff("questionOnSingleClickTrade");
    EXPECT_EQ(fast()->dropOrders({order("orders", 1), order("orders", 2)}, RawAnswer()), 0);
    RecordingTransport onlyBit47({1280});
    transactions()->addTransport(&onlyBit47);
    apply(R"({"table":"orders","ops":[{"update":{"stock_id":4,"board_id":1,"sess_id":1,"order_id":2,"signs":140737488355328}}]})");
    EXPECT_EQ(fast()->dropOrders({order("orders", 1), order("orders", 2)}, RawAnswer()), 1);
    transactions()->removeTransport(&onlyBit47);
}

// Refused before the question: a record no cancel can be read from, a price
// the security's decimals would round, a core without its service, no
// template, or one that drops a parameter (the order would go without the
// price the question shows). Nothing is shown or sent.
TEST_F(QueriesFastTest, WhatIsRefusedBeforeTheQuestionIsNeitherShownNorSent)
{
    ModalAnswerer none(ModalAnswerer::PressYes);
    insertOrder("orders_wrong", R"("stock_id":4,"board_id":1,"order_id":7,"sec_id":100,"dkh_request":1.5)");
    EXPECT_THROW(fast()->dropOrder(order("orders_wrong", 7), RawAnswer()), Exception);
    EXPECT_EQ(refusal([&] { fast()->addOrder(4, 1, 100, "ACC1", decimal("337.945"), 'B', 3); }),
              QStringLiteral("Цена %1 содержит больше знаков после запятой, чем допускает инструмент (2)").arg(price("337.945")));
    {
        ForwardingCore noService;
        noService.service = nullptr;
        InstalledCore installed(&noService);
        EXPECT_EQ(refusal([&] { fast()->addOrder(4, 1, 100, "ACC1", decimal("12.5"), 'B', 1); }),
                  QStringLiteral("Служба транзакций ядра недоступна"));
        EXPECT_THROW(fast()->dropOrder(order("orders", 1), RawAnswer()), QString);
    }
    transactions()->clearTemplates();
    EXPECT_THROW(fast()->addOrder(4, 1, 100, "ACC1", decimal("1"), 'B', 1), QString);
    EXPECT_THROW(fast()->dropOrders({order("orders", 1), order("orders", 2)}, RawAnswer()), QString);
    EXPECT_TRUE(spy.built.isEmpty());

    TransactionMeta noPrice = freeFormTemplate(1025);
    noPrice.parameters = QStringList{"Security", "Account", "BuySell", "Quantity", "Type"};
    transactions()->registerTemplate(noPrice);
    EXPECT_EQ(refusal([&] { fast()->addOrder(4, 1, 100, "ACC1", decimal("12.5"), 'B', 3); }),
              QStringLiteral("Транзакция 1025 собрана без параметра Price"));
    QApplication::processEvents();
    EXPECT_FALSE(none.seen);
    EXPECT_TRUE(spy.sent.isEmpty());
    EXPECT_TRUE(transport.taken().isEmpty());
}

// The question shows the price at the security's decimals and the order
// carries it as given; padding keeps the value and passes.
TEST_F(QueriesFastTest, WhatIsConfirmedIsWhatIsSent)
{
    struct Case { long long sec; char const* given; char const* shown; };
    for (Case c : {Case{100, "337.950", "337.95"}, Case{100, "12.5", "12.50"},
                   Case{999, "337.945", "337.945"}}) {   // decimals unknown: as given
        SCOPED_TRACE(c.given);
        ModalAnswerer answerer(ModalAnswerer::PressYes);
        EXPECT_TRUE(fast()->addOrder(4, 1, c.sec, "ACC1", decimal(c.given), 'B', 3));
        EXPECT_TRUE(answerer.text.contains(QStringLiteral("по цене %1 ").arg(price(c.shown)))) << answerer.text.toStdString();
        ASSERT_FALSE(transport.taken().isEmpty());
        EXPECT_EQ(decimal(transport.taken().last().params.value("Price").toString()).compare(decimal(c.shown)), 0);
    }
    EXPECT_EQ(transport.taken().size(), 3);
}

// A core that loses its service while the user reads the question sends
// nothing, and says why.
TEST_F(QueriesFastTest, LosingTheCoresServiceWhileAskingSendsNothing)
{
    ForwardingCore switchable;
    InstalledCore installed(&switchable);
    std::function<void()> const sends[] = {
        [&] { fast()->addOrder(4, 1, 100, "ACC1", decimal("12.5"), 'B', 1); },
        [&] { fast()->dropOrder(order("orders", 1), RawAnswer()); },
        [&] { fast()->dropOrders({order("orders", 1), order("orders", 3)}, RawAnswer()); }};
    for (auto const& send : sends) {
        ModalAnswerer yes(ModalAnswerer::PressYes);
        switchable.service = DefaultCore::global()->transactionService();
        yes.inspect = [&](ConfirmationDialog*) { switchable.service = nullptr; };
        EXPECT_EQ(refusal(send), QStringLiteral("Ошибка при отправке транзакции: служба транзакций недоступна."));
        EXPECT_TRUE(yes.seen);
    }
    EXPECT_TRUE(transport.taken().isEmpty());
}

} // namespace
