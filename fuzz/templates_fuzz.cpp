// Corpus: fuzz/corpus/templates/
//
// A templates file from a market folder: it must either load whole, every
// template well formed, or be refused with a message naming its origin while
// the templates registered before stay exactly as they were.
#include <core/transactions.h>

#include <QByteArray>
#include <QSet>
#include <QString>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace {

// Qt's JSON parser leaks on a duplicate key (fuzz/lsan.supp), and the
// sanitizer names that leak only while the parser's frames down to it fit in
// the recorded stack (malloc_context_size=255: about a hundred levels of
// nesting). A templates file nests four deep; deeper input reaches nothing
// but Qt's own recursion, so it is left out.
constexpr int kMaxNesting = 64;

bool nestedTooDeep(std::uint8_t const* data, std::size_t size)
{
    int depth = 0;
    bool inString = false;
    for (std::size_t k = 0; k < size; ++k) {
        char const c = char(data[k]);
        if (inString) {
            if (c == '\\') ++k;
            else if (c == '"') inString = false;
        } else if (c == '"') {
            inString = true;
        } else if (c == '[' || c == '{') {
            if (++depth > kMaxNesting) return true;
        } else if (c == ']' || c == '}') {
            --depth;
        }
    }
    return false;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    if (nestedTooDeep(data, size)) return 0;
    TransactionService service;
    TransactionMeta kept;
    kept.messageCode = 7;
    kept.name = QStringLiteral("kept");
    service.registerTemplate(kept);
    QString error;
    QByteArray const json(reinterpret_cast<char const*>(data), int(size));
    if (!service.loadTemplatesJson(json, QStringLiteral("fuzz.json"), error)) {
        QList<TransactionMeta> const left = service.templates();
        if (!error.startsWith(QLatin1String("fuzz.json")) || left.size() != 1 || left.first().name != kept.name) std::abort();
        return 0;
    }
    QSet<QString> seen;
    for (TransactionMeta const& t : service.templates()) {
        if (t.messageCode < 1 || t.messageCode > 65535 || t.stockId < 0 || t.boardId < 0 || t.name.trimmed().isEmpty())
            std::abort();
        if (t.stockId == 0 && t.boardId != 0) std::abort();
        QString const key = QStringLiteral("%1,%2,%3").arg(t.messageCode).arg(t.stockId).arg(t.boardId);
        if (seen.contains(key)) std::abort();
        seen.insert(key);
        for (QString const& p : t.optionalParameters)
            if (t.parameters.contains(p) || p.isEmpty()) std::abort();
    }
    return 0;
}
