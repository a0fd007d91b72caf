#include "server.h"

#include "context.h"

#include <database/batch.h>
#include <database/batchencoder.h>
#include <database/database.h>
#include <database/exception.h>
#include <database/record.h>
#include <database/table.h>
#include <gateway/simulatedgateway.h>

#include <QJsonArray>
#include <QPointer>
#include <QSslConfiguration>
#include <QSslSocket>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>
#include <algorithm>
#include <deque>

using namespace replication;

namespace exchange {

namespace {
// Rows a snapshot line holds at most: a client decodes and applies a large
// table a piece at a time, its heartbeats and its event loop going on between.
constexpr int kSnapshotRowsPerLine = 10000;

// Hands each accepted descriptor over as it is, so that the session's socket
// can be a TLS one from its first byte.
class Listener : public QTcpServer
{
public:
    using QTcpServer::QTcpServer;
    std::function<void(qintptr)> incoming;

protected:
    void incomingConnection(qintptr descriptor) override { incoming(descriptor); }
};

// A session's socket is refilled while it holds less than this, so that a
// slow reader holds one high-water mark, not the whole day, in memory.
constexpr qint64 kHighWater = 1024 * 1024;
}

struct ReplicationServer::Snapshot
{
    quint64 sequence = 0;
    int lines = 0;           // batches of the text, a table's consecutive
    qint64 bytes = 0;        // of the text
    QByteArray data;         // the text, or its zstd stream
    bool compressed = false;
};

// What a firm's sessions are sent: every batch of a market-wide table, and
// of the others what is the firm's, under sequence numbers of its own.
struct ReplicationServer::Stream
{
    QString firm;
    std::vector<QByteArray> frames;   // batch N's BATCH frame at N - 1
    std::vector<qint64> offsets{0};   // bytes of batches 1..N
    qint64 total = 0;
    std::shared_ptr<Snapshot> snapshots[2];

    quint64 last() const { return frames.size(); }
    QByteArray const& frame(quint64 sequence) const { return frames[sequence - 1]; }
    qint64 bytesAfter(quint64 sequence) const { return total - offsets[sequence]; }
    void append(QByteArray const& text, quint32 textChecksum)
    {
        frames.push_back(sequenceFrame(FrameType::Batch, last() + 1, text, textChecksum));
        total += frames.back().size();
        offsets.push_back(total);
    }
    void clear()
    {
        frames.clear();
        offsets.assign(1, 0);
        total = 0;
        snapshots[0].reset();
        snapshots[1].reset();
    }
};

// One client's session: HELLO, then a snapshot or the batches it missed,
// then the live batches, paced by what its connection takes.
class Session : public QObject
{
public:
    Session(ReplicationServer* server, QTcpSocket* socket)
        : QObject(server), m_server(server), m_socket(socket), m_reader(server->settings().maxClientFrame),
          m_tokens(server->settings().messageBurst)
    {
        socket->setParent(this);
        m_address = socket->peerAddress();
        m_peer = QStringLiteral("%1:%2").arg(m_address.toString()).arg(socket->peerPort());
        if (auto* tls = qobject_cast<QSslSocket*>(socket)) {
            connect(tls, QOverload<QList<QSslError> const&>::of(&QSslSocket::sslErrors), this, [this](QList<QSslError> const& errors) {
                QStringList texts;
                for (QSslError const& e : errors) texts << e.errorString();
                finish(QStringLiteral("TLS: ") + texts.join(QStringLiteral("; ")));
            });
        }
        connect(socket, &QAbstractSocket::errorOccurred, this, [this](QAbstractSocket::SocketError e) {
            if (e == QAbstractSocket::SslHandshakeFailedError) finish(QStringLiteral("TLS handshake failed: ") + m_socket->errorString());
        });
        m_sinceRefill.start();
        m_hello.setSingleShot(true);
        connect(&m_hello, &QTimer::timeout, this, [this] { finish(QStringLiteral("no HELLO within %1 ms").arg(m_server->settings().helloTimeoutMs)); });
        m_hello.start(server->settings().helloTimeoutMs);
        connect(socket, &QTcpSocket::readyRead, this, [this] { read(); });
        connect(socket, &QTcpSocket::bytesWritten, this, [this] { pump(); });
        connect(socket, &QTcpSocket::disconnected, this, [this] { finish(QStringLiteral("connection lost")); });
        m_beat.setInterval(server->settings().heartbeatIntervalMs);
        connect(&m_beat, &QTimer::timeout, this, [this] {
            // Before the login is through, the beat only keeps the client
            // waiting for its answer: it tells nothing of the market.
            if (!m_sentSinceBeat) write(sequenceFrame(FrameType::Heartbeat, m_streaming ? m_stream->last() : 0));
            m_sentSinceBeat = false;
        });
        m_silence.setSingleShot(true);
        m_silence.setInterval(server->settings().heartbeatTimeoutMs);
        connect(&m_silence, &QTimer::timeout, this, [this] { finish(QStringLiteral("heartbeat timeout")); });
        m_beat.start();
        m_silence.start();
    }

