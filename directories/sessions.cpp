#include "sessions.h"
#include "markets.h"

#include <algorithm>

// ---- SessionDirectory ---------------------------------------------------------

SessionDirectory::SessionDirectory(QObject* parent)
    : Directory(parent, staticMetaObject)
{
    resolveColumns({{m_stockId, "stock_id"}, {m_sessId, "sess_id"}, {m_name, "name"}, {m_date, "date"}});
    m_byId = DirectoryKey<int, int>(table(), nullptr, {m_stockId, m_sessId});
}

Record SessionDirectory::recordById(int stock, int sessId) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    return m_byId.find(marketAlias(stock), sessId);
}

QString SessionDirectory::nameById(int stock, int sessId) const
{
    Record r = recordById(stock, sessId);
    return r.isEmpty() ? tr("<сессия не найдена>") : r.data(m_name).toString();
}

datetime SessionDirectory::dateById(int stock, int sessId) const
{
    Record r = recordById(stock, sessId);
    return r.isEmpty() ? datetime() : r.data(m_date).toDatetime();
}

int SessionDirectory::getMaxSessId(int stock) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    QSharedPointer<Table> t = table();
    if (!t) return -1;
    stock = marketAlias(stock);
    int best = 0;
    MasterIndex_Column_Pure* master = t->masterIndex();
    for (auto it = master->begin(); it != master->end(); ++it) {
        unsigned char* row = it->row();
        if (t->dataPtr(row, m_stockId).toInteger() != stock) continue;
        best = std::max(best, t->dataPtr(row, m_sessId).toInteger());
    }
    return best;
}

bool SessionDirectory::isActiveSessId(int stock, int sessId) const { return sessId == getMaxSessId(stock); }

Record SessionDirectory::getMaxSession(int stock) const { return recordById(stock, getMaxSessId(stock)); }

void SessionDirectory::dependentEndUpdate(Table*) { Q_EMIT dataChanged(); }

// ---- CalendarDirectory --------------------------------------------------------

CalendarDirectory::CalendarDirectory(QObject* parent)
    : Directory(parent, staticMetaObject)
{
    resolveColumns({{m_date, "date"}, {m_type, "type"}});
    m_byDate = DirectoryKey<datetime>(table(), nullptr, {m_date});
}

QList<Record> CalendarDirectory::range(datetime const& from, datetime const& to) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    QList<Record> days;
    QSharedPointer<Table> t = table();
    if (!t) return days;
    MasterIndex_Column_Pure* master = t->masterIndex();
    int const count = master->count();
    if (count == 0) return days;
    Record key = m_byDate.keyRecord(from);
    if (key.isEmpty()) return days;
    // First position whose day is not before `from`: halve the distance left.
    int first = 0, left = count;
    while (left > 0) {
        int const half = left / 2;
        if (master->compare(master->at(first + half), key) < 0) {
            first += half + 1;
            left -= half + 1;
        } else {
            left = half;
        }
    }
    for (int i = first; i < count; ++i) {
        Record day = master->at(i);
        if (day.data(m_date).toDatetime() > to) break;
        days.append(day);
    }
    return days;
}

bool CalendarDirectory::isTradingDay(Record const& day) const
{
    return !day.isEmpty() && day.data(m_type).toInteger() == 0;
}

datetime CalendarDirectory::date(Record const& day) const
{
    return day.isEmpty() ? datetime() : day.data(m_date).toDatetime();
}

void CalendarDirectory::dependentEndUpdate(Table*) { Q_EMIT dataChanged(); }

// ---- StockTimeDirectory -------------------------------------------------------

StockTimeDirectory::StockTimeDirectory(QObject* parent)
    : Directory(parent, staticMetaObject)
{
    resolveColumns({{m_stockId, "stock_id"}, {m_diffVsCurTime, "diff_vs_cur_time"}, {m_serverTime, "server_time"}});
    m_byId = DirectoryKey<int>(table(), nullptr, {m_stockId});
}

Record StockTimeDirectory::recordById(int stock) const { return m_byId.find(stock); }

datetime StockTimeDirectory::timeByStockId(int stock) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    Record r = recordById(stock);
    return r.isEmpty() ? datetime() : r.data(m_serverTime).toDatetime();
}

datetime StockTimeDirectory::correctedLocalTime(int stock) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    if (stock == m_memoStock && !m_memoTable.isNull()) return datetime(datetime::now().value() + m_memoOffset);
    QSharedPointer<Table> t = table();
    if (!t) return datetime::now();
    Record r = recordById(stock == -1 ? 1 : stock);
    qint64 offset = 0;
    if (!r.isEmpty()) {
        offset = r.data(m_diffVsCurTime).toInteger64();
    } else {
        // A market without its own row runs on the furthest-ahead clock.
        MasterIndex_Column_Pure* master = t->masterIndex();
        bool any = false;
        for (auto it = master->begin(); it != master->end(); ++it) {
            qint64 const diff = t->dataPtr(it->row(), m_diffVsCurTime).toInteger64();
            offset = any ? std::max(offset, diff) : diff;
            any = true;
        }
    }
    m_memoTable = t;
    m_memoStock = stock;
    m_memoOffset = offset;
    return datetime(datetime::now().value() + offset);
}

void StockTimeDirectory::dependentEndUpdate(Table*)
{
    m_memoTable.clear();   // the offsets may have changed
    Q_EMIT dataChanged();
}

// The one instance of each directory class here.
DIRECTORY_SINGLETON_DEFINE(SessionDirectory)
DIRECTORY_SINGLETON_DEFINE(CalendarDirectory)
DIRECTORY_SINGLETON_DEFINE(StockTimeDirectory)
