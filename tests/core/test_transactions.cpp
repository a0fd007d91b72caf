#include <core/defaultcore.h>
#include <core/transactions.h>

#include <gtest/gtest.h>

namespace {

using Params = QMap<QString, QVariant>;

TransactionMeta meta(int code, int stock, int board, QString name, QStringList params = {},
                     QStringList optional = {})
{
    TransactionMeta m;
    m.messageCode = code;
    m.stockId = stock;
    m.boardId = board;
    m.name = std::move(name);
    m.parameters = std::move(params);
    m.optionalParameters = std::move(optional);
    return m;
}

QStringList namesOf(QList<TransactionMeta> const& list)
{
    QStringList out;
    for (TransactionMeta const& m : list) out << m.name;
    return out;
}

const QStringList kDropParams{QStringLiteral("Account"), QStringLiteral("order_id"), QStringLiteral("Security"),
                              QStringLiteral("sec_id"), QStringLiteral("dkh_request")};

struct TransactionsTest : ::testing::Test
{
    void SetUp() override
    {
        // Registered least specific first: lookup must still put the
        // board-specific template ahead.
        service.registerTemplate(meta(1025, 0, 0, QStringLiteral("add, any market")));
        service.registerTemplate(meta(1028, 4, 0, QStringLiteral("drop, market 4"), kDropParams));
        service.registerTemplate(meta(1028, 5, 0, QStringLiteral("drop, market 5"), kDropParams,
                                      {QStringLiteral("BuySell"), QStringLiteral("Stream")}));
        service.registerTemplate(meta(1025, 4, 12, QStringLiteral("add, board 4/12")));
        service.registerTemplate(meta(1025, 4, 0, QStringLiteral("add, market 4")));
    }

    QStringList find(int code, MarketFilter const& filter)
    {
        QList<QString> names;
        QStringList found = namesOf(service.findTemplates(code, filter, names));
        EXPECT_EQ(found, QStringList(names));
        return found;
    }

    Params dropParams() const
    {
        return {{QStringLiteral("Account"), QStringLiteral("A100")},
                {QStringLiteral("order_id"), QStringLiteral("9001")},
                {QStringLiteral("Security"), QStringLiteral("FUT-X")},
                {QStringLiteral("sec_id"), QStringLiteral("77")},
                {QStringLiteral("dkh_request"), 3}};
    }

    TransactionService service;
};

} // namespace

// The most specific template first; a filter of several markets finds each
// one's, pairs past the count are not looked at and an absurd count stops at
// the capacity.
TEST_F(TransactionsTest, FindPutsTheMostSpecificTemplateFirst)
{
    MarketFilter two = MarketFilter::single(5, 1), one = two, all, none;
    two.count = 2;
    two.pairs[1] = one.pairs[1] = {4, 3};
    all.count = 1000;   // every pair is (0, 0), which no market-4/5 template serves
    none.count = 0;
    QString const board = QStringLiteral("add, board 4/12"), add4 = QStringLiteral("add, market 4"),
                  any = QStringLiteral("add, any market"), drop4 = QStringLiteral("drop, market 4"),
                  drop5 = QStringLiteral("drop, market 5");
    struct Case { int code; MarketFilter filter; QStringList found; };
    for (Case const& c : {Case{1025, MarketFilter::single(4, 12), {board, add4, any}}, {1025, MarketFilter::single(4, 13), {add4, any}},
                          {1028, MarketFilter::single(5, 1), {drop5}}, {1028, MarketFilter::single(7, 1), {}},
                          {1032, MarketFilter::single(4, 12), {}}, {1028, two, {drop4, drop5}}, {1028, one, {drop5}},
                          {1028, all, {}}, {1028, none, {drop4, drop5}}})
        EXPECT_EQ(find(c.code, c.filter), c.found) << c.code << " over " << c.filter.count << " pairs";
}

