#include "volatility.h"

#include "cachedindex.h"
#include "masterindex.h"

namespace {
QString const kBachelierTable = QStringLiteral("k3.volat_coeff_bach");
} // namespace

// ---- VolatDirectory -----------------------------------------------------------

VolatDirectory::VolatDirectory(QObject* parent)
    : Directory(parent, staticMetaObject)
{
    resolveColumns({{m_stockId, "stock_id"}, {m_boardId, "board_id"}, {m_secId, "sec_id"}, {m_isinId, "isin_id"},
                    {m_sessId, "sess_id"}, {m_upPrem, "up_prem"}, {m_downPrem, "down_prem"}});
    QSharedPointer<Table> t = table();
    m_index = ownIndex(new MasterIndex_Column(t.data(), QList<int>{m_stockId, m_boardId, m_secId, m_sessId}));
    m_index->build();
    m_byId = DirectoryKey<int, int, long long, int>(t, m_index, {m_stockId, m_boardId, m_secId, m_sessId});
}

Record VolatDirectory::recordById(int stock, int board, long long secId, int sessId) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    return m_byId.find(stock, board, secId, sessId);
}

void VolatDirectory::endUpdate() { Q_EMIT dataChanged(); }

// ---- VolatCoeffDirectory ------------------------------------------------------

VolatCoeffDirectory::VolatCoeffDirectory(QObject* parent, QMetaObject const& cls)
    : Directory(parent, cls), m_tableName(table()->name())
{
    resolveColumns({{m_optionSeriesId, "option_series_id"}, {m_a, "a"}, {m_b, "b"}, {m_c, "c"}, {m_d, "d"},
                    {m_e, "e"}, {m_s, "s"}});
    QSharedPointer<Table> t = table();
    // Typed, with key copies and a cache: an option board asks for the same
    // series over and over, a market-wide pass for every series in turn.
    m_index = ownIndex(MasterIndex_Struct_Cached<int>::create(t.data(), QStringList{QStringLiteral("option_series_id")}));
    m_index->build();
    m_byId = DirectoryKey<int>(t, m_index, {m_optionSeriesId});
}

Record VolatCoeffDirectory::recordById(int optionSeriesId) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    return m_byId.find(optionSeriesId);
}

bool VolatCoeffDirectory::volatCoeffsById(int optionSeriesId, VolatInputParams& params) const
{
    Record r = recordById(optionSeriesId);
    if (r.isEmpty()) return false;
    Table* t = r.table();
    unsigned char* row = r.row();
    params.a = t->dataPtr(row, m_a).toDouble();
    params.b = t->dataPtr(row, m_b).toDouble();
    params.c = t->dataPtr(row, m_c).toDouble();
    params.d = t->dataPtr(row, m_d).toDouble();
    params.e = t->dataPtr(row, m_e).toDouble();
    params.s = t->dataPtr(row, m_s).toDouble();
    // Only the Bachelier table says how normal its series are.
    params.m = m_tableName == kBachelierTable ? t->dataPtr(row, m_m).toDouble() : 1.0;
    return true;
}

bool VolatCoeffDirectory::containsOptionSeriesId(int optionSeriesId) const
{
    return !recordById(optionSeriesId).isEmpty();
}

void VolatCoeffDirectory::dependentEndUpdate(Table*) { Q_EMIT dataChanged(); }

VolatCoeffBlackDirectory::VolatCoeffBlackDirectory(QObject* parent)
    : VolatCoeffDirectory(parent, staticMetaObject)
{
}

VolatCoeffBachDirectory::VolatCoeffBachDirectory(QObject* parent)
    : VolatCoeffDirectory(parent, staticMetaObject)
{
    resolveColumns({{m_m, "m"}});
}

// ---- OptionSeriesParamDirectory -----------------------------------------------

uint qHash(SeriesParamData const& data, uint seed)
{
    return qHash(data.sec_name + data.base_code + QString::number(data.option_series_id) +
                     QString::number(data.underlying_id),
                 seed);
}

OptionSeriesParamDirectory::OptionSeriesParamDirectory(QObject* parent)
    : Directory(parent, staticMetaObject)
{
    resolveColumns({{m_secName, "sec_name"}, {m_baseCode, "base_code"}, {m_underlyingId, "underlying_id"},
                    {m_optionSeriesId, "option_series_id"}, {m_expirationDate, "expiration_date"}});
    build();
}

SeriesParamData OptionSeriesParamDirectory::dataOf(Record const& record) const
{
    SeriesParamData data;
    data.sec_name = record.data(m_secName).toString();
    data.base_code = record.data(m_baseCode).toString();
    data.option_series_id = record.data(m_optionSeriesId).toInteger();
    data.underlying_id = record.data(m_underlyingId).toInteger();
    return data;
}

void OptionSeriesParamDirectory::add(Record const& record)
{
    SeriesParamData const data = dataOf(record);
    m_seriesParamData[record.data(m_expirationDate).toQDate()].insert(data);
    SeriesParam& param = m_seriesParam[data.underlying_id];
    param.sec_name = data.sec_name;
    param.base_code = data.base_code;
    param.option_series_id = data.option_series_id;
    Q_EMIT dataChanged();
}

void OptionSeriesParamDirectory::remove(Record const& record, int)
{
    SeriesParamData const data = dataOf(record);
    m_seriesParam.remove(data.underlying_id);
    QDate const date = record.data(m_expirationDate).toQDate();
    if (!m_seriesParamData[date].remove(data)) m_seriesParamData.remove(date);
    Q_EMIT dataChanged();
}

void OptionSeriesParamDirectory::build()
{
    QSharedPointer<Table> t = table();
    if (t) {
        bool const wasBlocked = blockSignals(true);
        t->lock();
        try {
            MasterIndex_Column_Pure* master = t->masterIndex();
            for (auto it = master->begin(); it != master->end(); ++it) add(*it);
        } catch (...) {
            t->unlock();
            blockSignals(wasBlocked);
            throw;
        }
        t->unlock();
        blockSignals(wasBlocked);
    }
    Q_EMIT dataChanged();
}

void OptionSeriesParamDirectory::clear()
{
    m_seriesParam.clear();
    m_seriesParamData.clear();
    Q_EMIT dataChanged();
}

// The one instance of each directory class here.
DIRECTORY_SINGLETON_DEFINE(VolatDirectory)
DIRECTORY_SINGLETON_DEFINE(VolatCoeffBlackDirectory)
DIRECTORY_SINGLETON_DEFINE(VolatCoeffBachDirectory)
DIRECTORY_SINGLETON_DEFINE(OptionSeriesParamDirectory)
