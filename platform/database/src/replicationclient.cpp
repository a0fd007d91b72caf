#include <database/batch.h>
#include <database/database.h>
#include <database/exception.h>
#include <database/replicationclient.h>
#include <database/mailbox.h>

#include <QDateTime>
#include <QElapsedTimer>
#include <QJsonArray>
#include <QPointer>
#include <QRandomGenerator>
#include <QSocketNotifier>
#include <QSslConfiguration>
#include <QSslSocket>
#include <QEventLoop>
#include <QJsonDocument>
#include <QSet>
#include <QTimer>
#include <atomic>

using namespace replication;

// What the worker hands to the applying thread, in the order it read it.
struct ReplicationClient::Event
{
    enum Kind { Connecting, Welcome, SnapshotBegin, SnapshotTable, SnapshotEnd, BatchArrived, ServerLast, Disconnected, Refused, Undecodable,
                Answer, TransactionLost };
    Kind kind = Connecting;
    quint64 generation = 0;
    quint64 sequence = 0;
    qint64 bytes = 0;
    bool resume = false;
    QString text, day, history;
    QList<qint64> orders;   // of an answer
    ::Batch batch;
};

namespace {

struct Command
{
    enum Kind { Quit, ReadMore, Reject, CaughtUp, Send };
    Command(Kind k = Quit, quint64 s = 0, QString o = QString(), QString r = QString())
        : kind(k), sequence(s), origin(std::move(o)), reason(std::move(r))
    {
    }
    Kind kind = Quit;
    quint64 sequence = 0;   // of a batch rejected; a transaction's id
    QString origin, reason;
    QByteArray payload;      // of a transaction
    quint64 generation = 0;  // the connection a transaction is for
};

} // namespace

// Between the two threads: the position a HELLO asks from, which only the
// applying thread changes and only under the lock, and the connection's
// generation. A connection that closes moves the generation on, so what it
// delivered and was not applied yet is dropped, and the next HELLO asks
// from exactly what was applied.
struct ReplicationClient::Shared
{
    std::mutex handshake;
    quint64 generation = 1;
    quint64 after = 0;
    QString day, history;

    std::atomic<quint64> applied{0};
    std::atomic<quint64> received{0};
    std::atomic<int> inFlight{0};
    Mailbox<Event> events;
    Mailbox<Command> commands;
};

// The connection, on the worker thread: reads frames, checks their order,
// decodes batches, and passes them on.
class ReplicationClient::Link : public QObject
{
public:
    Link(Database const& database, std::shared_ptr<Shared> shared, Settings settings, QString host, quint16 port, QString login,
         QByteArray password, QEventLoop* loop)
        : m_loop(loop), m_decoder(database), m_shared(std::move(shared)), m_settings(settings), m_host(std::move(host)), m_port(port),
          m_login(std::move(login)), m_password(std::move(password)), m_heartbeat(this), m_silence(this), m_retry(this), m_reader(settings.maxFrame)
    {
    }
    ~Link() override { m_password.fill('\0'); }

