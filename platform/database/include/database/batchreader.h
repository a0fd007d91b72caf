#pragma once
#include "batch.h"
#include <database/database_export.h>
#include <QString>
#include <condition_variable>
#include <cstdio>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

class Database;

// Reads and decodes a JSON Lines file of batches on threads of its own, a
// few batches ahead of the consumer, which applies them on the updating
// thread. Each decoding thread takes whole lines in turn; the consumer gets
// the batches strictly in file order, and nothing after the first faulty
// line. A bound on the batches in flight keeps memory flat however slow the
// consumer is.
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

    // Decoding threads by default: as many as the machine runs at once
    // beside the applying thread, one at least and four at most (past that
    // the applying thread is the bottleneck). A decoding thread more than
    // the cores left over only adds its heap: on two cores, one decoder
    // loads as fast as two and keeps 2 MB less of a 100k market.
    static int defaultDecoders();

    // Throws Exception when the file cannot be opened. `maxLineBytes` may
    // lower the limit on a line, never raise it; `decoders` of 0 takes the
    // default.
    BatchReader(Database const& db, QString const& path, qint64 maxLineBytes = kMaxLineBytes, int decoders = 0);
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
    class LineSource;
    // Batches decoded and waiting for the consumer, at most.
    static constexpr qint64 kQueueDepth = 4;
    void run();
    bool takeReady(Item& item);   // under m_mutex
    void updateReady();           // under m_mutex

    BatchDecoder m_decoder;
    QString m_path;
    qint64 m_maxLineBytes;
    std::FILE* m_file = nullptr;
    qint64 m_total = 0;
    qint64 m_window = kQueueDepth;
    std::vector<std::thread> m_threads;

    // The file's lines, read by one decoding thread at a time. Taken before
    // m_mutex, never while holding it.
    std::mutex m_readMutex;
    std::unique_ptr<LineSource> m_lines;
    qint64 m_lineNo = 0;
    qint64 m_bytesRead = 0;
    bool m_readDone = false;

    mutable std::mutex m_mutex;
    std::condition_variable m_cv;      // an item is ready, or the end
    std::condition_variable m_room;    // the consumer took one, or stop
    std::map<qint64, Item> m_ready;    // by their place among the batches
    qint64 m_assigned = 0;             // places handed to decoding threads
    qint64 m_taken = 0;                // places the consumer took
    qint64 m_count = -1;               // how many there are, once known
    bool m_stop = false;
    int m_readyFd = -1;
    bool m_readySignalled = false;     // the descriptor is readable
};
