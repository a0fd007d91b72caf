#include "streams_fixture.h"

#include <QRegularExpression>
#include <atomic>
#include <thread>

namespace {

// Securities and deals read from workers while the updating thread renames
// securities and adds orders: the cases start threads, so the names carry
// "Thread" for the ThreadSanitizer run.
class LookupThreads : public StreamTablesTest
{
protected:
    void SetUp() override
    {
        StreamTablesTest::SetUp();
        core()->setCurrentLogin("FA01U01");
        security(1, 20, 77, "Alfa 0", 2);
    }
    void rename(int round)
    {
        update("securities", {{"stock_id", 1}, {"board_id", 20}, {"sec_id", "77"}, {"isin_id", 1},
                              {"sec_name", QStringLiteral("Alfa %1").arg(round)}, {"sec_code", QStringLiteral("A%1").arg(round)},
                              {"base_code", QStringLiteral("B%1").arg(round)}, {"decimals", 2}});
    }
};

} // namespace

#if defined(DIRECTORY_CHECK_THREADS) && !defined(__SANITIZE_THREAD__)
// Checking builds stop a worker that reads names by text id, or asks whether
// a deal waits for this user, without holding the table's lock.
TEST_F(LookupThreads, UnlockedWorkerStopsOnTextIdAndDealLookups)
{
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";
    SecurityDirectory* securities = SecurityDirectory::i();
    DealsDirectory* deals = DealsDirectory::i();
    insert("deals", deal(17, 1));
    Record row = db()->table("deals")->masterIndex()->at(0);
    auto offThread = [](auto call) { std::thread(call).join(); };
    EXPECT_DEATH(offThread([&] { securities->codeByTextId("1,20,77"); }), "codeByTextId.*table 'securities'");
    EXPECT_DEATH(offThread([&] { securities->nameByTextId("1,20,77"); }), "nameByTextId.*table 'securities'");
    EXPECT_DEATH(offThread([&] { securities->baseByTextId("1,20,77"); }), "baseByTextId.*table 'securities'");
    EXPECT_DEATH(offThread([&] { deals->checkLoginPreference(row); }), "checkLoginPreference.*table 'deals'");
}
#endif

// Holding the table's lock, a worker reads whole names while batches rename:
// each answer is one that some batch wrote, never a mix.
TEST_F(LookupThreads, WorkerHoldingTheLockReadsBesideBatches)
{
    SecurityDirectory* securities = SecurityDirectory::i();
    DealsDirectory* deals = DealsDirectory::i();
    insert("deals", deal(17, 1));
    QSharedPointer<Table> securitiesTable = db()->table("securities");
    QSharedPointer<Table> dealsTable = db()->table("deals");
    std::atomic<bool> done{false};
    std::atomic<int> reads{0}, torn{0}, waiting{0};
    std::thread worker([&] {
        while (!done.load() || reads.load() == 0) {
            {
                TableLocker lock(securitiesTable.data());
                QString name = securities->nameByTextId("1,20,77");
                QString code = securities->codeByTextId("1,20,77");
                QString base = securities->baseByTextId("1,20,77");
                QString round = name.mid(5);
                if (!name.startsWith("Alfa ") || (code != "A" + round && round != "0") || (base != "B" + round && round != "0"))
                    ++torn;
            }
            {
                TableLocker lock(dealsTable.data());
                if (deals->checkLoginPreference(dealsTable->masterIndex()->at(0))) ++waiting;
            }
            ++reads;
        }
    });
    for (int round = 1; round <= 200; ++round) {
        rename(round);
        update("deals", deal(17, 1));
    }
    done = true;
    worker.join();
    EXPECT_EQ(torn.load(), 0);
    EXPECT_EQ(waiting.load(), reads.load());
    EXPECT_EQ(securities->nameByTextId("1,20,77"), "Alfa 200");
}

// The first build of the streams directory, run by a first i() on a worker,
// reads the securities' names, the user's orders and the providers' table
// while the updating thread changes them: it holds those tables too, and
// announces every stream with a whole name.
TEST_F(LookupThreads, StreamsFirstBuiltOnAWorkerBesideBatches)
{
    lpUser("LP01", "AB01001");
    for (int n = 1; n <= 20; ++n) insert("k3.rfs.streams", stream(QString::number(n), 77, n));
    SecurityDirectory::i();
    RFSOrdersDirectory::i();
    LPUsersDirectory::i();
    std::atomic<bool> built{false};
    RFSStreamsDirectory* fromWorker = nullptr;
    std::thread worker([&] {
        fromWorker = RFSStreamsDirectory::i();
        built = true;
    });
    for (int round = 1; !built.load() || round <= 50; ++round) {
        rename(round);
        insert("orders", order(1000 + round, "999", "AB01001", "A", "B", "101.5"));
    }
    worker.join();
    ASSERT_NE(fromWorker, nullptr);
    QStringList opened;
    for (QString const& n : notifications()) opened << UserNotification::parse(n).message;
    ASSERT_EQ(opened.size(), 20);
    for (QString const& message : opened)
        EXPECT_TRUE(QRegularExpression(QStringLiteral("^Открыт поток ликвидности \\d+ \\(Alfa \\d+ \\* \\d+\\)$"))
                        .match(message).hasMatch())
            << message.toStdString();
}