    // On the worker thread, once it runs.
    void begin()
    {
        m_socket = new QSslSocket(this);
        m_socket->setReadBufferSize(8 * 1024 * 1024);
        connect(m_socket, &QTcpSocket::connected, this, [this] {
            m_tcpConnected = true;
            // A transaction goes when sent, not with the next heartbeat's packet.
            m_socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
        });
        if (m_settings.insecure) {
            connect(m_socket, &QTcpSocket::connected, this, [this] { onConnected(); });
        } else {
            QSslConfiguration tls = m_socket->sslConfiguration();
            tls.setCaCertificates(m_settings.authorities);
            tls.setPeerVerifyMode(QSslSocket::VerifyPeer);
            tls.setProtocol(QSsl::TlsV1_2OrLater);
            m_socket->setSslConfiguration(tls);
            connect(m_socket, &QSslSocket::encrypted, this, [this] {
                m_closedInHandshake = 0;
                onConnected();
            });
            // Not to be tried again: the same server would be refused again.
            connect(m_socket, QOverload<QList<QSslError> const&>::of(&QSslSocket::sslErrors), this, [this](QList<QSslError> const& errors) {
                QStringList texts;
                for (QSslError const& e : errors) texts << e.errorString();
                refuse(QStringLiteral("the exchange at %1:%2 cannot be verified: %3").arg(m_host).arg(m_port).arg(texts.join(QStringLiteral("; "))));
            });
        }
        connect(m_socket, &QTcpSocket::readyRead, this, [this] {
            m_silence.start();
            parse();
        });
        connect(m_socket, &QTcpSocket::disconnected, this, [this] { lost(); });
        connect(m_socket, &QAbstractSocket::errorOccurred, this, [this](QAbstractSocket::SocketError e) {
            if (e == QAbstractSocket::SslHandshakeFailedError)
                refuse(QStringLiteral("no TLS session with the exchange at %1:%2: %3").arg(m_host).arg(m_port).arg(m_socket->errorString()));
            else if (e == QAbstractSocket::ConnectionRefusedError) drop(QStringLiteral("connection refused"));
            else if (e == QAbstractSocket::RemoteHostClosedError) lost();
            else drop(m_socket->errorString());
        });
        m_heartbeat.setInterval(m_settings.heartbeatIntervalMs);
        connect(&m_heartbeat, &QTimer::timeout, this, [this] { send(sequenceFrame(FrameType::Heartbeat, m_shared->applied.load())); });
        m_silence.setSingleShot(true);
        m_silence.setInterval(m_settings.heartbeatTimeoutMs);
        connect(&m_silence, &QTimer::timeout, this, [this] {
            // While the worker waits for the applier it reads nothing: that is
            // not silence. A frame begun and never finished is.
            if (m_shared->inFlight.load() >= m_settings.readAhead) m_silence.start();
            else drop(QStringLiteral("heartbeat timeout"));
        });
        m_retry.setSingleShot(true);
        connect(&m_retry, &QTimer::timeout, this, [this] { connectNow(); });
        m_commands = new QSocketNotifier(m_shared->commands.descriptor(), QSocketNotifier::Read, this);
        connect(m_commands, &QSocketNotifier::activated, this, [this] { takeCommands(); });
        connectNow();
    }

private:
    enum class Phase { Idle, AwaitWelcome, AwaitSnapshot, Snapshot, Stream, Halted };

    void post(Event&& event)
    {
        event.generation = m_generation;
        m_shared->events.post(std::move(event));
    }
    void postKind(Event::Kind kind, QString const& text = QString())
    {
        Event e;
        e.kind = kind;
        e.text = text;
        post(std::move(e));
    }

    void connectNow()
    {
        if (m_stopped) return;
        m_reader = FrameReader(m_settings.maxFrame);
        m_phase = Phase::Idle;
        m_connected = true;
        m_tcpConnected = false;
        postKind(Event::Connecting);
        if (m_settings.insecure) m_socket->connectToHost(m_host, m_port);
        else m_socket->connectToHostEncrypted(m_host, m_port);
        m_silence.start();
    }

    // Closed by the other side. In the middle of the TLS handshake three
    // times running, that is no passing fault (a server at its limit of
    // connections, a dropped packet) but a server that speaks no TLS:
    // trying again would only meet it again.
    void lost()
    {
        if (m_connected && !m_settings.insecure && m_tcpConnected && m_phase == Phase::Idle && ++m_closedInHandshake >= 3)
            return refuse(QStringLiteral("no TLS session with the exchange at %1:%2: it closed the connection during the handshake")
                              .arg(m_host)
                              .arg(m_port));
        drop(QStringLiteral("connection lost"));
    }

    void onConnected()
    {
        QJsonObject hello{{QStringLiteral("protocol"), kProtocol}, {QStringLiteral("login"), m_login},
                          {QStringLiteral("password"), QString::fromUtf8(m_password)},
                          {QStringLiteral("compression"), QJsonArray{QStringLiteral("zstd")}}};
        {
            // From here on, what an earlier connection delivered and was not
            // applied yet is dropped; HELLO asks from what was.
            std::lock_guard<std::mutex> lock(m_shared->handshake);
            m_generation = ++m_shared->generation;
            m_after = m_shared->after;
            hello.insert(QStringLiteral("after"), double(m_shared->after));
            hello.insert(QStringLiteral("day"), m_shared->day);
            hello.insert(QStringLiteral("history"), m_shared->history);
        }
        m_shared->received = m_after;
        send(jsonFrame(FrameType::Hello, hello));
        m_phase = Phase::AwaitWelcome;
        m_heartbeat.start();
        m_silence.start();
    }

