#include <database/decimal.h>
#include <database/exception.h>
#include <database/index.h>
#include <database/table.h>
#include "batchapplier.h"

#include <QThread>

#include <QElapsedTimer>
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {
int alignmentOf(FieldType::Type t)
{
    switch (t) {
    case FieldType::Int: return 4;
    case FieldType::Char: return 2;
    case FieldType::Block: return 4;
    default: return 8;
    }
}
ColumnDef const& unknownColumn()
{
    static ColumnDef const def;
    return def;
}
unsigned char g_noFlags = 0;   // flag byte of absent columns: never written
// Offsets and sizes of a row are ints; a replicated row is a few hundred
// bytes, so a schema asking for more than this is a mistake, not data.
constexpr qint64 kMaxRowBytes = qint64(1) << 20;
} // namespace

Table::Table(TableSchema const& schema, MasterIndexFactory const& factory)
    : m_name(schema.name), m_key(schema.key)
{
    int n = schema.columns.size();
    if (n == 0) throw Exception(QStringLiteral("Table '%1' has no columns").arg(m_name));
    m_columns.reserve(std::size_t(n));
    for (int i = 0; i < n; ++i) {
        ColumnDef c = schema.columns.at(i);
        if (c.type < FieldType::Int || c.type > FieldType::Block)
            throw Exception(QStringLiteral("Table '%1': column '%2' has unknown type %3").arg(m_name, c.name).arg(c.type));
        if (c.type == FieldType::Char && (c.length <= 0 || c.length % 2))
            throw Exception(QStringLiteral("Table '%1': column '%2' needs an even length").arg(m_name, c.name));
        // A packed decimal's scale field would wrap a scale it cannot hold.
        bool extended = c.type == FieldType::XDecimal;
        int minScale = extended ? xdecimal::minScale : decimal::minScale;
        int maxScale = extended ? xdecimal::maxScale : decimal::maxScale;
        if ((extended || c.type == FieldType::Decimal) && (c.scale < minScale || c.scale > maxScale))
            throw Exception(QStringLiteral("Table '%1': column '%2' has scale %3, outside %4..%5")
                                .arg(m_name, c.name).arg(c.scale).arg(minScale).arg(maxScale));
        if (m_columnByName.contains(c.name))
            throw Exception(QStringLiteral("Table '%1': column '%2' is defined twice").arg(m_name, c.name));
        if (c.type == FieldType::Char && c.length > kMaxRowBytes)
            throw Exception(QStringLiteral("Table '%1': column '%2' has length %3, more than a row may hold (%4 bytes)")
                                .arg(m_name, c.name).arg(c.length).arg(kMaxRowBytes));
        c.length = FieldType::storageSize(c.typeCode(), c.length);
        if (c.type != FieldType::Decimal && c.type != FieldType::XDecimal) c.scale = 0;
        m_columnByName.insert(c.name, i);
        m_columns.push_back(c);
    }
    // Layout: header, flag bytes, then values grouped by alignment so that
    // no padding is wasted between them.
    m_flagBytes = (n + 7) / 8;
    qint64 offset = qint64(sizeof(RowHeader)) + m_flagBytes;
    for (int align : {8, 4, 2}) {
        for (int i = 0; i < n; ++i) {
            ColumnDef& c = m_columns[std::size_t(i)];
            if (alignmentOf(c.typeCode()) != align) continue;
            offset = (offset + align - 1) / align * align;
            if (offset + c.length > kMaxRowBytes)
                throw Exception(QStringLiteral("Table '%1': its columns make a row of more than %2 bytes (at column '%3')")
                                    .arg(m_name).arg(kMaxRowBytes).arg(c.name));
            c.offset = int(offset);
            offset += c.length;
        }
    }
    m_rowSize = int((offset + 7) / 8 * 8);
    for (int i = 0; i < n; ++i) {
        ColumnDef& c = m_columns[std::size_t(i)];
        c.flagOffset = int(sizeof(RowHeader)) + i / 8;
        c.mask = static_cast<unsigned char>(1u << (i % 8));
        if (c.type == FieldType::VarChar) m_stringColumns.push_back(i);
    }
    for (QString const& k : m_key) {
        int c = columnIndex(k);
        if (c < 0) throw Exception(QStringLiteral("Table '%1': key column '%2' does not exist").arg(m_name, k));
        if (m_columns[std::size_t(c)].nullable)
            throw Exception(QStringLiteral("Table '%1': key column '%2' must not be nullable").arg(m_name, k));
        m_keyNumbers.append(c);
    }
    if (m_key.isEmpty()) throw Exception(QStringLiteral("Table '%1' has no key").arg(m_name));
    m_master = factory ? factory(this, m_key) : nullptr;
    if (!m_master) m_master = new MasterIndex_Column_Pure(this, m_keyNumbers);
    m_indexes.append(m_master);
}

