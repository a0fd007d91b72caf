#pragma once
#include "datetime.h"
#include "frame.h"

#include <database/record.h>

#include <QList>
#include <QString>

// When it is: the trading sessions of each market, the trading calendar and
// each market's exchange clock. All three are dependents of their tables:
// they keep nothing of their own and announce each batch with dataChanged().
//
// Threading: every lookup reads live rows and belongs on the database's
// updating thread (the GUI thread by default).

// Sessions ("sessions", keyed by stock and sess_id). The current session of a
// market is the one with the highest number. Stock 5 is read as stock 1 in
// every lookup here.
class DIRECTORY_EXPORT SessionDirectory : public Directory
{
    Q_OBJECT
    DIRECTORY_SINGLETON(SessionDirectory)
public:
    explicit SessionDirectory(QObject* parent);

    Record recordById(int stock, int sessId) const;
    // "<сессия не найдена>" when unknown.
    QString nameById(int stock, int sessId) const;
    // 0 when unknown.
    datetime dateById(int stock, int sessId) const;
    // The largest sess_id of the stock; 0 when it has none, -1 without a table.
    int getMaxSessId(int stock) const;
    bool isActiveSessId(int stock, int sessId) const;
    Record getMaxSession(int stock) const;

    void dependentEndUpdate(Table* table) override;
Q_SIGNALS:
    void dataChanged();

private:
    int m_stockId = -1, m_sessId = -1, m_name = -1, m_date = -1;
    DirectoryKey<int, int> m_byId;
};

// The trading calendar ("calendar"), one row per day, in date order.
class DIRECTORY_EXPORT CalendarDirectory : public Directory
{
    Q_OBJECT
    DIRECTORY_SINGLETON(CalendarDirectory)
public:
    explicit CalendarDirectory(QObject* parent);

    // The days from the first not before `from` up to the last not after
    // `to`, in date order; empty when from is after to.
    QList<Record> range(datetime const& from, datetime const& to) const;
    // Type 0 is a trading day; a null record is not.
    bool isTradingDay(Record const& day) const;
    datetime date(Record const& day) const;

    void dependentEndUpdate(Table* table) override;
Q_SIGNALS:
    void dataChanged();

private:
    int m_date = -1, m_type = -1;
    DirectoryKey<datetime> m_byDate;
};

// Each market's offset from the local clock to the exchange's ("stock_time").
// Stock 5 is NOT read as stock 1 here.
class DIRECTORY_EXPORT StockTimeDirectory : public Directory
{
    Q_OBJECT
    DIRECTORY_SINGLETON(StockTimeDirectory)
public:
    explicit StockTimeDirectory(QObject* parent);

    // The market's "server_time"; 0 when unknown.
    datetime timeByStockId(int stock) const;
    // The exchange time now: the clock plus the market's offset (stock -1
    // means 1); a market without a row takes the largest offset of all, an
    // empty table none, and without a table the clock is returned as it is.
    // The clock is read on every call.
    datetime correctedLocalTime(int stock) const;

    void dependentEndUpdate(Table* table) override;
Q_SIGNALS:
    void dataChanged();

private:
    Record recordById(int stock) const;

    int m_stockId = -1, m_diffVsCurTime = -1, m_serverTime = -1;
    DirectoryKey<int> m_byId;
    // The offset of the market asked for last, until the table's next batch:
    // an option board asks for one market's time once per option.
    mutable QWeakPointer<Table> m_memoTable;
    mutable int m_memoStock = 0;
    mutable qint64 m_memoOffset = 0;
};