    void send(QByteArray const& bytes)
    {
        if (m_socket->state() != QAbstractSocket::ConnectedState) return;
        m_socket->write(bytes);
        if (m_socket->bytesToWrite() > m_settings.maxSendBuffer) drop(QStringLiteral("the server takes nothing of what is sent"));
    }

    void parse()
    {
        while (m_connected && m_phase != Phase::Halted && m_phase != Phase::Idle && m_shared->inFlight.load() < m_settings.readAhead) {
            Frame frame;
            if (!m_reader.next(frame)) {
                if (!m_reader.error().isEmpty()) return drop(QStringLiteral("malformed frame: ") + m_reader.error());
                qint64 const available = m_socket->bytesAvailable();
                if (available <= 0) return;
                m_reader.append(m_socket->read(qMin<qint64>(available, 4 * 1024 * 1024)));
                continue;
            }
            handle(frame);
        }
    }

    void malformed(QString const& what) { drop(QStringLiteral("malformed frame: ") + what); }

    void handle(Frame const& frame)
    {
        QString error;
        switch (frame.type) {
        case FrameType::Heartbeat: {
            quint64 last = 0;
            if (!readSequence(frame.payload, last)) return malformed(QStringLiteral("a short HEARTBEAT"));
            Event e;
            e.kind = Event::ServerLast;
            e.sequence = last;
            return post(std::move(e));
        }
        case FrameType::Bye: {
            QJsonObject const o = readJson(frame.payload, error);
            return drop(error.isEmpty() ? o.value(QStringLiteral("reason")).toString() : QStringLiteral("the server ended the session"));
        }
        case FrameType::Error: {
            QJsonObject const o = readJson(frame.payload, error);
            return refuse(error.isEmpty() ? o.value(QStringLiteral("error")).toString() : QStringLiteral("refused by the server"));
        }
        case FrameType::Answer:
            // Written as soon as the exchange has it, even between a snapshot's pieces.
            if (m_phase != Phase::AwaitWelcome) return answer(frame.payload);
            break;
        default: break;
        }
        switch (m_phase) {
        case Phase::AwaitWelcome:
            if (frame.type != FrameType::Welcome) return malformed(QStringLiteral("%1 before WELCOME").arg(frameName(frame.type)));
            return welcome(frame.payload);
        case Phase::AwaitSnapshot:
        case Phase::Stream:
            if (frame.type == FrameType::SnapshotBegin) return snapshotBegin(frame.payload);
            if (frame.type == FrameType::Batch && m_phase == Phase::Stream) return batch(frame.payload);
            return malformed(QStringLiteral("%1 out of place").arg(frameName(frame.type)));
        case Phase::Snapshot:
            if (frame.type == FrameType::SnapshotData) return snapshotData(frame.payload);
            if (frame.type == FrameType::SnapshotEnd) return snapshotEnd(frame.payload);
            return malformed(QStringLiteral("%1 inside a snapshot").arg(frameName(frame.type)));
        case Phase::Idle:
        case Phase::Halted: return;
        }
    }

    void answer(QByteArray const& payload)
    {
        QString error;
        QJsonObject const o = readJson(payload, error);
        if (!error.isEmpty()) return malformed(QStringLiteral("ANSWER: ") + error);
        quint64 const id = quint64(o.value(QStringLiteral("id")).toDouble(-1));
        if (!o.value(QStringLiteral("id")).isDouble() || !o.value(QStringLiteral("code")).isDouble() || !o.value(QStringLiteral("text")).isString() ||
            !m_awaiting.remove(id))
            return malformed(QStringLiteral("an ANSWER to no transaction of this connection"));
        Event e;
        e.kind = Event::Answer;
        e.sequence = id;
        e.bytes = o.value(QStringLiteral("code")).toInt();
        e.text = o.value(QStringLiteral("text")).toString().left(4096);
        for (QJsonValue const& v : o.value(QStringLiteral("orders")).toArray()) {
            bool ok = false;
            qint64 const order = v.toString().toLongLong(&ok);
            if (!ok) return malformed(QStringLiteral("an ANSWER's orders are numbers in texts"));
            e.orders << order;
        }
        post(std::move(e));
    }

