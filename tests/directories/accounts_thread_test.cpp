#include "accounts_fixture.h"
#include "participants.h"

#include <atomic>
#include <thread>
#include <vector>

namespace {

class AccountLookupThreads : public AccountTablesTest
{
protected:
    void SetUp() override
    {
        createSchemaTables({"k3.investor", "k3.core_dealer"});
        apply(R"({"table":"k3.investor","ops":[{"insert":{"client_code":"AB01001"}},{"insert":{"client_code":"AB01002"}}]})");
        apply(R"({"table":"k3.core_dealer","ops":[{"insert":{"client_code":"AB01"}},{"insert":{"client_code":"CD02"}}]})");
        resetAfter<K3InvestorDirectory>();
        resetAfter<K3CoreDealerDirectory>();
    }
};

// The one-entry caches are read and replaced by lookups on other threads
// while the updating thread removes and re-inserts the rows they hold.
TEST_F(AccountLookupThreads, CachedAccountLookupsRunBesideTheUpdatingThread)
{
    K3InvestorDirectory* investors = K3InvestorDirectory::i();
    K3CoreDealerDirectory* dealers = K3CoreDealerDirectory::i();
    std::atomic<bool> done{false};
    std::atomic<int> missesOfKeptRows{0};
    auto reader = [&](QString const& kept, QString const& churned) {
        while (!done.load()) {
            if (investors->getInvestorByAccount(kept + "XY").isEmpty()) ++missesOfKeptRows;
            investors->getInvestorByAccount(churned);
            if (dealers->getDealerByAccount("AB01999").isEmpty()) ++missesOfKeptRows;
            dealers->getDealerByAccount("CD02999");
        }
    };
    std::vector<std::thread> readers;
    readers.emplace_back(reader, QStringLiteral("AB01001"), QStringLiteral("AB01002"));
    readers.emplace_back(reader, QStringLiteral("AB01001"), QStringLiteral("ZZ99999"));
    for (int round = 0; round < 200; ++round) {
        apply(R"({"table":"k3.investor","ops":[{"delete":{"client_code":"AB01002"}}]})");
        apply(R"({"table":"k3.core_dealer","ops":[{"delete":{"client_code":"CD02"}}]})");
        apply(R"({"table":"k3.investor","ops":[{"insert":{"client_code":"AB01002"}}]})");
        apply(R"({"table":"k3.core_dealer","ops":[{"insert":{"client_code":"CD02"}}]})");
    }
    done = true;
    for (std::thread& t : readers) t.join();
    // Rows that never left are found every time, whatever the cache held.
    EXPECT_EQ(missesOfKeptRows.load(), 0);
    EXPECT_EQ(investors->getInvestorByAccount("AB01002").data("client_code").toString(), "AB01002");
}

} // namespace
