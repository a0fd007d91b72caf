// A follower behind a proxy that damages the exchange's stream on purpose:
// whatever happens on the way, it ends with the exchange's tables, its
// directories answer as the exchange's rows say, and no batch was applied
// twice, out of order or across a gap.
#include "faultproxy.h"
#include "harness.h"

#include <markets.h>
#include <securities.h>

#include <QFile>
#include <QProcess>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTemporaryDir>

using Fault = FaultProxy::Fault;

namespace {

// The follower's directories, asked by key, answer with the exchange's rows:
// every security (each of its columns) and every board and market by its
// identity. Market 5 is read as market 1 by the securities' lookups, so its
// rows are left out.
void expectDirectoriesAnswerAs(Database const& exchange)
{
    Table const& securities = *exchange.table(QStringLiteral("securities"));
    int const stock = securities.columnIndex(QStringLiteral("stock_id"));
    int const board = securities.columnIndex(QStringLiteral("board_id"));
    int const sec = securities.columnIndex(QStringLiteral("sec_id"));
    int asked = 0;
    for (int i = 0; i < securities.rowCount(); ++i) {
        Record const row = securities.masterIndex()->at(i);
        int const s = row.data(stock).toInteger();
        if (s == 5) continue;
        int const b = row.data(board).toInteger();
        long long const id = row.data(sec).toInteger64();
        Record const mine = SecurityDirectory::i()->recordById(s, b, id);
        ASSERT_FALSE(mine.isEmpty()) << s << "," << b << "," << id;
        for (int c = 0; c < securities.columnCount(); ++c)
            ASSERT_EQ(mine.data(c).toString(), row.data(c).toString()) << id << " " << securities.columnDef(c).name.toStdString();
        ++asked;
    }
    EXPECT_GT(asked, 10);
    Table const& boards = *exchange.table(QStringLiteral("boards"));
    for (int i = 0; i < boards.rowCount(); ++i) {
        Record const row = boards.masterIndex()->at(i);
        int const s = row.data(QStringLiteral("stock_id")).toInteger();
        if (s == 5) continue;
        EXPECT_EQ(BoardDirectory::i()->codeById(s, row.data(QStringLiteral("board_id")).toInteger()), row.data(QStringLiteral("board_code")).toString());
    }
    Table const& stocks = *exchange.table(QStringLiteral("stocks"));
    for (int i = 0; i < stocks.rowCount(); ++i) {
        Record const row = stocks.masterIndex()->at(i);
        EXPECT_EQ(StockDirectory::i()->codeById(row.data(QStringLiteral("stock_id")).toInteger()), row.data(QStringLiteral("stock_code")).toString());
    }
}

// An exchange, a proxy in front of it and a follower behind the proxy, with
// the directories bound as a terminal binds them.
class FaultThreads : public ::testing::Test
{
protected:
    Exchange x{QStringLiteral("2026-11-20")};
    FaultProxy proxy{x.server->port()};
    Follower f;

    void SetUp() override { f.bindDirectories(); }

    // The exchange plays `before` batches, the follower connects through the
    // proxy, and the rest of the day is played a few batches at a time while
    // it follows and its directories are asked (so that their caches hold
    // rows from before any resynchronisation).
    void follow(int before = 20)
    {
        x.play(before);
        f.start(proxy.port());
        while (x.play(4)) {
            QTest::qWait(15);
            if (f.client.lastApplied() > 0) (void)SecurityDirectory::i()->recordById(1, 14, 4300001239LL);
        }
        finish();
    }

    // Caught up: the same tables, directories that answer alike, and each
    // batch once in order.
    void finish()
    {
        ASSERT_TRUE(f.caughtUpWith(x, 30000)) << f.client.stateText().toStdString() << "; " << proxy.done().join("; ").toStdString();
        EXPECT_EQ(checksums(f.db), checksums(x, f.login)) << proxy.done().join("; ").toStdString();
        expectDirectoriesAnswerAs(x.db);
        expectEachBatchOnceInOrder(f.trail);
    }

    // Follows the first `played` batches, then stops: where it stands.
    ReplicationClient::Position followThenStop(int played)
    {
        x.play(played);
        f.start(proxy.port());
        EXPECT_TRUE(f.caughtUpWith(x));
        f.client.stop();
        return f.client.position();
    }

