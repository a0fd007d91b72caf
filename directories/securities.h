#pragma once
#include "cachedindex.h"
#include "codes.h"
#include "datetime.h"
#include "frame.h"

#include <database/decimal.h>

#include <QCache>
#include <QChar>
#include <QElapsedTimer>
#include <QMutex>
#include <QStringList>

class QMimeData;
class QTimer;

// One computed volatility result, owned by the cache that holds it.
struct DIRECTORY_EXPORT CalcVolatResult
{
    QElapsedTimer age;          // invalid until first computed
    decimal volat;              // percent, at FieldsTypes::volat
    decimal theorPrice;         // at the option's decimals
    // Delta (of the call or the put, as the option is), gamma, vega per
    // volatility point and theta per day, at FieldsTypes::greeks.
    decimal greeks[4];
};

// Tradeable instruments ("securities"), identified by (stock, board, sec_id).
// Stock 5 is read as stock 1 where a triple becomes a key or a text id.
//
// Threading (docs/threading.md): registered as an index; its hooks run on
// the updating thread. recordById, recordExists, recordByIsinId,
// recordByTextId and textIdById go through cached master indexes and may
// come from any thread (read only key columns of their records there).
// Every other lookup reads live rows: updating thread, or the table's lock
// held. The two volatility caches are guarded by `m_cacheMutex`.
class DIRECTORY_EXPORT SecurityDirectory : public Directory
{
    Q_OBJECT
    DIRECTORY_SINGLETON(SecurityDirectory)
public:
    explicit SecurityDirectory(QObject* parent);
    ~SecurityDirectory() override;

    // Records.
    Record recordById(int stock, int board, long long secId) const;
    bool recordExists(int stock, int board, long long secId) const;
    Record realRecordById(int stock, int board, long long secId) const;
    Record recordByIsinId(int stock, int board, int isinId) const;
    Record recordByTextId(QString const& textId) const;
    Record realRecordByTextId(QString const& textId) const;
    Record recordBySecCode(QString const& code, int stock, int board);

    // Identifiers.
    static QString textIdById(int stock, int board, long long secId);
    bool idByTextId(QString const& textId, int& stock, int& board, long long& secId);
    int getIsinIdById(int stock, int board, long long secId) const;
    long long getSecIdByIsinId(int stock, int board, int isinId) const;
    int getIsinIdBySecCode(QString const& code, int stock, int board);
    int getBoardIdBySecCode(QString const& code, int stock, bool address);
    QStringList keysByBaseCode(QString const& baseCode, int stock, int board) const;
    QStringList keysByMimeData(QMimeData const* mime, bool withPutCall) const;

    // Attributes by identity.
    QString codeById(int stock, int board, long long secId) const;
    QString nameById(int stock, int board, long long secId) const;
    QString baseById(int stock, int board, long long secId) const;
    int decimalsById(int stock, int board, long long secId) const;
    int lotsizeById(int stock, int board, long long secId) const;
    QString nameByRecord(Record const& record) const;
    QString nameByKey(QString const& key) const;

    // Attributes by text id.
    QString codeByTextId(QString const& textId) const;
    QString nameByTextId(QString const& textId) const;
    QString baseByTextId(QString const& textId) const;
    int decimalsByTextId(QString const& textId) const;
    QChar sectypeByTextId(QString const& textId) const;
    void minMaxStepByTextId(QString const& textId, decimal& min, decimal& max, decimal& step) const;
    bool directionByTextId(QString const& textId) const;
    decimal askByTextId(QString const& textId) const;
    decimal bidByTextId(QString const& textId) const;
    decimal settlementPriceOpenByTextId(QString const& textId) const;

    // Derived values. Each reads live rows: updating thread only. None
    // throws; an unknown security gives the empty value (false, a zero
    // volume, an untouched result).
    //
    // Square root of the years (of 365 days) from the exchange time of
    // market 1 to `expiry`; at least that of ten milliseconds.
    double getSqrtTByExpDate(datetime const& expiry) const;
    // Percent-quoted securities ("is_percent" 4) only.
    bool pctYieldCoeffsById(int stock, int board, long long secId, double& coeff, double& total) const;
    bool profitRateById(double price, int stock, int board, long long secId, decimal& rate) const;
    // Money volume of a trade, two places. The misspelling is the interface's.
    xdecimal voumeById(double price, long long quantity, int stock, int board, long long secId) const;
    // Volatility, price and sensitivities of the option (1, 14, secId) or
    // (4, 14, secId); type 1 prices on the Bachelier table's smile, any other
    // on the Black table's. Untouched (timer not started) without the option
    // or its underlying.
    CalcVolatResult* calcVolatBySecId(CalcVolatResult* result, long long secId, int type) const;
    // The cached result, computed afresh when missing or 1000 ms old. Valid
    // until the entry is evicted, dropped or cleared: copy what you need.
    CalcVolatResult* getVolatResultBySecId(long long secId, int type);

    // Paces views that show computed volatility; owned by the directory.
    QTimer* getCalcVolatTimer() const { return m_calcVolatTimer; }

    // Index hooks.
    void clear() override;
    void build() override;
    void add(Record const& record) override;
    void remove(Record const& record, int position) override;
    void update(Record const& record, int firstColumn, int lastColumn, int position) override;
    bool filter(Record const& record) const override;
    bool contains(Record const& record) const override;
    void process(QList<Record> const& inserted, QList<Record> const& updated, int firstColumn, int lastColumn,
                 QList<Record> const& deleted) override;
    void beginUpdate() override;
    void endUpdate() override;

    // A change starting at a column up to the last static one changes the directory.
    void updatedRow(int firstColumn, int lastColumn);

    // For the volatility calculations and tests.
    QCache<long long, CalcVolatResult>& volatCache(int type) { return type == 1 ? m_volatCacheBach : m_volatCacheBlack; }

Q_SIGNALS:
    void dataChanged();

private:
    QString textOf(Record const& record, int column) const;
    QString textByTextId(QString const& textId, int column, QString const& missing, QString const& unbound) const;
    static QString dottedTextId(QString const& textId);

    int m_stockId = -1, m_boardId = -1, m_secId = -1, m_isinId = -1, m_secCode = -1, m_secName = -1, m_baseCode = -1,
        m_sessId = -1, m_decimals = -1, m_lotsize = -1, m_sectype = -1, m_priceLmtHigh = -1, m_priceLmtLow = -1,
        m_priceStep = -1, m_priceDir = -1, m_ask = -1, m_bid = -1, m_prevBid = -1, m_prevAsk = -1, m_dateBid = -1,
        m_dateAsk = -1, m_settlementPriceOpen = -1, m_pctyieldCoeff = -1, m_pctyieldTotal = -1, m_isPercent = -1,
        m_mainBoardId = -1, m_futIsinId = -1, m_optionSeriesId = -1, m_marketPrice = -1, m_strike = -1,
        m_optionType = -1, m_expdate = -1, m_volatMin = -1, m_volatMax = -1, m_signs = -1;
    int m_lastStaticColumn = -1;
    int m_stepPrice = -1;
    bool m_changed = false;
    MasterIndex_Column_Pure* m_isinIndex = nullptr;
    mutable QMutex m_cacheMutex;
    QCache<long long, CalcVolatResult> m_volatCacheBlack;   // calculation types other than 1
    QCache<long long, CalcVolatResult> m_volatCacheBach;    // calculation type 1
    QTimer* m_calcVolatTimer = nullptr;
    // The table's master index in its typed form, when it has one.
    DirectoryKey<int, int, long long> m_byId;
    DirectoryKey<int, int, int> m_byIsinId;
};