    QString const& peer() const { return m_peer; }
    QString const& login() const { return m_login; }
    QString const& firm() const { return m_firm; }
    QString address() const { return m_address.toString(); }
    // Logged in: past the password check.
    bool loggedIn() const { return m_streaming; }

    // The server goes first: nothing of the socket may call back into it.
    void detach()
    {
        m_finished = true;
        m_beat.stop();
        m_silence.stop();
        m_socket->disconnect(this);
        m_socket->abort();
    }

    // Sends what is due, as far as the connection takes it.
    void pump()
    {
        if (!m_streaming || m_closing) return;
        while (m_socket->bytesToWrite() < kHighWater) {
            // An answer goes once what its transaction changed has gone:
            // a trader sees the order before the word that it was taken.
            if (!m_answers.empty() && !m_snapshot &&
                (m_answers.front().day != m_server->m_dayNumber || m_next > m_answers.front().after)) {
                write(m_answers.front().frame);
                m_answers.pop_front();
                continue;
            }
            if (m_snapshot) {
                if (m_offset < m_snapshot->data.size()) {
                    int const n = int(qMin<qint64>(kSnapshotPiece, m_snapshot->data.size() - m_offset));
                    write(frame(FrameType::SnapshotData, m_snapshot->data.mid(int(m_offset), n)));
                    m_offset += n;
                } else {
                    write(jsonFrame(FrameType::SnapshotEnd, QJsonObject{{QStringLiteral("seq"), double(m_snapshot->sequence)}}));
                    m_snapshot.reset();
                }
                continue;
            }
            if (m_day != m_server->m_dayNumber) {
                beginSnapshot();
                continue;
            }
            if (m_next > m_stream->last()) break;
            write(m_stream->frame(m_next));
            ++m_next;
        }
        if (m_next <= m_stream->last() && m_stream->bytesAfter(m_next - 1) > m_server->settings().maxSendBuffer)
            say(FrameType::Bye, QStringLiteral("reason"), QStringLiteral("too slow"));
    }

    // The exchange's answer to the session's transaction `id`.
    void answer(quint64 id, int code, QString const& text, QList<qint64> const& orders = {})
    {
        if (m_closing || m_finished) return;
        QJsonArray ids;
        for (qint64 order : orders) ids.append(QString::number(order));   // exact past 2^53
        m_answers.push_back(Answer{m_server->m_dayNumber, m_stream->last(),
                                   jsonFrame(FrameType::Answer, QJsonObject{{QStringLiteral("id"), double(id)},
                                                                            {QStringLiteral("code"), code},
                                                                            {QStringLiteral("text"), text},
                                                                            {QStringLiteral("orders"), ids}})});
        pump();
    }

    // A last word, then the connection is closed.
    void say(FrameType type, QString const& key, QString const& text)
    {
        if (m_closing) return;
        write(jsonFrame(type, QJsonObject{{key, text}}));
        m_closing = true;
        m_why = text;
        m_socket->disconnectFromHost();
        // A client too slow to take what is queued before the last word
        // would hold the session and its buffer for as long as it likes.
        QTimer::singleShot(m_server->settings().heartbeatTimeoutMs, this, [this] { finish(m_why); });
    }

