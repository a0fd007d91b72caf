#include "markets.h"

#include "masterindex.h"

#include <algorithm>
#include <mutex>
#include <vector>

// ---- StockDirectory ---------------------------------------------------------

StockDirectory::StockDirectory(QObject* parent)
    : Directory(parent, staticMetaObject)
{
    resolveColumns({{m_stockId, "stock_id"}, {m_stockCode, "stock_code"}, {m_name, "name"}});
    if (QSharedPointer<Table> t = table()) {
        m_codeIndex = ownIndex(new MasterIndex_Column(t.data(), QList<int>{m_stockCode}));
        m_codeIndex->build();
    }
    m_byId = DirectoryKey<int>(table(), nullptr, {m_stockId});
    // Keys as keys() hands them out: the table's own key column.
    if (QSharedPointer<Table> t = table()) m_byKey = DirectoryKey<Field>(t, nullptr, {t->keyColumnNumbers().value(0, -1)});
    m_byCode = DirectoryKey<QString>(table(), m_codeIndex, {m_stockCode});
}

Record StockDirectory::recordById(int id) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    return m_byId.find(id);
}

Record StockDirectory::recordByCode(QString const& code) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    return m_byCode.find(code);
}

Record StockDirectory::recordByKey(KeyValue const& key) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    // The market's key is its id alone; the value converts to the column.
    return key.isEmpty() ? Record() : m_byKey.find(key.first());
}

int StockDirectory::idByCode(QString const& code) const
{
    Record row = recordByCode(code);
    return row.isEmpty() ? 0 : row.data(m_stockId).toInteger();
}

QString StockDirectory::codeById(int id) const
{
    Record row = recordById(id);
    return row.isEmpty() ? QString() : row.data(m_stockCode).toString();
}

QString StockDirectory::codeByKey(KeyValue const& key) const
{
    Record row = recordByKey(key);
    return row.isEmpty() ? QString() : row.data(m_stockCode).toString();
}

QString StockDirectory::nameById(int id) const
{
    Record row = recordById(id);
    return row.isEmpty() ? tr("ID_%1").arg(id) : row.data(m_name).toString();
}

QString StockDirectory::nameByIdAs(int id) const
{
    if (!table()) return tr("ID_%1").arg(id);
    Record row = recordById(id);
    return row.isEmpty() ? tr("<площадка не найдена>") : row.data(m_name).toString();
}

QString StockDirectory::nameByCode(QString const& code) const
{
    Record row = recordByCode(code);
    return row.isEmpty() ? tr("<площадка не найдена>") : row.data(m_name).toString();
}

QString StockDirectory::nameByKey(KeyValue const& key) const
{
    if (!table()) return toString(key);
    Record row = recordByKey(key);
    return row.isEmpty() ? tr("ID_%1").arg(toString(key)) : row.data(m_name).toString();
}

QList<int> StockDirectory::ids() const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    QList<int> ids;
    QSharedPointer<Table> t = table();
    if (!t) return ids;
    for (auto it = t->masterIndex()->begin(); it != t->masterIndex()->end(); ++it)
        ids.append(t->dataPtr(it->row(), m_stockId).toInteger());
    return ids;
}

QList<KeyValue> StockDirectory::keys() const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    QList<KeyValue> keys;
    QSharedPointer<Table> t = table();
    if (!t) return keys;
    QList<int> const& columns = t->keyColumnNumbers();
    for (auto it = t->masterIndex()->begin(); it != t->masterIndex()->end(); ++it) {
        KeyValue key;
        for (int c : columns) key.append(FieldValue(t->dataPtr(it->row(), c)));
        keys.append(key);
    }
    return keys;
}

void StockDirectory::dependentEndUpdate(Table*) { Q_EMIT dataChanged(); }

// ---- StockSecDirectory ------------------------------------------------------

StockSecDirectory::StockSecDirectory(QObject* parent)
    : Directory(parent, staticMetaObject)
{
    resolveColumns({{m_stockId, "stock_id"}, {m_secId, "sec_id"}, {m_decimals, "decimals"}});
    // Registered after the table was filled, so the rows so far come from here.
    build();
}

int StockSecDirectory::decimalsById(int stock, long long secId) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    int part = 0, offset = 0;
    if (!locate(Key{stock, secId}, part, offset)) return 0;
    return m_decimalsByKey.partitionAt(part).items[std::size_t(offset)].decimals;
}

StockSecDirectory::Key StockSecDirectory::keyOf(Record const& record) const
{
    return Key{record.data(m_stockId).toInteger(), record.data(m_secId).toInteger64()};
}

