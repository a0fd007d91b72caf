#include "batchapplier.h"
#include <database/exception.h>
#include <database/index.h>

#include <QElapsedTimer>
#include <algorithm>
#include <cstring>
#include <new>

QByteArray BatchApplier::keyBytes(Table const* table, unsigned char const* row)
{
    QByteArray key;
    int size = 0;
    for (int c : table->keyColumnNumbers()) size += table->columnDef(c).length;
    key.reserve(size);
    for (int c : table->keyColumnNumbers()) {
        Field f = table->dataPtr(const_cast<unsigned char*>(row), c);
        if (f.type() == FieldType::VarChar) {
            QString s = f.asStaticString();
            int n = s.size();
            key.append(reinterpret_cast<char const*>(&n), sizeof n);
            key.append(reinterpret_cast<char const*>(s.utf16()), n * 2);
        } else {
            key.append(reinterpret_cast<char const*>(f.data()), f.length());
        }
    }
    return key;
}

void BatchApplier::copyColumn(Table const* table, unsigned char* dst, unsigned char* src, int column)
{
    Field from = table->dataPtr(src, column);
    Field to = table->dataPtr(dst, column);
    if (!from.hasValue()) { to.setNull(); return; }
    if (to.type() == FieldType::VarChar) to.storeString(from.asStaticString());
    else { std::memcpy(to.data(), from.data(), std::size_t(to.length())); to.setHasValue(); }
}

namespace {

enum class State { Absent, Existing, Inserted, Deleted };

struct Entry
{
    State state = State::Absent;
    Record row;          // the table's row, when one existed before the batch
    int insert = -1;     // into plan.inserts
    int update = -1;     // into plan.updates
};

} // namespace

Record BatchApplier::ownedCopy(Table const* table, Record const& image)
{
    Record row = table->copyRow(image);
    // The new row owns its strings outright: the image's were allocated by
    // the decoding thread, and a row sharing them would pin that thread's
    // heap pages for as long as the row lives.
    for (int c : table->m_stringColumns) {
        auto* text = std::launder(reinterpret_cast<QString*>(row.row() + table->m_columns[std::size_t(c)].offset));
        if (!text->isEmpty()) *text = QString(text->constData(), text->size());
    }
    return row;
}

BatchPlan BatchApplier::plan(Batch const& batch, KeyOverlay* overlay, bool keysOnly)
{
    BatchPlan plan;
    Table* table = batch.table.data();
    if (!table) throw Exception(QStringLiteral("%1: the batch has no table").arg(batch.origin));
    QHash<QByteArray, Entry> entries;
    entries.reserve(int(batch.ops.size()));
    bool clearedBefore = overlay && overlay->cleared;   // by an earlier batch of a dry run
    bool clearedHere = false;
    int rowNo = 0;
    auto fail = [&](QString const& reason) {
        throw Exception(QStringLiteral("%1: row %2: %3").arg(batch.origin).arg(rowNo).arg(reason));
    };
    auto keyText = [&](Record const& image) {
        QStringList parts;
        for (int c : table->keyColumnNumbers()) parts << table->dataPtr(image.row(), c).toString();
        return parts.join(QLatin1Char(','));
    };

    for (BatchOp const& op : batch.ops) {
        ++rowNo;
        if (op.kind == BatchOp::Clear) {
            plan = BatchPlan();
            plan.clearAll = true;
            entries.clear();
            clearedHere = true;
            continue;
        }
        if (op.image.isEmpty() || op.image.table() != table) fail(QStringLiteral("the row does not belong to the table"));
        QByteArray key = keyBytes(table, op.image.row());
        auto it = entries.find(key);
        if (it == entries.end()) {
            Entry e;
            bool known = false, exists = false;
            if (overlay && !clearedHere) {
                auto o = overlay->exists.constFind(key);
                if (o != overlay->exists.constEnd()) { known = true; exists = o.value(); }
            }
            if (!clearedHere && !clearedBefore && !known) {
                // The sorted list itself, past any caching override: each key
                // of a batch is looked up once here, and caching it would only
                // push the readers' recent keys out.
                e.row = table->masterIndex()->IndexSort::find(op.image, -1);
                exists = !e.row.isEmpty();
            }
            e.state = exists ? State::Existing : State::Absent;
            it = entries.insert(key, e);
        }
        Entry& e = it.value();
        switch (op.kind) {
        case BatchOp::Insert:
            if (e.state == State::Existing || e.state == State::Inserted)
                fail(QStringLiteral("a row with key %1 already exists").arg(keyText(op.image)));
            e.insert = int(plan.inserts.size());
            plan.inserts.push_back(keysOnly ? op.image : ownedCopy(table, op.image));
            e.state = State::Inserted;
            break;
        case BatchOp::Update: {
            if (e.state == State::Absent || e.state == State::Deleted)
                fail(QStringLiteral("no row with key %1 to update").arg(keyText(op.image)));
            for (int c : op.columns) {
                if (table->keyColumnNumbers().contains(c)) continue;
                if (plan.firstColumn < 0 || c < plan.firstColumn) plan.firstColumn = c;
                if (c > plan.lastColumn) plan.lastColumn = c;
            }
            if (keysOnly) break;
            if (e.state == State::Inserted) {
                for (int c : op.columns) copyColumn(table, plan.inserts[std::size_t(e.insert)].row(), op.image.row(), c);
                break;
            }
            if (e.row.isEmpty()) {
                // Known to exist only through the overlay (a dry run): nothing to fold into.
                break;
            }
            if (e.update < 0) {
                e.update = int(plan.updates.size());
                plan.updates.push_back({e.row, Record(table), {}});
                plan.updates.back().columns.reserve(op.columns.size());
            }
            BatchPlan::Update& u = plan.updates[std::size_t(e.update)];
            for (int c : op.columns) {
                if (table->keyColumnNumbers().contains(c)) continue;
                copyColumn(table, u.image.row(), op.image.row(), c);
                if (std::find(u.columns.begin(), u.columns.end(), c) == u.columns.end()) u.columns.push_back(c);
            }
            break;
        }
        case BatchOp::Delete:
            if (e.state == State::Absent || e.state == State::Deleted)
                fail(QStringLiteral("no row with key %1 to delete").arg(keyText(op.image)));
            if (e.state == State::Inserted) {
                plan.inserts[std::size_t(e.insert)] = Record();
                e.insert = -1;
                e.state = e.row.isEmpty() ? State::Absent : State::Deleted;
                break;
            }
            if (e.update >= 0) { plan.updates[std::size_t(e.update)].row = Record(); e.update = -1; }
            if (!e.row.isEmpty()) plan.deletes.push_back(e.row);
            e.state = State::Deleted;
            break;
        case BatchOp::Clear:
            break;
        }
    }
    plan.inserts.erase(std::remove_if(plan.inserts.begin(), plan.inserts.end(), [](Record const& r) { return r.isEmpty(); }),
                       plan.inserts.end());
    plan.updates.erase(std::remove_if(plan.updates.begin(), plan.updates.end(),
                                      [](BatchPlan::Update const& u) { return u.row.isEmpty() || u.columns.empty(); }),
                       plan.updates.end());
    if (overlay) {
        if (clearedHere) { overlay->cleared = true; overlay->exists.clear(); }
        for (auto i = entries.constBegin(); i != entries.constEnd(); ++i)
            overlay->exists.insert(i.key(), i.value().state == State::Existing || i.value().state == State::Inserted);
    }
    return plan;
}

