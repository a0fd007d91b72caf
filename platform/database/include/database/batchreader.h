#pragma once
#include "batch.h"
#include <database/database_export.h>
#include <QString>
#include <condition_variable>
#include <cstdio>
#include <deque>
#include <limits>
#include <mutex>
#include <thread>

class Database;

// Reads and decodes a JSON Lines file of batches on a thread of its own,
// a few batches ahead of the consumer, which applies them on the updating
// thread. A bounded queue keeps memory flat however slow the consumer is.
//
// The consumer either waits (next) or, on a thread that must not block (a
// GUI thread between events), asks without waiting (tryNext) and, when
// nothing was ready, waits in its event loop for readyDescriptor() to turn
// readable (a socket notifier): the reading thread only writes to that
// descriptor, so no event queue is shared between the two threads.
class DATABASE_EXPORT BatchReader
{
public:
    struct Item {
        Batch batch;
        QString error;       // set on a failure to read or decode: the last item, "file:line: ..."
        qint64 bytesRead = 0;
    };

    // The longest line read, in bytes: what the decoder can address. A
    // longer line ends the file with an error naming it.
    static constexpr qint64 kMaxLineBytes = std::numeric_limits<int>::max();

    // Throws Exception when the file cannot be opened. `maxLineBytes` may
    // lower the limit on a line, never raise it.
    BatchReader(Database const& db, QString const& path, qint64 maxLineBytes = kMaxLineBytes);
    ~BatchReader();
    BatchReader(BatchReader const&) = delete;
    BatchReader& operator=(BatchReader const&) = delete;

    qint64 total() const { return m_total; }
    QString const& path() const { return m_path; }

    // Waits for the next item. False at the end of the file.
    bool next(Item& item);
    // Takes the next item if one is decoded. False when none is ready yet or
    // the file is done: atEnd() tells which.
    bool tryNext(Item& item);
    bool atEnd() const;
    // Readable exactly while an item is waiting or the file is done (tryNext
    // would take an item, or atEnd() is true); for select, poll or a socket
    // notifier. Owned by the reader: never read or closed by the consumer.
    int readyDescriptor() const { return m_readyFd; }

private:
    static constexpr std::size_t kQueueDepth = 4;
    void push(Item&& item);
    void run();
    void updateReady();   // under m_mutex

    BatchDecoder m_decoder;
    QString m_path;
    qint64 m_maxLineBytes;
    std::FILE* m_file = nullptr;
    qint64 m_total = 0;
    std::thread m_thread;
    mutable std::mutex m_mutex;
    std::condition_variable m_cv;
    std::deque<Item> m_queue;
    bool m_stop = false;
    bool m_done = false;
    int m_readyFd = -1;
    bool m_readySignalled = false;   // under m_mutex: the descriptor is readable
};