    // Transactions sent on this connection and not answered: their answers
    // can no longer come.
    void loseAwaited(QString const& why)
    {
        for (quint64 id : qAsConst(m_awaiting)) lose(id, why);
        m_awaiting.clear();
    }
    void lose(quint64 id, QString const& why)
    {
        Event e;
        e.kind = Event::TransactionLost;
        e.sequence = id;
        e.text = why;
        post(std::move(e));
    }

    void welcome(QByteArray const& payload)
    {
        QString error;
        QJsonObject const o = readJson(payload, error);
        if (!error.isEmpty()) return malformed(QStringLiteral("WELCOME: ") + error);
        if (o.value(QStringLiteral("protocol")).toInt() != kProtocol || !o.value(QStringLiteral("last")).isDouble() ||
            !o.value(QStringLiteral("resume")).isBool() || !o.value(QStringLiteral("day")).isString() || !o.value(QStringLiteral("history")).isString())
            return malformed(QStringLiteral("WELCOME lacks protocol, day, history, last or resume"));
        Event e;
        e.kind = Event::Welcome;
        e.resume = o.value(QStringLiteral("resume")).toBool();
        e.sequence = quint64(o.value(QStringLiteral("last")).toDouble());
        e.day = o.value(QStringLiteral("day")).toString();
        e.history = o.value(QStringLiteral("history")).toString();
        if (e.resume && e.sequence < m_after) return malformed(QStringLiteral("WELCOME resumes from a sequence the server does not have"));
        m_phase = e.resume ? Phase::Stream : Phase::AwaitSnapshot;
        m_expected = m_after + 1;
        m_day = e.day;
        m_history = e.history;
        post(std::move(e));
    }

    void snapshotBegin(QByteArray const& payload)
    {
        QString error;
        QJsonObject const o = readJson(payload, error);
        if (!error.isEmpty()) return malformed(QStringLiteral("SNAPSHOT_BEGIN: ") + error);
        QString const compression = o.value(QStringLiteral("compression")).toString();
        if (!o.value(QStringLiteral("seq")).isDouble() || !o.value(QStringLiteral("lines")).isDouble() || !o.value(QStringLiteral("bytes")).isDouble() ||
            !o.value(QStringLiteral("day")).isString() || !o.value(QStringLiteral("history")).isString() ||
            (compression != QLatin1String("zstd") && compression != QLatin1String("none")))
            return malformed(QStringLiteral("SNAPSHOT_BEGIN lacks seq, lines, bytes, day, history or a known compression"));
        // A new trading day may begin while connected: the snapshot says whose it is.
        m_day = o.value(QStringLiteral("day")).toString();
        m_history = o.value(QStringLiteral("history")).toString();
        m_snapshotSequence = quint64(o.value(QStringLiteral("seq")).toDouble());
        m_snapshotLines = o.value(QStringLiteral("lines")).toInt();
        m_snapshotBytes = qint64(o.value(QStringLiteral("bytes")).toDouble());
        m_linesSeen = 0;
        m_bytesSeen = 0;
        m_text.clear();
        m_searched = 0;
        m_decompressor.reset(compression == QLatin1String("zstd") ? new Decompressor : nullptr);
        m_phase = Phase::Snapshot;
        m_shared->received = m_snapshotSequence;
        Event e;
        e.kind = Event::SnapshotBegin;
        e.sequence = m_snapshotSequence;
        e.bytes = m_snapshotBytes;
        post(std::move(e));
    }

    void snapshotData(QByteArray const& payload)
    {
        qint64 const limit = m_snapshotBytes - m_bytesSeen + m_text.size();
        if (m_decompressor) {
            QString error;
            if (!m_decompressor->decompress(payload, m_text, limit, error)) return malformed(error);
        } else {
            if (m_text.size() + payload.size() > limit) return malformed(QStringLiteral("the snapshot is longer than it announced"));
            m_text.append(payload);
        }
        int start = 0;
        for (;;) {
            // A large table is one line over many frames: what was searched
            // already holds no newline and is not searched again.
            int const end = m_text.indexOf('\n', qMax(start, m_searched));
            if (end < 0) break;
            ++m_linesSeen;
            if (m_linesSeen > m_snapshotLines) return malformed(QStringLiteral("the snapshot has more lines than it announced"));
            m_bytesSeen += end + 1 - start;
            QByteArray const line = QByteArray::fromRawData(m_text.constData() + start, end - start);
            Event e;
            e.sequence = m_snapshotSequence;
            e.bytes = m_bytesSeen;
            passOn(std::move(e), Event::SnapshotTable, line, QStringLiteral("snapshot %1, line %2").arg(m_snapshotSequence).arg(m_linesSeen));
            start = end + 1;
            if (m_phase == Phase::Halted) return;
        }
        m_text.remove(0, start);
        m_searched = m_text.size();
    }

