#include "accounts_fixture.h"
#include "settlement.h"

#include <QSignalSpy>

namespace {

class Settlement : public AccountTablesTest
{
protected:
    void SetUp() override
    {
        createSchemaTables({"k3.fut_settlement_account", "k3.fut_margin_type", "k3part_bf"});
        apply(R"({"table":"k3.fut_settlement_account","ops":[
            {"insert":{"code":"AB01001","type":0,"settlement_account":"AB01RK1"}},
            {"insert":{"code":"AB01001","type":1,"settlement_account":"AB01RK2"}},
            {"insert":{"code":"CD02001","type":0,"settlement_account":"CD02RK1"}},
            {"insert":{"code":"CD02002","type":0}}]})");
        apply(R"({"table":"k3.fut_margin_type","ops":[
            {"insert":{"code":"AB01001","type":3,"margin_type":5,"UCP_type":1,"settlement_account_type":2,"operator_input":1}},
            {"insert":{"code":"AB01002","type":0,"margin_type":7,"UCP_type":2,"settlement_account_type":3}},
            {"insert":{"code":"AB01003","margin_type":-1,"UCP_type":0,"settlement_account_type":0}},
            {"insert":{"code":"AB01004","margin_type":0,"settlement_account_type":1}}]})");
        apply(R"({"table":"k3part_bf","ops":[{"insert":{"account":"AB01","name":"Альфа"}},{"insert":{"account":"CD02","name":"Бета"}}]})");
        resetAfter<K3FutSettlementDirectory>();
        resetAfter<K3FutMarginTypeDirectory>();
        resetAfter<K3PartsBFDirectory>();
    }
};

TEST_F(Settlement, AccountsByCodeAndType)
{
    K3FutSettlementDirectory* sa = K3FutSettlementDirectory::i();
    EXPECT_EQ(sa->settlementAccountByCodeByType("AB01001", 1), "AB01RK2");
    EXPECT_EQ(sa->settlementAccountByCodeByType("AB01001", 2), QString());
    EXPECT_EQ(sa->settlementAccountByCodeByType("AB01001", -1), QString());
    EXPECT_EQ(sa->settlementAccountByCodeByType("", 0), QString());
    EXPECT_EQ(sa->settlementAccountByCodeByType("CD02002", 0), QString());   // null
    EXPECT_EQ(sa->getRF("AB01RK2"), "AB");
    EXPECT_EQ(sa->getRF("AB01RK"), QString());   // exact
    EXPECT_TRUE(sa->isAcceptableSA("AB01RK"));   // a prefix is acceptable
    EXPECT_TRUE(sa->isAcceptableSA(""));
    EXPECT_FALSE(sa->isAcceptableSA("ab01"));    // case-sensitive
    EXPECT_FALSE(sa->isAcceptableSA("CD02RK2"));
}

TEST_F(Settlement, ARemovedSettlementAccountStaysUntilTheTableIsCleared)
{
    K3FutSettlementDirectory* sa = K3FutSettlementDirectory::i();
    QSignalSpy spy(sa, &K3FutSettlementDirectory::dataChanged);
    apply(R"({"table":"k3.fut_settlement_account","ops":[{"delete":{"code":"CD02001","type":0}}]})");
    EXPECT_EQ(spy.count(), 1);
    EXPECT_EQ(sa->settlementAccountByCodeByType("CD02001", 0), QString());
    EXPECT_EQ(sa->getRF("CD02RK1"), "CD");
    EXPECT_TRUE(sa->isAcceptableSA("CD02RK1"));

    // An update adds the new account beside the old one.
    apply(R"({"table":"k3.fut_settlement_account","ops":[{"update":{"code":"AB01001","type":0,"settlement_account":"EF03RK9"}}]})");
    EXPECT_EQ(sa->getRF("EF03RK9"), "AB");
    EXPECT_EQ(sa->getRF("AB01RK1"), "AB");

    apply(R"({"table":"k3.fut_settlement_account","ops":[{"clear":true}]})");
    EXPECT_EQ(sa->getRF("CD02RK1"), QString());
    EXPECT_FALSE(sa->isAcceptableSA(""));
}

TEST_F(Settlement, MarginTypeTextsAndFallbacks)
{
    K3FutMarginTypeDirectory* types = K3FutMarginTypeDirectory::i();
    EXPECT_EQ(types->marginTypeByCode("AB01001"), QStringLiteral("Субброкеры"));
    EXPECT_EQ(types->marginTypeByCode("AB01002"), QString());   // 7
    EXPECT_EQ(types->marginTypeByCode("AB01003"), QString());   // -1
    EXPECT_EQ(types->marginTypeByCode("AB01004"), QStringLiteral("Нетто БФ"));
    EXPECT_EQ(types->UCPTypeByCode("AB01001"), QStringLiteral("Единый пул"));
    EXPECT_EQ(types->UCPTypeByCode("AB01003"), QStringLiteral("Срочный рынок"));
    EXPECT_EQ(types->UCPTypeByCode("AB01002"), QString());
    EXPECT_EQ(types->SATypeByCode("AB01001"), QStringLiteral("Доверительное Управление"));
    EXPECT_EQ(types->SATypeByCode("AB01003"), QStringLiteral("Собственный РК"));   // 0, not null
    EXPECT_EQ(types->SATypeByCode("AB01002"), QString());
    EXPECT_EQ(types->typeByCode("AB01001"), 3);
    EXPECT_EQ(types->typeByCode("AB01002"), 0);
    EXPECT_EQ(types->typeByCode("ZZ"), -1);
    EXPECT_EQ(types->typeByCode(""), -1);
    EXPECT_EQ(types->typeByCode("AB01001" + QString(10, 'X')), -1);   // wider than the column
    EXPECT_EQ(types->operatorInputByCode("AB01001"), 1);
    EXPECT_EQ(types->operatorInputByCode("ZZ"), 0);
    EXPECT_EQ(types->marginTypeByCode("ZZ"), QString());

    QSignalSpy spy(types, &K3FutMarginTypeDirectory::dataChanged);
    apply(R"({"table":"k3.fut_margin_type","ops":[{"update":{"code":"AB01001","margin_type":6}}]})");
    EXPECT_EQ(spy.count(), 1);
    EXPECT_EQ(types->marginTypeByCode("AB01001"), QStringLiteral("Неттинг РК"));
    db()->dropTable("k3.fut_margin_type");
    EXPECT_TRUE(types->recordByCode("AB01001").isEmpty());
    EXPECT_EQ(types->typeByCode("AB01001"), -1);
}

TEST_F(Settlement, FirmRowOfAnAccountAndItsSignals)
{
    K3PartsBFDirectory* firms = K3PartsBFDirectory::i();
    EXPECT_EQ(firms->getBFByAccount("AB01001").data("name").toString(), QStringLiteral("Альфа"));
    EXPECT_EQ(firms->getBFByAccount("CD02").data("name").toString(), QStringLiteral("Бета"));
    EXPECT_TRUE(firms->getBFByAccount("AB0").isEmpty());
    EXPECT_TRUE(firms->getBFByAccount("ZZ99001").isEmpty());

    QSignalSpy spy(firms, &K3PartsBFDirectory::dataChanged);
    apply(R"({"table":"k3part_bf","ops":[{"insert":{"account":"EF03"}}]})");
    EXPECT_EQ(spy.count(), 1);
    apply(R"({"table":"k3part_bf","ops":[{"clear":true}]})");
    EXPECT_EQ(spy.count(), 3);   // at the clear, and at the end of the batch
    EXPECT_TRUE(firms->getBFByAccount("AB01001").isEmpty());
}

} // namespace
