#pragma once
#include <database/replication.h>

#include <QList>
#include <QObject>
#include <QStringList>

class QTcpServer;

// Between a follower and an exchange, on 127.0.0.1: relays both ways and,
// on the schedule a test sets, damages what the exchange sends on one
// connection: cuts it after a given byte, stalls it, sends a frame twice,
// swaps two frames, flips a byte, or lets it through at a trickle.
class FaultProxy : public QObject
{
public:
    struct Fault
    {
        enum Kind {
            Cut,         // the connection is cut after `byte` bytes of the exchange's stream
            Stall,       // nothing more passes for `ms` once `byte` bytes have
            Corrupt,     // byte number `byte` arrives with its bits flipped
            Duplicate,   // the `frame`-th frame of `type` arrives twice
            Reorder,     // the `frame`-th frame of `type` arrives after the next one of that type
            Trickle,     // the stream passes at `bytesPerSecond`, and the proxy reads no faster
        };
        Kind kind = Cut;
        int connection = 1;   // which connection it damages, from 1 in the order they came
        qint64 byte = 0;
        int frame = 0;
        replication::FrameType type = replication::FrameType::Batch;
        int ms = 0;
        qint64 bytesPerSecond = 0;
    };

    explicit FaultProxy(quint16 exchangePort, QObject* parent = nullptr);
    ~FaultProxy() override;

    quint16 port() const;
    // For a connection not opened yet.
    void add(Fault const& fault) { m_faults << fault; }
    int connections() const { return m_connections; }
    // Each fault as it was carried out, for a failing test's message.
    QStringList const& done() const { return m_done; }
    // Stalls every open connection for `ms` from now, as a Stall at the
    // byte it stands at, for a test that must choose the moment; 0 ends a
    // stall.
    void stallNow(int ms);
    // Bytes the exchange sent on each connection so far.
    QList<qint64> const& streamed() const { return m_streamed; }

private:
    class Pipe;
    quint16 m_exchangePort;
    QTcpServer* m_server;
    QList<Fault> m_faults;
    int m_connections = 0;
    QStringList m_done;
    QList<qint64> m_streamed;
    QList<Pipe*> m_pipes;
};
