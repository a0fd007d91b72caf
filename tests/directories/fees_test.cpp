#include "../testnames.h"
#include "accounts_fixture.h"
#include "fees.h"

#include <algorithm>
#include <string>

#include <QSignalSpy>

namespace {

class Fees : public AccountTablesTest
{
protected:
    void SetUp() override
    {
        createSchemaTables({"k3.futures_rate", "k3.option_rate", "k3.adjusted_fee", "k3.broker_fee",
                            "k3.broker_fee_params", "k3.base_contracts_params"});
        resetAfter<FutRateDirectory>();
        resetAfter<OptRateDirectory>();
        resetAfter<FeeDirectory>();
        resetAfter<BrokerFeeDirectory>();
        resetAfter<K3BrokerFeeParamDirectory>();
        resetAfter<BaseContractsParamsDirectory>();
    }
    // A parameter row of `client` for `session`; its lower fee names it.
    void param(QString const& client, int session)
    {
        QJsonObject row{{"client_code", client}, {"sess_id", session}, {"lower_fee", QString::number(session) + ".00"}};
        apply(QJsonDocument(QJsonObject{{"table", "k3.broker_fee_params"}, {"ops", QJsonArray{QJsonObject{{"insert", row}}}}})
                  .toJson(QJsonDocument::Compact));
    }
    // The session of a parameter row, "-" for none.
    static QString sessionOf(Record const& r) { return r.isEmpty() ? QStringLiteral("-") : r.data("sess_id").toString(); }
    static QString describe(std::tuple<Record, bool, Record> const& t)
    {
        return sessionOf(std::get<0>(t)) + (std::get<1>(t) ? " true " : " false ") + sessionOf(std::get<2>(t));
    }
};

struct FeeParamCase
{
    QList<int> sessions;   // rows of the client
    char const* result;    // first row's session, flag, second row's session
};

// "rows 5 -1 -2 give 5 true -1", for the case's name and its report.
inline std::string describeCase(FeeParamCase const& c)
{
    std::string words = "rows";
    for (int s : c.sessions) words += " " + std::to_string(s);
    if (c.sessions.isEmpty()) words += " none";
    return words + " give " + c.result;
}
inline void PrintTo(FeeParamCase const& c, std::ostream* os) { *os << describeCase(c); }

class FeeParams : public Fees, public ::testing::WithParamInterface<FeeParamCase> {};

TEST_P(FeeParams, TheSevenRowTable)
{
    for (int s : GetParam().sessions) param("AB01001", s);
    param("AB01002", -1);   // a neighbour, never looked at
    EXPECT_EQ(describe(K3BrokerFeeParamDirectory::i()->getFeeParamsByAccount("AB01001")), GetParam().result);
}

INSTANTIATE_TEST_SUITE_P(Rows, FeeParams, ::testing::Values(
    FeeParamCase{{5, -1, -2}, "5 true -1"},
    FeeParamCase{{5, -1}, "5 true -1"},
    FeeParamCase{{5, -2}, "5 true -"},
    FeeParamCase{{5}, "5 false -"},
    FeeParamCase{{-1, -2}, "-2 true -1"},
    FeeParamCase{{-1}, "-1 true -"},
    FeeParamCase{{-2}, "-2 true -"},
    FeeParamCase{{}, "- false -"},
    // Only three rows from the first are looked at: 4 is not.
    FeeParamCase{{-2, -1, 3, 4}, "3 true -1"}),
    [](::testing::TestParamInfo<FeeParamCase> const& info) {
        std::string words = describeCase(info.param);
        std::replace(words.begin(), words.end(), '-', 'm');   // minus, not a separator
        return caseNameFromWords(words);
    });

TEST_F(Fees, FeeParamsWantAnExactCodeOfFourOrMoreCharacters)
{
    param("AB0", 5);
    param("AB01", -1);
    param("CD02 ", -2);   // stored with a trailing blank
    K3BrokerFeeParamDirectory* params = K3BrokerFeeParamDirectory::i();
    EXPECT_EQ(describe(params->getFeeParamsByAccount("AB0")), "- false -");   // too short
    EXPECT_EQ(describe(params->getFeeParamsByAccount("AB01")), "-1 true -");
    EXPECT_EQ(describe(params->getFeeParamsByAccount("AB01001")), "- false -");   // not cut to the firm
    EXPECT_EQ(describe(params->getFeeParamsByAccount("CD02")), "- false -");     // the index wants the blank
    // Found with the blank, but the trimmed row differs from the argument.
    EXPECT_EQ(describe(params->getFeeParamsByAccount("CD02 ")), "- false -");
    EXPECT_EQ(describe(params->getFeeParamsByAccount("AB01" + QString(20, 'X'))), "- false -");
    db()->dropTable("k3.broker_fee_params");
    EXPECT_EQ(describe(params->getFeeParamsByAccount("AB01")), "- false -");
}

TEST_F(Fees, RatesByIdAndTheIsinProbe)
{
    apply(R"({"table":"k3.futures_rate","ops":[
        {"insert":{"stock_id":1,"board_id":10,"sec_id":500,"isin_id":7,"sess_id":3,"exchange_fee":"0.50000"}},
        {"insert":{"stock_id":1,"board_id":10,"sec_id":500,"isin_id":7,"sess_id":4,"exchange_fee":"0.60000"}}]})");
    FutRateDirectory* rates = FutRateDirectory::i();
    EXPECT_EQ(rates->recordById(1, 10, 500, 4).data("exchange_fee").toString(), "0.60000");
    EXPECT_TRUE(rates->recordExists(1, 10, 500, 3));
    EXPECT_FALSE(rates->recordExists(1, 10, 500, 5));
    // The probe leaves sec_id as a fresh key row has it, so a row is never
    // found by its isin_id.
    EXPECT_TRUE(rates->recordByIsinId(1, 10, 7, 3).isEmpty());

    QSignalSpy spy(rates, &FutRateDirectory::dataChanged);
    apply(R"({"table":"k3.futures_rate","ops":[{"delete":{"stock_id":1,"board_id":10,"sec_id":500,"sess_id":3}}]})");
    EXPECT_EQ(spy.count(), 1);
    EXPECT_FALSE(rates->recordExists(1, 10, 500, 3));
    db()->dropTable("k3.futures_rate");
    EXPECT_FALSE(rates->recordExists(1, 10, 500, 4));
    EXPECT_TRUE(rates->recordById(1, 10, 500, 4).isEmpty());
}

