// Each firm its own rows, and orders over the session.
#include "faultproxy.h"
#include "harness.h"

#include <core/defaultcore.h>
#include <database/index.h>
#include <gateway/sessiontransport.h>

#include <QFile>
#include <QRegularExpression>
#include <QSignalSpy>
#include <functional>

namespace {

QString const kFirmA = QStringLiteral("FA01"), kFirmB = QStringLiteral("FB01");
QString const kTraderA = QStringLiteral("FA01U01"), kSecondA = QStringLiteral("FA01U02"), kTraderB = QStringLiteral("FB01U01");

using exchange::firmOf;

QString text(Record const& row, char const* column) { return row.data(QLatin1String(column)).toString().trimmed(); }

// The tables whose rows name their firm in a column, as docs/replication.md lists them.
QMap<QString, char const*> const& firmColumns()
{
    static QMap<QString, char const*> const columns = {
        {"k3.user", "client_code"},     {"k3.dealer", "client_code"},          {"k3.investor", "client_code"},
        {"k3.core_dealer", "client_code"}, {"k3.core_investor", "client_code"}, {"k3.broker_fee_params", "client_code"},
        {"k3.rfs.lp_users", "client_code"}, {"k3part_bf", "account"},           {"fut_vm", "account"},
        {"opt_vm", "account"},          {"orders", "account"},                 {"k3.fut_margin_type", "code"},
        {"k3.fut_settlement_account", "code"}, {"fut_vm_sa", "settlement_account"}, {"opt_vm_sa", "settlement_account"}};
    return columns;
}

std::vector<Record> rowsOf(Database const& db, QString const& table)
{
    std::vector<Record> rows;
    for (Record const& r : db.table(table)->masterIndex()->records()) rows.push_back(r);
    return rows;
}

// The exchange's tables as `firm` must hold them, read here from the rules
// and the rows as they stand (no row of these tests changes its firm twice).
QMap<QString, QByteArray> copyOf(Database const& db, QString const& firm)
{
    QHash<QString, QString> loginFirms;
    for (Record const& u : rowsOf(db, QStringLiteral("k3.user"))) loginFirms.insert(text(u, "login"), firmOf(text(u, "client_code")));
    QSet<QString> deals;
    for (Record const& d : rowsOf(db, QStringLiteral("deals")))
        if (firmOf(text(d, "account")) == firm || loginFirms.value(text(d, "login")) == firm) deals.insert(text(d, "deal_id"));
    QMap<QString, QByteArray> sums;
    for (QString const& name : db.tableNames()) {
        std::function<bool(Record const&)> keep;
        if (firmColumns().contains(name)) {
            char const* column = firmColumns().value(name);
            keep = [&, column](Record const& r) { return firmOf(text(r, column)) == firm; };
        } else if (name == QLatin1String("deals")) {
            keep = [&](Record const& r) { return deals.contains(text(r, "deal_id")); };
        } else if (name == QLatin1String("k3.adjusted_fee") || name == QLatin1String("k3.broker_fee")) {
            keep = [&](Record const& r) { return deals.contains(text(r, "id_deal")); };
        } else if (name == QLatin1String("k3.RF")) {
            keep = [&](Record const& r) { return text(r, "code").size() >= 2 && firm.startsWith(text(r, "code")); };
        }
        sums.insert(name, keep ? tableChecksum(*db.table(name), [&](Table const&, Record const& r) { return keep(r); })
                               : tableChecksum(*db.table(name)));
    }
    return sums;
}

// How many rows of the per-firm tables name each firm.
QMap<QString, int> firmsIn(Database const& db)
{
    QMap<QString, int> count;
    for (auto it = firmColumns().begin(); it != firmColumns().end(); ++it)
        for (Record const& r : rowsOf(db, it.key())) ++count[firmOf(text(r, it.value()))];
    return count;
}

// An order of `firm` in the exchange's tables, by its id.
qint64 anOrderOf(Database const& db, QString const& firm)
{
    for (Record const& r : rowsOf(db, QStringLiteral("orders")))
        if (firmOf(text(r, "account")) == firm) return r.data(QStringLiteral("order_id")).toInteger64();
    return 0;
}

Record orderIn(Database const& db, qint64 id)
{
    for (Record const& r : rowsOf(db, QStringLiteral("orders")))
        if (r.data(QStringLiteral("order_id")).toInteger64() == id) return r;
    return Record();
}

void apply(Exchange& x, QByteArray const& line)
{
    BatchDecoder const decoder(x.db);
    x.server->applyLogBatch(decoder.decode(line, QStringLiteral("test")), 0);
}

QByteArray orderKey(Record const& order)
{
    return QStringLiteral(R"("stock_id":%1,"board_id":%2,"sess_id":%3,"order_id":%4)")
        .arg(order.data(QStringLiteral("stock_id")).toInteger())
        .arg(order.data(QStringLiteral("board_id")).toInteger())
        .arg(order.data(QStringLiteral("sess_id")).toInteger())
        .arg(order.data(QStringLiteral("order_id")).toInteger64())
        .toUtf8();
}

} // namespace