    qint64 queued() const { return m_finished ? 0 : m_socket->bytesToWrite(); }

private:
    void write(QByteArray const& bytes)
    {
        m_socket->write(bytes);
        m_sentSinceBeat = true;
    }

    void read()
    {
        m_silence.start();
        // Read no more than a frame can be: a flood stays in the kernel's
        // buffers, and is refused by the rate below, not held here.
        m_reader.append(m_socket->read(m_server->settings().maxClientFrame + kHeaderSize + kTrailerSize));
        Frame f;
        while (!m_closing && !m_finished && m_reader.next(f)) {
            if (!allowMessage()) return;
            handle(f);
        }
        if (!m_reader.error().isEmpty()) return finish(QStringLiteral("malformed frame: ") + m_reader.error());
        if (!m_closing && !m_finished && m_socket->bytesAvailable() > 0) QTimer::singleShot(0, this, [this] { read(); });
    }

    // A token bucket: `messagesPerSecond` on average, `messageBurst` at once.
    bool allowMessage()
    {
        ReplicationServer::Settings const& s = m_server->settings();
        m_tokens = qMin<double>(s.messageBurst, m_tokens + m_sinceRefill.restart() * s.messagesPerSecond / 1000.0);
        if (m_tokens >= 1) {
            m_tokens -= 1;
            return true;
        }
        say(FrameType::Error, QStringLiteral("error"), QStringLiteral("too many messages: at most %1 a second").arg(s.messagesPerSecond));
        return false;
    }

    void handle(Frame const& f)
    {
        if (f.type == FrameType::Heartbeat) return;
        if (m_checking) return finish(QStringLiteral("malformed frame: %1 while the password is checked").arg(frameName(f.type)));
        if (!m_streaming) {
            if (f.type != FrameType::Hello) return finish(QStringLiteral("malformed frame: %1 before HELLO").arg(frameName(f.type)));
            return hello(f.payload);
        }
        if (f.type == FrameType::Transaction) return transaction(f.payload);
        if (f.type == FrameType::Rejected) {
            Rejection r;
            QString const error = readRejected(f.payload, r);
            if (!error.isEmpty()) return finish(QStringLiteral("malformed frame: REJECTED: ") + error);
            emit m_server->batchRejected(m_peer, r.sequence, r.origin, r.reason);
            return finish(QStringLiteral("the client rejected batch %1").arg(r.sequence));
        }
        finish(QStringLiteral("malformed frame: %1 out of place").arg(frameName(f.type)));
    }

    void hello(QByteArray const& payload)
    {
        Hello h;
        QString const error = readHello(payload, h);
        if (!error.isEmpty()) return say(FrameType::Error, QStringLiteral("error"), error);
        m_login = h.login;
        m_zstd = h.zstd;
        m_from = h.after;
        m_helloDay = h.day;
        m_helloHistory = h.history;

        // An unknown login is checked against a decoy, so that the refusal
        // takes as long whichever was wrong.
        QByteArray hash = m_server->m_users ? m_server->m_users->hashOf(m_login) : QByteArray();
        bool const known = !hash.isEmpty() && m_server->isMarketUser(m_login);
        if (hash.isEmpty()) hash = Users::decoy();
        m_checking = true;
        m_hello.stop();
        m_server->m_checker->check(hash, h.password, this, [this, known](bool ok) {
            m_checking = false;
            if (ok && known) return open();
            int const delay = m_server->refusalDelay(m_address);
            m_checking = true;   // nothing more is read from it meanwhile
            QTimer::singleShot(delay, this, [this] {
                m_checking = false;
                say(FrameType::Error, QStringLiteral("error"), QStringLiteral("the login or the password is wrong"));
            });
        });
    }

    void transaction(QByteArray const& payload)
    {
        quint64 id = 0;
        RawTransaction tx;
        QString const error = readTransaction(payload, id, tx);
        if (!error.isEmpty()) return finish(QStringLiteral("malformed frame: TRANSACTION: ") + error);
        m_server->take(this, id, tx);
    }

