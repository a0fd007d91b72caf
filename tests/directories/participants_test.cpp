#include "../testnames.h"
#include "accounts_fixture.h"
#include "participants.h"
#include "participants_p.h"
#include "masterindex.h"

#include <QSignalSpy>

namespace {

class Participants : public AccountTablesTest
{
protected:
    void SetUp() override
    {
        createSchemaTables({"k3.dealer", "k3.investor", "k3.core_dealer", "k3.core_investor", "k3.RF"});
        apply(R"({"table":"k3.dealer","ops":[
            {"insert":{"client_code":"AB01000","name":"Альфа","status":3,"signs":12}},
            {"insert":{"client_code":"CD02000","name":"Бета","status":131073,"signs":0}},
            {"insert":{"client_code":"EF03000","name":"Гамма","status":131072,"signs":4}},
            {"insert":{"client_code":"GH04000","name":"Дельта","status":262146}},
            {"insert":{"client_code":"IJ05000","name":"Эпсилон"}}]})");
        apply(R"({"table":"k3.investor","ops":[
            {"insert":{"client_code":"AB01001","name":"Клиент 1","status":5}},
            {"insert":{"client_code":"AB01002","name":"Клиент 2"}}]})");
        apply(R"({"table":"k3.core_dealer","ops":[{"insert":{"client_code":"AB01"}},{"insert":{"client_code":"CD02"}}]})");
        apply(R"({"table":"k3.core_investor","ops":[{"insert":{"client_code":"AB01001"}},{"insert":{"client_code":"AB01002"}}]})");
        apply(R"({"table":"k3.RF","ops":[{"insert":{"code":"AB","op_input":1,"rf_input":0}},
            {"insert":{"code":"CD","op_input":1,"rf_input":2}},{"insert":{"code":"EF","op_input":0,"rf_input":1}},
            {"insert":{"code":"GH"}}]})");
        resetAfter<K3DealerDirectory>();
        resetAfter<K3InvestorDirectory>();
        resetAfter<K3CoreDealerDirectory>();
        resetAfter<K3CoreInvestorDirectory>();
        resetAfter<K3RFDirectory>();
    }
};

struct DealerStatus
{
    char const* bf;
    char const* status;
    bool separated;
    bool operatorInput;
};
inline void PrintTo(DealerStatus const& c, std::ostream* os) { *os << "code " << c.bf; }

class DealerStatuses : public Participants, public ::testing::WithParamInterface<DealerStatus> {};

TEST_P(DealerStatuses, TextsInTheirOrderAndPrecedence)
{
    DealerStatus const& c = GetParam();
    K3DealerDirectory* dealers = K3DealerDirectory::i();
    EXPECT_EQ(dealers->statusByCode(c.bf), QString::fromUtf8(c.status)) << c.bf;
    EXPECT_EQ(dealers->isSeparated(c.bf), c.separated) << c.bf;
    EXPECT_EQ(dealers->isOperatorInputOn(c.bf), c.operatorInput) << c.bf;
}

INSTANTIATE_TEST_SUITE_P(Dealers, DealerStatuses, ::testing::Values(
    // status 3, signs 12: every kind of text, in order
    DealerStatus{"AB01", "Режим блокировки ТС, Режим блокировки ГТ, Доверительное управление, Обособленный учет", true, true},
    // bits 1 and 0x20000: trust management wins
    DealerStatus{"CD02", "Доверительное управление", true, false},
    DealerStatus{"EF03", "Режим блокировки ТС, Собственный раздел", false, false},
    DealerStatus{"GH04", "Клиентский раздел, Обособленный учет", true, false},
    DealerStatus{"IJ05", "", false, false},
    DealerStatus{"ZZ99", "", false, false},
    DealerStatus{"AB0", "", false, false},
    DealerStatus{"AB010", "", false, false},
    DealerStatus{"AB01000", "", false, false}),
    [](::testing::TestParamInfo<DealerStatus> const& info) { return caseNameFromWords(std::string("code ") + info.param.bf); });   // a client code is not a BF code

TEST_F(Participants, DealerRowAndNameByBfCode)
{
    K3DealerDirectory* dealers = K3DealerDirectory::i();
    EXPECT_EQ(dealers->nameByCode("CD02"), QStringLiteral("Бета"));
    EXPECT_TRUE(dealers->findByCode("AB01000").isEmpty());
    EXPECT_EQ(dealers->findByCode("AB01").data("client_code").toString(), "AB01000");
    QSignalSpy spy(dealers, &K3DealerDirectory::dataChanged);
    apply(R"({"table":"k3.dealer","ops":[{"update":{"client_code":"IJ05000","signs":8}},{"insert":{"client_code":"KL06000"}}]})");
    EXPECT_EQ(spy.count(), 1);
    EXPECT_TRUE(dealers->isOperatorInputOn("IJ05"));
    EXPECT_FALSE(dealers->findByCode("KL06").isEmpty());
    db()->dropTable("k3.dealer");
    EXPECT_EQ(dealers->nameByCode("CD02"), QString());
    EXPECT_EQ(dealers->statusByCode("AB01"), QString());
}