TEST(FirmThreads, TwoFirmsEachFollowExactlyTheirCopyOfTheExchangesTables)
{
    Exchange x(QStringLiteral("2026-11-20"));
    x.play(30);
    Client a, b;
    a.start(x.server->port(), kTraderA, testPassword(kTraderA));
    b.start(x.server->port(), kTraderB, testPassword(kTraderB));
    ASSERT_TRUE(a.caughtUpWith(x));
    ASSERT_TRUE(b.caughtUpWith(x));
    while (x.play(40)) {}   // the rest of the day, live
    ASSERT_TRUE(a.caughtUpWith(x)) << a.client.stateText().toStdString();
    ASSERT_TRUE(b.caughtUpWith(x)) << b.client.stateText().toStdString();

    EXPECT_EQ(differing(checksums(a.db), copyOf(x.db, kFirmA)), QStringList());
    EXPECT_EQ(differing(checksums(b.db), copyOf(x.db, kFirmB)), QStringList());
    // Each firm's stream numbers only what it was sent.
    EXPECT_LT(x.lastFor(kTraderA), x.server->lastSequence());
    EXPECT_NE(x.lastFor(kTraderA), x.lastFor(kTraderB));

    // Never a row of the other firm, and rows of its own.
    QMap<QString, int> const inA = firmsIn(a.db), inB = firmsIn(b.db);
    EXPECT_EQ(inA.keys(), QList<QString>{kFirmA});
    EXPECT_EQ(inB.keys(), QList<QString>{kFirmB});
    EXPECT_GT(inA.value(kFirmA), 10);
    EXPECT_GT(inB.value(kFirmB), 10);
    // The market-wide tables come whole to both.
    EXPECT_EQ(tableChecksum(*a.db.table(QStringLiteral("securities"))), tableChecksum(*x.db.table(QStringLiteral("securities"))));
    EXPECT_EQ(tableChecksum(*b.db.table(QStringLiteral("securities"))), tableChecksum(*x.db.table(QStringLiteral("securities"))));
}