    // The stream's history: the exchange's, and whose stream it is, so that
    // a login moved to another firm is not resumed in the old firm's numbers.
    QString history() const { return m_server->history() + QLatin1Char('/') + m_firm; }

    void open()
    {
        m_server->loggedIn(m_address);
        m_firm = m_server->m_router.firmOfLogin(m_login);
        m_stream = m_server->streamOf(m_firm);
        quint64 const from = m_from;
        // A client further behind than the send limit would be too slow
        // at once: it takes a snapshot instead.
        bool const resume = from > 0 && m_helloDay == m_server->day() && m_helloHistory == history() && from <= m_stream->last() &&
                            m_stream->bytesAfter(from) <= m_server->settings().maxSendBuffer;
        write(jsonFrame(FrameType::Welcome, QJsonObject{{QStringLiteral("protocol"), kProtocol},
                                                        {QStringLiteral("day"), m_server->day()},
                                                        {QStringLiteral("history"), history()},
                                                        {QStringLiteral("firm"), m_firm},
                                                        {QStringLiteral("last"), double(m_stream->last())},
                                                        {QStringLiteral("resume"), resume}}));
        m_streaming = true;
        m_day = m_server->m_dayNumber;
        if (resume) m_next = from + 1;
        else beginSnapshot();
        emit m_server->sessionOpened(m_peer, m_login, resume, resume ? from : m_next - 1);
        pump();
    }

    // The tables as they are now, of the day being served; batches follow from after them.
    void beginSnapshot()
    {
        m_snapshot = m_server->snapshot(*m_stream, m_zstd);
        m_offset = 0;
        m_day = m_server->m_dayNumber;
        write(jsonFrame(FrameType::SnapshotBegin, QJsonObject{{QStringLiteral("seq"), double(m_snapshot->sequence)},
                                                              {QStringLiteral("lines"), m_snapshot->lines},
                                                              {QStringLiteral("bytes"), double(m_snapshot->bytes)},
                                                              {QStringLiteral("compression"), m_snapshot->compressed ? QStringLiteral("zstd") : QStringLiteral("none")},
                                                              {QStringLiteral("day"), m_server->day()},
                                                              {QStringLiteral("history"), history()}}));
        m_next = m_snapshot->sequence + 1;
    }

    void finish(QString const& why)
    {
        if (m_finished) return;
        m_finished = true;
        m_beat.stop();
        m_silence.stop();
        m_socket->disconnect(this);
        m_socket->abort();
        m_server->closed(this, m_closing ? m_why : why);
    }