    void snapshotEnd(QByteArray const& payload)
    {
        QString error;
        QJsonObject const o = readJson(payload, error);
        if (!error.isEmpty()) return malformed(QStringLiteral("SNAPSHOT_END: ") + error);
        if (quint64(o.value(QStringLiteral("seq")).toDouble()) != m_snapshotSequence || m_linesSeen != m_snapshotLines ||
            m_bytesSeen != m_snapshotBytes || !m_text.isEmpty())
            return malformed(QStringLiteral("the snapshot ended with %1 of %2 lines and %3 of %4 bytes")
                                 .arg(m_linesSeen).arg(m_snapshotLines).arg(m_bytesSeen).arg(m_snapshotBytes));
        m_decompressor.reset();
        m_text = QByteArray();
        m_phase = Phase::Stream;
        m_expected = m_snapshotSequence + 1;
        Event e;
        e.kind = Event::SnapshotEnd;
        e.sequence = m_snapshotSequence;
        e.day = m_day;
        e.history = m_history;
        post(std::move(e));
    }

    void batch(QByteArray const& payload)
    {
        quint64 sequence = 0;
        if (!readSequence(payload, sequence)) return malformed(QStringLiteral("a short BATCH"));
        if (sequence != m_expected)
            return drop(QStringLiteral("sequence gap: expected %1, got %2").arg(m_expected).arg(sequence));
        ++m_expected;
        m_shared->received = sequence;
        Event e;
        e.sequence = sequence;
        passOn(std::move(e), Event::BatchArrived, QByteArray::fromRawData(payload.constData() + 8, payload.size() - 8),
               QStringLiteral("replication:%1").arg(sequence));
    }

    // Decodes a batch here, off the applying thread, and hands it on; one
    // the database cannot take halts the reading, and the applier refuses it
    // in its turn, after everything before it.
    void passOn(Event&& e, Event::Kind kind, QByteArray const& line, QString const& origin)
    {
        try {
            e.batch = m_decoder.decode(line, origin);
            e.kind = kind;
        } catch (Exception const& x) {
            e.kind = Event::Undecodable;
            e.text = x.message();
            m_phase = Phase::Halted;
        }
        ++m_shared->inFlight;
        post(std::move(e));
    }

    // Stops for good: the server refused the session, or cannot be trusted.
    void refuse(QString const& why)
    {
        if (m_stopped) return;
        m_stopped = true;
        m_retry.stop();
        loseAwaited(why);
        postKind(Event::Refused, why);
        close();
    }

    void close()
    {
        m_connected = false;
        m_phase = Phase::Idle;
        m_heartbeat.stop();
        m_silence.stop();
        m_socket->blockSignals(true);
        m_socket->abort();
        m_socket->blockSignals(false);
    }

    // Closes the connection and tries again later. What it delivered in
    // order stays good to apply until the next connection says where it
    // resumes from.
    void drop(QString const& why)
    {
        if (!m_connected) return;
        loseAwaited(why);
        close();
        Event e;
        e.kind = Event::Disconnected;
        e.text = why;
        post(std::move(e));
        if (m_stopped) return;
        int const ceiling = int(qMin<qint64>(m_settings.backoffMaxMs, qint64(m_settings.backoffFirstMs) << qMin(m_attempt, 20)));
        int const delay = ceiling / 2 + int(QRandomGenerator::global()->bounded(ceiling / 2 + 1));
        ++m_attempt;
        m_retry.start(delay);
    }