TEST(FirmThreads, ARowMovedToAnotherFirmLeavesTheOldOneAsADeleteAndComesToTheNewOneWhole)
{
    Exchange x(QStringLiteral("2026-11-20"));
    Client a, b;
    a.start(x.server->port(), kTraderA, testPassword(kTraderA));
    b.start(x.server->port(), kTraderB, testPassword(kTraderB));
    ASSERT_TRUE(a.caughtUpWith(x));
    ASSERT_TRUE(b.caughtUpWith(x));
    qint64 const id = anOrderOf(x.db, kFirmA);
    ASSERT_GT(id, 0);
    QByteArray const key = orderKey(orderIn(x.db, id));

    // The account moves the order from FA01 to FB01.
    apply(x, R"({"table":"orders","ops":[{"update":{)" + key + R"(,"account":"FB01002"}}]})");
    ASSERT_TRUE(a.caughtUpWith(x));
    ASSERT_TRUE(b.caughtUpWith(x));
    EXPECT_TRUE(orderIn(a.db, id).isEmpty());
    ASSERT_FALSE(orderIn(b.db, id).isEmpty());
    EXPECT_EQ(differing(checksums(a.db), copyOf(x.db, kFirmA)), QStringList());
    EXPECT_EQ(differing(checksums(b.db), copyOf(x.db, kFirmB)), QStringList());   // the whole row, not the one column updated

    // Changes that do not name the firm reach the firm that holds the row, only.
    quint64 const aBefore = x.lastFor(kTraderA);
    apply(x, R"({"table":"orders","ops":[{"update":{)" + key + R"(,"status":"W","balance":0}}]})");
    ASSERT_TRUE(b.caughtUpWith(x));
    EXPECT_EQ(text(orderIn(b.db, id), "status"), QStringLiteral("W"));
    EXPECT_EQ(x.lastFor(kTraderA), aBefore);
    apply(x, R"({"table":"orders","ops":[{"delete":{)" + key + R"(}}]})");
    ASSERT_TRUE(b.caughtUpWith(x));
    EXPECT_TRUE(orderIn(b.db, id).isEmpty());
    EXPECT_EQ(x.lastFor(kTraderA), aBefore);
    EXPECT_EQ(differing(checksums(b.db), copyOf(x.db, kFirmB)), QStringList());

    // A login moved to another firm is sent back to follow that firm's stream.
    QStringList told;
    QObject::connect(&b.client, &ReplicationClient::stateChanged, [&](State state, QString const&) {
        if (state == State::Disconnected) told << b.client.reason();
    });
    apply(x, R"({"table":"k3.user","ops":[{"update":{"login":"FB01U01","client_code":"FA01003"}}]})");
    ASSERT_TRUE(QTest::qWaitFor([&] { return told.contains(QStringLiteral("the login's firm changed")); }, 10000)) << told.join("; ").toStdString();
    ASSERT_TRUE(b.caughtUpWith(x));
    // FA01's copy, where each deal stays with the firms its sides had when it came.
    EXPECT_EQ(differing(checksums(b.db), checksums(x, kTraderB)), QStringList());
    ASSERT_TRUE(a.caughtUpWith(x));
    EXPECT_EQ(differing(checksums(b.db), checksums(a.db)), QStringList());   // the very copy of FA01's own terminal
}

namespace {

// A terminal of the core: the core's database follows the exchange, and its
// transaction service sends over the session.
struct Terminal : Follower
{
    DefaultCore& core = *DefaultCore::global();
    SessionTransport transport{&core, &client};
    QStringList notifications;

