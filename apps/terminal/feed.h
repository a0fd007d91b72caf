#pragma once
#include <QObject>
#include <QString>
#include <QTimer>
#include <memory>

class BatchReader;
class Database;
class QSocketNotifier;

// Plays a JSON Lines file of batches (a snapshot or a replication log) into
// the database without ever blocking the thread it lives on: the file is
// read and decoded on the reader's thread, and each decoded batch is applied
// here, one per turn of the event loop, so input and painting go on between
// batches. The pace is the pause between two batches (0: as fast as they
// come). When the reader is behind, the player waits for the reader's ready
// descriptor in the event loop and is woken as soon as a batch is decoded.
//
// A batch the database rejects (or a line that cannot be decoded) stops the
// play, leaves every earlier batch applied and is reported by failed() with
// the file and line. A batch that was applied although an index failed on
// it is reported by indexFailed() and the play goes on.
class FeedPlayer : public QObject
{
    Q_OBJECT
public:
    explicit FeedPlayer(Database* database, QObject* parent = nullptr);
    ~FeedPlayer() override;

    // Starts playing `path` (stopping any play under way). False, with
    // `error` naming the file, when it cannot be opened.
    bool start(QString const& path, QString& error);
    void stop();
    void setPaused(bool paused);
    void setPace(int msecs);

    bool isPlaying() const { return m_reader != nullptr; }
    bool isPaused() const { return m_paused; }
    int pace() const { return m_pace; }
    int applied() const { return m_applied; }
    QString path() const { return m_path; }

signals:
    void progress(int applied, qint64 bytesRead, qint64 bytesTotal);
    void batchApplied(QString const& table);
    void finished(int applied);
    void failed(QString const& message);
    void indexFailed(QString const& message);

private:
    void step();
    void schedule();

    Database* m_database;
    std::unique_ptr<BatchReader> m_reader;
    QSocketNotifier* m_ready = nullptr;   // on the reader's descriptor, enabled while waiting
    QTimer m_timer;
    QString m_path;
    int m_pace = 0;
    int m_applied = 0;
    bool m_paused = false;
    bool m_waiting = false;   // the reader had nothing yet: woken when it has
};
