#include "faultproxy.h"

#include <QElapsedTimer>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>
#include <QtEndian>

using namespace replication;

namespace {
// The most the proxy holds of the exchange's stream: past it, it stops
// reading, so that a stalled or trickling connection pushes back on the
// exchange as a slow client's would.
constexpr qint64 kChunk = 16 * 1024;
}

// One connection: the follower's socket, the proxy's own to the exchange,
// and what of the exchange's stream is on its way.
class FaultProxy::Pipe : public QObject
{
public:
    Pipe(FaultProxy* owner, QTcpSocket* client, int number, QList<Fault> faults)
        : QObject(owner), m_owner(owner), m_number(number), m_client(client), m_upstream(new QTcpSocket(this)), m_faults(std::move(faults))
    {
        client->setParent(this);
        m_upstream->setReadBufferSize(kChunk);
        for (Fault const& f : m_faults) m_framed = m_framed || f.kind == Fault::Duplicate || f.kind == Fault::Reorder;
        m_clock.start();
        m_wake.setSingleShot(true);
        connect(&m_wake, &QTimer::timeout, this, [this] { flow(); });
        connect(client, &QTcpSocket::readyRead, this, [this] { toExchange(); });
        connect(m_upstream, &QTcpSocket::connected, this, [this] { toExchange(); });
        connect(m_upstream, &QTcpSocket::readyRead, this, [this] { flow(); });
        connect(client, &QTcpSocket::bytesWritten, this, [this] { flow(); });
        connect(m_upstream, &QTcpSocket::disconnected, this, [this] {
            m_exchangeGone = true;
            flow();
        });
        connect(m_upstream, &QAbstractSocket::errorOccurred, this, [this](QAbstractSocket::SocketError e) {
            if (e != QAbstractSocket::RemoteHostClosedError) end();
        });
        connect(client, &QTcpSocket::disconnected, this, [this] { end(); });
        m_upstream->connectToHost(QStringLiteral("127.0.0.1"), owner->m_exchangePort);
        m_owner->m_streamed << 0;
        m_owner->m_pipes << this;
    }
    ~Pipe() override { m_owner->m_pipes.removeOne(this); }

    void stall(int ms)
    {
        note(QStringLiteral("stalled %1 ms after byte %2").arg(ms).arg(m_sent));
        m_stallUntil = m_clock.elapsed() + ms;
        m_wake.start(ms);   // 0: the stall ends now
    }

private:
    void toExchange()
    {
        if (m_ended || m_upstream->state() != QAbstractSocket::ConnectedState) return;
        m_upstream->write(m_client->readAll());
    }

    void end()
    {
        if (m_ended) return;
        m_ended = true;
        m_wake.stop();
        m_client->abort();
        m_upstream->abort();
        deleteLater();
    }

    // What the exchange sent, through the frame faults, onto the way out.
    void take(QByteArray const& bytes)
    {
        m_owner->m_streamed[m_number - 1] += bytes.size();
        if (!m_framed) {
            m_out.append(bytes);
            return;
        }
        m_partial.append(bytes);
        while (m_partial.size() >= kHeaderSize) {
            qint64 const whole = frameBytes(qFromBigEndian<quint32>(m_partial.constData()));
            if (m_partial.size() < whole) break;
            QByteArray const frame = m_partial.left(int(whole));
            m_partial.remove(0, int(whole));
            passFrame(frame);
        }
    }

    void passFrame(QByteArray const& frame)
    {
        FrameType const type = FrameType(static_cast<unsigned char>(frame.at(4)));
        int const nth = ++m_seen[int(type)];
        if (!m_held.isEmpty() && type == m_heldType) {
            m_out.append(frame);
            m_out.append(m_held);
            m_held.clear();
            note(QStringLiteral("swapped %1 %2 and %3").arg(QLatin1String(frameName(type))).arg(nth - 1).arg(nth));
            return;
        }
        for (int i = 0; i < m_faults.size(); ++i) {
            Fault const f = m_faults[i];
            if ((f.kind != Fault::Duplicate && f.kind != Fault::Reorder) || f.type != type || f.frame != nth) continue;
            m_faults.removeAt(i);
            if (f.kind == Fault::Duplicate) {
                m_out.append(frame);
                m_out.append(frame);
                note(QStringLiteral("sent %1 %2 twice").arg(QLatin1String(frameName(type))).arg(nth));
            } else {
                m_held = frame;
                m_heldType = type;
            }
            return;
        }
        m_out.append(frame);
    }

