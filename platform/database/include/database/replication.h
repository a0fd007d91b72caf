#pragma once
#include <database/database_export.h>
#include <QByteArray>
#include <QJsonObject>
#include <QString>
#include <memory>

// The wire format of the exchange's replication sessions (docs/replication.md),
// shared by the server and the client so that both read and write one framing.
namespace replication {

constexpr int kProtocol = 3;
// Length, type and the header's checksum; the payload's checksum follows it.
constexpr int kHeaderSize = 9;
constexpr int kTrailerSize = 4;
constexpr qint64 kDefaultMaxFrame = 64 * 1024 * 1024;
constexpr int kSnapshotPiece = 1024 * 1024;

enum class FrameType : unsigned char {
    Hello = 1,
    Welcome = 2,
    SnapshotBegin = 3,
    SnapshotData = 4,
    SnapshotEnd = 5,
    Batch = 6,
    Heartbeat = 7,
    Bye = 8,
    Error = 9,
    Rejected = 10,
    Transaction = 11,
    Answer = 12,
};

DATABASE_EXPORT char const* frameName(FrameType type);

// Where a database stands in an exchange's stream: the batch it applied
// last, of which day and history (sequence 0: nothing to resume from).
struct Position
{
    QString day, history;
    quint64 sequence = 0;
};

struct Frame
{
    FrameType type = FrameType::Heartbeat;
    QByteArray payload;
};

// Whole frames.
DATABASE_EXPORT QByteArray frame(FrameType type, QByteArray const& payload = QByteArray());
DATABASE_EXPORT QByteArray jsonFrame(FrameType type, QJsonObject const& object);
DATABASE_EXPORT QByteArray sequenceFrame(FrameType type, quint64 sequence, QByteArray const& rest = QByteArray());
// The same, `rest`'s checksum known: a text sent under many sequence
// numbers (one batch in several members' streams) is summed once.
DATABASE_EXPORT QByteArray sequenceFrame(FrameType type, quint64 sequence, QByteArray const& rest, quint32 restChecksum);
// The frames' CRC-32 of some bytes.
DATABASE_EXPORT quint32 checksum(QByteArray const& bytes);

// The size of a whole frame, header and checksums included, from the length
// its first four bytes hold (that length unchecked).
inline qint64 frameBytes(quint32 length) { return kHeaderSize + qint64(length) - 1 + kTrailerSize; }

// Cuts frames out of the bytes a connection delivers, in whatever pieces
// they come. A header or a payload whose checksum does not match, a length
// of 0 or past the limit, or an unknown type, is an error: the connection
// cannot be trusted after it. The header's own checksum lets a damaged
// length be refused at once, instead of waiting for bytes that never come.
class DATABASE_EXPORT FrameReader
{
public:
    explicit FrameReader(qint64 maxFrame = kDefaultMaxFrame) : m_maxFrame(maxFrame) {}
    void append(QByteArray const& bytes) { m_buffer.append(bytes); }
    // True with the next whole frame; false when none is complete yet or on
    // an error (error() says which).
    bool next(Frame& frame);
    QString const& error() const { return m_error; }
    qint64 buffered() const { return m_buffer.size() - m_offset; }

private:
    QByteArray m_buffer;
    int m_offset = 0;
    qint64 m_maxFrame;
    QString m_error;
};

// A JSON object payload, or an empty object with `error` set.
DATABASE_EXPORT QJsonObject readJson(QByteArray const& payload, QString& error);
// The 8-byte big-endian number at the start of a payload; false when shorter.
DATABASE_EXPORT bool readSequence(QByteArray const& payload, quint64& sequence);

// One zstd stream, in pieces. Throws Exception when the library fails.
class DATABASE_EXPORT Compressor
{
public:
    Compressor();
    ~Compressor();
    // Compressed bytes for `input`; `last` ends the stream.
    QByteArray compress(char const* data, qint64 size, bool last);

private:
    struct State;
    std::unique_ptr<State> m_state;
};

class DATABASE_EXPORT Decompressor
{
public:
    Decompressor();
    ~Decompressor();
    // Appends what `input` decompresses to to `output`. False, with `error`
    // set, on corrupt data or when the output would pass `limit` bytes.
    bool decompress(QByteArray const& input, QByteArray& output, qint64 limit, QString& error);

private:
    struct State;
    std::unique_ptr<State> m_state;
};

} // namespace replication