    void takeCommands()
    {
        Command c;
        while (m_shared->commands.take(c)) {
            switch (c.kind) {
            case Command::Quit:
                loseAwaited(QStringLiteral("the connection was closed"));
                m_stopped = true;
                m_retry.stop();
                if (m_socket) close();
                m_loop->quit();   // the link and its socket go with the thread's frame, on it
                return;
            case Command::ReadMore:
                if (m_socket) parse();
                break;
            case Command::CaughtUp: m_attempt = 0; break;
            case Command::Send:
                // Only on the connection the sender saw live: never kept
                // for a later one, where its price may be stale.
                if (!m_connected || c.generation != m_generation || m_phase != Phase::Stream || !m_socket ||
                    m_socket->state() != QAbstractSocket::ConnectedState) {
                    lose(c.sequence, QStringLiteral("not sent: the connection closed"));
                    break;
                }
                m_awaiting.insert(c.sequence);
                send(frame(FrameType::Transaction, c.payload));
                break;
            case Command::Reject:
                m_stopped = true;
                m_retry.stop();
                if (m_socket && m_socket->state() == QAbstractSocket::ConnectedState) {
                    m_socket->write(jsonFrame(FrameType::Rejected, QJsonObject{{QStringLiteral("seq"), double(c.sequence)},
                                                                               {QStringLiteral("origin"), c.origin},
                                                                               {QStringLiteral("reason"), c.reason}}));
                    m_socket->flush();
                    m_socket->waitForBytesWritten(1000);
                }
                if (m_socket) close();
                break;
            }
        }
    }

    QEventLoop* m_loop;
    BatchDecoder m_decoder;
    std::shared_ptr<Shared> m_shared;
    Settings m_settings;
    QString m_host;
    quint16 m_port;
    QString m_login;
    QByteArray m_password;
    QSslSocket* m_socket = nullptr;
    QSocketNotifier* m_commands = nullptr;
    QTimer m_heartbeat, m_silence, m_retry;
    FrameReader m_reader;
    Phase m_phase = Phase::Idle;
    quint64 m_generation = 0;
    quint64 m_after = 0;
    quint64 m_expected = 1;
    QString m_day, m_history;
    QSet<quint64> m_awaiting;   // transactions sent on this connection, not answered yet
    bool m_connected = false;
    bool m_tcpConnected = false;   // this connection's TCP part is up
    int m_closedInHandshake = 0;   // connections running closed by the server in the TLS handshake
    bool m_stopped = false;
    int m_attempt = 0;

    quint64 m_snapshotSequence = 0;
    int m_snapshotLines = 0;
    qint64 m_snapshotBytes = 0;
    int m_linesSeen = 0;
    qint64 m_bytesSeen = 0;
    QByteArray m_text;
    int m_searched = 0;   // m_text holds no newline before this
    std::unique_ptr<Decompressor> m_decompressor;
};

ReplicationClient::ReplicationClient(Database* database, QObject* parent)
    : QObject(parent), m_database(database), m_shared(std::make_shared<Shared>())
{
}

ReplicationClient::~ReplicationClient() { stop(); }

void ReplicationClient::setSettings(Settings const& settings) { m_settings = settings; }

QString ReplicationClient::endpoint() const { return QStringLiteral("%1:%2").arg(m_host).arg(m_port); }

ReplicationClient::Position ReplicationClient::position() const { return Position{m_day, m_history, m_lastApplied}; }

void ReplicationClient::start(QString const& host, quint16 port, QString const& login, QByteArray const& password, Position const& from)
{
    stop();
    m_host = host;
    m_port = port;
    m_shared = std::make_shared<Shared>();
    m_shared->after = from.sequence;
    m_shared->day = from.day;
    m_shared->history = from.history;
    m_shared->applied = from.sequence;
    m_lastApplied = m_serverLast = from.sequence;
    m_day = from.day;
    m_history = from.history;
    m_state = State::Disconnected;
    m_notifier = new QSocketNotifier(m_shared->events.descriptor(), QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &ReplicationClient::drain);
    // Qt sets its TLS library up, and registers the types a socket's signals
    // carry, once per process, at first use. Done here, before the worker
    // starts, every worker only reads what was set up, however many clients
    // start at once.
    QSslSocket::supportsSsl();
    (void)QSslConfiguration::defaultConfiguration();
    static bool const socketTypesRegistered = [] {
        QSslSocket registering;
        return true;
    }();
    (void)socketTypesRegistered;
    // A thread of the standard library, like the file reader's: its start and
    // join are what every thread checker sees; the link, its socket and its
    // timers are made, run and destroyed on it.
    Database const* database = m_database;
    std::shared_ptr<Shared> const shared = m_shared;
    Settings const settings = m_settings;
    m_thread = std::thread([database, shared, settings, host, port, login, password] {
        QEventLoop loop;
        Link link(*database, shared, settings, host, port, login, password, &loop);
        link.begin();
        loop.exec();
    });
}