void BatchApplier::apply(Table* table, BatchPlan const& plan)
{
    table->lock();
    struct Unlock { Table* t; ~Unlock() { t->unlock(); } } unlock{table};
    QList<Index*> const indexes = table->indexes();
    QList<Index*> const dependents = table->dependents();

    for (Index* d : dependents) d->dependentBeginUpdate(table);
    for (Index* i : indexes) i->beginUpdate();

    if (plan.clearAll) {
        IndexList* master = table->masterIndex();
        for (auto it = master->begin(); it != master->end(); ++it)
            reinterpret_cast<RowHeader*>(it->row())->flags &= ~std::uint32_t(RowInTable);
        for (Index* i : indexes) i->clear();
    }

    QList<Record> inserted, updated, deleted, images;
    inserted.reserve(int(plan.inserts.size()));
    // The plan's images are its own fresh copies: they become the rows.
    for (Record const& row : plan.inserts) {
        reinterpret_cast<RowHeader*>(row.row())->flags |= RowInTable;
        inserted.append(row);
    }
    updated.reserve(int(plan.updates.size()));
    images.reserve(int(plan.updates.size()));
    deleted.reserve(int(plan.deletes.size()));
    for (auto const& u : plan.updates) { updated.append(u.row); images.append(u.image); }
    for (Record const& r : plan.deletes) deleted.append(r);

    for (Index* i : indexes) i->preprocess(inserted, updated, plan.firstColumn, plan.lastColumn, deleted, images);

    if (!plan.updates.empty()) {
        // Rows change in place; readers on other threads search under these locks.
        QList<IndexList*> lists;
        for (Index* i : indexes)
            if (auto* l = dynamic_cast<IndexList*>(i)) lists.append(l);
        for (IndexList* l : lists) l->structureLock().lock();
        for (auto const& u : plan.updates)
            for (int c : u.columns) copyColumn(table, u.row.row(), u.image.row(), c);
        for (IndexList* l : lists) l->structureLock().unlock();
    }

    for (Index* i : indexes) i->process(inserted, updated, plan.firstColumn, plan.lastColumn, deleted);
    for (Record const& r : deleted) reinterpret_cast<RowHeader*>(r.row())->flags &= ~std::uint32_t(RowInTable);

    for (Index* i : indexes) i->endUpdate();
    for (Index* d : dependents) d->dependentEndUpdate(table);
}
