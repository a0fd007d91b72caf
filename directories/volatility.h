#pragma once
#include "frame.h"

#include <core/volat.h>
#include <database/record.h>

#include <QDate>
#include <QHash>
#include <QMap>
#include <QSet>
#include <QString>

class MasterIndex_Column;

// What the option calculations read: the exchange's premium bounds, the
// smile coefficients of each option series for the two models, and the
// option series grouped by expiry and by underlying.
//
// Threading: the hooks run on the database's updating thread; every lookup
// reads live rows or the directory's own maps without a lock and belongs on
// that thread too (the GUI thread by default).

// Premium bounds per security and session ("k3.volat"), through an owned
// index over (stock, board, sec_id, sess_id). Stock 5 is NOT read as 1.
class DIRECTORY_EXPORT VolatDirectory : public Directory
{
    Q_OBJECT
    DIRECTORY_SINGLETON(VolatDirectory)
public:
    explicit VolatDirectory(QObject* parent);

    Record recordById(int stock, int board, long long secId, int sessId) const;

    // Announces every batch, changed or not.
    void endUpdate() override;
Q_SIGNALS:
    void dataChanged();

private:
    int m_stockId = -1, m_boardId = -1, m_secId = -1, m_isinId = -1, m_sessId = -1, m_upPrem = -1, m_downPrem = -1;
    MasterIndex_Column* m_index = nullptr;
    DirectoryKey<int, int, long long, int> m_byId;
};

// Smile coefficients of option series, one row per series, in one of two
// tables. Only the Bachelier table's rows carry their own m; any other
// table's rows are lognormal (m = 1).
class DIRECTORY_EXPORT VolatCoeffDirectory : public Directory
{
    Q_OBJECT
public:
    // True and `params` filled when the series has a row; otherwise false
    // and `params` untouched.
    bool volatCoeffsById(int optionSeriesId, VolatInputParams& params) const;
    bool containsOptionSeriesId(int optionSeriesId) const;

    void dependentEndUpdate(Table* table) override;
Q_SIGNALS:
    void dataChanged();

protected:
    // The table and its registration come from the subclass's registry line.
    VolatCoeffDirectory(QObject* parent, QMetaObject const& cls);

    int m_m = -1;   // bound by the Bachelier directory only

private:
    Record recordById(int optionSeriesId) const;

    QString m_tableName;
    int m_optionSeriesId = -1, m_a = -1, m_b = -1, m_c = -1, m_d = -1, m_e = -1, m_s = -1;
    MasterIndex_Column_Pure* m_index = nullptr;
    DirectoryKey<int> m_byId;
};

class DIRECTORY_EXPORT VolatCoeffBlackDirectory : public VolatCoeffDirectory
{
    Q_OBJECT
    DIRECTORY_SINGLETON(VolatCoeffBlackDirectory)
public:
    explicit VolatCoeffBlackDirectory(QObject* parent);
    bool volatCoeffsById(int optionSeriesId, VolatInputParams& params) const
    {
        return VolatCoeffDirectory::volatCoeffsById(optionSeriesId, params);
    }
};

class DIRECTORY_EXPORT VolatCoeffBachDirectory : public VolatCoeffDirectory
{
    Q_OBJECT
    DIRECTORY_SINGLETON(VolatCoeffBachDirectory)
public:
    explicit VolatCoeffBachDirectory(QObject* parent);
    bool volatCoeffsById(int optionSeriesId, VolatInputParams& params) const
    {
        return VolatCoeffDirectory::volatCoeffsById(optionSeriesId, params);
    }
};

// The last series added for an underlying.
struct DIRECTORY_EXPORT SeriesParam
{
    QString sec_name;
    QString base_code;
    int option_series_id = 0;
};

// One option series, as listed under its expiry.
struct DIRECTORY_EXPORT SeriesParamData
{
    QString sec_name;
    QString base_code;
    int option_series_id = 0;
    int underlying_id = 0;

    friend bool operator==(SeriesParamData const& a, SeriesParamData const& b)
    {
        return a.option_series_id == b.option_series_id && a.underlying_id == b.underlying_id &&
               a.sec_name == b.sec_name && a.base_code == b.base_code;
    }
};
DIRECTORY_EXPORT uint qHash(SeriesParamData const& data, uint seed = 0);

// Option series ("k3.option_series_params") by underlying and by expiry.
class DIRECTORY_EXPORT OptionSeriesParamDirectory : public Directory
{
    Q_OBJECT
    DIRECTORY_SINGLETON(OptionSeriesParamDirectory)
public:
    explicit OptionSeriesParamDirectory(QObject* parent);

    QMap<int, SeriesParam> const& getSeriesParam() const { return m_seriesParam; }
    QMap<QDate, QSet<SeriesParamData>> const& getSeriesParamData() const { return m_seriesParamData; }

    void clear() override;
    void build() override;
    void add(Record const& record) override;
    // Erases the underlying's entry, then the series from its date's set.
    // When the series was not in that set, the whole date goes (with any
    // other series in it); when it was, the date stays, even if now empty.
    void remove(Record const& record, int position) override;
Q_SIGNALS:
    void dataChanged();

private:
    SeriesParamData dataOf(Record const& record) const;

    int m_secName = -1, m_baseCode = -1, m_underlyingId = -1, m_optionSeriesId = -1, m_expirationDate = -1;
    QMap<int, SeriesParam> m_seriesParam;
    QMap<QDate, QSet<SeriesParamData>> m_seriesParamData;
};
