// An exchange and a terminal's database in one process, over real sockets
// on 127.0.0.1: what the client holds must be, table for table, what the
// exchange holds, through snapshots, reconnects and a new trading day.
#include "harness.h"

#include <database/exception.h>

#include <QCoreApplication>
#include <QJsonObject>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>

namespace {

TEST(ReplicationThreads, SnapshotThenLiveBatchesLeaveIdenticalTables)
{
    Exchange x(QStringLiteral("2026-11-20"));
    x.play(40);
    Follower f;
    QSignalSpy opened(x.server.get(), &exchange::ReplicationServer::sessionOpened);
    f.start(x.server->port());
    ASSERT_TRUE(f.caughtUpWith(x)) << f.client.stateText().toStdString();
    quint64 const atSnapshot = f.client.lastApplied();   // of FA01's stream: what of the 40 batches is FA01's
    EXPECT_GT(atSnapshot, 0u);
    EXPECT_LE(atSnapshot, 40u);
    ASSERT_EQ(opened.size(), 1);
    EXPECT_FALSE(opened[0][2].toBool());   // a snapshot, not a resume
    EXPECT_EQ(checksums(f.db), checksums(x, f.login));
    EXPECT_EQ(f.states.mid(0, 2), (QList<State>{State::Connecting, State::LoadingSnapshot}));

    x.play(80);
    ASSERT_TRUE(f.caughtUpWith(x)) << f.client.stateText().toStdString();
    EXPECT_EQ(checksums(f.db), checksums(x, f.login));
    EXPECT_EQ(quint64(f.applied.size()), x.lastFor(f.login) - atSnapshot);
    EXPECT_GT(f.applied.size(), 40);
    expectConsecutive(f.applied);
}

TEST(ReplicationThreads, AReconnectResumesAfterTheLastAppliedBatchAndMissesNone)
{
    Exchange x(QStringLiteral("2026-11-20"));
    x.play(30);
    Follower f;
    f.start(x.server->port());
    ASSERT_TRUE(f.caughtUpWith(x));
    quint64 const before = f.client.lastApplied();
    quint16 const port = x.server->port();

    // The exchange drops everyone and goes on with its day meanwhile.
    x.server->shutdown(QStringLiteral("the exchange is stopping"));
    ASSERT_TRUE(QTest::qWaitFor([&] { return !f.disconnections.isEmpty(); }, 5000));
    // Told why; the tries after it find nobody listening until it is back.
    EXPECT_EQ(f.disconnections.first(), QStringLiteral("the exchange is stopping"));
    x.play(50);
    QSignalSpy opened(x.server.get(), &exchange::ReplicationServer::sessionOpened);
    QString error;
    ASSERT_TRUE(x.server->listen(QHostAddress::LocalHost, port, error)) << error.toStdString();
    ASSERT_TRUE(f.caughtUpWith(x)) << f.client.stateText().toStdString();
    ASSERT_GE(opened.size(), 1);
    EXPECT_TRUE(opened.last()[2].toBool());             // resumed
    EXPECT_EQ(opened.last()[3].toULongLong(), before);   // from the last applied
    EXPECT_EQ(checksums(f.db), checksums(x, f.login));
    // The first 30 came in the snapshot; each of the other 50 once.
    ASSERT_EQ(quint64(f.applied.size()), x.lastFor(f.login) - before);
    EXPECT_EQ(f.applied.first(), before + 1);
    expectConsecutive(f.applied);
}

TEST(ReplicationThreads, ANewTradingDayReplacesEveryTable)
{
    quint16 port = 0;
    Follower f;
    {
        Exchange monday(QStringLiteral("2026-11-20"));
        monday.play(60);
        port = monday.server->port();
        f.start(port);
        ASSERT_TRUE(f.caughtUpWith(monday));
    }
    // The next day's exchange on the same address: the same market folder
    // with fewer batches played, so every table the log touched goes back.
    Exchange tuesday(QStringLiteral("2026-11-21"), port);
    tuesday.play(5);
    QSignalSpy loaded(&f.client, &ReplicationClient::snapshotLoaded);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !loaded.isEmpty(); }, 15000)) << f.client.stateText().toStdString();
    ASSERT_TRUE(f.caughtUpWith(tuesday));
    EXPECT_EQ(f.client.day(), QStringLiteral("2026-11-21"));
    EXPECT_EQ(f.client.lastApplied(), 5u);
    EXPECT_EQ(checksums(f.db), checksums(tuesday, f.login));
}

TEST(ReplicationThreads, ARestartedExchangeGoesOnFromItsJournalAndItsClientsResume)
{
    QTemporaryDir dir;
    QString const journal = dir.filePath(QStringLiteral("day.journal"));
    Follower f;
    quint16 port = 0;
    QMap<QString, QByteArray> before;
    quint64 resumedFrom = 0;
    {
        Exchange x(QStringLiteral("2026-11-20"), 0, journal);
        x.play(45);
        port = x.server->port();
        f.start(port);
        ASSERT_TRUE(f.caughtUpWith(x));
        before = checksums(x.db);
        resumedFrom = f.client.lastApplied();
    }
    // A crash in the middle of writing a line: that batch was never sent.
    {
        QFile file(journal);
        ASSERT_TRUE(file.open(QIODevice::Append));
        file.write("46 log:99 {\"table\":\"secur");
    }
    Exchange again(QStringLiteral("2026-11-20"), port, journal);
    EXPECT_EQ(again.server->lastSequence(), 45u);
    EXPECT_EQ(again.resumeAfter, 45);
    EXPECT_EQ(checksums(again.db), before);
    QSignalSpy opened(again.server.get(), &exchange::ReplicationServer::sessionOpened);
    again.play(10);
    ASSERT_TRUE(f.caughtUpWith(again)) << f.client.stateText().toStdString();
    ASSERT_GE(opened.size(), 1);
    EXPECT_TRUE(opened.last()[2].toBool());   // resumed, not a new snapshot
    EXPECT_EQ(checksums(f.db), checksums(again, f.login));
    // The snapshot held the first 45; the 10 played since came one by one.
    ASSERT_EQ(quint64(f.applied.size()), again.lastFor(f.login) - resumedFrom);
    EXPECT_EQ(f.applied.first(), resumedFrom + 1);
    expectConsecutive(f.applied);

    // Another day's exchange keeps this journal aside and starts its own.
    Exchange nextDay(QStringLiteral("2026-11-21"), 0, journal);
    EXPECT_EQ(nextDay.server->lastSequence(), 0u);
    EXPECT_TRUE(QFile::exists(journal + QStringLiteral(".2026-11-20")));
}

