#pragma once
// An exchange serving a market folder in a process of its own (so that its
// work and its memory are not the measured client's), driven by lines on
// its standard input: `replication-bench serve` is that process, and
// ServedExchange is how a benchmark starts and talks to it.
//
// The served process prints, one line each:
//   listening PORT SEQUENCE PEAK_BYTES      once loaded and listening
//   stamp SEQ BEFORE_NS AFTER_NS            per batch played (CLOCK_MONOTONIC
//                                           around its apply and send), then
//   played BATCHES LAST_SEQUENCE            once the day's log is played
//   checksum TABLE HEX ... checksums end    on "checksums"
//   usage PEAK_BYTES RESIDENT_BYTES CPU_NS  on "usage"
// and reads "play PACE_MS", "checksums", "usage" and "quit".
#include <QByteArray>
#include <QList>
#include <QMap>
#include <QObject>
#include <QProcess>
#include <QSslCertificate>
#include <QString>
#include <QTemporaryDir>
#include <QtGlobal>
#include <vector>

namespace bench {

// CLOCK_MONOTONIC in nanoseconds: one clock for every process of the machine.
qint64 monotonicNs();
// VmHWM and VmRSS of this process, bytes; the CPU time of all its threads.
qint64 peakResidentBytes();
qint64 residentNowBytes();
qint64 processCpuNs();

class ServedExchange : public QObject
{
    Q_OBJECT
public:
    struct Stamp
    {
        quint64 sequence = 0;
        qint64 before = 0;   // the server starts applying the batch
        qint64 after = 0;    // applied, journalled and handed to every session
    };

    ~ServedExchange() override;

    // Makes a certificate authority and the exchange's certificate
    // (scripts/make-certs.sh) and a users file where `login` has password(),
    // starts `program serve --market DIR --schema FILE --security FOLDER`
    // and waits until it listens, with TLS. False with `error` when it does not.
    bool start(QString const& program, QString const& market, QString const& schema, QString const& login, QString& error);
    // What a client logs in and verifies the exchange with.
    QByteArray const& password() const { return m_password; }
    QList<QSslCertificate> authorities() const;
    quint16 port() const { return m_port; }
    quint64 startSequence() const { return m_startSequence; }
    qint64 loadedPeakBytes() const { return m_loadedPeak; }
    qint64 pid() const { return m_process.processId(); }

    // Plays the day's log, `pace` ms between batches (0: full speed).
    // played() tells when it is done.
    void play(int pace = 0);
    bool isPlayed() const { return m_played; }
    quint64 lastSequence() const { return m_last; }
    std::vector<Stamp> const& stamps() const { return m_stamps; }
    // Blocks until the log is played (or `ms` pass, or the process ends).
    bool waitPlayed(int ms);

    QMap<QString, QByteArray> checksums(int ms = 600000);
    struct Usage
    {
        qint64 peak = 0;       // VmHWM
        qint64 resident = 0;   // VmRSS
        qint64 cpuNs = 0;      // every thread's, since it started
    };
    Usage usage(int ms = 60000);
    // Says "quit" and waits for the process to end.
    void quit();

signals:
    void played(quint64 lastSequence);

private:
    void readLines();
    void handle(QByteArray const& line);
    // Waits for the next line starting with `prefix` (taken from m_pending).
    bool waitLine(QByteArray const& prefix, int ms, QByteArray& line);

    QProcess m_process;
    QTemporaryDir m_security;
    QByteArray m_password;
    QByteArray m_buffer;
    QList<QByteArray> m_pending;   // lines not handled by handle()
    quint16 m_port = 0;
    quint64 m_startSequence = 0;
    qint64 m_loadedPeak = 0;
    std::vector<Stamp> m_stamps;
    bool m_played = false;
    quint64 m_last = 0;
};

} // namespace bench
