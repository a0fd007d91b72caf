// Who may open a session, over what, and what one misbehaving client may
// cost the exchange: logins and passwords, TLS, and the limits against abuse.
#include "harness.h"

#include <QElapsedTimer>
#include <QSignalSpy>
#include <QTcpSocket>

using namespace replication;

namespace {

QString const kRefusal = QStringLiteral("the login or the password is wrong");

// A follower of its own database (not the core's), with a login, a password
// and a transport of the test's choosing.
// A raw connection speaking frames by hand, to misbehave.
struct Raw
{
    QTcpSocket socket;
    FrameReader reader;
    QList<Frame> frames;

    explicit Raw(quint16 port)
    {
        QObject::connect(&socket, &QTcpSocket::readyRead, [this] {
            reader.append(socket.readAll());
            Frame f;
            while (reader.next(f)) frames << f;
        });
        socket.connectToHost(QHostAddress::LocalHost, port);
        EXPECT_TRUE(socket.waitForConnected(5000));
    }
    void hello(QString const& login, QByteArray const& password)
    {
        socket.write(jsonFrame(FrameType::Hello, QJsonObject{{"protocol", kProtocol}, {"login", login}, {"password", QString::fromUtf8(password)},
                                                            {"day", ""}, {"history", ""}, {"after", 0}}));
    }
    bool closed(int ms = 10000)
    {
        return QTest::qWaitFor([&] { return socket.state() == QAbstractSocket::UnconnectedState; }, ms);
    }
    bool has(FrameType type) const
    {
        for (Frame const& f : frames)
            if (f.type == type) return true;
        return false;
    }
    // The text of the ERROR the exchange sent, if any.
    QString error() const
    {
        for (Frame const& f : frames) {
            QString e;
            if (f.type == FrameType::Error) return readJson(f.payload, e).value("error").toString();
        }
        return QString();
    }
};

// The exchange's farewell to each session that closed, in order.
QStringList closings(QSignalSpy const& closed)
{
    QStringList why;
    for (auto const& c : closed) why << c[1].toString();
    return why;
}

TEST(SecurityThreads, AWrongPasswordAndAnUnknownLoginGetOneRefusalThatSaysNotWhichAndTheClientStops)
{
    Exchange x(QStringLiteral("2026-11-20"));
    QSignalSpy opened(x.server.get(), &exchange::ReplicationServer::sessionOpened);
    QSignalSpy closed(x.server.get(), &exchange::ReplicationServer::sessionClosed);
    Client wrong, unknown;
    wrong.start(x.server->port(), QStringLiteral("FA01U01"), "pw-FA01U02");
    unknown.start(x.server->port(), QStringLiteral("ZZ99U99"), testPassword(QStringLiteral("ZZ99U99")));
    ASSERT_TRUE(wrong.stopped());
    ASSERT_TRUE(unknown.stopped());
    EXPECT_EQ(wrong.client.reason(), kRefusal);
    EXPECT_EQ(unknown.client.reason(), kRefusal);
    // Stopped means no more tries: each came once and was told once.
    QTest::qWait(500);
    EXPECT_EQ(closings(closed), (QStringList{kRefusal, kRefusal}));
    EXPECT_TRUE(opened.isEmpty());
    for (Client* c : {&wrong, &unknown}) EXPECT_EQ(c->db.table(QStringLiteral("securities"))->rowCount(), 0);

    // The right password opens the session.
    Client right;
    right.start(x.server->port(), QStringLiteral("FA01U01"), testPassword(QStringLiteral("FA01U01")));
    ASSERT_TRUE(right.live()) << right.client.stateText().toStdString();
    EXPECT_EQ(opened.size(), 1);
}

// Each further wrong login from one address waits longer for its refusal;
// a right one is not held back by the failures before it.
TEST(SecurityThreads, TheRefusalDelayGrowsPerAddress)
{
    Exchange x(QStringLiteral("2026-11-20"));
    exchange::ReplicationServer::Settings s = x.server->settings();
    s.refusalDelayFirstMs = 300;
    x.server->setSettings(s);
    QList<qint64> took;
    for (int attempt = 0; attempt < 3; ++attempt) {
        Client c;
        QElapsedTimer clock;
        clock.start();
        c.start(x.server->port(), QStringLiteral("FA01U01"), "guess");
        ASSERT_TRUE(c.stopped(20000));
        took << clock.elapsed();
        EXPECT_EQ(c.client.reason(), kRefusal);
    }
    // 300, 600 and 1200 ms at least, whatever else the machine does.
    EXPECT_GE(took[0], 300);
    EXPECT_GE(took[1], 600);
    EXPECT_GE(took[2], 1200);
    EXPECT_GT(took[2], took[0] + 600) << took[0] << " " << took[1] << " " << took[2];
    Client right;
    QElapsedTimer clock;
    clock.start();
    right.start(x.server->port(), QStringLiteral("FA01U01"), testPassword(QStringLiteral("FA01U01")));
    ASSERT_TRUE(right.live());
}

TEST(SecurityThreads, AnExchangeTheClientCannotVerifyIsRefusedNamingWhy)
{
    TestCertificates const& tls = testCertificates();
    ASSERT_FALSE(tls.ca.isEmpty()) << tls.error.toStdString();
    Exchange x(QStringLiteral("2026-11-20"));
    x.server->setTls(tls.chain(), tls.privateKey());
    QSignalSpy opened(x.server.get(), &exchange::ReplicationServer::sessionOpened);

    Client stranger(Client::tls(QSslCertificate::fromPath(tls.otherCa)));
    stranger.start(x.server->port(), QStringLiteral("FA01U01"), testPassword(QStringLiteral("FA01U01")));
    ASSERT_TRUE(stranger.stopped());
    EXPECT_TRUE(stranger.client.reason().startsWith(QStringLiteral("the exchange at 127.0.0.1:%1 cannot be verified: ").arg(x.server->port())))
        << stranger.client.reason().toStdString();

    // The right authority: verified, logged in, followed.
    Client trusting(Client::tls(tls.authorities()));
    trusting.start(x.server->port(), QStringLiteral("FA01U01"), testPassword(QStringLiteral("FA01U01")));
    ASSERT_TRUE(trusting.live()) << trusting.client.stateText().toStdString();
    EXPECT_EQ(checksums(trusting.db), checksums(x, QStringLiteral("FA01U01")));
    EXPECT_EQ(opened.size(), 1);
}

// TLS on one side only: neither gets a session.
TEST(SecurityThreads, APlainConnectionIsRefusedUnlessBothSidesAreInsecure)
{
    TestCertificates const& tls = testCertificates();
    ASSERT_FALSE(tls.ca.isEmpty()) << tls.error.toStdString();
    Exchange plainExchange(QStringLiteral("2026-11-20"));
    Client verifying(Client::tls(tls.authorities()));
    verifying.start(plainExchange.server->port(), QStringLiteral("FA01U01"), testPassword(QStringLiteral("FA01U01")));
    ASSERT_TRUE(verifying.stopped());
    EXPECT_TRUE(verifying.client.reason().startsWith(QStringLiteral("no TLS session with the exchange at 127.0.0.1:")))
        << verifying.client.reason().toStdString();

    Exchange tlsExchange(QStringLiteral("2026-11-20"));
    tlsExchange.server->setTls(tls.chain(), tls.privateKey());
    QSignalSpy opened(tlsExchange.server.get(), &exchange::ReplicationServer::sessionOpened);
    QSignalSpy closed(tlsExchange.server.get(), &exchange::ReplicationServer::sessionClosed);
    Client plain;
    plain.start(tlsExchange.server->port(), QStringLiteral("FA01U01"), testPassword(QStringLiteral("FA01U01")));
    ASSERT_TRUE(QTest::qWaitFor([&] { return !closed.isEmpty(); }, 10000));
    plain.client.stop();
    EXPECT_TRUE(closings(closed).first().startsWith(QStringLiteral("TLS"))) << closings(closed).join("; ").toStdString();
    EXPECT_TRUE(opened.isEmpty());
    EXPECT_EQ(plain.db.table(QStringLiteral("securities"))->rowCount(), 0);
}

// A connection that never finishes its TLS handshake (or never says HELLO)
// is closed in time, and a session meanwhile goes on as if it were not there.
TEST(SecurityThreads, AHandshakeNeverFinishedIsClosedWhileOtherSessionsGoOn)
{
    TestCertificates const& tls = testCertificates();
    ASSERT_FALSE(tls.ca.isEmpty()) << tls.error.toStdString();
    Exchange x(QStringLiteral("2026-11-20"));
    x.server->setTls(tls.chain(), tls.privateKey());
    exchange::ReplicationServer::Settings s = x.server->settings();
    s.helloTimeoutMs = 700;
    x.server->setSettings(s);
    QSignalSpy refused(x.server.get(), &exchange::ReplicationServer::sessionClosed);

    Client trader(Client::tls(tls.authorities()));
    trader.start(x.server->port(), QStringLiteral("FA01U01"), testPassword(QStringLiteral("FA01U01")));
    ASSERT_TRUE(trader.live());
    Raw silent(x.server->port());   // connects, and sends nothing at all
    Raw half(x.server->port());
    half.socket.write(QByteArray("\x16\x03\x01\x02\x00\x01\x00\x01\xfc", 9));   // the start of a ClientHello, never ended
    x.play(20);
    EXPECT_TRUE(silent.closed());
    EXPECT_TRUE(half.closed());
    QStringList const why = closings(refused);
    EXPECT_EQ(why.filter(QStringLiteral("no HELLO within 700 ms")).size(), 2) << why.join("; ").toStdString();
    ASSERT_TRUE(QTest::qWaitFor([&] { return trader.client.lastApplied() == 20; }, 10000));
    EXPECT_EQ(trader.client.state(), State::Live);
}

// Too large a frame, too many messages, too many connections not logged in
// from one address, a malformed HELLO: each is refused or closed, and a
// well-behaved session at the same time follows to the end.
TEST(SecurityThreads, FloodsAndOversizedOrMalformedMessagesAreRefusedWithoutHarmingOthers)
{
    Exchange x(QStringLiteral("2026-11-20"));
    exchange::ReplicationServer::Settings s = x.server->settings();
    s.messagesPerSecond = 20;
    s.messageBurst = 50;
    s.pendingPerAddress = 4;
    x.server->setSettings(s);
    QSignalSpy closed(x.server.get(), &exchange::ReplicationServer::sessionClosed);
    QSignalSpy turnedAway(x.server.get(), &exchange::ReplicationServer::connectionRefused);
    Client trader;
    trader.start(x.server->port(), QStringLiteral("FA01U02"), testPassword(QStringLiteral("FA01U02")));
    ASSERT_TRUE(trader.live());

    Raw oversized(x.server->port());
    QByteArray const big = frame(FrameType::Rejected, QByteArray(1024 * 1024, 'x'));
    oversized.socket.write(big.left(kHeaderSize));   // a valid header announcing 1 MiB
    EXPECT_TRUE(oversized.closed());

    Raw flood(x.server->port());
    flood.hello(QStringLiteral("FA01U01"), testPassword(QStringLiteral("FA01U01")));
    ASSERT_TRUE(QTest::qWaitFor([&] { return flood.has(FrameType::Welcome); }, 20000));
    QByteArray beats;
    for (int i = 0; i < 500; ++i) beats += sequenceFrame(FrameType::Heartbeat, 0);
    flood.socket.write(beats);
    EXPECT_TRUE(flood.closed());
    EXPECT_EQ(flood.error(), QStringLiteral("too many messages: at most 20 a second"));

    Raw malformed(x.server->port());
    malformed.socket.write(frame(FrameType::Hello, "{\"protocol\": 3, \"login\": "));
    EXPECT_TRUE(malformed.closed());
    EXPECT_TRUE(malformed.error().startsWith(QStringLiteral("a malformed HELLO: "))) << malformed.error().toStdString();

    // Connections that never log in: past four from one address, each is
    // closed as it comes, before anything is read from it.
    std::vector<std::unique_ptr<Raw>> idle;
    for (int i = 0; i < 10; ++i) idle.push_back(std::make_unique<Raw>(x.server->port()));
    ASSERT_TRUE(QTest::qWaitFor([&] { return turnedAway.size() == 6; }, 10000)) << turnedAway.size();
    EXPECT_TRUE(turnedAway.first()[1].toString().startsWith(QStringLiteral("too many connections not logged in from ")));

    x.play(30);
    ASSERT_TRUE(QTest::qWaitFor([&] { return trader.client.lastApplied() == x.lastFor(QStringLiteral("FA01U01")); }, 10000));
    EXPECT_EQ(trader.client.state(), State::Live);
    EXPECT_EQ(checksums(trader.db), checksums(x, QStringLiteral("FA01U01")));
    QStringList const why = closings(closed);
    EXPECT_EQ(why.filter(QStringLiteral("malformed frame: a frame of 1048577 bytes, past the limit of 65536")).size(), 1) << why.join("; ").toStdString();
}

TEST(SecurityThreads, ALoginRemovedFromTheMarketsUsersHasItsSessionEnded)
{
    Exchange x(QStringLiteral("2026-11-20"));
    Client removed, other;
    removed.start(x.server->port(), QStringLiteral("FA01U01"), testPassword(QStringLiteral("FA01U01")));
    other.start(x.server->port(), QStringLiteral("FA01U02"), testPassword(QStringLiteral("FA01U02")));
    ASSERT_TRUE(removed.live());
    ASSERT_TRUE(other.live());
    BatchDecoder const decoder(x.db);
    x.server->applyLogBatch(decoder.decode(R"({"table":"k3.user","ops":[{"delete":{"login":"FA01U01"}}]})", QStringLiteral("test")), 0);
    ASSERT_TRUE(removed.stopped());
    EXPECT_EQ(removed.client.reason(), QStringLiteral("the login FA01U01 was removed from the market's users"));
    x.play(10);
    ASSERT_TRUE(QTest::qWaitFor([&] { return other.client.lastApplied() == x.lastFor(QStringLiteral("FA01U02")); }, 10000));
    EXPECT_EQ(other.client.state(), State::Live);
    EXPECT_EQ(checksums(other.db), checksums(x, QStringLiteral("FA01U02")));

    // Removed from the market, it cannot come back either.
    Client again;
    again.start(x.server->port(), QStringLiteral("FA01U01"), testPassword(QStringLiteral("FA01U01")));
    ASSERT_TRUE(again.stopped());
    EXPECT_EQ(again.client.reason(), kRefusal);
}

} // namespace
