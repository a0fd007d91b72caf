#include "fees.h"

#include "masterindex.h"
#include "participants.h"

#include <database/exception.h>

// ---- FutRateDirectory --------------------------------------------------------

FutRateDirectory::FutRateDirectory(QObject* parent) : FutRateDirectory(parent, staticMetaObject) {}

FutRateDirectory::FutRateDirectory(QObject* parent, QMetaObject const& cls) : Directory(parent, cls)
{
    resolveColumns({{m_stockId, "stock_id"}, {m_boardId, "board_id"}, {m_secId, "sec_id"}, {m_isinId, "isin_id"},
                    {m_sessId, "sess_id"}, {m_exchangeFeeNegdeal, "exchange_fee_negdeal"},
                    {m_exchangeFee, "exchange_fee"}, {m_clearingFeeNegdeal, "clearing_fee_negdeal"},
                    {m_clearingFee, "clearing_fee"}});
    if (QSharedPointer<Table> t = table()) {
        m_index = ownIndex(new MasterIndex_Column(t.data(), QList<int>{m_stockId, m_boardId, m_secId, m_sessId}));
        m_index->build();
        m_byId = DirectoryKey<int, int, long long, int>(t, m_index, {m_stockId, m_boardId, m_secId, m_sessId});
        m_byIsinId = DirectoryKey<int, int, int, int>(t, m_index, {m_stockId, m_boardId, m_isinId, m_sessId});
    }
}

Record FutRateDirectory::recordById(int stockId, int boardId, long long secId, int sessId) const
{
    return m_byId.find(stockId, boardId, secId, sessId);
}

bool FutRateDirectory::recordExists(int stockId, int boardId, long long secId, int sessId) const
{
    if (!table()) return false;
    return !recordById(stockId, boardId, secId, sessId).isEmpty();
}

Record FutRateDirectory::recordByIsinId(int stockId, int boardId, int isinId, int sessId) const
{
    return m_byIsinId.find(stockId, boardId, isinId, sessId);
}

void FutRateDirectory::endUpdate() { Q_EMIT dataChanged(); }

OptRateDirectory::OptRateDirectory(QObject* parent) : FutRateDirectory(parent, staticMetaObject) {}

// ---- FeeDirectory, BrokerFeeDirectory ----------------------------------------

FeeDirectory::FeeDirectory(QObject* parent)
    : FeeDirectory(parent, staticMetaObject, QStringLiteral("adjusted_fee_buy"), QStringLiteral("adjusted_fee_sell"))
{
}

FeeDirectory::FeeDirectory(QObject* parent, QMetaObject const& cls, QString const& buyColumn, QString const& sellColumn)
    : Directory(parent, cls)
{
    resolveColumns({{m_idDeal, "id_deal"}, {m_buy, buyColumn}, {m_sell, sellColumn}});
    if (QSharedPointer<Table> t = table()) {
        m_index = ownIndex(new MasterIndex_Column(t.data(), QList<int>{m_idDeal}));
        m_index->build();
        m_byDealId = DirectoryKey<long long>(t, m_index, {m_idDeal});
    }
}

Record FeeDirectory::recordByDealId(long long idDeal) const
{
    return m_byDealId.find(idDeal);   // nothing when "id_deal" takes no integer
}

void FeeDirectory::endUpdate() { Q_EMIT dataChanged(); }

BrokerFeeDirectory::BrokerFeeDirectory(QObject* parent)
    : FeeDirectory(parent, staticMetaObject, QStringLiteral("broker_fee_buy"), QStringLiteral("broker_fee_sell"))
{
}

// ---- K3BrokerFeeParamDirectory -----------------------------------------------

K3BrokerFeeParamDirectory::K3BrokerFeeParamDirectory(QObject* parent)
    : Directory(parent, staticMetaObject)
{
    resolveColumns({{m_clientCode, "client_code"}, {m_sessId, "sess_id"}, {m_lowerFee, "lower_fee"},
                    {m_upperFee, "upper_fee"}, {m_multiplier, "multiplier"}, {m_additive, "additive"}});
    if (QSharedPointer<Table> t = table()) {
        m_index = ownIndex(new MasterIndex_Column(t.data(), QList<int>{m_clientCode}));
        m_index->build();
        m_byClientCode = DirectoryKey<QString>(t, m_index, {m_clientCode});
    }
}

std::tuple<Record, bool, Record> K3BrokerFeeParamDirectory::getFeeParamsByAccount(QString const& account) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    std::tuple<Record, bool, Record> none(Record(), false, Record());
    QSharedPointer<Table> t = table();
    if (!t || !m_index || account.size() < Korvo3::K3FieldsTypes::bf_code) return none;
    int found = m_byClientCode.search(account);
    if (found < 0) return none;

    // Only the first three rows from the found one are looked at.
    Record session, minus1, minus2;
    int end = std::min(found + 3, m_index->count());
    for (int position = found; position < end; ++position) {
        Record row = m_index->at(position);
        if (row.data(m_clientCode).toString().trimmed() != account) break;
        int sess = row.data(m_sessId).toInteger();
        if (sess == -2) minus2 = row;
        else if (sess == -1) minus1 = row;
        else session = row;
    }

    if (!session.isEmpty()) {
        if (!minus1.isEmpty()) return {session, true, minus1};
        return {session, !minus2.isEmpty(), Record()};
    }
    if (!minus1.isEmpty()) return {minus2.isEmpty() ? minus1 : minus2, true, minus2.isEmpty() ? Record() : minus1};
    if (!minus2.isEmpty()) return {minus2, true, Record()};
    return none;
}

void K3BrokerFeeParamDirectory::endUpdate() { Q_EMIT dataChanged(); }

// ---- BaseContractsParamsDirectory --------------------------------------------

BaseContractsParamsDirectory::BaseContractsParamsDirectory(QObject* parent)
    : Directory(parent, staticMetaObject)
{
    resolveColumns({{m_code, "base_contract_code"}, {m_mr1, "mr1"}, {m_mr2, "mr2"}, {m_mr3, "mr3"}, {m_lk1, "lk1"},
                    {m_lk2, "lk2"}});
    if (QSharedPointer<Table> t = table()) {
        m_index = ownIndex(new MasterIndex_Column(t.data(), QList<int>{m_code}));
        m_index->build();
        m_byCode = DirectoryKey<QString>(t, m_index, {m_code});
    }
}

Record BaseContractsParamsDirectory::recordByBaseContractCode(QString const& code) const { return m_byCode.find(code); }

void BaseContractsParamsDirectory::endUpdate() { Q_EMIT dataChanged(); }

// The one instance of each directory class here.
DIRECTORY_SINGLETON_DEFINE(FutRateDirectory)
DIRECTORY_SINGLETON_DEFINE(OptRateDirectory)
DIRECTORY_SINGLETON_DEFINE(FeeDirectory)
DIRECTORY_SINGLETON_DEFINE(BrokerFeeDirectory)
DIRECTORY_SINGLETON_DEFINE(K3BrokerFeeParamDirectory)
DIRECTORY_SINGLETON_DEFINE(BaseContractsParamsDirectory)
