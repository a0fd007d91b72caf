// Corpus: fuzz/corpus/mime_keys. Drag-and-drop data from any source decoded
// into security text ids: it must never crash, and never allocate for a
// length that the payload declares but does not hold.
#include <securities.h>

#include <core/icore.h>
#include <database/database.h>

#include <QCoreApplication>
#include <QMimeData>
#include <cstdint>
#include <cstdlib>

namespace {

struct Fixture
{
    Fixture()
    {
        static int argc = 1;
        static char name[] = "mime_keys_fuzz";
        static char* argv[] = {name, nullptr};
        app = new QCoreApplication(argc, argv);
        ICore::instance()->database()->loadSchemaJson(R"({"tables":[{"name":"securities","key":["stock_id","board_id","sec_id"],
            "columns":[{"name":"stock_id","type":1,"nullable":false},{"name":"board_id","type":1,"nullable":false},
                       {"name":"sec_id","type":2,"nullable":false},{"name":"isin_id","type":1,"nullable":false}]}]})");
        directory = SecurityDirectory::i();
    }
    QCoreApplication* app;
    SecurityDirectory* directory;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    static Fixture fixture;
    if (size == 0) return 0;
    // First byte: which formats carry the rest, and whether put-call pairs count.
    std::uint8_t selector = data[0];
    QByteArray payload(reinterpret_cast<char const*>(data + 1), int(size - 1));
    QMimeData mime;
    if (selector & 1) mime.setData(QStringLiteral("application/x-gui-security"), payload);
    if (selector & 2) mime.setData(QStringLiteral("application/x-gui-securities"), payload.mid(int(payload.size() / 2)));
    if (selector & 4) mime.setData(QStringLiteral("application/x-gui-putcall"), payload.left(64));
    QStringList keys = fixture.directory->keysByMimeData(&mime, selector & 8);
    // Every id came out of the payload: together they cannot outweigh it.
    qint64 chars = 0;
    for (QString const& k : keys) chars += k.size();
    if (chars > qint64(size) * 2 + 64) std::abort();
    return 0;
}
