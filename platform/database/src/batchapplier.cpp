#include "batchapplier.h"
#include <database/exception.h>
#include <database/index.h>

#include <QElapsedTimer>
#include <algorithm>
#include <cstdint>
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
    Record row = table->copyRow(image, true);
    // The new row owns its strings outright: the image's were allocated by
    // the decoding thread, and a row sharing them would pin that thread's
    // heap pages for as long as the row lives.
    for (int c : table->m_stringColumns) {
        auto* text = std::launder(reinterpret_cast<QString*>(row.row() + table->m_columns[std::size_t(c)].offset));
        if (!text->isEmpty()) *text = QString(text->constData(), text->size());
    }
    return row;
}

namespace {
// Entries of the rows a batch finds in its table, by row: open addressing
// over a power-of-two table of row pointers, no allocation per entry.
class RowEntries
{
public:
    explicit RowEntries(std::size_t expected)
    {
        if (!expected) return;
        std::size_t size = 16;
        while (size < expected + expected / 2) size *= 2;
        m_slots.assign(size, Slot());
        m_mask = size - 1;
        m_entries.reserve(expected);
    }
    // The entry of `row`, created Existing when new.
    Entry& at(Record&& row)
    {
        auto h = reinterpret_cast<std::uintptr_t>(row.row());
        std::size_t i = std::size_t((h >> 4) * 0x9E3779B97F4A7C15ull >> 20) & m_mask;
        while (m_slots[i].row && m_slots[i].row != row.row()) i = (i + 1) & m_mask;
        Slot& slot = m_slots[i];
        if (!slot.row) {
            slot.row = row.row();
            slot.entry = int(m_entries.size());
            m_entries.emplace_back();
            m_entries.back().state = State::Existing;
            m_entries.back().row = std::move(row);
        }
        return m_entries[std::size_t(slot.entry)];
    }

private:
    struct Slot
    {
        unsigned char* row = nullptr;
        int entry = 0;
    };
    std::vector<Slot> m_slots;
    std::vector<Entry> m_entries;   // reserved: references stay valid
    std::size_t m_mask = 0;
};
} // namespace

BatchPlan BatchApplier::plan(Batch const& batch, KeyOverlay* overlay, bool keysOnly)
{
    BatchPlan plan;
    Table* table = batch.table.data();
    if (!table) throw Exception(QStringLiteral("%1: the batch has no table").arg(batch.origin));
    // Keys not in the table (and every key of a dry run or of a batch that
    // clears) are told apart by their bytes.
    QHash<QByteArray, Entry> entries;
    // The usual batch changes rows the table has: all its keys are looked up
    // at once, and the rows found name their entries.
    bool lookedUp = !overlay && !keysOnly && batch.ops.size() >= 16 &&
                    std::none_of(batch.ops.begin(), batch.ops.end(), [](BatchOp const& op) { return op.kind == BatchOp::Clear; });
    std::vector<Record> existing;
    if (lookedUp) {
        std::vector<Record const*> keys;
        keys.reserve(batch.ops.size());
        for (BatchOp const& op : batch.ops) {
            if (op.image.isEmpty() || op.image.table() != table) { lookedUp = false; break; }
            keys.push_back(&op.image);
        }
        // The sorted list itself, past any caching override: caching the
        // batch's keys would only push the readers' recent keys out.
        if (lookedUp) existing = table->masterIndex()->IndexSort::findEach(keys);
    }
    RowEntries byRow(lookedUp ? batch.ops.size() : 0);
    if (!lookedUp) entries.reserve(int(batch.ops.size()));
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

    std::size_t const opCount = batch.ops.size();
    for (BatchOp const& op : batch.ops) {
        // The decoded operations lie scattered on the heap: fetch the ones
        // a few rows ahead while this one is planned.
        if (std::size_t(rowNo) + 8 < opCount) {
            BatchOp const& ahead = batch.ops[std::size_t(rowNo) + 8];
            if (!ahead.columns.empty()) __builtin_prefetch(ahead.columns.data());
            __builtin_prefetch(ahead.image.row());
        }
        ++rowNo;
        if (op.kind == BatchOp::Clear) {
            plan = BatchPlan();
            plan.clearAll = true;
            entries.clear();
            clearedHere = true;
            continue;
        }
        if (op.image.isEmpty() || op.image.table() != table) fail(QStringLiteral("the row does not belong to the table"));
        Entry* entry = nullptr;
        if (lookedUp && !existing[std::size_t(rowNo - 1)].isEmpty()) entry = &byRow.at(std::move(existing[std::size_t(rowNo - 1)]));
        QByteArray key = entry ? QByteArray() : keyBytes(table, op.image.row());
        auto it = entry ? entries.end() : entries.find(key);
        if (!entry && it == entries.end()) {
            Entry e;
            bool known = false, exists = false;
            if (overlay && !clearedHere) {
                auto o = overlay->exists.constFind(key);
                if (o != overlay->exists.constEnd()) { known = true; exists = o.value(); }
            }
            if (lookedUp) {
                // Looked up with the rest: not in the table.
            } else if (!clearedHere && !clearedBefore && !known) {
                // The sorted list itself, past any caching override.
                e.row = table->masterIndex()->IndexSort::find(op.image, -1);
                exists = !e.row.isEmpty();
            }
            e.state = exists ? State::Existing : State::Absent;
            it = entries.insert(key, e);
        }
        Entry& e = entry ? *entry : it.value();
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
            bool first = e.update < 0;
            if (first) {
                e.update = int(plan.updates.size());
                if (plan.updates.empty()) plan.updates.reserve(batch.ops.size());
                plan.updates.push_back({e.row, op.image, int(plan.updateColumns.size()), 0, false});
            }
            BatchPlan::Update& u = plan.updates[std::size_t(e.update)];
            if (!first && !u.ownImage) {
                // A second operation on the row: the values so far move to
                // an image of the plan's own, which the later ones overwrite.
                Record own(table);
                for (int k = 0; k < u.columnCount; ++k)
                    copyColumn(table, own.row(), u.image.row(), plan.updateColumns[std::size_t(u.firstColumn + k)]);
                u.image = own;
                u.ownImage = true;
            }
            if (u.firstColumn + u.columnCount != int(plan.updateColumns.size())) {
                // A later operation on an earlier row: its run moves to the
                // end, where it can grow.
                std::vector<int> run(plan.updateColumns.begin() + u.firstColumn,
                                     plan.updateColumns.begin() + u.firstColumn + u.columnCount);
                u.firstColumn = int(plan.updateColumns.size());
                plan.updateColumns.insert(plan.updateColumns.end(), run.begin(), run.end());
            }
            for (int c : op.columns) {
                if (table->keyColumnNumbers().contains(c)) continue;
                if (u.ownImage) copyColumn(table, u.image.row(), op.image.row(), c);
                auto runBegin = plan.updateColumns.begin() + u.firstColumn;
                if (std::find(runBegin, runBegin + u.columnCount, c) != runBegin + u.columnCount) continue;
                plan.updateColumns.push_back(c);
                ++u.columnCount;
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
                                      [](BatchPlan::Update const& u) { return u.row.isEmpty() || u.columnCount == 0; }),
                       plan.updates.end());
    if (overlay) {
        if (clearedHere) { overlay->cleared = true; overlay->exists.clear(); }
        for (auto i = entries.constBegin(); i != entries.constEnd(); ++i)
            overlay->exists.insert(i.key(), i.value().state == State::Existing || i.value().state == State::Inserted);
    }
    return plan;
}