Table::~Table()
{
    // Set only for a table the database never owned (a trial build of a
    // schema); a dropped table gave its master index up in release().
    delete m_master;
    for (unsigned char* block : m_blocks) std::free(block);
}

void Table::release(Table* table)
{
    // The database let go of the table: drop its rows now; rows that other
    // holders still reference keep the layout alive until they are freed.
    table->m_dropped.store(true);
    MasterIndex_Column_Pure* master = table->m_master;
    table->m_master = nullptr;
    table->m_indexes.clear();
    table->m_dependents.clear();
    table->lock();
    for (auto const& w : table->m_watchers) w->active = false;
    table->m_watchers.clear();
    table->unlock();
    delete master;
    if (table->m_liveRows.fetch_sub(1, std::memory_order_acq_rel) == 1) delete table;
}

int Table::columnIndex(QString const& name) const { return m_columnByName.value(name, -1); }

ColumnDef const& Table::columnDef(int column) const
{
    if (column < 0 || column >= int(m_columns.size())) return unknownColumn();
    return m_columns[std::size_t(column)];
}

int Table::rowCount() const { return m_master ? m_master->count() : 0; }

Field Table::absentField() { return Field(&unknownColumn(), nullptr, &g_noFlags, 1); }

Record Table::copyRow(Record const& source, bool forTable) const
{
    Record copy = Record::adopt(allocRow(forTable));
    unsigned char* dst = copy.row();
    unsigned char const* src = source.row();
    // Values and flags byte for byte, then each string properly shared.
    std::size_t header = sizeof(RowHeader);
    std::memcpy(dst + header, src + header, std::size_t(m_rowSize) - header);
    for (int c : m_stringColumns) {
        std::size_t off = std::size_t(m_columns[std::size_t(c)].offset);
        new (dst + off) QString(*std::launder(reinterpret_cast<QString const*>(src + off)));
    }
    return copy;
}

#if defined(__SANITIZE_ADDRESS__)
#define DATABASE_ROWS_FROM_MALLOC 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define DATABASE_ROWS_FROM_MALLOC 1
#endif
#endif

unsigned char* Table::takeRowBuffer(bool fromBlocks) const
{
#ifdef DATABASE_ROWS_FROM_MALLOC
    // Under the address checker every row is an allocation of its own, so
    // that a use after free is caught.
    fromBlocks = false;
#endif
    if (!fromBlocks) return static_cast<unsigned char*>(std::malloc(std::size_t(m_rowSize)));
    std::lock_guard<std::mutex> lock(m_poolMutex);
    if (!m_freeRows) {
        // Small tables take small blocks; large ones grow to 64 rows a block.
        int rows = m_nextBlockRows;
        m_nextBlockRows = std::min(64, rows * 2);
        auto* block = static_cast<unsigned char*>(std::malloc(std::size_t(rows) * std::size_t(m_rowSize)));
        if (!block) return nullptr;
        m_blocks.push_back(block);
        for (int i = rows - 1; i >= 0; --i) {
            unsigned char* row = block + std::size_t(i) * std::size_t(m_rowSize);
            std::memcpy(row, &m_freeRows, sizeof m_freeRows);
            m_freeRows = row;
        }
    }
    unsigned char* row = m_freeRows;
    std::memcpy(&m_freeRows, row, sizeof m_freeRows);
    return row;
}

void Table::giveRowBuffer(unsigned char* row, bool fromBlocks) const
{
    if (!fromBlocks) {
        std::free(row);
        return;
    }
    std::lock_guard<std::mutex> lock(m_poolMutex);
    std::memcpy(row, &m_freeRows, sizeof m_freeRows);
    m_freeRows = row;
}

unsigned char* Table::allocRow(bool forTable) const
{
#ifdef DATABASE_ROWS_FROM_MALLOC
    forTable = false;
#endif
    auto* row = takeRowBuffer(forTable);
    if (!row) throw std::bad_alloc();
    std::memset(row, 0, std::size_t(m_rowSize));
    auto* h = new (row) RowHeader;
    h->ref.store(1, std::memory_order_relaxed);
    h->flags = forTable ? std::uint32_t(RowFromBlocks) : 0;
    h->table = const_cast<Table*>(this);
    for (int c : m_stringColumns) new (row + m_columns[std::size_t(c)].offset) QString();
    m_liveRows.fetch_add(1, std::memory_order_relaxed);
    return row;
}