void ReplicationClient::stop()
{
    if (!m_thread.joinable()) return;
    if (m_applying) {
        // Called from a signal of a batch being applied: the worker may wait
        // for the lock this thread holds, so it is joined once the batch is done.
        m_stopRequested = true;
        return;
    }
    m_shared->commands.post(Command{Command::Quit, 0, {}, {}});
    m_thread.join();
    delete m_notifier;
    m_notifier = nullptr;
}

QString ReplicationClient::stateName(State state)
{
    switch (state) {
    case State::Disconnected: return QStringLiteral("disconnected");
    case State::Connecting: return QStringLiteral("connecting");
    case State::LoadingSnapshot: return QStringLiteral("loading the snapshot");
    case State::Behind: return QStringLiteral("behind");
    case State::Live: return QStringLiteral("live");
    case State::Stopped: return QStringLiteral("stopped");
    }
    return QString();
}

QString ReplicationClient::stateText() const
{
    switch (m_state) {
    case State::Disconnected:
        if (!m_since) return QStringLiteral("disconnected");
        return QStringLiteral("disconnected since %1: %2").arg(QDateTime::fromMSecsSinceEpoch(m_since).toString(QStringLiteral("HH:mm:ss")), m_reason);
    case State::Connecting: return QStringLiteral("connecting to %1").arg(endpoint());
    case State::LoadingSnapshot: return QStringLiteral("loading the snapshot at sequence %1").arg(m_snapshotSequence);
    case State::Behind: return QStringLiteral("behind by %1 batches").arg(lag());
    case State::Live: return QStringLiteral("live at sequence %1").arg(m_lastApplied);
    case State::Stopped: return QStringLiteral("stopped: %1").arg(m_reason);
    }
    return QString();
}

void ReplicationClient::setState(State state, QString const& reason)
{
    if (state == m_state && reason == m_reason) return;
    m_state = state;
    m_reason = reason;
    if (state == State::Disconnected) m_since = QDateTime::currentMSecsSinceEpoch();
    emit stateChanged(state, stateText());
}

void ReplicationClient::drain()
{
    QPointer<ReplicationClient> alive(this);
    QElapsedTimer slice;
    slice.start();
    std::shared_ptr<Shared> const shared = m_shared;   // stop() from a slot replaces it
    Event event;
    while (shared->events.take(event)) {
        handle(event);
        if (!alive || shared != m_shared) return;
        if (m_stopRequested) {
            m_stopRequested = false;
            stop();
            return;
        }
        if (slice.elapsed() >= m_settings.applySliceMs) return;   // the descriptor stays ready: more next turn
    }
}

