#include <database/batchreader.h>
#include <database/exception.h>

#include <QFile>
#include <QThread>
#include <QFileInfo>
#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>
#include <database/readysignal.h>
#include <unistd.h>

// Cuts a file into lines, reading it in large blocks. A line that lies in
// one block is handed out where it lies; one that spans blocks is gathered.
// Lengths are 64-bit throughout: a line longer than the limit is refused as
// soon as it is known to be, without being read into memory whole.
class BatchReader::LineSource
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

int BatchReader::defaultDecoders() { return std::max(1, std::min(QThread::idealThreadCount() - 1, 4)); }

BatchReader::BatchReader(Database const& db, QString const& path, qint64 maxLineBytes, int decoders)
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
    m_lines.reset(new LineSource(m_file, m_maxLineBytes));
    int const threads = decoders > 0 ? decoders : defaultDecoders();
    // A few batches waiting, and the one each thread decodes: more waiting
    // would only hold memory, since the consumer is the slower side.
    m_window = kQueueDepth + threads;
    for (int i = 0; i < threads; ++i) m_threads.emplace_back([this] { run(); });
}

BatchReader::~BatchReader()
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stop = true;
    }
    m_room.notify_all();
    m_cv.notify_all();
    for (std::thread& t : m_threads) t.join();
    std::fclose(m_file);
    ::close(m_readyFd);
}

void BatchReader::updateReady()
{
    bool const ready = m_ready.count(m_taken) || (m_count >= 0 && m_taken >= m_count);
    setReady(m_readyFd, ready, m_readySignalled);
}

bool BatchReader::takeReady(Item& item)
{
    auto it = m_ready.find(m_taken);
    if (it == m_ready.end()) return false;
    item = std::move(it->second);
    m_ready.erase(it);
    ++m_taken;
    updateReady();
    m_room.notify_all();
    return true;
}

bool BatchReader::next(Item& item)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_cv.wait(lock, [this] { return m_ready.count(m_taken) || (m_count >= 0 && m_taken >= m_count); });
    return takeReady(item);
}

bool BatchReader::tryNext(Item& item)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return takeReady(item);
}

bool BatchReader::atEnd() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_count >= 0 && m_taken >= m_count;
}

namespace {
bool isBlank(char const* text, qint64 length)
{
    for (qint64 i = 0; i < length; ++i)
        if (!std::isspace(static_cast<unsigned char>(text[i]))) return false;
    return true;
}
} // namespace

void BatchReader::run()
{
    while (true) {
        qint64 place = 0;
        Item item;
        QByteArray line;
        QString origin;
        {
            std::lock_guard<std::mutex> reading(m_readMutex);
            if (m_readDone) return;
            {
                std::unique_lock<std::mutex> lock(m_mutex);
                m_room.wait(lock, [this] { return m_stop || m_count >= 0 || m_assigned - m_taken < m_window; });
                if (m_stop || m_count >= 0) return;
            }
            char const* text = nullptr;
            qint64 length = 0, consumed = 0;
            LineSource::Result got = LineSource::Line;
            do {
                got = m_lines->next(text, length, consumed);
                if (got == LineSource::End) break;
                ++m_lineNo;
                m_bytesRead += consumed;
            } while (got == LineSource::Line && isBlank(text, length));
            {
                std::lock_guard<std::mutex> lock(m_mutex);
                if (got == LineSource::End) {
                    m_readDone = true;
                    m_count = m_assigned;
                    updateReady();
                    m_cv.notify_all();
                    m_room.notify_all();
                    return;
                }
                place = m_assigned++;
            }
            item.bytesRead = m_bytesRead;
            origin = QStringLiteral("%1:%2").arg(m_path).arg(m_lineNo);
            if (got == LineSource::Failed) {
                item.error = QStringLiteral("%1: cannot read the file").arg(origin);
                m_readDone = true;
            } else if (got == LineSource::TooLong) {
                item.error = QStringLiteral("%1: the line is longer than %2 bytes").arg(origin).arg(m_maxLineBytes);
                m_readDone = true;
            } else {
                // A copy of its own, since the block it lies in is read over
                // next, with the room behind it the decoder reads in place.
                // Within the limit, so within what a QByteArray addresses.
                try {
                    line = QByteArray(int(std::min<qint64>(length + BatchDecoder::kReadAhead, kMaxLineBytes)), Qt::Uninitialized);
                    std::memcpy(line.data(), text, std::size_t(length));
                    std::memset(line.data() + length, 0, std::size_t(line.size() - length));
                    line.resize(int(length));
                } catch (std::bad_alloc const&) {
                    item.error = QStringLiteral("%1: out of memory").arg(origin);
                    m_readDone = true;
                }
            }
        }
        if (item.error.isEmpty()) {
            try {
                item.batch = m_decoder.decode(line, origin);
            } catch (Exception const& e) {
                item.error = e.message();
            } catch (std::bad_alloc const&) {
                item.error = QStringLiteral("%1: out of memory").arg(origin);
            }
            line = QByteArray();
        }
        std::lock_guard<std::mutex> lock(m_mutex);
        // A fault ends the batches: none after it is handed out, and no
        // thread reads further.
        if (!item.error.isEmpty() && (m_count < 0 || place < m_count)) {
            m_count = place + 1;
            m_ready.erase(m_ready.upper_bound(place), m_ready.end());
            m_room.notify_all();
        }
        if (m_count < 0 || place < m_count) m_ready.emplace(place, std::move(item));
        updateReady();
        m_cv.notify_all();
    }
}
