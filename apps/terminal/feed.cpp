#include "feed.h"

#include <database/batchreader.h>
#include <database/database.h>
#include <database/exception.h>

#include <QPointer>
#include <QSocketNotifier>

FeedPlayer::FeedPlayer(Database* database, QObject* parent) : QObject(parent), m_database(database)
{
    m_timer.setSingleShot(true);
    connect(&m_timer, &QTimer::timeout, this, &FeedPlayer::step);
}

FeedPlayer::~FeedPlayer() { stop(); }

bool FeedPlayer::start(QString const& path, QString& error)
{
    stop();
    try {
        // The reader's thread only decodes and marks its descriptor ready;
        // this thread takes the batches. The wake-up is the descriptor's, seen
        // by this thread's event loop, not an event posted from the reader's
        // thread: nothing of Qt's is shared between the two threads.
        m_reader.reset(new BatchReader(*m_database, path));
    } catch (Exception const& e) {
        error = e.message();
        return false;
    }
    m_ready = new QSocketNotifier(m_reader->readyDescriptor(), QSocketNotifier::Read, this);
    m_ready->setEnabled(false);
    connect(m_ready, &QSocketNotifier::activated, this, [this] {
        m_ready->setEnabled(false);
        m_waiting = false;
        step();
    });
    m_path = path;
    m_applied = 0;
    m_waiting = false;
    schedule();
    return true;
}

void FeedPlayer::stop()
{
    m_timer.stop();
    if (m_ready) {
        // Off before the descriptor it watches is closed; deleted later, as
        // stop() may run inside its own signal.
        m_ready->setEnabled(false);
        m_ready->deleteLater();
        m_ready = nullptr;
    }
    m_reader.reset();   // joins the reading thread
    m_waiting = false;
}

void FeedPlayer::setPaused(bool paused)
{
    m_paused = paused;
    if (paused) {
        m_timer.stop();
        if (m_ready) m_ready->setEnabled(false);
    } else {
        schedule();
    }
}

void FeedPlayer::setPace(int msecs)
{
    m_pace = qMax(0, msecs);
    if (m_timer.isActive()) m_timer.start(m_pace);
}

void FeedPlayer::schedule()
{
    if (!m_reader || m_paused || m_timer.isActive()) return;
    // The pace is kept between batches; a reader that was behind wakes the
    // player as soon as it has a batch, without a whole pace more.
    if (m_waiting) m_ready->setEnabled(true);
    else m_timer.start(m_applied == 0 ? 0 : m_pace);
}

void FeedPlayer::step()
{
    if (!m_reader || m_paused) return;
    BatchReader::Item item;
    if (!m_reader->tryNext(item)) {
        if (m_reader->atEnd()) {
            stop();
            emit finished(m_applied);
        } else {
            m_waiting = true;
            schedule();
        }
        return;
    }
    m_waiting = false;
    if (!item.error.isEmpty()) {
        stop();
        emit failed(item.error);
        return;
    }
    QPointer<FeedPlayer> alive(this);
    try {
        m_database->apply(item.batch);
    } catch (HookFailure const& failure) {
        emit indexFailed(failure.message());
    } catch (Exception const& e) {
        stop();
        emit failed(e.message());
        return;
    }
    if (!alive) return;
    ++m_applied;
    emit progress(m_applied, item.bytesRead, m_reader ? m_reader->total() : item.bytesRead);
    emit batchApplied(item.batch.table ? item.batch.table->name() : QString());
    schedule();
}
