#include <database/exception.h>
#include <database/replication.h>

#include <QJsonDocument>
#include <QtEndian>
#include <cstring>
#include <zlib.h>
#include <zstd.h>

namespace replication {

char const* frameName(FrameType type)
{
    switch (type) {
    case FrameType::Hello: return "HELLO";
    case FrameType::Welcome: return "WELCOME";
    case FrameType::SnapshotBegin: return "SNAPSHOT_BEGIN";
    case FrameType::SnapshotData: return "SNAPSHOT_DATA";
    case FrameType::SnapshotEnd: return "SNAPSHOT_END";
    case FrameType::Batch: return "BATCH";
    case FrameType::Heartbeat: return "HEARTBEAT";
    case FrameType::Bye: return "BYE";
    case FrameType::Error: return "ERROR";
    case FrameType::Rejected: return "REJECTED";
    case FrameType::Transaction: return "TRANSACTION";
    case FrameType::Answer: return "ANSWER";
    }
    return "?";
}

namespace {
quint32 checksum(char const* data, qint64 size)
{
    uLong crc = crc32(0L, Z_NULL, 0);
    // zlib takes at most 4 GiB a call; frames are far below that.
    return quint32(crc32(crc, reinterpret_cast<Bytef const*>(data), uInt(size)));
}
} // namespace

QByteArray frame(FrameType type, QByteArray const& payload)
{
    QByteArray out(kHeaderSize + payload.size() + kTrailerSize, Qt::Uninitialized);
    char* at = out.data();
    qToBigEndian<quint32>(quint32(payload.size() + 1), at);
    at[4] = char(type);
    qToBigEndian<quint32>(checksum(at, 5), at + 5);
    std::memcpy(at + kHeaderSize, payload.constData(), size_t(payload.size()));
    qToBigEndian<quint32>(checksum(payload.constData(), payload.size()), at + kHeaderSize + payload.size());
    return out;
}

QByteArray jsonFrame(FrameType type, QJsonObject const& object)
{
    return frame(type, QJsonDocument(object).toJson(QJsonDocument::Compact));
}

quint32 checksum(QByteArray const& bytes) { return checksum(bytes.constData(), bytes.size()); }

QByteArray sequenceFrame(FrameType type, quint64 sequence, QByteArray const& rest, quint32 restChecksum)
{
    qint64 const payload = 8 + rest.size();
    QByteArray out(int(kHeaderSize + payload + kTrailerSize), Qt::Uninitialized);
    char* at = out.data();
    qToBigEndian<quint32>(quint32(payload + 1), at);
    at[4] = char(type);
    qToBigEndian<quint32>(checksum(at, 5), at + 5);
    qToBigEndian<quint64>(sequence, at + kHeaderSize);
    std::memcpy(at + kHeaderSize + 8, rest.constData(), size_t(rest.size()));
    uLong const crc = crc32_combine(checksum(at + kHeaderSize, 8), restChecksum, z_off_t(rest.size()));
    qToBigEndian<quint32>(quint32(crc), at + kHeaderSize + payload);
    return out;
}

QByteArray sequenceFrame(FrameType type, quint64 sequence, QByteArray const& rest)
{
    QByteArray payload(8, Qt::Uninitialized);
    qToBigEndian<quint64>(sequence, payload.data());
    payload.append(rest);
    return frame(type, payload);
}

bool FrameReader::next(Frame& frame)
{
    if (!m_error.isEmpty()) return false;
    qint64 const available = m_buffer.size() - m_offset;
    if (available < kHeaderSize) return false;
    char const* at = m_buffer.constData() + m_offset;
    if (qFromBigEndian<quint32>(at + 5) != checksum(at, 5)) {
        m_error = QStringLiteral("a damaged frame header");
        return false;
    }
    quint32 const length = qFromBigEndian<quint32>(at);
    if (length == 0) {
        m_error = QStringLiteral("a frame of length 0");
        return false;
    }
    if (qint64(length) > m_maxFrame) {
        m_error = QStringLiteral("a frame of %1 bytes, past the limit of %2").arg(length).arg(m_maxFrame);
        return false;
    }
    unsigned char const type = static_cast<unsigned char>(at[4]);
    if (type < 1 || type > int(FrameType::Answer)) {
        m_error = QStringLiteral("unknown frame type %1").arg(type);
        return false;
    }
    qint64 const payloadSize = qint64(length) - 1;
    qint64 const whole = frameBytes(length);
    if (available < whole) return false;
    char const* payload = at + kHeaderSize;
    if (qFromBigEndian<quint32>(payload + payloadSize) != checksum(payload, payloadSize)) {
        m_error = QStringLiteral("a damaged %1 frame").arg(QLatin1String(frameName(FrameType(type))));
        return false;
    }
    frame.type = FrameType(type);
    frame.payload = QByteArray(payload, int(payloadSize));
    m_offset += int(whole);
    // Drop what was read once it is the larger part, so that the buffer
    // neither grows for ever nor is moved for every frame.
    if (m_offset > (1 << 20) && m_offset * 2 > m_buffer.size()) {
        m_buffer.remove(0, m_offset);
        m_offset = 0;
    }
    return true;
}

QJsonObject readJson(QByteArray const& payload, QString& error)
{
    QJsonParseError parse;
    QJsonDocument const doc = QJsonDocument::fromJson(payload, &parse);
    if (parse.error != QJsonParseError::NoError) {
        error = QStringLiteral("bad JSON: ") + parse.errorString();
        return {};
    }
    if (!doc.isObject()) {
        error = QStringLiteral("not a JSON object");
        return {};
    }
    return doc.object();
}

bool readSequence(QByteArray const& payload, quint64& sequence)
{
    if (payload.size() < 8) return false;
    sequence = qFromBigEndian<quint64>(payload.constData());
    return true;
}

struct Compressor::State
{
    ZSTD_CCtx* context = ZSTD_createCCtx();
    ~State() { ZSTD_freeCCtx(context); }
};

Compressor::Compressor() : m_state(new State)
{
    if (!m_state->context) throw Exception(QStringLiteral("zstd: cannot create a compression context"));
    // Level 3, zstd's default: the snapshot of a large market is compressed
    // while clients wait, so speed counts as much as size.
    ZSTD_CCtx_setParameter(m_state->context, ZSTD_c_compressionLevel, 3);
}

Compressor::~Compressor() = default;

QByteArray Compressor::compress(char const* data, qint64 size, bool last)
{
    QByteArray out;
    ZSTD_inBuffer in{data, size_t(size), 0};
    size_t const chunk = ZSTD_CStreamOutSize();
    for (;;) {
        qint64 const used = out.size();
        out.resize(int(used + qint64(chunk)));
        ZSTD_outBuffer o{out.data() + used, chunk, 0};
        size_t const left = ZSTD_compressStream2(m_state->context, &o, &in, last ? ZSTD_e_end : ZSTD_e_continue);
        if (ZSTD_isError(left)) throw Exception(QStringLiteral("zstd: ") + QString::fromUtf8(ZSTD_getErrorName(left)));
        out.resize(int(used + qint64(o.pos)));
        bool const done = last ? left == 0 : in.pos == in.size;
        if (done) break;
    }
    return out;
}

struct Decompressor::State
{
    ZSTD_DCtx* context = ZSTD_createDCtx();
    ~State() { ZSTD_freeDCtx(context); }
};

Decompressor::Decompressor() : m_state(new State)
{
    if (!m_state->context) throw Exception(QStringLiteral("zstd: cannot create a decompression context"));
}

Decompressor::~Decompressor() = default;

bool Decompressor::decompress(QByteArray const& input, QByteArray& output, qint64 limit, QString& error)
{
    ZSTD_inBuffer in{input.constData(), size_t(input.size()), 0};
    size_t const chunk = ZSTD_DStreamOutSize();
    while (in.pos < in.size) {
        qint64 const used = output.size();
        if (used + qint64(chunk) > std::numeric_limits<int>::max()) {
            error = QStringLiteral("the snapshot decompresses past what one buffer holds");
            return false;
        }
        output.resize(int(used + qint64(chunk)));
        ZSTD_outBuffer o{output.data() + used, chunk, 0};
        size_t const r = ZSTD_decompressStream(m_state->context, &o, &in);
        output.resize(int(used + qint64(o.pos)));
        if (ZSTD_isError(r)) {
            error = QStringLiteral("corrupt compressed data: ") + QString::fromUtf8(ZSTD_getErrorName(r));
            return false;
        }
        if (output.size() > limit) {
            error = QStringLiteral("the snapshot decompresses to more bytes than it announced");
            return false;
        }
        if (o.pos == 0 && in.pos < in.size && r == 0) {
            error = QStringLiteral("data after the end of the compressed stream");
            return false;
        }
    }
    return true;
}

} // namespace replication