TEST_F(Fees, TheIsinProbeMatchesARowWhoseSecIdIsNull)
{
    // A table that lets sec_id be null shows what the probe matches on.
    db()->dropTable("k3.option_rate");
    createTables(R"({"tables":[{"name":"k3.option_rate","key":["stock_id","board_id","isin_id","sess_id"],"columns":[
        {"name":"stock_id","type":1,"nullable":false},{"name":"board_id","type":1,"nullable":false},
        {"name":"sec_id","type":2},{"name":"isin_id","type":1,"nullable":false},{"name":"sess_id","type":1,"nullable":false},
        {"name":"exchange_fee","type":4,"scale":5}]}]})");
    apply(R"({"table":"k3.option_rate","ops":[
        {"insert":{"stock_id":1,"board_id":20,"sec_id":900,"isin_id":8,"sess_id":3}},
        {"insert":{"stock_id":1,"board_id":20,"isin_id":9,"sess_id":3,"exchange_fee":"1.00000"}}]})");
    OptRateDirectory* rates = OptRateDirectory::i();
    EXPECT_EQ(rates->recordByIsinId(1, 20, 9, 3).data("exchange_fee").toString(), "1.00000");
    // isin_id takes no part: any isin finds the row without a sec_id, even
    // the isin of the row that has one.
    EXPECT_EQ(rates->recordByIsinId(1, 20, 8, 3).data("isin_id").toInteger(), 9);
    EXPECT_TRUE(rates->recordByIsinId(1, 20, 9, 4).isEmpty());
    EXPECT_EQ(rates->recordByIsinId(1, 20, 12345, 3).data("isin_id").toInteger(), 9);
    EXPECT_EQ(rates->recordById(1, 20, 900, 3).data("isin_id").toInteger(), 8);
}

TEST_F(Fees, DealFeesAndBaseContractParameters)
{
    apply(R"({"table":"k3.adjusted_fee","ops":[{"insert":{"id_deal":"9000000001","adjusted_fee_buy":"1.25"}}]})");
    apply(R"({"table":"k3.broker_fee","ops":[{"insert":{"id_deal":"9000000001","broker_fee_sell":"0.75"}}]})");
    apply(R"({"table":"k3.base_contracts_params","ops":[{"insert":{"base_contract_code":"GLD","mr1":"0.10000"}}]})");
    EXPECT_EQ(FeeDirectory::i()->recordByDealId(9000000001LL).data("adjusted_fee_buy").toString(), "1.25");
    EXPECT_TRUE(FeeDirectory::i()->recordByDealId(1).isEmpty());
    EXPECT_EQ(BrokerFeeDirectory::i()->recordByDealId(9000000001LL).data("broker_fee_sell").toString(), "0.75");
    EXPECT_EQ(BaseContractsParamsDirectory::i()->recordByBaseContractCode("GLD").data("mr1").toString(), "0.10000");
    EXPECT_TRUE(BaseContractsParamsDirectory::i()->recordByBaseContractCode("GL").isEmpty());
    EXPECT_TRUE(BaseContractsParamsDirectory::i()->recordByBaseContractCode("").isEmpty());
}

} // namespace
