#include "fees.h"

#include "masterindex.h"
#include "participants.h"

#include <database/exception.h>

namespace {
[[maybe_unused]] char const* const kMissingTableTexts[] = {
    QT_TRANSLATE_NOOP("FutRateDirectory", "Таблица '%1' отсутствует"),
    QT_TRANSLATE_NOOP("OptRateDirectory", "Таблица '%1' отсутствует"),
    QT_TRANSLATE_NOOP("FeeDirectory", "Таблица '%1' отсутствует"),
    QT_TRANSLATE_NOOP("BrokerFeeDirectory", "Таблица '%1' отсутствует"),
    QT_TRANSLATE_NOOP("K3BrokerFeeParamDirectory", "Таблица k3.broker_fee_params отсутствует"),
    QT_TRANSLATE_NOOP("BaseContractsParamsDirectory", "Таблица '%1' отсутствует"),
};

} // namespace

// ---- FutRateDirectory --------------------------------------------------------

FutRateDirectory::FutRateDirectory(QObject* parent)
    : FutRateDirectory(parent, "FutRateDirectory", QStringLiteral("k3.futures_rate"))
{
}

FutRateDirectory::FutRateDirectory(QObject* parent, char const* context, QString const& tableName)
    : Directory(parent, context, tableName, AsIndex)
{
    m_stockId = column(QStringLiteral("stock_id"));
    m_boardId = column(QStringLiteral("board_id"));
    m_secId = column(QStringLiteral("sec_id"));
    m_isinId = column(QStringLiteral("isin_id"));
    m_sessId = column(QStringLiteral("sess_id"));
    m_exchangeFeeNegdeal = column(QStringLiteral("exchange_fee_negdeal"));
    m_exchangeFee = column(QStringLiteral("exchange_fee"));
    m_clearingFeeNegdeal = column(QStringLiteral("clearing_fee_negdeal"));
    m_clearingFee = column(QStringLiteral("clearing_fee"));
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

OptRateDirectory::OptRateDirectory(QObject* parent)
    : FutRateDirectory(parent, "OptRateDirectory", QStringLiteral("k3.option_rate"))
{
}

// ---- FeeDirectory, BrokerFeeDirectory ----------------------------------------

FeeDirectory::FeeDirectory(QObject* parent)
    : FeeDirectory(parent, "FeeDirectory", QStringLiteral("k3.adjusted_fee"), QStringLiteral("adjusted_fee_buy"),
                   QStringLiteral("adjusted_fee_sell"))
{
}

FeeDirectory::FeeDirectory(QObject* parent, char const* context, QString const& tableName, QString const& buyColumn,
                           QString const& sellColumn)
    : Directory(parent, context, tableName, AsIndex)
{
    m_idDeal = column(QStringLiteral("id_deal"));
    m_buy = column(buyColumn);
    m_sell = column(sellColumn);
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
    : FeeDirectory(parent, "BrokerFeeDirectory", QStringLiteral("k3.broker_fee"), QStringLiteral("broker_fee_buy"),
                   QStringLiteral("broker_fee_sell"))
{
}

// ---- K3BrokerFeeParamDirectory -----------------------------------------------

K3BrokerFeeParamDirectory::K3BrokerFeeParamDirectory(QObject* parent)
    : Directory(parent, "K3BrokerFeeParamDirectory", QStringLiteral("k3.broker_fee_params"), AsIndex,
                "Таблица k3.broker_fee_params отсутствует")
{
    m_clientCode = column(QStringLiteral("client_code"));
    m_sessId = column(QStringLiteral("sess_id"));
    m_lowerFee = column(QStringLiteral("lower_fee"));
    m_upperFee = column(QStringLiteral("upper_fee"));
    m_multiplier = column(QStringLiteral("multiplier"));
    m_additive = column(QStringLiteral("additive"));
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
    : Directory(parent, "BaseContractsParamsDirectory", QStringLiteral("k3.base_contracts_params"), AsIndex)
{
    m_code = column(QStringLiteral("base_contract_code"));
    m_mr1 = column(QStringLiteral("mr1"));
    m_mr2 = column(QStringLiteral("mr2"));
    m_mr3 = column(QStringLiteral("mr3"));
    m_lk1 = column(QStringLiteral("lk1"));
    m_lk2 = column(QStringLiteral("lk2"));
    if (QSharedPointer<Table> t = table()) {
        m_index = ownIndex(new MasterIndex_Column(t.data(), QList<int>{m_code}));
        m_index->build();
        m_byCode = DirectoryKey<QString>(t, m_index, {m_code});
    }
}

Record BaseContractsParamsDirectory::recordByBaseContractCode(QString const& code) const { return m_byCode.find(code); }

void BaseContractsParamsDirectory::endUpdate() { Q_EMIT dataChanged(); }