    explicit Terminal(QString const& as)
    {
        login = as;
        transport.plugInto(core.transactions());
        QObject::connect(core.coreSignals(), &CoreSignals::userNotification, &transport,
                         [this](QString const& text) { notifications << text; });
    }
    ~Terminal() { transport.plugInto(nullptr); }
    // What the service's send gives, with the transaction's answer once it came.
    int send(RawTransaction& tx, int ms = 10000)
    {
        int const sent = core.transactionService()->send(tx);
        if (sent) (void)QTest::qWaitFor([&] { return tx.answer.isAnswered(); }, ms);
        return sent;
    }
};

// A transaction of `code` on the market and board of `row` (a security or an order).
RawTransaction transaction(int code, Record const& row, QMap<QString, QVariant> const& params)
{
    RawTransaction tx;
    tx.messageCode = code;
    tx.stockId = qint32(row.data(QStringLiteral("stock_id")).toInteger());
    tx.boardId = qint32(row.data(QStringLiteral("board_id")).toInteger());
    tx.params = params;
    return tx;
}

RawTransaction place(Record const& security, QString const& account, QString const& price)
{
    return transaction(1025, security, {{"Security", text(security, "sec_code")}, {"Account", account}, {"BuySell", "B"},
                                        {"Price", price}, {"Quantity", "3"}, {"Type", "1"}});
}

RawTransaction cancel(Record const& order, QString const& account, QString const& code)
{
    return transaction(1028, order, {{"Account", account}, {"order_id", QString::number(order.data(QStringLiteral("order_id")).toInteger64())},
                                     {"Security", code}, {"sec_id", QString::number(order.data(QStringLiteral("sec_id")).toInteger64())},
                                     {"dkh_request", "0"}});
}

// A security the simulated exchange takes an order on at this price: its
// step divides it, and it is within its limits.
Record tradable(Database const& db, QString& price)
{
    for (Record const& s : rowsOf(db, QStringLiteral("securities"))) {
        if (s.data(QStringLiteral("stock_id")).toInteger() != 1) continue;
        Field const low = s.data(QStringLiteral("price_lmt_low")), step = s.data(QStringLiteral("price_step"));
        if (!low.hasValue() || !step.hasValue()) continue;
        price = low.toString();
        return s;
    }
    return Record();
}

} // namespace

TEST(FirmThreads, AnOrderGoesOverTheSessionAndReachesTheFirmsTerminalsOnly)
{
    Exchange x(QStringLiteral("2026-11-20"));
    Terminal trader(kTraderA);
    trader.start(x.server->port());
    Client colleague, rival;
    colleague.start(x.server->port(), kSecondA, testPassword(kSecondA));
    rival.start(x.server->port(), kTraderB, testPassword(kTraderB));
    ASSERT_TRUE(trader.caughtUpWith(x));
    ASSERT_TRUE(colleague.caughtUpWith(x));
    ASSERT_TRUE(rival.caughtUpWith(x));
    QString price;
    Record const security = tradable(x.db, price);
    ASSERT_FALSE(security.isEmpty());

    RawTransaction tx = place(security, QStringLiteral("FA01002"), price);
    ASSERT_EQ(trader.send(tx), 1);
    ASSERT_EQ(tx.answer.code(), SessionTransport::Accepted) << tx.answer.text().toStdString();
    qint64 const id = x.gateway.lastOrderId();
    ASSERT_GT(id, 0);
    EXPECT_TRUE(tx.answer.text().contains(QString::number(id)));
    // The order's batch came before its answer; the notification is the gateway's.
    EXPECT_FALSE(orderIn(trader.db, id).isEmpty());
    ASSERT_FALSE(trader.notifications.isEmpty());
    EXPECT_EQ(UserNotification::parse(trader.notifications.last()).kind, int(SessionTransport::AcceptedKind));
    ASSERT_TRUE(colleague.caughtUpWith(x));
    EXPECT_FALSE(orderIn(colleague.db, id).isEmpty());
    ASSERT_TRUE(rival.caughtUpWith(x));
    EXPECT_TRUE(orderIn(rival.db, id).isEmpty());

    // Another firm's account is one that does not exist.
    RawTransaction foreign = place(security, QStringLiteral("FB01002"), price);
    ASSERT_EQ(trader.send(foreign), 1);
    EXPECT_EQ(foreign.answer.code(), SessionTransport::Rejected);
    EXPECT_TRUE(foreign.answer.text().contains(QStringLiteral("счёт «FB01002» не найден"))) << foreign.answer.text().toStdString();
    EXPECT_EQ(x.gateway.lastOrderId(), id);
}