TEST(ReplicationThreads, ABatchTheDatabaseRefusesStopsTheClientAndTheExchangeHearsWhich)
{
    Exchange x(QStringLiteral("2026-11-20"));
    Follower f;
    f.start(x.server->port());
    ASSERT_TRUE(f.caughtUpWith(x));
    // The follower's copy of one security goes missing behind its back; the
    // exchange then changes that security.
    BatchDecoder const decoder(f.db);
    f.db.apply(decoder.decode(R"({"table":"securities","ops":[{"delete":{"stock_id":1,"board_id":1,"sec_id":100001}}]})", QStringLiteral("test")));
    QSignalSpy rejected(x.server.get(), &exchange::ReplicationServer::batchRejected);
    BatchDecoder const exchangeDecoder(x.db);
    x.server->applyLogBatch(exchangeDecoder.decode(R"({"table":"securities","ops":[{"update":{"stock_id":1,"board_id":1,"sec_id":100001,"bid":"1.5"}}]})",
                                                   QStringLiteral("test")),
                            1);
    x.play(3);
    ASSERT_TRUE(QTest::qWaitFor([&] { return f.client.state() == State::Stopped; }, 10000)) << f.client.stateText().toStdString();
    EXPECT_TRUE(f.client.reason().contains(QStringLiteral("replication:1"))) << f.client.reason().toStdString();
    EXPECT_EQ(f.client.lastApplied(), 0u);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !rejected.isEmpty(); }, 5000));
    EXPECT_EQ(rejected[0][1].toULongLong(), 1u);
    // Stopped means stopped: the later batches are not applied over the gap.
    QTest::qWait(300);
    EXPECT_TRUE(f.applied.isEmpty());
    EXPECT_EQ(f.client.state(), State::Stopped);
}

// A server that misbehaves on purpose, to see what the client does: a
// sequence that skips one, then a frame of a type that does not exist.
TEST(ReplicationThreads, AGapOrAMalformedFrameClosesTheConnectionAndTheClientAsksAgainFromWhatItApplied)
{
    using namespace replication;
    QTcpServer fake;
    ASSERT_TRUE(fake.listen(QHostAddress::LocalHost, 0));
    QList<QJsonObject> hellos;
    QByteArray const table = R"({"table":"stocks","ops":[{"clear":true}]})" "\n";
    QObject::connect(&fake, &QTcpServer::newConnection, [&] {
        QTcpSocket* socket = fake.nextPendingConnection();
        auto reader = std::make_shared<FrameReader>();
        QObject::connect(socket, &QTcpSocket::readyRead, socket, [&, socket, reader] {
            reader->append(socket->readAll());
            Frame f;
            while (reader->next(f)) {
                if (f.type != FrameType::Hello) continue;
                QString error;
                hellos << readJson(f.payload, error);
                if (hellos.size() == 1) {
                    socket->write(jsonFrame(FrameType::Welcome, {{"protocol", kProtocol}, {"day", "d"}, {"history", "h"}, {"last", 5}, {"resume", false}}));
                    socket->write(jsonFrame(FrameType::SnapshotBegin, {{"seq", 5}, {"lines", 1}, {"bytes", table.size()}, {"compression", "none"}, {"day", "d"}, {"history", "h"}}));
                    socket->write(frame(FrameType::SnapshotData, table));
                    socket->write(jsonFrame(FrameType::SnapshotEnd, {{"seq", 5}}));
                    socket->write(sequenceFrame(FrameType::Batch, 7, R"({"table":"stocks","ops":[{"clear":true}]})"));
                } else if (hellos.size() == 2) {
                    socket->write(jsonFrame(FrameType::Welcome, {{"protocol", kProtocol}, {"day", "d"}, {"history", "h"}, {"last", 5}, {"resume", true}}));
                    socket->write(frame(FrameType(42)));
                } else {
                    socket->write(jsonFrame(FrameType::Bye, {{"reason", "enough"}}));
                }
            }
        });
    });
    Follower f;
    QStringList const& reasons = f.disconnections;
    f.start(fake.serverPort());
    ASSERT_TRUE(QTest::qWaitFor([&] { return hellos.size() >= 3; }, 10000)) << reasons.join("; ").toStdString();
    f.client.stop();
    ASSERT_GE(reasons.size(), 2);
    EXPECT_EQ(reasons[0], QStringLiteral("sequence gap: expected 6, got 7"));
    EXPECT_EQ(reasons[1], QStringLiteral("malformed frame: unknown frame type 42"));
    EXPECT_EQ(hellos[0].value("after").toInt(), 0);
    for (int i : {1, 2}) {
        EXPECT_EQ(hellos[i].value("after").toInt(), 5) << i;
        EXPECT_EQ(hellos[i].value("history").toString(), QStringLiteral("h")) << i;
    }
    EXPECT_EQ(f.client.lastApplied(), 5u);
    EXPECT_TRUE(f.applied.isEmpty());
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
