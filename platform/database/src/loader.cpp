#include <database/batch.h>
#include <database/database.h>
#include <database/exception.h>
#include "batchapplier.h"

#include <QFile>
#include <QFileInfo>
#include <condition_variable>
#include <cstdio>
#include <deque>
#include <mutex>
#include <thread>
#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace {

// Reads and decodes a JSON Lines file on its own thread; the consumer
// applies on the updating thread. A bounded queue keeps memory flat.
class DecodingReader
{
    // Batches decoded ahead of the applier. A few keep both threads busy;
    // more only leave freed row images behind in the decoding thread's heap,
    // which stays resident after the load.
    static constexpr std::size_t kQueueDepth = 4;

public:
    struct Item {
        Batch batch;
        QString error;       // set on a decoding failure: the last item
        qint64 bytesRead = 0;
    };

    DecodingReader(Database const& db, QString const& path) : m_decoder(db), m_path(path)
    {
        m_file = std::fopen(QFile::encodeName(path).constData(), "rb");
        if (!m_file) throw Exception(QStringLiteral("%1: cannot open").arg(path));
        m_total = QFileInfo(path).size();
        m_thread = std::thread([this] { run(); });
    }
    ~DecodingReader()
    {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_stop = true;
        }
        m_cv.notify_all();
        if (m_thread.joinable()) m_thread.join();
        std::fclose(m_file);
    }
    qint64 total() const { return m_total; }

    // False at the end of the file.
    bool next(Item& item)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_cv.wait(lock, [this] { return !m_queue.empty() || m_done; });
        if (m_queue.empty()) return false;
        item = std::move(m_queue.front());
        m_queue.pop_front();
        m_cv.notify_all();
        return true;
    }

private:
    void push(Item&& item)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_cv.wait(lock, [this] { return m_queue.size() < kQueueDepth || m_stop; });
        if (m_stop) return;
        m_queue.push_back(std::move(item));
        m_cv.notify_all();
    }

    void run()
    {
        char* buf = nullptr;
        size_t cap = 0;
        qint64 read = 0;
        int lineNo = 0;
        while (true) {
            {
                std::lock_guard<std::mutex> lock(m_mutex);
                if (m_stop) break;
            }
            ssize_t n = ::getline(&buf, &cap, m_file);
            if (n < 0) break;
            ++lineNo;
            read += n;
            QByteArray line = QByteArray::fromRawData(buf, int(n));
            if (line.trimmed().isEmpty()) continue;
            Item item;
            item.bytesRead = read;
            try {
                item.batch = m_decoder.decode(line, QStringLiteral("%1:%2").arg(m_path).arg(lineNo));
            } catch (Exception const& e) {
                item.error = e.message();
            } catch (std::bad_alloc const&) {
                item.error = QStringLiteral("%1:%2: out of memory").arg(m_path).arg(lineNo);
            }
            bool failed = !item.error.isEmpty();
            push(std::move(item));
            if (failed) break;
        }
        std::free(buf);
        std::lock_guard<std::mutex> lock(m_mutex);
        m_done = true;
        m_cv.notify_all();
    }

    BatchDecoder m_decoder;
    QString m_path;
    std::FILE* m_file = nullptr;
    qint64 m_total = 0;
    std::thread m_thread;
    std::mutex m_mutex;
    std::condition_variable m_cv;
    std::deque<Item> m_queue;
    bool m_stop = false;
    bool m_done = false;
};

} // namespace

namespace {
// A load leaves behind the freed heap of every decoded batch; the C library
// keeps such pages mapped. They are handed back once, when the load is done.
void releaseFreedHeap()
{
#ifdef __GLIBC__
    malloc_trim(0);
#endif
}

// An index failing on a batch does not stop a load: the batch itself was
// applied, and so are the batches after it; the failures are reported
// together once the load is done.
class IndexFailures
{
public:
    void applyTo(Database& db, Batch const& batch)
    {
        try {
            db.apply(batch);
        } catch (HookFailure const& failure) {
            m_messages << failure.message();
        }
    }
    void report() const
    {
        if (!m_messages.isEmpty()) throw HookFailure(m_messages.join(QLatin1Char('\n')));
    }

private:
    QStringList m_messages;
};
} // namespace

int Database::loadFile(QString const& path, std::function<void(int, qint64, qint64)> progress)
{
    int applied = 0;
    IndexFailures failures;
    {
        DecodingReader reader(*this, path);
        DecodingReader::Item item;
        while (reader.next(item)) {
            if (!item.error.isEmpty()) throw Exception(item.error);
            failures.applyTo(*this, item.batch);
            ++applied;
            if (progress) progress(applied, item.bytesRead, reader.total());
        }
    }
    releaseFreedHeap();
    failures.report();
    return applied;
}

int Database::loadFileAtomically(QString const& path, std::function<void(int, int, QString const&)> afterBatch)
{
    int count = 0;
    IndexFailures failures;
    {
        std::vector<Batch> batches;
        {
            // Every batch is dry-run in file order as it arrives, while the
            // worker decodes the next ones: nothing applies unless all of
            // the file passes.
            QHash<Table*, KeyOverlay> overlays;
            DecodingReader reader(*this, path);
            DecodingReader::Item item;
            while (reader.next(item)) {
                if (!item.error.isEmpty()) throw Exception(item.error);
                BatchApplier::plan(item.batch, &overlays[item.batch.table.data()], true);
                batches.push_back(std::move(item.batch));
            }
        }
        int applied = 0;
        for (Batch const& b : batches) {
            failures.applyTo(*this, b);
            if (afterBatch) afterBatch(++applied, int(batches.size()), b.table->name());
        }
        count = int(batches.size());
    }
    releaseFreedHeap();
    failures.report();
    return count;
}
