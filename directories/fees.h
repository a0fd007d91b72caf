#pragma once
#include "frame.h"

#include <database/record.h>

#include <QString>
#include <tuple>

class MasterIndex_Column;

// Fee rates of one instrument and session ("k3.futures_rate"; options:
// "k3.option_rate"). Rows are handed out; the terminal reads the amounts.
//
// Threading: registered as an index; hooks on the updating thread. The
// lookups return rows found under the index's lock and may be called from
// any thread.
class DIRECTORY_EXPORT FutRateDirectory : public Directory
{
    Q_OBJECT
    DIRECTORY_SINGLETON(FutRateDirectory)
public:
    explicit FutRateDirectory(QObject* parent);

    Record recordById(int stockId, int boardId, long long secId, int sessId) const;
    bool recordExists(int stockId, int boardId, long long secId, int sessId) const;
    // Searches the (stock, board, sec_id, session) index with "isin_id" set
    // and "sec_id" left as a fresh key row has it (null): it finds a row
    // whose sec_id is null, never one by its isin_id. Callers have always
    // had this answer, and no index on "isin_id" is kept for it.
    Record recordByIsinId(int stockId, int boardId, int isinId, int sessId) const;

    void endUpdate() override;
Q_SIGNALS:
    void dataChanged();

protected:
    // A subclass naming its own registry line: a table of the same shape.
    FutRateDirectory(QObject* parent, QMetaObject const& cls);

private:
    int m_stockId = -1, m_boardId = -1, m_secId = -1, m_isinId = -1, m_sessId = -1;
    int m_exchangeFeeNegdeal = -1, m_exchangeFee = -1, m_clearingFeeNegdeal = -1, m_clearingFee = -1;
    MasterIndex_Column* m_index = nullptr;
    DirectoryKey<int, int, long long, int> m_byId;
    // The isin id goes into its own column of a key row that searches the
    // security-id index, as this lookup always has: the index compares its
    // own key columns only.
    DirectoryKey<int, int, int, int> m_byIsinId;
};

class DIRECTORY_EXPORT OptRateDirectory : public FutRateDirectory
{
    Q_OBJECT
    DIRECTORY_SINGLETON(OptRateDirectory)
public:
    explicit OptRateDirectory(QObject* parent);
};

// The adjusted exchange fee of each deal ("k3.adjusted_fee").
// Threading: as FutRateDirectory.
class DIRECTORY_EXPORT FeeDirectory : public Directory
{
    Q_OBJECT
    DIRECTORY_SINGLETON(FeeDirectory)
public:
    explicit FeeDirectory(QObject* parent);

    Record recordByDealId(long long idDeal) const;

    void endUpdate() override;
Q_SIGNALS:
    void dataChanged();

protected:
    // Another fee table of the same shape, named by the subclass's registry
    // line: a fee per deal, buy and sell.
    FeeDirectory(QObject* parent, QMetaObject const& cls, QString const& buyColumn, QString const& sellColumn);

private:
    int m_idDeal = -1, m_buy = -1, m_sell = -1;
    MasterIndex_Column* m_index = nullptr;
    DirectoryKey<long long> m_byDealId;
};

// The broker fee of each deal ("k3.broker_fee"), kept as the exchange fee is.
// Threading: as FutRateDirectory.
class DIRECTORY_EXPORT BrokerFeeDirectory : public FeeDirectory
{
    Q_OBJECT
    DIRECTORY_SINGLETON(BrokerFeeDirectory)
public:
    explicit BrokerFeeDirectory(QObject* parent);
};

// Broker-fee parameters of clients ("k3.broker_fee_params"). A client may
// have a row for a session and rows marked -1 and -2 that hold outside
// any one session.
//
// Threading: registered as an index; hooks on the updating thread.
// getFeeParamsByAccount reads live rows: updating thread only.
class DIRECTORY_EXPORT K3BrokerFeeParamDirectory : public Directory
{
    Q_OBJECT
    DIRECTORY_SINGLETON(K3BrokerFeeParamDirectory)
public:
    explicit K3BrokerFeeParamDirectory(QObject* parent);

    // Of at most three rows from the first with this exact client code, the
    // session row S, the -1 row M1 and the -2 row M2 give: (S, true, M1),
    // (S, true, null) with M2 only, (S, false, null) alone, (M2, true, M1),
    // (M1, true, null), (M2, true, null), or (null, false, null) for
    // nothing, an account shorter than 4 characters or a gone table.
    std::tuple<Record, bool, Record> getFeeParamsByAccount(QString const& account) const;

    void endUpdate() override;
Q_SIGNALS:
    void dataChanged();

private:
    int m_clientCode = -1, m_sessId = -1, m_lowerFee = -1, m_upperFee = -1, m_multiplier = -1, m_additive = -1;
    MasterIndex_Column* m_index = nullptr;
    DirectoryKey<QString> m_byClientCode;
};

// Risk parameters of each base contract ("k3.base_contracts_params").
// Threading: as FutRateDirectory.
class DIRECTORY_EXPORT BaseContractsParamsDirectory : public Directory
{
    Q_OBJECT
    DIRECTORY_SINGLETON(BaseContractsParamsDirectory)
public:
    explicit BaseContractsParamsDirectory(QObject* parent);

    Record recordByBaseContractCode(QString const& code) const;

    void endUpdate() override;
Q_SIGNALS:
    void dataChanged();

private:
    int m_code = -1, m_mr1 = -1, m_mr2 = -1, m_mr3 = -1, m_lk1 = -1, m_lk2 = -1;
    MasterIndex_Column* m_index = nullptr;
    DirectoryKey<QString> m_byCode;
};
