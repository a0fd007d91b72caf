#include "server.h"

#include "context.h"

#include <database/batch.h>
#include <database/batchencoder.h>
#include <database/database.h>
#include <database/exception.h>

#include <QJsonArray>
#include <QPointer>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>
#include <algorithm>

using namespace replication;

namespace exchange {

namespace {
// A session's socket is refilled while it holds less than this, so that a
// slow reader holds one high-water mark, not the whole day, in memory.
constexpr qint64 kHighWater = 1024 * 1024;
}

struct ReplicationServer::Snapshot
{
    quint64 sequence = 0;
    int tables = 0;
    qint64 bytes = 0;        // of the text
    QByteArray data;         // the text, or its zstd stream
    bool compressed = false;
};

// One client's session: HELLO, then a snapshot or the batches it missed,
// then the live batches, paced by what its connection takes.
class Session : public QObject
{
public:
    Session(ReplicationServer* server, QTcpSocket* socket) : QObject(server), m_server(server), m_socket(socket), m_reader(server->settings().maxFrame)
    {
        socket->setParent(this);
        m_peer = QStringLiteral("%1:%2").arg(socket->peerAddress().toString()).arg(socket->peerPort());
        connect(socket, &QTcpSocket::readyRead, this, [this] { read(); });
        connect(socket, &QTcpSocket::bytesWritten, this, [this] { pump(); });
        connect(socket, &QTcpSocket::disconnected, this, [this] { finish(QStringLiteral("connection lost")); });
        m_beat.setInterval(server->settings().heartbeatIntervalMs);
        connect(&m_beat, &QTimer::timeout, this, [this] {
            if (!m_sentSinceBeat) write(sequenceFrame(FrameType::Heartbeat, m_server->lastSequence()));
            m_sentSinceBeat = false;
        });
        m_silence.setSingleShot(true);
        m_silence.setInterval(server->settings().heartbeatTimeoutMs);
        connect(&m_silence, &QTimer::timeout, this, [this] { finish(QStringLiteral("heartbeat timeout")); });
        m_beat.start();
        m_silence.start();
    }