namespace {
// Runs each index's calls of one change so that a throwing index neither
// stops the others nor loses its own later calls: failures are collected
// and reported once every begin has had its end.
class HookRunner
{
public:
    HookRunner(Table* table, QString origin) : m_table(table), m_origin(std::move(origin)) {}

    template <class Call>
    void run(Index* index, char const* what, Call&& call)
    {
        QString message;
        if (attempt(call, message)) return;
        QString name;
        try {
            name = index->getClassName();
        } catch (...) {
        }
        if (name.isEmpty()) name = QStringLiteral("an index");
        m_failures << QStringLiteral("%1 failed in %2: %3").arg(name, QLatin1String(what), message);
    }
    template <class Call>
    void runWatcher(QString const& name, Call&& call)
    {
        QString message;
        if (!attempt(call, message)) m_failures << QStringLiteral("watcher '%1' failed: %2").arg(name, message);
    }
    void finish() const
    {
        if (m_failures.isEmpty()) return;
        throw HookFailure(QStringLiteral("%1: applied to table '%2', but %3")
                              .arg(m_origin.isEmpty() ? QStringLiteral("batch") : m_origin, m_table->name(),
                                   m_failures.join(QStringLiteral("; "))));
    }

private:
    template <class Call>
    static bool attempt(Call& call, QString& message)
    {
        try {
            call();
            return true;
        } catch (Exception const& e) {
            message = e.message();
        } catch (QString const& text) {
            message = text;
        } catch (std::exception const& e) {
            message = QString::fromLocal8Bit(e.what());
        } catch (...) {
            message = QStringLiteral("unknown exception");
        }
        return false;
    }

    Table* m_table;
    QString m_origin;
    QStringList m_failures;
};

struct TableLock
{
    explicit TableLock(Table* t) : table(t) { table->lock(); }
    ~TableLock() { table->unlock(); }
    Table* table;
};

// Watchers running on this thread: a batch applied from one would reach
// the other watchers before the batch they are being told of.
thread_local int t_watching = 0;

void refuseInsideWatcher(Table const* table, QString const& origin)
{
    if (t_watching > 0)
        throw Exception(QStringLiteral("%1: not applied to table '%2': a batch cannot be applied while a watcher runs")
                            .arg(origin.isEmpty() ? QStringLiteral("batch") : origin, table->name()));
}

void notifyWatchers(Table* table, RowChanges const& changes, HookRunner& hooks)
{
    // Called under the table's lock. A copy of the list: a watcher may add
    // or remove watchers; the removed ones are skipped, the added ones wait
    // for the next batch.
    auto const watchers = BatchApplier::watchersOf(table);
    for (auto const& w : watchers) {
        if (!w->active) continue;
        ++t_watching;
        hooks.runWatcher(w->name, [&] { w->call(changes); });
        --t_watching;
    }
}
} // namespace

