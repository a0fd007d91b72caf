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

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
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