TEST(FirmThreads, AnotherFirmsOrderCannotBeCancelledAndIsNotFound)
{
    Exchange x(QStringLiteral("2026-11-20"));
    Terminal rival(kTraderB);
    rival.start(x.server->port());
    ASSERT_TRUE(rival.caughtUpWith(x));
    qint64 const id = anOrderOf(x.db, kFirmA);
    Record const order = orderIn(x.db, id);
    ASSERT_FALSE(order.isEmpty());
    QString code;
    for (Record const& s : rowsOf(x.db, QStringLiteral("securities")))
        if (s.data(QStringLiteral("sec_id")).toInteger64() == order.data(QStringLiteral("sec_id")).toInteger64()) code = text(s, "sec_code");
    QByteArray const before = tableChecksum(*x.db.table(QStringLiteral("orders")));

    // Named with its own account or with the other firm's, it is the same "not found".
    for (QString const& account : {text(order, "account"), QStringLiteral("FB01001")}) {
        RawTransaction tx = cancel(order, account, code);
        ASSERT_EQ(rival.send(tx), 1);
        EXPECT_EQ(tx.answer.code(), SessionTransport::Rejected);
        EXPECT_EQ(tx.answer.text(), QStringLiteral("Транзакция отвергнута: заявка %1 не найдена").arg(id)) << account.toStdString();
    }
    EXPECT_EQ(tableChecksum(*x.db.table(QStringLiteral("orders"))), before);
}

TEST(FirmThreads, WhileNotLiveNothingIsSentNorKeptAndTheTraderIsTold)
{
    auto* x = new Exchange(QStringLiteral("2026-11-20"));
    quint16 const port = x->server->port();
    Terminal trader(kTraderA);
    trader.start(port);
    ASSERT_TRUE(trader.caughtUpWith(*x));
    QString price;
    Record const security = tradable(x->db, price);
    ASSERT_FALSE(security.isEmpty());
    delete x;   // the exchange goes away
    ASSERT_TRUE(QTest::qWaitFor([&] { return trader.client.state() != State::Live; }, 10000));

    RawTransaction tx = place(security, QStringLiteral("FA01002"), price);
    trader.notifications.clear();
    EXPECT_EQ(trader.core.transactionService()->send(tx), 0);
    EXPECT_EQ(tx.answer.code(), int(RawAnswer::NoTransport));
    ASSERT_TRUE(QTest::qWaitFor([&] { return !trader.notifications.isEmpty(); }, 5000));
    UserNotification const told = UserNotification::parse(trader.notifications.last());
    EXPECT_EQ(told.kind, int(SessionTransport::RejectedKind));
    EXPECT_TRUE(told.message.startsWith(QStringLiteral("Транзакция не отправлена: нет связи с биржей"))) << told.message.toStdString();

    // The exchange comes back: what was declined is not sent after all.
    Exchange again(QStringLiteral("2026-11-20"), port);
    ASSERT_TRUE(trader.caughtUpWith(again, 20000));
    QTest::qWait(300);
    EXPECT_EQ(again.gateway.lastOrderId(), 0);
    EXPECT_EQ(trader.transport.pending(), 0);
}

// Whom each table's rows go to is written down for every table: in the
// exchange's list, and in docs/replication.md, alike. A table added to the
// schema and to neither fails here (the exchange would send it to nobody).
TEST(FirmRouting, EveryTableOfTheSchemaIsListedAlikeInTheCodeAndInTheDocument)
{
    Database db;
    db.loadSchema(kSchema);
    QFile doc(QStringLiteral(SOURCE_DIR "/docs/replication.md"));
    ASSERT_TRUE(doc.open(QIODevice::ReadOnly));
    // The rows of the document's list: | `table` | kind | `column` |
    QRegularExpression const row(QStringLiteral("^\\| `([^`]+)` \\| (market|firm|deal|deal fee|shared code) \\| (?:`([^`]+)`|-) \\|"));
    QMap<QString, QString> documented;
    for (QString const& line : QString::fromUtf8(doc.readAll()).split(QLatin1Char('\n'))) {
        QRegularExpressionMatch const m = row.match(line);
        if (m.hasMatch()) documented.insert(m.captured(1), m.captured(2) + QLatin1Char(' ') + m.captured(3));
    }
    QMap<QString, QString> coded;
    for (exchange::TableReach const& r : exchange::tableReaches()) {
        static char const* const kinds[] = {"market", "firm", "deal", "deal fee", "shared code"};
        coded.insert(QLatin1String(r.table), QLatin1String(kinds[int(r.reach)]) + QLatin1Char(' ') + QLatin1String(r.column ? r.column : ""));
    }
    QStringList const tables = db.tableNames();
    EXPECT_EQ(QStringList(coded.keys()), tables);
    EXPECT_EQ(documented, coded);
}

