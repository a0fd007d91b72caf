#include <database/batchreader.h>
#include <database/exception.h>

#include <QFile>
#include <QFileInfo>
#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>
#include <database/readysignal.h>
#include <unistd.h>

BatchReader::BatchReader(Database const& db, QString const& path, qint64 maxLineBytes)
    : m_decoder(db), m_path(path), m_maxLineBytes(std::min(maxLineBytes, kMaxLineBytes))
{
    m_file = std::fopen(QFile::encodeName(path).constData(), "rb");
    if (!m_file) throw Exception(QStringLiteral("%1: cannot open").arg(path));
    m_total = QFileInfo(path).size();
    m_readyFd = makeReadyDescriptor();
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

void BatchReader::updateReady() { setReady(m_readyFd, !m_queue.empty() || m_done, m_readySignalled); }

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

namespace {

// Cuts a file into lines, reading it in large blocks. A line that lies in
// one block is handed out where it lies; one that spans blocks is gathered.
// Lengths are 64-bit throughout: a line longer than the limit is refused as
// soon as it is known to be, without being read into memory whole.
class LineSource
{
public:
    enum Result { Line, TooLong, End, Failed };

    LineSource(std::FILE* file, qint64 limit) : m_file(file), m_limit(limit), m_block(kBlockBytes) {}

    // The next line without its '\n', and the bytes it took with it.
    Result next(char const*& text, qint64& length, qint64& consumed)
    {
        m_gathered.clear();
        consumed = 0;
        length = 0;
        while (true) {
            if (m_pos == m_end && !refill()) {
                if (std::ferror(m_file)) return Failed;
                if (consumed == 0) return End;
                text = m_gathered.data();   // the last line, without a '\n'
                return Line;
            }
            char const* start = m_block.data() + m_pos;
            std::size_t const available = m_end - m_pos;
            auto const* newline = static_cast<char const*>(std::memchr(start, '\n', available));
            std::size_t const piece = newline ? std::size_t(newline - start) : available;
            length += qint64(piece);
            consumed += qint64(piece) + (newline ? 1 : 0);
            m_pos += piece + (newline ? 1 : 0);
            if (length > m_limit) return TooLong;
            if (newline && m_gathered.empty()) {
                text = start;
                return Line;
            }
            m_gathered.append(start, piece);
            if (newline) {
                text = m_gathered.data();
                return Line;
            }
        }
    }

private:
    static constexpr std::size_t kBlockBytes = std::size_t(1) << 18;

    bool refill()
    {
        m_pos = 0;
        m_end = std::fread(m_block.data(), 1, m_block.size(), m_file);
        return m_end > 0;
    }

    std::FILE* m_file;
    qint64 m_limit;
    std::vector<char> m_block;
    std::size_t m_pos = 0;
    std::size_t m_end = 0;
    std::string m_gathered;
};

} // namespace

void BatchReader::run()
{
    LineSource lines(m_file, m_maxLineBytes);
    qint64 read = 0;
    qint64 lineNo = 0;
    while (true) {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            if (m_stop) break;
        }
        char const* text = nullptr;
        qint64 length = 0, consumed = 0;
        LineSource::Result const got = lines.next(text, length, consumed);
        if (got == LineSource::End) break;
        ++lineNo;
        read += consumed;
        Item item;
        item.bytesRead = read;
        QString const origin = QStringLiteral("%1:%2").arg(m_path).arg(lineNo);
        if (got == LineSource::Failed) {
            item.error = QStringLiteral("%1: cannot read the file").arg(origin);
        } else if (got == LineSource::TooLong) {
            item.error = QStringLiteral("%1: the line is longer than %2 bytes").arg(origin).arg(m_maxLineBytes);
        } else {
            // Within the limit, so within what a QByteArray addresses.
            QByteArray line = QByteArray::fromRawData(text, int(length));
            if (line.trimmed().isEmpty()) continue;
            try {
                item.batch = m_decoder.decode(line, origin);
            } catch (Exception const& e) {
                item.error = e.message();
            } catch (std::bad_alloc const&) {
                item.error = QStringLiteral("%1: out of memory").arg(origin);
            }
        }
        bool failed = !item.error.isEmpty();
        push(std::move(item));
        if (failed) break;
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    m_done = true;
    updateReady();
    m_cv.notify_all();
}
