// Corpus: fuzz/corpus/client_frames. The bytes a client sends the exchange,
// delivered in pieces as a connection would: every frame is cut out by the
// one reader and every message read by the one decoder the sessions use.
// Neither may crash, hang or take more than a frame's memory; a HELLO they
// accept is one a session can act on, and a frame read back from its own
// encoding is the same frame.
#include "context.h"
#include "server.h"

#include <core/transactions.h>
#include <database/replication.h>

#include <cstdint>
#include <cstdlib>

using namespace replication;

namespace {
constexpr qint64 kClientFrameLimit = 64 * 1024;   // the exchange's default for what clients send

void check(bool ok)
{
    if (!ok) std::abort();
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    if (size < 2) return 0;
    // The first byte: its low bit chooses what follows, the rest the size of
    // the pieces the stream arrives in. Raw: the bytes as they are, checksums
    // and all (mostly refused early). Framed: records of a type byte, a
    // two-byte length and a payload, each framed with right checksums, so
    // that the decoder behind the checks gets every payload the fuzzer makes.
    bool const framed = data[0] & 1;
    size_t const piece = size_t(data[0] >> 1) * 13 + 1;
    QByteArray stream;
    if (framed) {
        for (size_t at = 1; at + 3 <= size;) {
            size_t const length = qMin<size_t>((size_t(data[at + 1]) << 8) | data[at + 2], size - at - 3);
            stream += frame(FrameType(data[at]), QByteArray(reinterpret_cast<char const*>(data + at + 3), int(length)));
            at += 3 + length;
        }
    } else {
        stream = QByteArray(reinterpret_cast<char const*>(data + 1), int(size - 1));
    }
    FrameReader reader(kClientFrameLimit);
    for (int at = 0; at < stream.size(); at += int(piece)) {
        reader.append(stream.mid(at, int(piece)));
        check(reader.buffered() <= stream.size());
        Frame f;
        while (reader.next(f)) {
            check(f.payload.size() < kClientFrameLimit);
            FrameReader again;
            again.append(frame(f.type, f.payload));
            Frame back;
            check(again.next(back) && back.type == f.type && back.payload == f.payload);
            if (f.type == FrameType::Hello) {
                exchange::Hello hello;
                if (exchange::readHello(f.payload, hello).isEmpty()) check(apps::loginProblem(hello.login).isEmpty());
            } else if (f.type == FrameType::Rejected) {
                exchange::Rejection rejection;
                if (exchange::readRejected(f.payload, rejection).isEmpty()) check(rejection.reason.size() <= 4096);
            } else if (f.type == FrameType::Transaction) {
                // One the gateway is handed: bounded, every value a text.
                quint64 id = 0;
                RawTransaction tx;
                if (exchange::readTransaction(f.payload, id, tx).isEmpty()) {
                    check(tx.params.size() <= 64 && tx.messageCode >= 0 && tx.stockId >= 0 && tx.boardId >= 0);
                    for (QVariant const& v : qAsConst(tx.params)) check(v.type() == QVariant::String && v.toString().size() <= 256);
                }
            }
        }
        if (!reader.error().isEmpty()) break;   // the session closes here
    }
    return 0;
}
