#include "markets.h"

#include "masterindex.h"

#include <absl/container/flat_hash_map.h>

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

// The pair packed in 12 bytes, so that an entry with its decimals takes 16.
struct StockSecDirectory::Decimals
{
    struct Key
    {
        int stock;
        std::uint32_t secLow;
        std::int32_t secHigh;
        Key(int s, long long secId) : stock(s), secLow(std::uint32_t(secId)), secHigh(std::int32_t(secId >> 32)) {}
        bool operator==(Key const& o) const { return stock == o.stock && secLow == o.secLow && secHigh == o.secHigh; }
        template <class H>
        friend H AbslHashValue(H h, Key const& k)
        {
            return H::combine(std::move(h), k.stock, k.secLow, k.secHigh);
        }
    };
    absl::flat_hash_map<Key, int> byKey;
};

StockSecDirectory::StockSecDirectory(QObject* parent)
    : Directory(parent, staticMetaObject), m_decimalsByKey(std::make_unique<Decimals>())
{
    resolveColumns({{m_stockId, "stock_id"}, {m_secId, "sec_id"}, {m_decimals, "decimals"}});
    // Registered after the table was filled, so the rows so far come from here.
    build();
}

StockSecDirectory::~StockSecDirectory() = default;

int StockSecDirectory::decimalsById(int stock, long long secId) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    auto it = m_decimalsByKey->byKey.find(Decimals::Key(stock, secId));
    return it == m_decimalsByKey->byKey.end() ? 0 : it->second;
}

// Stores the pair's decimals and tells of it, unless it held them already.
void StockSecDirectory::store(int stock, long long secId, int decimals)
{
    auto [it, added] = m_decimalsByKey->byKey.try_emplace(Decimals::Key(stock, secId), decimals);
    if (!added) {
        if (it->second == decimals) return;
        it->second = decimals;
    }
    Q_EMIT dataChanged(stock, secId);
}

void StockSecDirectory::clear() { m_decimalsByKey->byKey.clear(); }

void StockSecDirectory::build()
{
    QSharedPointer<Table> t = table();
    if (!t) return;
    {
        std::lock_guard<Table const> lock(*t);
        auto& byKey = m_decimalsByKey->byKey;
        byKey.reserve(byKey.size() + std::size_t(t->rowCount()));
        // Of pairs seen twice the later row wins, as it would by inserting.
        for (auto it = t->masterIndex()->begin(); it != t->masterIndex()->end(); ++it)
            if (filter(*it))
                byKey.insert_or_assign(Decimals::Key(it->data(m_stockId).toInteger(), it->data(m_secId).toInteger64()),
                                       it->data(m_decimals).toInteger());
    }
    Q_EMIT dataChanged(0, 0);
}

void StockSecDirectory::add(Record const& record)
{
    store(record.data(m_stockId).toInteger(), record.data(m_secId).toInteger64(), record.data(m_decimals).toInteger());
}

void StockSecDirectory::remove(Record const& record, int)
{
    int stock = record.data(m_stockId).toInteger();
    long long secId = record.data(m_secId).toInteger64();
    if (m_decimalsByKey->byKey.erase(Decimals::Key(stock, secId))) Q_EMIT dataChanged(stock, secId);
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
    int stock = record.data(m_stockId).toInteger();
    long long secId = record.data(m_secId).toInteger64();
    int decimals = record.data(m_decimals).toInteger();
    // One lookup: a known pair is changed in place; a pair it does not know
    // reads as 0 decimals already.
    auto& byKey = m_decimalsByKey->byKey;
    auto it = byKey.find(Decimals::Key(stock, secId));
    if (it == byKey.end()) {
        if (decimals != 0) store(stock, secId, decimals);
        return;
    }
    if (it->second == decimals) return;
    it->second = decimals;
    Q_EMIT dataChanged(stock, secId);
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