TEST_F(TransactionsTest, BuildKeepsDeclaredParametersAndReportsTheRest)
{
    TransactionMeta drop5 = meta(1028, 5, 0, QStringLiteral("drop, market 5"), kDropParams,
                                 {QStringLiteral("BuySell"), QStringLiteral("Stream")});
    Params p = dropParams();
    p.insert(QStringLiteral("Stream"), QStringLiteral("S-4"));
    p.insert(QStringLiteral("Colour"), QStringLiteral("red"));

    RawTransaction tx = service.build(drop5, p);
    EXPECT_EQ(tx.messageCode, 1028);
    EXPECT_EQ(tx.stockId, 5);
    EXPECT_EQ(tx.templateName, QStringLiteral("drop, market 5"));
    p.remove(QStringLiteral("Colour"));
    EXPECT_EQ(tx.params, p);
    EXPECT_EQ(tx.unknown, QStringList{QStringLiteral("Colour")});
    EXPECT_TRUE(tx.missing.isEmpty());
    EXPECT_TRUE(tx.isComplete());

    p.remove(QStringLiteral("order_id"));
    p.remove(QStringLiteral("dkh_request"));
    RawTransaction partial = service.build(drop5, p);
    EXPECT_EQ(partial.missing, (QStringList{QStringLiteral("order_id"), QStringLiteral("dkh_request")}));
    EXPECT_FALSE(partial.isComplete());

    // A template that declares nothing takes any map as it is.
    RawTransaction free = service.build(meta(1025, 0, 0, QStringLiteral("add")), p);
    EXPECT_EQ(free.params, p);
    EXPECT_TRUE(free.unknown.isEmpty());
    EXPECT_TRUE(free.isComplete());
}

TEST_F(TransactionsTest, SendGoesToTheFirstTransportThatAccepts)
{
    RawTransaction drop = service.build(meta(1028, 4, 0, QStringLiteral("d"), kDropParams), dropParams());
    drop.boardId = 12;
    RawTransaction add = service.build(meta(1025, 0, 0, QStringLiteral("a")), {});
    EXPECT_EQ(service.send(add), 0);   // no transport yet
    EXPECT_EQ(add.answer.code(), RawAnswer::NoTransport);

    RecordingTransport drops({1028});
    RecordingTransport everything;
    service.addTransport(&drops);
    service.addTransport(&everything);
    service.addTransport(&drops);   // once only
    EXPECT_EQ(service.send(drop), 1);
    EXPECT_EQ(service.send(add), 1);

    ASSERT_EQ(drops.taken().size(), 1);
    EXPECT_EQ(drops.taken().first().boardId, 12);
    EXPECT_EQ(drops.taken().first().params, dropParams());
    ASSERT_EQ(everything.taken().size(), 1);
    EXPECT_EQ(everything.taken().first().messageCode, 1025);

    // An incomplete transaction is refused, naming what it lacks.
    Params p = dropParams();
    p.remove(QStringLiteral("sec_id"));
    RawTransaction partial = service.build(meta(1028, 4, 0, QStringLiteral("d"), kDropParams), p);
    EXPECT_EQ(service.send(partial), 0);
    EXPECT_EQ(partial.answer.code(), RawAnswer::Refused);
    EXPECT_TRUE(partial.answer.text().contains(QStringLiteral("sec_id")));

    service.removeTransport(&everything);
    EXPECT_EQ(service.send(add), 0);
    EXPECT_EQ(add.answer.code(), RawAnswer::NoTransport);
    EXPECT_EQ(everything.taken().size(), 1);
    EXPECT_EQ(drops.taken().size(), 1);
}

// An answer reaches whoever holds a handle on it: one given to the
// transaction before sending, or one left behind by a move or a move
// assignment, also inside a moved-from transaction that is sent anyway.
TEST_F(TransactionsTest, AnswerReachesEveryHandleOnIt)
{
    RecordingTransport transport;
    transport.setReply(7, QStringLiteral("accepted by the exchange"));
    RawAnswer mine;
    RawTransaction tx = service.build(meta(1025, 0, 0, QStringLiteral("a")), {});
    EXPECT_NE(tx.answer, mine);
    tx.answer = mine;
    RawTransaction taken(std::move(tx));
    EXPECT_EQ(service.send(tx), 0);   // no transport: answered as such, through both
    EXPECT_EQ(tx.answer.code(), RawAnswer::NoTransport);
    EXPECT_EQ(taken.answer.code(), RawAnswer::NoTransport);
    mine = RawAnswer();
    taken.answer = mine;
    service.addTransport(&transport);
    EXPECT_FALSE(mine.isAnswered());
    ASSERT_EQ(service.send(taken), 1);
    EXPECT_TRUE(mine.isAnswered());
    EXPECT_EQ(mine.code(), 7);
    EXPECT_EQ(mine.text(), QStringLiteral("accepted by the exchange"));

    RawAnswer moved, assigned;
    assigned = std::move(moved);
    moved.setAnswer(3, QStringLiteral("through the old handle"));
    EXPECT_EQ(assigned.text(), QStringLiteral("through the old handle"));
    EXPECT_EQ(assigned.code(), 3);
}

