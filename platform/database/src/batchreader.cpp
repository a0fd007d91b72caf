#include <database/batchreader.h>
#include <database/exception.h>

#include <QFile>
#include <QFileInfo>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <sys/eventfd.h>
#include <unistd.h>

BatchReader::BatchReader(Database const& db, QString const& path)
    : m_decoder(db), m_path(path)
{
    m_file = std::fopen(QFile::encodeName(path).constData(), "rb");
    if (!m_file) throw Exception(QStringLiteral("%1: cannot open").arg(path));
    m_total = QFileInfo(path).size();
    m_readyFd = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (m_readyFd < 0) {
        std::fclose(m_file);
        throw Exception(QStringLiteral("%1: cannot create the reader's ready descriptor").arg(path));
    }
    m_thread = std::thread([this] { run(); });
}

BatchReader::~BatchReader()
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stop = true;
    }
    m_cv.notify_all();
    if (m_thread.joinable()) m_thread.join();
    std::fclose(m_file);
    ::close(m_readyFd);
}

void BatchReader::updateReady()
{
    bool const ready = !m_queue.empty() || m_done;
    if (ready == m_readySignalled) return;
    std::uint64_t value = 1;
    ssize_t n;
    // The descriptor is a counter: a write makes it readable, a read empties it.
    do {
        n = ready ? ::write(m_readyFd, &value, sizeof value) : ::read(m_readyFd, &value, sizeof value);
    } while (n < 0 && errno == EINTR);
    m_readySignalled = ready;
}

bool BatchReader::next(Item& item)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_cv.wait(lock, [this] { return !m_queue.empty() || m_done; });
    if (m_queue.empty()) return false;
    item = std::move(m_queue.front());
    m_queue.pop_front();
    updateReady();
    m_cv.notify_all();
    return true;
}

bool BatchReader::tryNext(Item& item)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_queue.empty()) return false;
    item = std::move(m_queue.front());
    m_queue.pop_front();
    updateReady();
    m_cv.notify_all();
    return true;
}

bool BatchReader::atEnd() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_done && m_queue.empty();
}

void BatchReader::push(Item&& item)
{
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_cv.wait(lock, [this] { return m_queue.size() < kQueueDepth || m_stop; });
        if (m_stop) return;
        m_queue.push_back(std::move(item));
        updateReady();
        m_cv.notify_all();
    }
}

void BatchReader::run()
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
    updateReady();
    m_cv.notify_all();
}