    ReplicationServer* m_server;
    QTcpSocket* m_socket;
    QHostAddress m_address;
    FrameReader m_reader;
    QTimer m_beat, m_silence, m_hello;
    QString m_peer, m_login, m_why;
    QString m_firm;   // its login's, when it logged in
    ReplicationServer::Stream* m_stream = nullptr;
    struct Answer
    {
        int day;          // of the stream's numbering
        quint64 after;    // the stream's last batch when it was answered
        QByteArray frame;
    };
    std::deque<Answer> m_answers;   // behind the batches before them
    quint64 m_from = 0;
    QString m_helloDay, m_helloHistory;
    double m_tokens;
    QElapsedTimer m_sinceRefill;
    bool m_checking = false;   // the password is being checked, or its refusal delayed
    bool m_streaming = false;
    bool m_closing = false;
    bool m_finished = false;
    bool m_sentSinceBeat = false;
    bool m_zstd = false;
    int m_day = 0;   // the server's day this session serves; another one means a new snapshot
    std::shared_ptr<ReplicationServer::Snapshot const> m_snapshot;
    qint64 m_offset = 0;
    quint64 m_next = 1;
};

namespace {
constexpr int kLongestText = 4096;   // an origin or a reason a client sends

// A whole number the JSON value holds exactly, from 0 up.
bool readCount(QJsonValue const& v, quint64& n)
{
    if (!v.isDouble() || v.toDouble() < 0 || v.toDouble() > 9007199254740992.0 || v.toDouble() != double(quint64(v.toDouble()))) return false;
    n = quint64(v.toDouble());
    return true;
}
} // namespace

QString readHello(QByteArray const& payload, Hello& hello)
{
    QString error;
    QJsonObject const o = readJson(payload, error);
    if (!error.isEmpty()) return QStringLiteral("a malformed HELLO: ") + error;
    QJsonValue const protocol = o.value(QStringLiteral("protocol"));
    if (protocol.toInt(-1) != kProtocol)
        return QStringLiteral("unsupported protocol %1").arg(protocol.isDouble() ? QString::number(protocol.toDouble()) : QStringLiteral("(none)"));
    if (!o.value(QStringLiteral("login")).isString() || !readCount(o.value(QStringLiteral("after")), hello.after) ||
        !o.value(QStringLiteral("day")).isString() || !o.value(QStringLiteral("history")).isString() ||
        (o.contains(QStringLiteral("compression")) && !o.value(QStringLiteral("compression")).isArray()))
        return QStringLiteral("a malformed HELLO: it needs login, day, history and after");
    hello.login = o.value(QStringLiteral("login")).toString();
    QString const why = apps::loginProblem(hello.login);
    if (!why.isEmpty()) return QStringLiteral("the login: ") + why;
    if (!o.value(QStringLiteral("password")).isString()) return QStringLiteral("a malformed HELLO: it needs a password");
    hello.password = o.value(QStringLiteral("password")).toString().toUtf8();
    hello.day = o.value(QStringLiteral("day")).toString().left(64);
    hello.history = o.value(QStringLiteral("history")).toString().left(64);
    hello.zstd = false;
    for (QJsonValue const& v : o.value(QStringLiteral("compression")).toArray()) hello.zstd = hello.zstd || v.toString() == QLatin1String("zstd");
    return QString();
}

QString readRejected(QByteArray const& payload, Rejection& rejection)
{
    QString error;
    QJsonObject const o = readJson(payload, error);
    if (!error.isEmpty()) return error;
    if (!readCount(o.value(QStringLiteral("seq")), rejection.sequence) || !o.value(QStringLiteral("origin")).isString() ||
        !o.value(QStringLiteral("reason")).isString())
        return QStringLiteral("it needs seq, origin and reason");
    rejection.origin = o.value(QStringLiteral("origin")).toString().left(kLongestText);
    rejection.reason = o.value(QStringLiteral("reason")).toString().left(kLongestText);
    return QString();
}

QString readTransaction(QByteArray const& payload, quint64& id, RawTransaction& transaction)
{
    QString error;
    QJsonObject const o = readJson(payload, error);
    if (!error.isEmpty()) return error;
    quint64 code = 0, stock = 0, board = 0;
    if (!readCount(o.value(QStringLiteral("id")), id) || !readCount(o.value(QStringLiteral("code")), code) ||
        !readCount(o.value(QStringLiteral("stock")), stock) || !readCount(o.value(QStringLiteral("board")), board) ||
        !o.value(QStringLiteral("params")).isObject() || code > 0x7fffffff || stock > 0x7fffffff || board > 0x7fffffff)
        return QStringLiteral("it needs id, code, stock, board and params");
    QJsonObject const params = o.value(QStringLiteral("params")).toObject();
    constexpr int kMostParameters = 64, kLongestValue = 256;
    if (params.size() > kMostParameters) return QStringLiteral("more than %1 parameters").arg(kMostParameters);
    transaction = RawTransaction();
    transaction.messageCode = int(code);
    transaction.stockId = qint32(stock);
    transaction.boardId = qint32(board);
    transaction.templateName = o.value(QStringLiteral("template")).toString().left(kLongestValue);
    for (auto it = params.begin(); it != params.end(); ++it) {
        // Values travel as text, as the user typed or the row held them:
        // a number in JSON would lose an order id's last digits.
        if (!it.value().isString() || it.key().size() > kLongestValue || it.value().toString().size() > kLongestValue)
            return QStringLiteral("parameter values are texts of at most %1 characters").arg(kLongestValue);
        transaction.params.insert(it.key(), it.value().toString());
    }
    return QString();
}

ReplicationServer::ReplicationServer(Database* database, QString const& day, QObject* parent)
    : QObject(parent), m_database(database), m_day(day), m_history(newHistory()), m_router(database)
{
    m_database->setAppliedObserver([this](Batch const& batch) { served(batch); });
    m_checker = new PasswordChecker(this);
    m_clock.start();
    addStreams();
}

void ReplicationServer::setGateway(SimulatedGateway* gateway)
{
    if (m_gateway) m_gateway->disconnect(this);
    m_gateway = gateway;
    if (m_gateway)
        connect(m_gateway, &SimulatedGateway::answered, this,
                [this](RawTransaction const& tx, int code, QString const& text, QList<qint64> const& orders) { answered(tx, code, text, orders); });
}

void ReplicationServer::take(Session* session, quint64 id, RawTransaction const& transaction)
{
    if (!m_gateway || !m_gateway->accepts(transaction)) {
        session->answer(id, SimulatedGateway::Rejected, QStringLiteral("transaction %1 is not taken here").arg(transaction.messageCode));
        return;
    }
    m_pending.push_back(Pending{session, id, transaction.answer});
    m_gateway->takeFromFirm(transaction, session->firm());
}

void ReplicationServer::answered(RawTransaction const& transaction, int code, QString const& text, QList<qint64> const& orders)
{
    auto it = std::find_if(m_pending.begin(), m_pending.end(), [&](Pending const& p) { return p.answer == transaction.answer; });
    if (it == m_pending.end()) return;   // not a session's, or its session closed
    Pending const p = *it;
    m_pending.erase(it);
    p.session->answer(p.id, code, text, orders);
}

quint64 ReplicationServer::lastSequence(QString const& firm) const
{
    auto it = m_streams.find(firm);
    return it == m_streams.end() ? 0 : it->second->last();
}

ReplicationServer::Stream* ReplicationServer::streamOf(QString const& firm)
{
    std::unique_ptr<Stream>& stream = m_streams[firm];
    if (!stream) {
        stream.reset(new Stream);
        stream->firm = firm;
    }
    return stream.get();
}

void ReplicationServer::addStreams()
{
    // Every firm of the market's users has its stream from the moment it
    // appears, sessions or not: a restarted exchange numbers each stream's
    // batches as it did before, from the journal alone.
    streamOf(QString());
    for (QString const& firm : m_router.firms()) streamOf(firm);
}

void ReplicationServer::checkLogins()
{
    std::vector<Session*> const sessions = m_sessions;
    for (Session* s : sessions) {
        if (!s->loggedIn()) continue;
        // A login taken out of the market's users is out of its session too.
        if (!isMarketUser(s->login()))
            s->say(FrameType::Error, QStringLiteral("error"), QStringLiteral("the login %1 was removed from the market's users").arg(s->login()));
        // One moved to another firm comes back to that firm's stream.
        else if (m_router.firmOfLogin(s->login()) != s->firm())
            s->say(FrameType::Bye, QStringLiteral("reason"), QStringLiteral("the login's firm changed"));
    }
}

void ReplicationServer::setTls(QList<QSslCertificate> const& chain, QSslKey const& key)
{
    m_chain = chain;
    m_key = key;
}

ReplicationServer::~ReplicationServer()
{
    m_database->setAppliedObserver({});
    for (Session* s : m_sessions) {
        s->detach();
        delete s;
    }
    m_sessions.clear();
}

int ReplicationServer::openJournal(QString const& path)
{
    m_journal.reset(new Journal(path, m_day));
    m_history = m_journal->history();
    BatchDecoder const decoder(*m_database);
    int lastLogLine = 0;
    int line = 1;
    for (Journal::Entry const& e : m_journal->entries()) {
        ++line;
        m_replaying = true;
        try {
            m_database->apply(decoder.decode(e.batch, QStringLiteral("%1:%2").arg(path).arg(line)));
        } catch (HookFailure const&) {
        } catch (...) {
            m_replaying = false;
            throw;
        }
        m_replaying = false;
        if (e.logLine) lastLogLine = e.logLine;
    }
    m_journal->releaseEntries();
    return lastLogLine;
}

void ReplicationServer::applyLogBatch(Batch const& batch, int logLine)
{
    m_pendingSource = QStringLiteral("log:%1").arg(logLine);
    try {
        m_database->apply(batch);
    } catch (HookFailure const&) {
    } catch (...) {
        m_pendingSource.clear();
        throw;
    }
    m_pendingSource.clear();
}

void ReplicationServer::served(Batch const& batch)
{
    QByteArray const text = BatchEncoder::encode(batch);
    quint64 const sequence = m_sequence + 1;
    if (m_journal && !m_replaying) {
        try {
            m_journal->append(sequence, m_pendingSource.isEmpty() ? QStringLiteral("exchange") : m_pendingSource, text);
        } catch (QString const& why) {
            // Nothing may be sent that a restarted exchange would not have.
            shutdown(QStringLiteral("the exchange is stopping"));
            emit journalFailed(why);
            return;
        }
    }
    m_sequence = sequence;
    QString const table = batch.table ? batch.table->name() : QString();
    if (m_router.isMarketWide(table)) {
        // Summed once, framed once per stream, sent as it is to every session of it.
        quint32 const sum = checksum(text);
        for (auto& stream : m_streams) stream.second->append(text, sum);
    } else {
        QStringList firms;
        for (auto const& stream : m_streams)
            if (!stream.first.isEmpty()) firms << stream.first;
        for (auto const& part : m_router.split(table, firms)) m_streams[part.first]->append(part.second, checksum(part.second));
    }
    if (table == QLatin1String("k3.user")) {
        addStreams();
        checkLogins();
    }
    std::vector<Session*> const sessions = m_sessions;
    for (Session* s : sessions) s->pump();
}

std::shared_ptr<ReplicationServer::Snapshot const> ReplicationServer::snapshot(Stream& stream, bool compressed)
{
    std::shared_ptr<Snapshot>& cached = stream.snapshots[compressed ? 1 : 0];
    if (cached && cached->sequence == stream.last()) return cached;
    // Written out once per sequence and per form asked for, a table at a
    // time; the compressed form is compressed as it is written, so that a
    // firm's snapshot holds its compressed bytes, not the text as well.
    auto made = std::make_shared<Snapshot>();
    made->sequence = stream.last();
    made->compressed = compressed;
    Compressor compressor;
    QStringList const names = m_database->tableNamesInSchemaOrder();
    for (int i = 0; i < names.size(); ++i) {
        QSharedPointer<Table> const table = m_database->table(names[i]);
        int lines = 0;
        QByteArray const text = BatchEncoder::encodeTablesLines({table.data()}, kSnapshotRowsPerLine, lines, m_router.filter(stream.firm, names[i]));
        made->lines += lines;
        made->bytes += text.size();
        made->data += compressed ? compressor.compress(text.constData(), text.size(), i + 1 == names.size()) : text;
    }
    if (compressed && names.isEmpty()) made->data = compressor.compress(nullptr, 0, true);
    cached = made;
    return made;
}

void ReplicationServer::beginDay(QString const& day, std::function<void()> const& load)
{
    // The load's batches are the new day's sequence 0, not batches of the old one.
    m_database->setAppliedObserver({});
    try {
        load();
    } catch (...) {
        m_database->setAppliedObserver([this](Batch const& batch) { served(batch); });
        throw;
    }
    m_database->setAppliedObserver([this](Batch const& batch) { served(batch); });
    m_day = day;
    ++m_dayNumber;
    m_sequence = 0;
    m_router.reset();
    for (auto& stream : m_streams) stream.second->clear();
    addStreams();
    if (m_journal) {
        QString const path = m_journal->path();
        m_journal.reset();
        m_journal.reset(new Journal(path, day));   // keeps the old day's aside
        m_history = m_journal->history();
    } else {
        m_history = newHistory();
    }
    checkLogins();
    std::vector<Session*> const sessions = m_sessions;
    for (Session* s : sessions) s->pump();
}

bool ReplicationServer::listen(QHostAddress const& address, quint16 port, QString& error)
{
    if (!m_server) {
        auto* listener = new Listener(this);
        listener->incoming = [this](qintptr descriptor) { accept(descriptor); };
        m_server = listener;
    }
    if (m_server->listen(address, port)) return true;
    error = m_server->errorString();
    return false;
}

void ReplicationServer::accept(qintptr descriptor)
{
    auto* socket = new QSslSocket;
    if (!socket->setSocketDescriptor(descriptor)) {
        delete socket;
        return;
    }
    // A frame goes when written: an answer or a batch held back for the
    // next packet costs a trader tens of milliseconds.
    socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
    QString const address = socket->peerAddress().toString();
    QString const peer = QStringLiteral("%1:%2").arg(address).arg(socket->peerPort());
    int pending = 0;
    for (Session const* s : m_sessions) pending += !s->loggedIn();
    QString refusal;
    if (pending >= m_settings.pendingTotal) refusal = QStringLiteral("too many connections not logged in");
    else if (pendingFrom(address) >= m_settings.pendingPerAddress) refusal = QStringLiteral("too many connections not logged in from %1").arg(address);
    if (!refusal.isEmpty()) {
        // Closed before a byte is read: a flood of connections costs no handshake.
        socket->abort();
        delete socket;
        emit connectionRefused(peer, refusal);
        return;
    }
    if (encrypted()) {
        QSslConfiguration tls = socket->sslConfiguration();
        tls.setLocalCertificateChain(m_chain);
        tls.setPrivateKey(m_key);
        tls.setProtocol(QSsl::TlsV1_2OrLater);
        tls.setPeerVerifyMode(QSslSocket::VerifyNone);   // clients prove who they are by password
        socket->setSslConfiguration(tls);
        socket->startServerEncryption();
    }
    m_sessions.push_back(new Session(this, socket));
}

int ReplicationServer::pendingFrom(QString const& address) const
{
    int n = 0;
    for (Session const* s : m_sessions) n += !s->loggedIn() && s->address() == address;
    return n;
}

int ReplicationServer::refusalDelay(QHostAddress const& address)
{
    qint64 const now = m_clock.elapsed();
    // Forget addresses quiet for long, so that the table stays small under a flood from many.
    if (m_failures.size() > 10000) {
        for (auto it = m_failures.begin(); it != m_failures.end();)
            it = now - it->last > m_settings.failuresForgottenMs ? m_failures.erase(it) : std::next(it);
    }
    Failures& f = m_failures[address.toString()];
    if (f.count > 0 && now - f.last > m_settings.failuresForgottenMs) f.count = 0;
    ++f.count;
    f.last = now;
    qint64 const delay = qint64(m_settings.refusalDelayFirstMs) << qMin(f.count - 1, 20);
    return int(qMin<qint64>(delay, m_settings.refusalDelayMaxMs));
}

bool ReplicationServer::isMarketUser(QString const& login) const
{
    QSharedPointer<Table> const users = m_database->table(QStringLiteral("k3.user"));
    return users && !Record(users.data(), login).isEmpty();
}

qint64 ReplicationServer::queuedBytes() const
{
    qint64 sum = 0;
    for (Session const* s : m_sessions) sum += s->queued();
    return sum;
}

quint16 ReplicationServer::port() const { return m_server ? m_server->serverPort() : 0; }

void ReplicationServer::shutdown(QString const& reason)
{
    if (m_server) m_server->close();
    std::vector<Session*> const sessions = m_sessions;
    for (Session* s : sessions) s->say(FrameType::Bye, QStringLiteral("reason"), reason);
}

void ReplicationServer::closed(Session* session, QString const& why)
{
    auto it = std::find(m_sessions.begin(), m_sessions.end(), session);
    if (it == m_sessions.end()) return;
    m_sessions.erase(it);
    m_pending.erase(std::remove_if(m_pending.begin(), m_pending.end(), [session](Pending const& p) { return p.session == session; }), m_pending.end());
    emit sessionClosed(session->peer(), why);
    session->deleteLater();
}

} // namespace exchange