TEST_F(Participants, InvestorCacheAnswersAMissWithTheLastHit)
{
    K3InvestorDirectory* investors = K3InvestorDirectory::i();
    Record first = investors->getInvestorByAccount("AB01001XY");   // the first 7 characters
    ASSERT_FALSE(first.isEmpty());
    EXPECT_EQ(first.data("client_code").toString(), "AB01001");
    EXPECT_EQ(investors->getInvestorByAccount("ZZ99999"), first);   // stale, as callers expect
    EXPECT_TRUE(investors->getInvestorByAccount("AB0100").isEmpty());   // too short
    Record second = investors->getInvestorByAccount("AB01002");
    EXPECT_EQ(second.data("client_code").toString(), "AB01002");

    // Removing another row keeps the entry; removing the cached row drops it.
    apply(R"({"table":"k3.investor","ops":[{"delete":{"client_code":"AB01001"}}]})");
    EXPECT_EQ(investors->getInvestorByAccount("ZZ99999"), second);
    apply(R"({"table":"k3.investor","ops":[{"delete":{"client_code":"AB01002"}}]})");
    EXPECT_TRUE(investors->getInvestorByAccount("ZZ99999").isEmpty());
}

// A worker's search may find a row that the updating thread removes before
// the worker stores it: that row is answered once but never kept.
TEST_F(Participants, AccountCacheNeverKeepsARowRemovedDuringItsSearch)
{
    directory::detail::LastAccountCache cache;
    QSharedPointer<Table> investors = db()->table("k3.investor");
    Record removed = investors->masterIndex()->at(0);
    Record kept = investors->masterIndex()->at(1);
    int searches = 0;
    auto removedMeanwhile = [&](QString const&) { ++searches; cache.drop(removed); return removed; };
    EXPECT_EQ(cache.lookup("AB01001", removedMeanwhile), removed);
    EXPECT_TRUE(cache.lookup("ZZ99999", [](QString const&) { return Record(); }).isEmpty());
    cache.lookup("AB01001", removedMeanwhile);
    EXPECT_EQ(searches, 2);   // asked again, not answered from the entry
    // A search that no removal crossed is kept as before.
    EXPECT_EQ(cache.lookup("AB01002", [&](QString const&) { return kept; }), kept);
    EXPECT_EQ(cache.lookup("ZZ99999", [](QString const&) { return Record(); }), kept);
}

TEST_F(Participants, InvestorNamesAndStatusesByExactCode)
{
    K3InvestorDirectory* investors = K3InvestorDirectory::i();
    EXPECT_EQ(investors->nameByCode("AB01001"), QStringLiteral("Клиент 1"));
    EXPECT_EQ(investors->nameByCode("AB0100"), QString());
    EXPECT_EQ(investors->statusByCode("AB01001"), 5);
    EXPECT_EQ(investors->statusByCode("AB01002"), 0);   // null
    EXPECT_EQ(investors->statusByCode("ZZ"), 0);

    QSignalSpy spy(investors, &K3InvestorDirectory::dataChanged);
    EXPECT_FALSE(investors->getInvestorByAccount("AB01001").isEmpty());
    apply(R"({"table":"k3.investor","ops":[{"clear":true}]})");
    EXPECT_EQ(spy.count(), 1);
    EXPECT_TRUE(investors->getInvestorByAccount("AB01001").isEmpty());
}

TEST_F(Participants, CoreListsByFirmAndByClient)
{
    K3CoreDealerDirectory* dealers = K3CoreDealerDirectory::i();
    K3CoreInvestorDirectory* investors = K3CoreInvestorDirectory::i();
    EXPECT_EQ(dealers->getDealerByAccount("CD02777").data("client_code").toString(), "CD02");
    EXPECT_TRUE(dealers->getDealerByAccount("CD0").isEmpty());
    EXPECT_EQ(dealers->getDealerByAccount("XX99000").data("client_code").toString(), "CD02");   // stale
    EXPECT_EQ(investors->getInvestorByAccount("AB01002").data("client_code").toString(), "AB01002");
    EXPECT_TRUE(K3CoreInvestorDirectory::i()->getInvestorByAccount("AB0100").isEmpty());
    apply(R"({"table":"k3.core_dealer","ops":[{"clear":true}]})");
    EXPECT_TRUE(dealers->getDealerByAccount("XX99000").isEmpty());
}

TEST_F(Participants, RfStatusAndTheRfInputPairing)
{
    K3RFDirectory* rf = K3RFDirectory::i();
    EXPECT_EQ(rf->statusByCode("AB"), QStringLiteral("Режим блокировки ТС по РФ"));
    EXPECT_FALSE(rf->isOperatorInputOn("AB"));   // reads rf_input, not op_input
    EXPECT_EQ(rf->statusByCode("CD"), QStringLiteral("Режим блокировки ТС по РФ, Режим блокировки ГТ по РФ"));
    EXPECT_TRUE(rf->isOperatorInputOn("CD"));
    EXPECT_EQ(rf->statusByCode("EF"), QStringLiteral("Режим блокировки ГТ по РФ"));
    EXPECT_EQ(rf->statusByCode("GH"), QString());
    EXPECT_EQ(rf->statusByCode("A"), QString());
    EXPECT_EQ(rf->statusByCode("CDX"), QString());
    EXPECT_FALSE(rf->isOperatorInputOn("EFG"));
}

} // namespace