void BatchApplier::restructure(Table* table, QString const& origin, std::function<void(Index*)> const& change, bool clearsRows)
{
    refuseInsideWatcher(table, origin);
    TableLock lock(table);
    HookRunner hooks(table, origin);
    QList<Index*> const indexes = table->indexes();
    QList<Index*> const dependents = table->dependents();
    for (Index* d : dependents) hooks.run(d, "dependentBeginUpdate", [&] { d->dependentBeginUpdate(table); });
    for (Index* i : indexes) hooks.run(i, "beginUpdate", [&] { i->beginUpdate(); });
    for (Index* i : indexes) hooks.run(i, "the change", [&] { change(i); });
    for (Index* i : indexes) hooks.run(i, "endUpdate", [&] { i->endUpdate(); });
    for (Index* d : dependents) hooks.run(d, "dependentEndUpdate", [&] { d->dependentEndUpdate(table); });
    if (clearsRows && !table->m_watchers.empty()) {
        RowChanges changes;
        changes.table = table;
        changes.origin = origin;
        changes.cleared = true;
        notifyWatchers(table, changes, hooks);
    }
    hooks.finish();
}

void BatchApplier::apply(Table* table, BatchPlan const& plan, QString const& origin)
{
    refuseInsideWatcher(table, origin);
    TableLock lock(table);
    HookRunner hooks(table, origin);
    QList<Index*> const indexes = table->indexes();
    QList<Index*> const dependents = table->dependents();

    for (Index* d : dependents) hooks.run(d, "dependentBeginUpdate", [&] { d->dependentBeginUpdate(table); });
    for (Index* i : indexes) hooks.run(i, "beginUpdate", [&] { i->beginUpdate(); });

    if (plan.clearAll) {
        IndexList* master = table->masterIndex();
        for (auto it = master->begin(); it != master->end(); ++it)
            reinterpret_cast<RowHeader*>(it->row())->flags &= ~std::uint32_t(RowInTable);
        for (Index* i : indexes) hooks.run(i, "clear", [&] { i->clear(); });
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

    for (Index* i : indexes)
        hooks.run(i, "preprocess", [&] { i->preprocess(inserted, updated, plan.firstColumn, plan.lastColumn, deleted, images); });

    if (!plan.updates.empty()) {
        // Rows change in place; readers on other threads search under these locks.
        QList<IndexList*> lists;
        for (Index* i : indexes)
            if (auto* l = dynamic_cast<IndexList*>(i)) lists.append(l);
        for (IndexList* l : lists) l->structureLock().lock();
        for (auto const& u : plan.updates)
            for (int k = 0; k < u.columnCount; ++k)
                copyColumn(table, u.row.row(), u.image.row(), plan.updateColumns[std::size_t(u.firstColumn + k)]);
        for (IndexList* l : lists) l->structureLock().unlock();
    }

    for (Index* i : indexes)
        hooks.run(i, "process", [&] { i->process(inserted, updated, plan.firstColumn, plan.lastColumn, deleted); });
    for (Record const& r : deleted) reinterpret_cast<RowHeader*>(r.row())->flags &= ~std::uint32_t(RowInTable);

    for (Index* i : indexes) hooks.run(i, "endUpdate", [&] { i->endUpdate(); });
    for (Index* d : dependents) hooks.run(d, "dependentEndUpdate", [&] { d->dependentEndUpdate(table); });

    if (!table->m_watchers.empty() && (plan.clearAll || !inserted.isEmpty() || !updated.isEmpty() || !deleted.isEmpty())) {
        RowChanges changes;
        changes.table = table;
        changes.origin = origin;
        changes.cleared = plan.clearAll;
        changes.inserted = inserted;
        changes.updated = updated;
        changes.deleted = deleted;
        changes.changedColumns.fill(false, table->columnCount());
        changes.updatedColumnStart.reserve(int(plan.updates.size()) + 1);
        for (auto const& u : plan.updates) {
            changes.updatedColumnStart.append(changes.updatedColumns.size());
            for (int k = 0; k < u.columnCount; ++k) {
                int const column = plan.updateColumns[std::size_t(u.firstColumn + k)];
                changes.updatedColumns.append(column);
                changes.changedColumns[column] = true;
            }
        }
        changes.updatedColumnStart.append(changes.updatedColumns.size());
        notifyWatchers(table, changes, hooks);
    }
    hooks.finish();
}