// A session with a backlog past its high-water mark (its reader stalled)
// still gets its order's batch before the answer: the trader never reads
// "accepted" for an order its tables do not show yet.
TEST(FirmThreads, AnAnswerNeverOvertakesItsOrdersBatchOnASlowSession)
{
    Exchange x(QStringLiteral("2026-11-20"));
    FaultProxy proxy(x.server->port());
    Terminal trader(kTraderA);
    // Patient enough that the stall below, however long a slow build takes
    // to make the backlog, is not a dead exchange.
    ReplicationClient::Settings patient = testClientSettings();
    patient.heartbeatTimeoutMs = 60000;
    trader.client.setSettings(patient);
    trader.start(proxy.port());
    ASSERT_TRUE(trader.caughtUpWith(x));
    QString price;
    Record const security = tradable(x.db, price);
    ASSERT_FALSE(security.isEmpty());
    bool shownWhenAnswered = false;
    QObject::connect(&trader.transport, &SessionTransport::answered, [&](RawTransaction const&, int, QString const&, QList<qint64> const& ids) {
        shownWhenAnswered = !ids.isEmpty() && !orderIn(trader.db, ids.first()).isEmpty();
    });

    // The trader stays live (nothing tells it otherwise) and sends.
    proxy.stallNow(50000);
    std::vector<Record> const all = rowsOf(x.db, QStringLiteral("securities"));
    for (int round = 0; round < 40 && x.server->queuedBytes() < 2 * 1024 * 1024; ++round) {
        QByteArray line = R"({"table":"securities","ops":[)";
        for (std::size_t i = 0; i < all.size(); ++i)
            line += QStringLiteral(R"(%1{"update":{"stock_id":%2,"board_id":%3,"sec_id":%4,"date_bid":"2026-11-20 10:%5:00"}})")
                        .arg(i ? "," : "")
                        .arg(all[i].data(QStringLiteral("stock_id")).toInteger())
                        .arg(all[i].data(QStringLiteral("board_id")).toInteger())
                        .arg(all[i].data(QStringLiteral("sec_id")).toInteger64())
                        .arg(round % 60, 2, 10, QLatin1Char('0'))
                        .toUtf8();
        apply(x, line + "]}");
        QCoreApplication::processEvents();
    }
    ASSERT_GT(x.server->queuedBytes(), 1024 * 1024) << "no backlog past the high-water mark";
    ASSERT_EQ(trader.client.state(), State::Live);

    RawTransaction tx = place(security, QStringLiteral("FA01002"), price);
    ASSERT_EQ(trader.core.transactionService()->send(tx), 1);
    // Answered at the exchange, behind a backlog it cannot send yet.
    ASSERT_TRUE(QTest::qWaitFor([&] { return x.gateway.lastOrderId() > 0 && x.gateway.pending() == 0; }, 20000));
    QTest::qWait(100);
    proxy.stallNow(0);
    ASSERT_TRUE(QTest::qWaitFor([&] { return tx.answer.isAnswered(); }, 60000));
    ASSERT_EQ(tx.answer.code(), SessionTransport::Accepted) << tx.answer.text().toStdString();
    EXPECT_TRUE(shownWhenAnswered);
    ASSERT_TRUE(trader.caughtUpWith(x));
    EXPECT_EQ(differing(checksums(trader.db), checksums(x, kTraderA)), QStringList());
}