bool StockSecDirectory::locate(Key const& key, int& part, int& offset) const
{
    // Without branches on the comparisons: the search waits on memory, not
    // on mispredicted jumps.
    auto before = [](Entry const& e, Key const& k) {
        return (e.stock < k.stock) | ((e.stock == k.stock) & (e.secId < k.secId));
    };
    int parts = m_decimalsByKey.partitionCount();
    int lo = 0, hi = parts;
    while (lo < hi) {
        int mid = lo + (hi - lo) / 2;
        if (before(m_decimalsByKey.partitionAt(mid).items.back(), key)) lo = mid + 1;
        else hi = mid;
    }
    if (lo == parts) {
        // Past every pair: at the end of the last block.
        part = parts ? parts - 1 : 0;
        offset = parts ? m_decimalsByKey.partitionAt(part).count() : 0;
        return false;
    }
    auto const& items = m_decimalsByKey.partitionAt(lo).items;
    Entry const* base = items.data();
    for (std::size_t n = items.size(); n > 1;) {
        std::size_t half = n / 2;
        base = before(base[half], key) ? base + half : base;
        n -= half;
    }
    part = lo;
    offset = int(base - items.data()) + (before(*base, key) ? 1 : 0);
    Entry const& e = items[std::size_t(offset)];
    return e.stock == key.stock && e.secId == key.secId;
}

void StockSecDirectory::storeAt(Key const& key, int decimals, bool found, int part, int offset)
{
    Entry entry;
    entry.stock = key.stock;
    entry.secId = key.secId;
    entry.decimals = decimals;
    if (found) m_decimalsByKey.replaceAt(part, offset, entry);
    else m_decimalsByKey.insertAt(part, offset, entry);
    Q_EMIT dataChanged(key.stock, key.secId);
}

void StockSecDirectory::clear() { m_decimalsByKey.clear(); }

void StockSecDirectory::build()
{
    QSharedPointer<Table> t = table();
    if (!t) return;
    {
        std::lock_guard<Table const> lock(*t);
        // Sorted once and packed, rather than inserted pair by pair; of
        // pairs seen twice the later row wins, as it would by inserting.
        std::vector<Entry> all;
        for (int p = 0; p < m_decimalsByKey.partitionCount(); ++p)
            for (Entry const& e : m_decimalsByKey.partitionAt(p).items) all.push_back(e);
        for (auto it = t->masterIndex()->begin(); it != t->masterIndex()->end(); ++it) {
            if (!filter(*it)) continue;
            Entry e;
            Key k = keyOf(*it);
            e.stock = k.stock;
            e.secId = k.secId;
            e.decimals = it->data(m_decimals).toInteger();
            all.push_back(e);
        }
        auto less = [](Entry const& a, Entry const& b) { return a.key() < b.key(); };
        std::stable_sort(all.begin(), all.end(), less);
        std::vector<Entry> unique;
        unique.reserve(all.size());
        for (Entry const& e : all) {
            if (!unique.empty() && !less(unique.back(), e)) unique.back() = e;
            else unique.push_back(e);
        }
        m_decimalsByKey.assign(std::move(unique));
    }
    Q_EMIT dataChanged(0, 0);
}

void StockSecDirectory::add(Record const& record)
{
    Key key = keyOf(record);
    int decimals = record.data(m_decimals).toInteger();
    int part = 0, offset = 0;
    bool found = locate(key, part, offset);
    if (found && m_decimalsByKey.partitionAt(part).items[std::size_t(offset)].decimals == decimals) return;
    storeAt(key, decimals, found, part, offset);
}

void StockSecDirectory::remove(Record const& record, int)
{
    Key key = keyOf(record);
    int part = 0, offset = 0;
    if (!locate(key, part, offset)) return;
    m_decimalsByKey.removeAt(part, offset);
    Q_EMIT dataChanged(key.stock, key.secId);
}

void StockSecDirectory::update(Record const& record, int firstColumn, int lastColumn, int position)
{
    if (!filter(record)) {
        remove(record, position);
        return;
    }
    // Most updates are prices: a batch whose changed columns stop short of
    // "decimals" cannot have changed it, so the map is not even consulted.
    if (firstColumn >= 0 && lastColumn >= 0 && (m_decimals < firstColumn || m_decimals > lastColumn)) return;
    Key key = keyOf(record);
    int decimals = record.data(m_decimals).toInteger();
    int part = 0, offset = 0;
    bool found = locate(key, part, offset);
    int stored = found ? m_decimalsByKey.partitionAt(part).items[std::size_t(offset)].decimals : 0;
    if (stored != decimals) storeAt(key, decimals, found, part, offset);
}

bool StockSecDirectory::filter(Record const&) const { return true; }

// ---- BoardDirectory ---------------------------------------------------------