    bool disconnectedFor(QString const& prefix) const
    {
        for (QString const& why : f.disconnections)
            if (why.startsWith(prefix)) return true;
        return false;
    }
};

// Cuts at random points of the first three connections: inside the
// snapshot, inside a batch's frame, between frames; a seed each.
class CutThreads : public FaultThreads, public ::testing::WithParamInterface<int>
{
};

TEST_P(CutThreads, CutMidFrameAtRandomPointsOfThreeConnections)
{
    QRandomGenerator random{quint32(GetParam())};
    // The first connection carries the snapshot (about 25 kB compressed);
    // the others resume with the batches since.
    proxy.add(Fault{Fault::Cut, 1, random.bounded(1, 30000)});
    proxy.add(Fault{Fault::Cut, 2, random.bounded(1, 3000)});
    proxy.add(Fault{Fault::Cut, 3, random.bounded(1, 3000)});
    follow();
    EXPECT_EQ(proxy.done().size(), 3) << proxy.done().join("; ").toStdString();
    EXPECT_GE(f.disconnections.size(), 3);
}

INSTANTIATE_TEST_SUITE_P(Seeds, CutThreads, ::testing::Range(1, 9));

TEST_F(FaultThreads, AStallPastTheHeartbeatTimeoutIsADeadPeerAndTheFollowerResumes)
{
    proxy.add(Fault{Fault::Stall, 1, 200, 0, replication::FrameType::Batch, kHeartbeatTimeoutMs + 1500});
    follow();
    EXPECT_TRUE(disconnectedFor(QStringLiteral("heartbeat timeout"))) << f.disconnections.join("; ").toStdString();
}

TEST_F(FaultThreads, ADuplicatedBatchIsAGapNotASecondApply)
{
    proxy.add(Fault{Fault::Duplicate, 1, 0, 5});
    follow();
    EXPECT_TRUE(disconnectedFor(QStringLiteral("sequence gap: expected"))) << f.disconnections.join("; ").toStdString();
}

TEST_F(FaultThreads, AReorderedPairOfBatchesIsAGap)
{
    proxy.add(Fault{Fault::Reorder, 1, 0, 7});
    follow();
    ASSERT_FALSE(f.disconnections.isEmpty());
    EXPECT_TRUE(disconnectedFor(QStringLiteral("sequence gap: expected"))) << f.disconnections.join("; ").toStdString();
}

// One byte flipped anywhere (a header, a compressed snapshot piece, a
// batch's digits, a checksum): the frame is refused, nothing of it applied.
TEST_F(FaultThreads, ACorruptedByteIsRefusedByTheFramesChecksums)
{
    QRandomGenerator random(7);
    for (int connection = 1; connection <= 4; ++connection) proxy.add(Fault{Fault::Corrupt, connection, random.bounded(0, connection == 1 ? 40000 : 3000)});
    follow();
    EXPECT_GE(proxy.done().size(), 3) << proxy.done().join("; ").toStdString();
    for (QString const& why : f.disconnections)
        EXPECT_TRUE(why.startsWith(QStringLiteral("malformed frame: a damaged")) || why.startsWith(QStringLiteral("heartbeat timeout"))) << why.toStdString();
}

// The stream passes at a trickle while the exchange bursts: the exchange
// holds at most its high-water mark for the session, tells it it is too
// slow and drops it; the follower comes back and catches up.
TEST_F(FaultThreads, ASlowFollowerIsDroppedWithBoundedMemoryAndResynchronises)
{
    exchange::ReplicationServer::Settings s = x.server->settings();
    s.maxSendBuffer = 2 * 1024 * 1024;   // for the sessions opened from here on
    x.server->setSettings(s);
    proxy.add(Fault{Fault::Trickle, 1, 0, 0, replication::FrameType::Batch, 0, 64 * 1024});
    QSignalSpy closed(x.server.get(), &exchange::ReplicationServer::sessionClosed);
    f.start(proxy.port());
    ASSERT_TRUE(f.caughtUpWith(x));

    // A burst: every security's prices, many times over, well past what the
    // trickle and the sockets' buffers take.
    Table const& securities = *x.db.table(QStringLiteral("securities"));
    BatchDecoder const decoder(x.db);
    qint64 peak = 0;
    for (int round = 0; round < 400; ++round) {
        QByteArray line = R"({"table":"securities","ops":[)";
        for (int i = 0; i < securities.rowCount(); ++i) {
            Record const row = securities.masterIndex()->at(i);
            if (i) line += ',';
            line += QStringLiteral(R"({"update":{"stock_id":%1,"board_id":%2,"sec_id":%3,"bid":"%4.25"}})")
                        .arg(row.data(QStringLiteral("stock_id")).toInteger())
                        .arg(row.data(QStringLiteral("board_id")).toInteger())
                        .arg(row.data(QStringLiteral("sec_id")).toInteger64())
                        .arg(round)
                        .toUtf8();
        }
        line += "]}";
        x.server->applyLogBatch(decoder.decode(line, QStringLiteral("burst:%1").arg(round)), 0);
        peak = qMax(peak, x.server->queuedBytes());
        QCoreApplication::processEvents();
    }
    ASSERT_TRUE(QTest::qWaitFor([&] {
        peak = qMax(peak, x.server->queuedBytes());
        for (auto const& c : closed)
            if (c[1].toString() == QStringLiteral("too slow")) return true;
        return false;
    }, 20000));
    EXPECT_LE(peak, 2 * 1024 * 1024);   // the high-water mark and a frame, not the burst
    finish();
}

TEST_F(FaultThreads, AFollowerRestartedFromItsLastSequenceResumesThere)
{
    ReplicationClient::Position const where = followThenStop(30);
    ASSERT_EQ(where.sequence, x.lastFor(f.login));
    x.play(25);
    QSignalSpy opened(x.server.get(), &exchange::ReplicationServer::sessionOpened);
    ReplicationClient again(&f.db);
    again.setSettings(f.client.settings());
    QList<quint64> applied;
    QObject::connect(&again, &ReplicationClient::batchApplied, [&](quint64 seq, QString const&) { applied << seq; });
    again.start(QStringLiteral("127.0.0.1"), x.server->port(), QStringLiteral("FA01U01"), testPassword(QStringLiteral("FA01U01")), where);
    ASSERT_TRUE(caughtUp(again, x, f.login, 15000));
    ASSERT_EQ(opened.size(), 1);
    EXPECT_TRUE(opened[0][2].toBool());   // resumed, no snapshot
    ASSERT_EQ(quint64(applied.size()), x.lastFor(f.login) - where.sequence);
    EXPECT_EQ(applied.first(), where.sequence + 1);
    expectConsecutive(applied);
    EXPECT_EQ(checksums(f.db), checksums(x, f.login));
    expectDirectoriesAnswerAs(x.db);
}

// The next day's tables: the market folder's snapshot again, so that every
// table the log touched goes back.
void beginNextDay(Exchange& x)
{
    x.server->beginDay(QStringLiteral("2026-11-21"), [&] {
        BatchDecoder const decoder(x.db);
        for (QString const& name : x.db.tableNames())
            x.db.apply(decoder.decode(QStringLiteral(R"({"table":"%1","ops":[{"clear":true}]})").arg(name).toUtf8(), QStringLiteral("next day")));
        x.db.loadFileAtomically(kMarket + QStringLiteral("/snapshot.jsonl"));
    });
    x.log.reset(new BatchReader(x.db, kMarket + QStringLiteral("/replication.jsonl")));
}

TEST_F(FaultThreads, ANewTradingDayWhileConnectedSendsItsSnapshotInTheSession)
{
    x.play(60);
    f.start(proxy.port());
    ASSERT_TRUE(f.caughtUpWith(x));
    QString const oldHistory = f.client.history();
    beginNextDay(x);
    x.play(5);
    ASSERT_TRUE(QTest::qWaitFor([&] { return f.client.day() == QStringLiteral("2026-11-21"); }, 15000));
    finish();
    EXPECT_EQ(f.client.lastApplied(), 5u);
    EXPECT_NE(f.client.history(), oldHistory);
    EXPECT_EQ(proxy.connections(), 1);   // no reconnection needed
    EXPECT_TRUE(f.disconnections.isEmpty()) << f.disconnections.join("; ").toStdString();
}

TEST_F(FaultThreads, ANewTradingDayWhileDisconnectedIsASnapshotOnReturn)
{
    ReplicationClient::Position const where = followThenStop(60);
    ASSERT_EQ(where.sequence, x.lastFor(f.login));
    beginNextDay(x);
    x.play(8);
    QSignalSpy opened(x.server.get(), &exchange::ReplicationServer::sessionOpened);
    f.start(proxy.port(), where);
    finish();
    ASSERT_EQ(opened.size(), 1);
    EXPECT_FALSE(opened[0][2].toBool());   // the old day's position cannot be resumed
    EXPECT_EQ(f.client.day(), QStringLiteral("2026-11-21"));
    EXPECT_EQ(f.client.lastApplied(), x.lastFor(f.login));
}

// The exchange program itself, killed (no farewell, a journal line possibly
// half written) in the middle of its day and started again on the same
// journal and port: the follower resumes and ends with the whole day.
TEST(FaultThreadsProcess, AnExchangeKilledMidDayAndRestartedFromItsJournalLosesNothing)
{
    QTemporaryDir dir;
    QString const journal = dir.filePath(QStringLiteral("day.journal"));
    TestCertificates const& tls = testCertificates();
    ASSERT_FALSE(tls.ca.isEmpty()) << tls.error.toStdString();
    QStringList const args{QStringLiteral("--data"), kMarket, QStringLiteral("--schema"), kSchema, QStringLiteral("--journal"), journal,
                           QStringLiteral("--pace"), QStringLiteral("25"), QStringLiteral("--lang"), QStringLiteral("en"),
                           QStringLiteral("--users"), testUsersFile(), QStringLiteral("--cert"), tls.cert, QStringLiteral("--key"), tls.key};
    auto startExchange = [&](QProcess& p, quint16 port) -> quint16 {
        p.setProgram(QStringLiteral(EXCHANGE_PROGRAM));
        p.setArguments(args + QStringList{QStringLiteral("--listen"), QStringLiteral("127.0.0.1:%1").arg(port)});
        p.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        p.start();
        if (!p.waitForStarted(10000)) return 0;
        QString seen;
        QRegularExpression const listening(QStringLiteral("listening on 127\\.0\\.0\\.1:(\\d+)"));
        while (p.waitForReadyRead(10000)) {
            seen += QString::fromUtf8(p.readAllStandardOutput());
            QRegularExpressionMatch const m = listening.match(seen);
            if (m.hasMatch()) return quint16(m.captured(1).toUInt());
        }
        return 0;
    };

    Follower f;
    f.bindDirectories();
    ReplicationClient::Settings settings = f.client.settings();
    settings.insecure = false;   // the program serves TLS
    settings.authorities = tls.authorities();
    f.client.setSettings(settings);
    QProcess first;
    quint16 const port = startExchange(first, 0);
    ASSERT_NE(port, 0);
    f.start(port);
    ASSERT_TRUE(QTest::qWaitFor([&] { return f.client.lastApplied() >= 40; }, 20000)) << f.client.stateText().toStdString();
    first.kill();
    first.waitForFinished(5000);
    quint64 const before = f.client.lastApplied();

    QProcess second;
    ASSERT_EQ(startExchange(second, port), port);
    // The whole day: the folder's snapshot and every batch of its log.
    Exchange whole(QStringLiteral("2026-11-20"));
    while (whole.play(50)) {}
    quint64 const last = whole.lastFor(f.login);
    bool const done = QTest::qWaitFor([&] { return f.client.state() == State::Live && f.client.lastApplied() == last; }, 30000);
    second.terminate();
    second.waitForFinished(5000);
    ASSERT_TRUE(done) << f.client.stateText().toStdString();
    EXPECT_GT(last, before);
    EXPECT_EQ(checksums(f.db), checksums(whole, f.login));
    expectDirectoriesAnswerAs(whole.db);
    expectEachBatchOnceInOrder(f.trail);
    int snapshots = 0;
    for (auto const& step : f.trail) snapshots += step.first;
    EXPECT_EQ(snapshots, 1);   // the restart was resumed, not loaded again
}

} // namespace