void Table::freeRow(unsigned char* row) const
{
    if (!row) return;
    for (int c : m_stringColumns)
        std::launder(reinterpret_cast<QString*>(row + m_columns[std::size_t(c)].offset))->~QString();
    auto* h = reinterpret_cast<RowHeader*>(row);
    bool fromBlocks = h->flags & RowFromBlocks;
    h->~RowHeader();
    giveRowBuffer(row, fromBlocks);
    if (m_liveRows.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
}

void Table::lock() const
{
    m_mutex.lock();
    if (m_lockDepth++ == 0) m_lockOwner.store(QThread::currentThreadId(), std::memory_order_release);
}

bool Table::tryLock() const
{
    if (!m_mutex.try_lock()) return false;
    if (m_lockDepth++ == 0) m_lockOwner.store(QThread::currentThreadId(), std::memory_order_release);
    return true;
}

void Table::unlock() const
{
    if (--m_lockDepth == 0) m_lockOwner.store(nullptr, std::memory_order_release);
    m_mutex.unlock();
}

bool Table::isLockedByCurrentThread() const
{
    return m_lockOwner.load(std::memory_order_acquire) == QThread::currentThreadId();
}

bool Table::mayReadRows() const
{
    Qt::HANDLE here = QThread::currentThreadId();
    return updatingThread() == here || m_lockOwner.load(std::memory_order_acquire) == here;
}

namespace {
struct TableLocker
{
    explicit TableLocker(Table const* t) : table(t) { table->lock(); }
    ~TableLocker() { table->unlock(); }
    Table const* table;
};
} // namespace

void Table::addIndex(Index* index)
{
    TableLocker locker(this);
    if (index && !m_indexes.contains(index)) m_indexes.append(index);
}

void Table::removeIndex(Index* index)
{
    TableLocker locker(this);
    if (index == m_master) return;
    m_indexes.removeAll(index);
    for (auto it = m_named.begin(); it != m_named.end();) it = it.value() == index ? m_named.erase(it) : std::next(it);
}

void Table::addDependentIndex(Index* index)
{
    TableLocker locker(this);
    if (index && !m_dependents.contains(index)) m_dependents.append(index);
}

void Table::removeDependentIndex(Index* index)
{
    TableLocker locker(this);
    m_dependents.removeAll(index);
}

void Table::setIndexName(QString const& name, Index* index)
{
    TableLocker locker(this);
    m_named.insert(name, index);
}

Index* Table::indexByName(QString const& name) const
{
    TableLocker locker(this);
    return m_named.value(name, nullptr);
}

Table::WatcherId Table::addWatcher(QString const& name, Watcher watcher)
{
    TableLocker locker(this);
    if (!watcher) return 0;
    auto entry = std::make_shared<WatcherEntry>();
    entry->id = m_nextWatcher++;
    entry->name = name;
    entry->call = std::move(watcher);
    m_watchers.push_back(entry);
    return entry->id;
}

void Table::removeWatcher(WatcherId id)
{
    TableLocker locker(this);
    for (auto it = m_watchers.begin(); it != m_watchers.end(); ++it) {
        if ((*it)->id != id) continue;
        (*it)->active = false;
        m_watchers.erase(it);
        return;
    }
}

int Table::watcherCount() const
{
    TableLocker locker(this);
    return int(m_watchers.size());
}

TableWatch::TableWatch(QSharedPointer<Table> const& table, QString const& name, Table::Watcher watcher)
    : m_table(table), m_id(table ? table->addWatcher(name, std::move(watcher)) : 0)
{
}

TableWatch::~TableWatch() { reset(); }

TableWatch::TableWatch(TableWatch&& other) noexcept : m_table(std::move(other.m_table)), m_id(other.m_id) { other.m_id = 0; }

TableWatch& TableWatch::operator=(TableWatch&& other) noexcept
{
    if (this != &other) {
        reset();
        m_table = std::move(other.m_table);
        m_id = other.m_id;
        other.m_id = 0;
    }
    return *this;
}

void TableWatch::reset()
{
    if (m_id != 0)
        if (QSharedPointer<Table> table = m_table.toStrongRef()) table->removeWatcher(m_id);
    m_id = 0;
    m_table.clear();
}

void Table::clear()
{
    BatchApplier::restructure(this, QStringLiteral("clear of table '%1'").arg(m_name), [this](Index* i) {
        if (i == m_master) {
            // The rows leave the table with the master index.
            for (auto it = m_master->begin(); it != m_master->end(); ++it)
                reinterpret_cast<RowHeader*>(it->row())->flags &= ~std::uint32_t(RowInTable);
        }
        i->clear();
    }, true);
}

void Table::build()
{
    BatchApplier::restructure(this, QStringLiteral("build of table '%1'").arg(m_name), [](Index* i) { i->build(); });
}

void Table::rebuild()
{
    // The master index holds the rows: it is resorted, never emptied.
    BatchApplier::restructure(this, QStringLiteral("rebuild of table '%1'").arg(m_name), [this](Index* i) {
        if (i == m_master) m_master->resort();
        else i->rebuild();
    });
}