BoardDirectory::BoardDirectory(QObject* parent)
    : Directory(parent, staticMetaObject)
{
    resolveColumns({{m_stockId, "stock_id"}, {m_boardId, "board_id"}, {m_boardCode, "board_code"}, {m_name, "name"},
                    {m_anonym, "anonym"}, {m_sectype, "sectype"}, {m_flags, "flags"},
                    {m_boardCodeIss, "board_code_iss"}});
    if (QSharedPointer<Table> t = table()) {
        m_codeIndex = ownIndex(new MasterIndex_Column(t.data(), QList<int>{m_stockId, m_boardCode}));
        m_codeIndex->build();
    }
    m_byId = DirectoryKey<int, int>(table(), nullptr, {m_stockId, m_boardId});
    m_byCode = DirectoryKey<int, QString>(table(), m_codeIndex, {m_stockId, m_boardCode});
}

Record BoardDirectory::findById(int stock, int board) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    return m_byId.find(stock, board);
}

Record BoardDirectory::findByCode(int stock, QString const& boardCode) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    return m_byCode.find(stock, boardCode);
}

Record BoardDirectory::findByCodes(QString const& stockCode, QString const& boardCode) const
{
    // No market table: no code resolves, as with an unbound directory.
    StockDirectory* stocks = directoryOrNull<StockDirectory>();
    return findByCode(stocks ? stocks->idByCode(stockCode) : 0, boardCode);
}

QString BoardDirectory::textById(int stock, int board, int column) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    Record row = findById(stock, board);
    return row.isEmpty() ? QString() : row.data(column).toString();
}

Record BoardDirectory::recordById(int stock, int board) const { return findById(marketAlias(stock), board); }

QString BoardDirectory::codeById(int stock, int board) const { return textById(stock, board, m_boardCode); }

QString BoardDirectory::codeIssById(int stock, int board) const { return textById(stock, board, m_boardCodeIss); }

QString BoardDirectory::nameById(int stock, int board) const
{
    Record row = findById(stock, board);
    return row.isEmpty() ? tr("<режим не найден>") : row.data(m_name).toString();
}

bool BoardDirectory::checkFlagsById(int stock, int board, long long mask) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    Record row = findById(marketAlias(stock), board);
    if (row.isEmpty()) return true;
    Field flags = row.data(m_flags);
    if (flags.isNull()) return true;
    return (flags.toInteger64() & mask) != 0;
}

bool BoardDirectory::checkAnonymById(int stock, int board, QChar kind) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    Record row = findById(stock, board);
    if (row.isEmpty()) return true;
    Field anonym = row.data(m_anonym);
    if (anonym.isNull()) return true;
    return anonym.toChar() == kind;
}

int BoardDirectory::idByCode(int stock, QString const& boardCode) const
{
    Record row = findByCode(stock, boardCode);
    return row.isEmpty() ? 0 : row.data(m_boardId).toInteger();
}

int BoardDirectory::idByCode(QString const& stockCode, QString const& boardCode) const
{
    Record row = findByCodes(stockCode, boardCode);
    return row.isEmpty() ? 0 : row.data(m_boardId).toInteger();
}

QString BoardDirectory::nameByCode(QString const& stockCode, QString const& boardCode) const
{
    Record row = findByCodes(stockCode, boardCode);
    return row.isEmpty() ? QString() : row.data(m_name).toString();
}

QChar BoardDirectory::sectypeByCode(QString const& stockCode, QString const& boardCode) const
{
    Record row = findByCodes(stockCode, boardCode);
    return row.isEmpty() ? QChar(QLatin1Char(' ')) : row.data(m_sectype).toChar();
}

QList<int> BoardDirectory::ids(int stock) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    QList<int> ids;
    QSharedPointer<Table> t = table();
    if (!t) return ids;
    for (auto it = t->masterIndex()->begin(); it != t->masterIndex()->end(); ++it)
        if (t->dataPtr(it->row(), m_stockId).toInteger() == stock) ids.append(t->dataPtr(it->row(), m_boardId).toInteger());
    return ids;
}

QList<StockBoard> BoardDirectory::all(int stock) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    QList<StockBoard> boards;
    QSharedPointer<Table> t = table();
    if (!t) return boards;
    for (auto it = t->masterIndex()->begin(); it != t->masterIndex()->end(); ++it) {
        int market = t->dataPtr(it->row(), m_stockId).toInteger();
        if (stock == 0 || market == stock) boards.append(StockBoard{market, t->dataPtr(it->row(), m_boardId).toInteger()});
    }
    return boards;
}

void BoardDirectory::dependentEndUpdate(Table*) { Q_EMIT dataChanged(); }

// The one instance of each directory class here.
DIRECTORY_SINGLETON_DEFINE(StockDirectory)
DIRECTORY_SINGLETON_DEFINE(StockSecDirectory)
DIRECTORY_SINGLETON_DEFINE(BoardDirectory)
