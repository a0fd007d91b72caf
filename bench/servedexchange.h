#pragma once
// An exchange serving a market folder in a process of its own (so that its
// work and its memory are not the measured client's), driven by lines on
// its standard input: `replication-bench serve` is that process, and
// ServedExchange is how a benchmark starts and talks to it.
//
// Sequences are those of the stream the first login's sessions follow (its
// firm's: a session sees the batches of its firm, under the stream's own
// numbers), so that a follower of that login is compared with what it sees.
//
// The served process prints, one line each:
//   listening PORT SEQUENCE PEAK_BYTES MESSAGES_PER_SECOND MESSAGE_BURST
//                                           once loaded and listening, with
//                                           the sessions' message limit
//   stamp SEQ BEFORE_NS AFTER_NS            per batch played that reached the
//                                           stream (CLOCK_MONOTONIC around its
//                                           apply and send), then
//   played BATCHES LAST_SEQUENCE            once the day's log is played
//   checksum TABLE HEX ... checksums end    on "checksums [LOGIN]": the tables,
//                                           or LOGIN's firm's copy of them
//   last SEQUENCE                           on "last LOGIN": of LOGIN's stream
//   usage PEAK_BYTES RESIDENT_BYTES CPU_NS  on "usage"
// and reads "play PACE_MS", "checksums", "last", "usage" and "quit".
// It takes its sessions' transactions through the simulated exchange.
#include "process.h"

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QObject>
#include <QProcess>
#include <QSslCertificate>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <QtGlobal>
#include <vector>

namespace bench {

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
    // (scripts/make-certs.sh) and a users file where every one of `logins`
    // has password(), starts `program serve --market DIR --schema FILE
    // --security FOLDER` with `serveArguments` and waits until it listens,
    // with TLS. False with `error` when it does not.
    bool start(QString const& program, QString const& market, QString const& schema, QStringList const& logins, QString& error,
               QStringList const& serveArguments = {});
    bool start(QString const& program, QString const& market, QString const& schema, QString const& login, QString& error)
    {
        return start(program, market, schema, QStringList{login}, error);
    }
    // What a client logs in and verifies the exchange with.
    QByteArray const& password() const { return m_password; }
    QList<QSslCertificate> authorities() const;
    quint16 port() const { return m_port; }
    quint64 startSequence() const { return m_startSequence; }
    qint64 loadedPeakBytes() const { return m_loadedPeak; }
    qint64 pid() const { return m_process.processId(); }
    // The sessions' limit of messages, as the exchange set it.
    int messagesPerSecond() const { return m_messagesPerSecond; }
    int messageBurst() const { return m_messageBurst; }

    // Plays the day's log, `pace` ms between batches (0: full speed).
    // played() tells when it is done.
    void play(int pace = 0);
    bool isPlayed() const { return m_played; }
    // The day's batches played, and the last sequence of the stream.
    int playedBatches() const { return m_playedBatches; }
    quint64 lastSequence() const { return m_last; }
    std::vector<Stamp> const& stamps() const { return m_stamps; }
    // Blocks until the log is played (or `ms` pass, or the process ends).
    bool waitPlayed(int ms);

    // Every table, or with `login` the copy a session of it holds.
    QMap<QString, QByteArray> checksums(QString const& login = QString(), int ms = 600000);
    // The last sequence of the stream `login`'s sessions follow.
    quint64 lastSequenceOf(QString const& login, int ms = 60000);
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
    int m_messagesPerSecond = 0, m_messageBurst = 0;
    std::vector<Stamp> m_stamps;
    bool m_played = false;
    int m_playedBatches = 0;
    quint64 m_last = 0;
};

} // namespace bench