TEST(TransactionTemplates, BundledFileServesEveryCodeOfEveryMarket)
{
    TransactionService service;
    QString error;
    ASSERT_TRUE(service.loadTemplates(QStringLiteral(SOURCE_DIR "/data/market/templates.json"), error)) << error.toStdString();
    for (int stock : {1, 4, 5})
        for (int code : {1025, 1028, 1280, 1032}) {
            QList<QString> names;
            QList<TransactionMeta> found = service.findTemplates(code, MarketFilter::single(stock, 14), names);
            ASSERT_EQ(found.size(), 1) << code << " on " << stock;
            EXPECT_EQ(found.first().stockId, stock);
        }
    QList<QString> names;
    TransactionMeta drop5 = service.findTemplates(1028, MarketFilter::single(5, 20), names).first();
    TransactionMeta drop1 = service.findTemplates(1028, MarketFilter::single(1, 1), names).first();
    EXPECT_EQ(drop5.optionalParameters, (QStringList{QStringLiteral("BuySell"), QStringLiteral("Stream")}));
    EXPECT_TRUE(drop1.optionalParameters.isEmpty());
}

TEST(TransactionTemplates, MalformedFileIsNamedAndRegistersNothing)
{
    struct Case { char const* json; char const* message; };
    Case const cases[] = {
        {"{\"templates\": [\n  {\"code\": 1025, \"name\": \"a\"},\n  {\"code\": 1025 \"name\": \"b\"}\n]}", "t.json:3: bad JSON: "},
        {"[1]", "t.json: needs an object with one key, \"templates\", holding an array"},
        {"{\"templates\": [], \"more\": 1}", "t.json: needs an object"},
        {"{\"templates\": [\n  {\"code\": 1025, \"name\": \"a\"},\n  {\"code\": 0, \"name\": \"b\"}\n]}", "t.json:3: template 2: 'code' needs a message code from 1 to 65535"},
        {"{\"templates\": [{\"code\": 10.5, \"name\": \"a\"}]}", "t.json:1: template 1: 'code' needs"},
        {"{\"templates\": [{\"code\": 1025, \"name\": \"a\", \"stock\": -1}]}", "template 1: 'stock' needs a whole number"},
        {"{\"templates\": [{\"code\": 1025, \"name\": \"a\", \"board\": 14}]}", "template 1: 'board' needs a 'stock'"},
        {"{\"templates\": [{\"code\": 1025, \"name\": \" \"}]}", "template 1: 'name' needs a non-empty string"},
        {"{\"templates\": [{\"code\": 1025, \"name\": \"a\", \"params\": []}]}", "template 1: unknown field 'params'"},
        {"{\"templates\": [{\"code\": 1025, \"name\": \"a\", \"parameters\": \"Price\"}]}", "'parameters' needs an array"},
        {"{\"templates\": [{\"code\": 1025, \"name\": \"a\", \"parameters\": [\"Price\", \"Price\"]}]}", "'parameters' names 'Price' twice"},
        {"{\"templates\": [{\"code\": 1025, \"name\": \"a\", \"parameters\": [\"P\"], \"optional\": [\"P\"]}]}", "'P' is both required and optional"},
        {"{\"templates\": [\"x\",\n{\"code\": 1025, \"name\": \"a\"}]}", "t.json:1: template 1: a template must be an object"},
        {"{\"templates\": [\n{\"code\": 1025, \"stock\": 4, \"name\": \"a\"},\n{\"code\": 1025, \"stock\": 4, \"name\": \"b\"}]}", "t.json:3: template 2: code 1025 for stock 4, board 0 repeats template 1"},
    };
    TransactionService service;
    service.registerTemplate(meta(1032, 4, 0, QStringLiteral("kept")));
    for (Case const& c : cases) {
        QString error;
        EXPECT_FALSE(service.loadTemplatesJson(QByteArray(c.json), QStringLiteral("t.json"), error)) << c.json;
        EXPECT_TRUE(error.contains(QLatin1String(c.message))) << error.toStdString() << " lacks " << c.message;
        ASSERT_EQ(namesOf(service.templates()), QStringList{QStringLiteral("kept")});
    }
    QString error;
    EXPECT_FALSE(service.loadTemplates(QStringLiteral("/nonexistent/templates.json"), error));
    EXPECT_TRUE(error.startsWith(QLatin1String("/nonexistent/templates.json: "))) << error.toStdString();
    // A good file replaces what was there.
    ASSERT_TRUE(service.loadTemplatesJson("{\"templates\": [{\"code\": 1025, \"name\": \"new\"}]}", QStringLiteral("t.json"), error));
    EXPECT_EQ(namesOf(service.templates()), QStringList{QStringLiteral("new")});
    EXPECT_TRUE(service.templates().first().isFreeForm());
}
