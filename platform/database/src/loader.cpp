#include <database/batch.h>
#include <database/database.h>
#include <database/exception.h>
#include <database/batchreader.h>
#include "batchapplier.h"

#include <QFile>
#include <QFileInfo>
#ifdef __GLIBC__
#include <malloc.h>
#endif

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
        BatchReader reader(*this, path);
        BatchReader::Item item;
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
            BatchReader reader(*this, path);
            BatchReader::Item item;
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