    QString const& peer() const { return m_peer; }

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
            if (m_next > m_server->lastSequence()) break;
            write(m_server->batchFrame(m_next));
            ++m_next;
        }
        if (m_next <= m_server->lastSequence() && m_server->bytesAfter(m_next - 1) > m_server->settings().maxSendBuffer)
            say(FrameType::Bye, QStringLiteral("reason"), QStringLiteral("too slow"));
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
        m_reader.append(m_socket->readAll());
        Frame f;
        while (!m_closing && m_reader.next(f)) handle(f);
        if (!m_reader.error().isEmpty()) finish(QStringLiteral("malformed frame: ") + m_reader.error());
    }

    void handle(Frame const& f)
    {
        if (f.type == FrameType::Heartbeat) return;
        if (!m_streaming) {
            if (f.type != FrameType::Hello) return finish(QStringLiteral("malformed frame: %1 before HELLO").arg(frameName(f.type)));
            return hello(f.payload);
        }
        if (f.type == FrameType::Rejected) {
            QString error;
            QJsonObject const o = readJson(f.payload, error);
            quint64 const seq = quint64(o.value(QStringLiteral("seq")).toDouble());
            emit m_server->batchRejected(m_peer, seq, o.value(QStringLiteral("origin")).toString(), o.value(QStringLiteral("reason")).toString());
            return finish(QStringLiteral("the client rejected batch %1").arg(seq));
        }
        finish(QStringLiteral("malformed frame: %1 out of place").arg(frameName(f.type)));
    }

    void hello(QByteArray const& payload)
    {
        QString error;
        QJsonObject const o = readJson(payload, error);
        if (!error.isEmpty()) return say(FrameType::Error, QStringLiteral("error"), QStringLiteral("a malformed HELLO: ") + error);
        int const protocol = o.value(QStringLiteral("protocol")).toInt(-1);
        if (protocol != kProtocol)
            return say(FrameType::Error, QStringLiteral("error"), QStringLiteral("unsupported protocol %1").arg(o.value(QStringLiteral("protocol")).toVariant().toString()));
        QJsonValue const after = o.value(QStringLiteral("after"));
        if (!o.value(QStringLiteral("login")).isString() || !after.isDouble() || after.toDouble() < 0 ||
            after.toDouble() != double(quint64(after.toDouble())) || !o.value(QStringLiteral("day")).isString() ||
            !o.value(QStringLiteral("history")).isString() || (o.contains(QStringLiteral("compression")) && !o.value(QStringLiteral("compression")).isArray()))
            return say(FrameType::Error, QStringLiteral("error"), QStringLiteral("a malformed HELLO: it needs login, day, history and after"));
        m_login = o.value(QStringLiteral("login")).toString();
        QString const why = apps::loginProblem(m_login);
        if (!why.isEmpty()) return say(FrameType::Error, QStringLiteral("error"), QStringLiteral("the login: ") + why);
        for (QJsonValue const& v : o.value(QStringLiteral("compression")).toArray()) m_zstd = m_zstd || v.toString() == QLatin1String("zstd");

        quint64 const from = quint64(after.toDouble());
        // A client further behind than the send limit would be too slow
        // at once: it takes a snapshot instead.
        bool const resume = from > 0 && o.value(QStringLiteral("day")).toString() == m_server->day() &&
                            o.value(QStringLiteral("history")).toString() == m_server->history() && from <= m_server->lastSequence() &&
                            m_server->bytesAfter(from) <= m_server->settings().maxSendBuffer;
        write(jsonFrame(FrameType::Welcome, QJsonObject{{QStringLiteral("protocol"), kProtocol},
                                                        {QStringLiteral("day"), m_server->day()},
                                                        {QStringLiteral("history"), m_server->history()},
                                                        {QStringLiteral("last"), double(m_server->lastSequence())},
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
        m_snapshot = m_server->snapshot(m_zstd);
        m_offset = 0;
        m_day = m_server->m_dayNumber;
        write(jsonFrame(FrameType::SnapshotBegin, QJsonObject{{QStringLiteral("seq"), double(m_snapshot->sequence)},
                                                              {QStringLiteral("tables"), m_snapshot->tables},
                                                              {QStringLiteral("bytes"), double(m_snapshot->bytes)},
                                                              {QStringLiteral("compression"), m_snapshot->compressed ? QStringLiteral("zstd") : QStringLiteral("none")},
                                                              {QStringLiteral("day"), m_server->day()},
                                                              {QStringLiteral("history"), m_server->history()}}));
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
    FrameReader m_reader;
    QTimer m_beat, m_silence;
    QString m_peer, m_login, m_why;
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

ReplicationServer::ReplicationServer(Database* database, QString const& day, QObject* parent)
    : QObject(parent), m_database(database), m_day(day), m_history(newHistory())
{
    m_database->setAppliedObserver([this](Batch const& batch) { served(batch); });
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
    quint64 const sequence = m_frames.size() + 1;
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
    // Framed once, sent as it is to every session.
    m_frames.push_back(sequenceFrame(FrameType::Batch, sequence, text));
    m_total += m_frames.back().size();
    m_offsets.push_back(m_total);
    std::vector<Session*> const sessions = m_sessions;
    for (Session* s : sessions) s->pump();
}

std::shared_ptr<ReplicationServer::Snapshot const> ReplicationServer::snapshot(bool compressed)
{
    std::shared_ptr<Snapshot>& cached = m_snapshots[compressed ? 1 : 0];
    if (cached && cached->sequence == lastSequence()) return cached;
    // The tables are written out once per sequence; the compressed form is
    // made from that text when a client first asks for it.
    std::shared_ptr<Snapshot>& text = m_snapshots[0];
    if (!text || text->sequence != lastSequence()) {
        text = std::make_shared<Snapshot>();
        text->sequence = lastSequence();
        for (QString const& name : m_database->tableNamesInSchemaOrder()) {
            text->data.append(BatchEncoder::encodeTable(*m_database->table(name)));
            text->data.append('\n');
            ++text->tables;
        }
        text->bytes = text->data.size();
    }
    if (!compressed) return text;
    auto made = std::make_shared<Snapshot>(*text);
    made->data = Compressor().compress(text->data.constData(), text->data.size(), true);
    made->compressed = true;
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
    m_frames.clear();
    m_offsets.assign(1, 0);
    m_total = 0;
    m_snapshots[0].reset();
    m_snapshots[1].reset();
    if (m_journal) {
        QString const path = m_journal->path();
        m_journal.reset();
        m_journal.reset(new Journal(path, day));   // keeps the old day's aside
        m_history = m_journal->history();
    } else {
        m_history = newHistory();
    }
    std::vector<Session*> const sessions = m_sessions;
    for (Session* s : sessions) s->pump();
}

bool ReplicationServer::listen(QHostAddress const& address, quint16 port, QString& error)
{
    if (!m_server) {
        m_server = new QTcpServer(this);
        connect(m_server, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket* socket = m_server->nextPendingConnection()) m_sessions.push_back(new Session(this, socket));
        });
    }
    if (m_server->listen(address, port)) return true;
    error = m_server->errorString();
    return false;
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
    emit sessionClosed(session->peer(), why);
    session->deleteLater();
}

} // namespace exchange