void ReplicationClient::handle(Event& e)
{
    bool const carriesBatch = e.kind == Event::SnapshotTable || e.kind == Event::BatchArrived || e.kind == Event::Undecodable;
    if (carriesBatch) {
        int const left = --m_shared->inFlight;
        if (left == m_settings.readAhead / 2) m_shared->commands.post(Command{Command::ReadMore, 0, {}, {}});
    }
    // A transaction's fate is told whatever became of the connection since.
    if (e.kind == Event::Answer) return emit transactionAnswered(e.sequence, int(e.bytes), e.text, e.orders);
    if (e.kind == Event::TransactionLost) return emit transactionLost(e.sequence, e.text);
    if (m_state == State::Stopped) return;
    switch (e.kind) {
    case Event::Connecting:
        m_streaming = false;
        setState(State::Connecting);
        return;
    case Event::Disconnected:
        m_streaming = false;
        setState(State::Disconnected, e.text);
        return;
    case Event::Refused: setState(State::Stopped, e.text); return;
    default: break;
    }
    std::unique_lock<std::mutex> lock(m_shared->handshake);
    if (e.generation != m_shared->generation) return;   // from a connection since closed
    switch (e.kind) {
    case Event::Welcome:
        m_serverLast = e.sequence;
        lock.unlock();
        if (e.resume) {
            m_streaming = true;
            evaluate();
        }
        return;
    case Event::ServerLast:
        m_serverLast = qMax(m_serverLast, e.sequence);
        lock.unlock();
        evaluate();
        return;
    case Event::SnapshotBegin:
        // The tables are being replaced: until the end, there is nothing to resume from.
        m_shared->after = 0;
        m_shared->day.clear();
        m_shared->history.clear();
        m_snapshotSequence = e.sequence;
        m_snapshotBytes = e.bytes;
        lock.unlock();
        m_streaming = false;
        setState(State::LoadingSnapshot);
        emit snapshotProgress(0, e.bytes);
        return;
    case Event::SnapshotTable: {
        QString const refused = applyBatch(e, lock);
        if (!refused.isEmpty()) return reject(e.sequence, refused);
        emit snapshotProgress(e.bytes, m_snapshotBytes);
        return;
    }
    case Event::SnapshotEnd: {
        QString const history = m_history;
        m_shared->after = e.sequence;
        m_shared->day = e.day;
        m_shared->history = e.history;
        m_shared->applied = e.sequence;
        m_lastApplied = e.sequence;
        m_day = e.day;
        m_history = e.history;
        // Another history (a new trading day) numbers its batches afresh.
        m_serverLast = history != e.history ? e.sequence : qMax(m_serverLast, e.sequence);
        lock.unlock();
        m_streaming = true;
        emit snapshotLoaded(e.sequence);
        evaluate();
        return;
    }
    case Event::BatchArrived: {
        if (e.sequence != m_lastApplied + 1) {
            lock.unlock();
            reject(e.sequence, QStringLiteral("replication:%1: out of order after %2").arg(e.sequence).arg(m_lastApplied));
            return;
        }
        m_shared->applied = e.sequence;   // before: a heartbeat may say so while the batch applies
        QString const refused = applyBatch(e, lock);
        if (!refused.isEmpty()) return reject(e.sequence, refused);
        m_lastApplied = e.sequence;
        emit batchApplied(e.sequence, e.batch.table ? e.batch.table->name() : QString());
        evaluate();
        return;
    }
    case Event::Undecodable:
        lock.unlock();
        reject(e.sequence, e.text);
        return;
    default: return;
    }
}

// Applies under the handshake lock, so that a HELLO never asks from a
// position a batch is half-way to; the lock is released before anything is
// signalled. Gives the database's refusal, or an empty string.
QString ReplicationClient::applyBatch(Event& e, std::unique_lock<std::mutex>& lock)
{
    QString hookFailure;
    ++m_applying;
    try {
        m_database->apply(e.batch);
    } catch (HookFailure const& failure) {
        hookFailure = failure.message();
    } catch (Exception const& x) {
        m_shared->applied = m_lastApplied;
        --m_applying;
        lock.unlock();
        return x.message();
    }
    --m_applying;
    if (e.kind == Event::BatchArrived) m_shared->after = e.sequence;
    lock.unlock();
    if (!hookFailure.isEmpty()) emit indexFailed(hookFailure);
    return QString();
}

bool ReplicationClient::sendTransaction(quint64 id, QJsonObject const& transaction)
{
    if (m_state != State::Live || !m_thread.joinable()) return false;
    Command c;
    c.kind = Command::Send;
    c.sequence = id;
    c.payload = QJsonDocument(transaction).toJson(QJsonDocument::Compact);
    {
        std::lock_guard<std::mutex> lock(m_shared->handshake);
        c.generation = m_shared->generation;
    }
    m_shared->commands.post(std::move(c));
    return true;
}

void ReplicationClient::reject(quint64 sequence, QString const& message)
{
    m_shared->commands.post(Command{Command::Reject, sequence, QStringLiteral("replication:%1").arg(sequence), message});
    setState(State::Stopped, message);
}

void ReplicationClient::evaluate()
{
    // Before WELCOME (a heartbeat while the password is checked) or inside a
    // snapshot, there is nothing to be live or behind with.
    if (!m_streaming || m_state == State::Stopped || m_state == State::Disconnected) return;
    quint64 const top = qMax(m_serverLast, m_shared->received.load());
    m_serverLast = top;
    quint64 const behind = top > m_lastApplied ? top - m_lastApplied : 0;
    if (behind == 0) {
        if (m_state != State::Live) {
            m_shared->commands.post(Command{Command::CaughtUp, 0, {}, {}});
            setState(State::Live);
        }
    } else if (m_state != State::Live || behind > quint64(m_settings.behindTolerance)) {
        if (m_state != State::Behind) setState(State::Behind);
    }
}