    void note(QString const& what) { m_owner->m_done << QStringLiteral("connection %1: %2").arg(m_number).arg(what); }

    // Moves the exchange's stream to the follower as far as the faults and
    // the follower's socket let it.
    void flow()
    {
        while (!m_ended) {
            qint64 const now = m_clock.elapsed();
            if (now < m_stallUntil) return m_wake.start(int(m_stallUntil - now));
            if (m_out.size() < kChunk && m_upstream->bytesAvailable() > 0) {
                take(m_upstream->read(kChunk));
                continue;
            }
            if (m_out.isEmpty()) {
                if (m_exchangeGone && m_upstream->bytesAvailable() == 0) {
                    if (!m_held.isEmpty()) m_out.append(std::exchange(m_held, QByteArray()));
                    if (m_out.isEmpty()) {
                        m_client->disconnectFromHost();
                        return;
                    }
                    continue;
                }
                return;
            }
            if (m_client->bytesToWrite() > kChunk) return;   // bytesWritten comes back
            qint64 n = m_out.size();
            if (Fault const* t = find(Fault::Trickle)) {
                qint64 const allowed = t->bytesPerSecond * now / 1000 - m_trickled;
                if (allowed <= 0) return m_wake.start(20);
                n = qMin(n, allowed);
            }
            // A fault at a byte within reach: go up to it, then carry it out.
            bool acted = false;
            for (int i = 0; i < m_faults.size() && !acted; ++i) {
                Fault const f = m_faults[i];
                if (f.kind != Fault::Cut && f.kind != Fault::Stall && f.kind != Fault::Corrupt) continue;
                if (f.byte > m_sent) {
                    n = qMin(n, f.byte - m_sent);
                    continue;
                }
                m_faults.removeAt(i);
                acted = true;
                switch (f.kind) {
                case Fault::Cut:
                    note(QStringLiteral("cut after byte %1").arg(m_sent));
                    return end();
                case Fault::Stall:
                    note(QStringLiteral("stalled %1 ms after byte %2").arg(f.ms).arg(m_sent));
                    m_stallUntil = now + f.ms;
                    break;
                default:
                    m_out[0] = char(m_out.at(0) ^ 0x5a);
                    note(QStringLiteral("flipped byte %1").arg(m_sent));
                    break;
                }
            }
            if (acted) continue;
            m_client->write(m_out.constData(), n);
            m_out.remove(0, int(n));
            m_sent += n;
            m_trickled += n;
        }
    }

    Fault const* find(Fault::Kind kind) const
    {
        for (Fault const& f : m_faults)
            if (f.kind == kind) return &f;
        return nullptr;
    }

    FaultProxy* m_owner;
    int m_number;
    QTcpSocket* m_client;
    QTcpSocket* m_upstream;
    QList<Fault> m_faults;
    bool m_framed = false;
    bool m_exchangeGone = false;
    bool m_ended = false;
    QElapsedTimer m_clock;
    QTimer m_wake;
    qint64 m_stallUntil = 0;
    qint64 m_sent = 0;       // bytes given to the follower
    qint64 m_trickled = 0;
    QByteArray m_out;        // on the way to the follower
    QByteArray m_partial;    // of a frame not yet whole
    QByteArray m_held;       // a frame kept back to arrive late
    FrameType m_heldType = FrameType::Batch;
    int m_seen[256] = {};
};

FaultProxy::FaultProxy(quint16 exchangePort, QObject* parent) : QObject(parent), m_exchangePort(exchangePort), m_server(new QTcpServer(this))
{
    m_server->listen(QHostAddress::LocalHost, 0);
    connect(m_server, &QTcpServer::newConnection, this, [this] {
        while (QTcpSocket* socket = m_server->nextPendingConnection()) {
            ++m_connections;
            QList<Fault> mine;
            for (Fault const& f : m_faults)
                if (f.connection == m_connections) mine << f;
            new Pipe(this, socket, m_connections, mine);
        }
    });
}

FaultProxy::~FaultProxy()
{
    // Before the list they take themselves out of goes.
    QList<Pipe*> const pipes = m_pipes;
    qDeleteAll(pipes);
}

quint16 FaultProxy::port() const { return m_server->serverPort(); }

void FaultProxy::stallNow(int ms)
{
    for (Pipe* pipe : qAsConst(m_pipes)) pipe->stall(ms);
}
