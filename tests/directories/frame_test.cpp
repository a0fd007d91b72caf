#include "core_fixture.h"
#include "enumerations.h"
#include "frame.h"
#include "markets.h"
#include "securities.h"

#include <QTranslator>
#include <QSet>
#include <algorithm>
#include <random>
#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

namespace {

char const kProbeSchema[] = R"({"tables":[{"name":"probes","key":["id"],"columns":[
    {"name":"id","type":1,"nullable":false},{"name":"code","type":6,"length":8}]}]})";

std::atomic<int> g_constructed{0};
std::atomic<int> g_failuresLeft{0};

// A directory that owns one index and can be told to fail its next constructions.
class ProbeDirectory : public Directory
{
    Q_OBJECT
    DIRECTORY_SINGLETON(ProbeDirectory)
public:
    explicit ProbeDirectory(QObject* parent) : Directory(parent, "ProbeDirectory", QStringLiteral("probes"), AsIndex)
    {
        m_code = column(QStringLiteral("code"));
        m_codeIndex = ownIndex(new MasterIndex_Column_Pure(table().data(), QList<int>{m_code}));
        std::this_thread::sleep_for(std::chrono::milliseconds(20));   // widen the race window
        if (g_failuresLeft.fetch_sub(1) > 0) throw QStringLiteral("probe failure");
        ++g_constructed;
    }
    Index* codeIndex() const { return m_codeIndex; }
Q_SIGNALS:
    void dataChanged();

private:
    int m_code = -1;
    Index* m_codeIndex = nullptr;
};

int registrations(Table const& t) { return t.indexes().size() + t.dependents().size(); }

// A directory whose construction reaches its own i().
class SelfCallingDirectory : public Directory
{
    Q_OBJECT
    DIRECTORY_SINGLETON(SelfCallingDirectory)
public:
    explicit SelfCallingDirectory(QObject* parent)
        : Directory(parent, "SelfCallingDirectory", QStringLiteral("probes"), AsDependent)
    {
        SelfCallingDirectory::i();
    }
Q_SIGNALS:
    void dataChanged();
};

} // namespace

// The test's own directories define their i() as the library's do.
DIRECTORY_SINGLETON_DEFINE(ProbeDirectory)
DIRECTORY_SINGLETON_DEFINE(SelfCallingDirectory)

namespace {

// An index whose hook creates the probe directory during a batch, as hooks
// that reach other directories do.
class CreatingIndex : public Index
{
public:
    ProbeDirectory* created = nullptr;
    void clear() override {}
    void build() override {}
    void add(Record const&) override {}
    void remove(Record const&, int) override {}
    bool filter(Record const&) const override { return true; }
    bool contains(Record const&) const override { return false; }
    void endUpdate() override { created = ProbeDirectory::i(); }
    QString getClassName() const override { return QStringLiteral("CreatingIndex"); }
};

class Frame : public CoreTablesTest
{
protected:
    void SetUp() override
    {
        g_constructed = 0;
        g_failuresLeft = 0;
        resetAfter<ProbeDirectory>();
        resetAfter<BuySellDirectory>();
        resetAfter<SelfCallingDirectory>();
    }
};

// The cases that start threads, named so that the ThreadSanitizer run picks them.
class FrameThreads : public Frame {};

} // namespace

// One instance under contention, even when the first construction fails.
TEST_F(FrameThreads, FailedConstructionIsRetriedAndLeavesNothingRegistered)
{
    createTables(kProbeSchema);
    QSharedPointer<Table> probes = db()->table("probes");
    int before = registrations(*probes);
    g_failuresLeft = 1;
    // Several threads race; exactly one sees the failure, the rest take over.
    std::atomic<int> thrown{0};
    std::vector<std::thread> threads;
    std::vector<ProbeDirectory*> seen(4, nullptr);
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&, i] {
            try { seen[std::size_t(i)] = ProbeDirectory::i(); }
            catch (QString const& e) { EXPECT_EQ(e, "probe failure"); ++thrown; }
        });
    for (auto& t : threads) t.join();
    EXPECT_EQ(thrown.load(), 1);
    EXPECT_EQ(g_constructed.load(), 1);
    // Every thread that got an instance got the same one.
    ProbeDirectory* one = ProbeDirectory::i();
    for (ProbeDirectory* p : seen) EXPECT_TRUE(p == nullptr || p == one);
    EXPECT_EQ(std::count(seen.begin(), seen.end(), one), 3);
    // The failed attempt unregistered itself and its index: only the live
    // instance and its one owned index remain.
    EXPECT_EQ(registrations(*probes), before + 2);
}

// A class whose context has no English text of its own yet (a new one, or
// one outside the registry) reads the frame's.
TEST_F(Frame, MissingTableTextWithoutItsOwnTranslationReadsTheFrames)
{
    auto thrown = [] {
        try {
            ProbeDirectory::i();
        } catch (QString const& e) {
            return e;
        }
        return QString();
    };
    QTranslator english;
    ASSERT_TRUE(english.load(QStringLiteral("libdirectory_en"), QStringLiteral(TRANSLATIONS_DIR)));
    QCoreApplication::installTranslator(&english);
    EXPECT_EQ(thrown(), QStringLiteral("Table 'probes' is missing"));
    QCoreApplication::removeTranslator(&english);
    EXPECT_EQ(thrown(), QStringLiteral("Таблица 'probes' отсутствует"));
}

TEST_F(Frame, DestructionUnregistersOnlyWhileTheTableLives)
{
    createTables(kProbeSchema);
    QSharedPointer<Table> probes = db()->table("probes");
    int before = registrations(*probes);
    ProbeDirectory* p = ProbeDirectory::i();
    EXPECT_TRUE(probes->indexes().contains(p->codeIndex()));
    QSingleton<ProbeDirectory>::reset();
    EXPECT_EQ(registrations(*probes), before);

    // With the table gone, destruction must not touch it (ASan watches),
    // and the next i() reports the missing table.
    ProbeDirectory::i();
    QWeakPointer<Table> gone = probes;
    probes.reset();
    db()->dropTable("probes");
    EXPECT_TRUE(gone.isNull());
    QSingleton<ProbeDirectory>::reset();
    EXPECT_THROW(ProbeDirectory::i(), QString);
}

TEST_F(FrameThreads, AConstructionThatReachesItsOwnInstanceFailsClearly)
{
    createTables(kProbeSchema);
    QSharedPointer<Table> probes = db()->table("probes");
    int before = registrations(*probes);
    for (int attempt = 0; attempt < 2; ++attempt) {
        try {
            SelfCallingDirectory::i();
            FAIL() << "no exception";
        } catch (QString const& e) {
            EXPECT_EQ(e, "SelfCallingDirectory::i() was called again while SelfCallingDirectory was being created on the same thread");
        }
    }
    EXPECT_EQ(registrations(*probes), before);
    // The failed construction let the table go: another thread can take it.
    bool taken = false;
    std::thread([&] {
        taken = probes->tryLock();
        if (taken) probes->unlock();
    }).join();
    EXPECT_TRUE(taken);
}

// A hook that creates a directory during a batch, while another thread is
// creating the same directory for the first time: neither waits for the
// other for ever, and there is one instance.
TEST_F(Frame, HooksCreateDirectoriesWhileAnotherThreadDoes)
{
    createTables(kProbeSchema);
    QSharedPointer<Table> probes = db()->table("probes");
    CreatingIndex hook;
    probes->addIndex(&hook);
    for (int round = 0; round < 6; ++round) {
        QSingleton<ProbeDirectory>::reset();
        g_constructed = 0;
        hook.created = nullptr;
        ProbeDirectory* fromThread = nullptr;
        std::thread creator([&] { fromThread = ProbeDirectory::i(); });
        apply(QStringLiteral(R"({"table":"probes","ops":[{"insert":{"id":%1,"code":"R%1"}}]})").arg(round).toUtf8());
        creator.join();
        EXPECT_EQ(g_constructed.load(), 1) << round;
        EXPECT_EQ(fromThread, hook.created) << round;
        EXPECT_EQ(probes->indexes().count(fromThread), 1) << round;
    }
    probes->removeIndex(&hook);
}

#if defined(DIRECTORY_CHECK_THREADS) && !defined(__SANITIZE_THREAD__)
// Checking builds stop a lookup that reads live rows off the updating
// thread; holding the table's lock makes it legal.
TEST_F(Frame, OffThreadLookupsWithoutTheLockStop)
{
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";
    createSchemaTables({"stocks"});
    apply(R"({"table":"stocks","ops":[{"insert":{"stock_id":1,"stock_code":"DERIV","name":"Derivatives"}}]})");
    resetAfter<StockDirectory>();
    StockDirectory* stocks = StockDirectory::i();
    QString fromThread;
    std::thread([&] {
        TableLocker lock(db()->table("stocks").data());
        fromThread = stocks->codeById(1);
    }).join();
    EXPECT_EQ(fromThread, "DERIV");
    EXPECT_DEATH(std::thread([&] { stocks->codeById(1); }).join(), "called off the updating thread of table 'stocks'");
}
#endif

// Directories are created for the first time on several threads while the
// updating thread applies batches to their tables: each ends up registered
// once, complete, and in agreement with its table.
TEST_F(Frame, ThreadsCreateDirectoriesWhileBatchesApply)
{
    createSchemaTables({"stocks", "boards", "securities"});
    resetAfter<StockDirectory>();
    resetAfter<BoardDirectory>();
    resetAfter<SecurityDirectory>();
    resetAfter<StockSecDirectory>();
    std::atomic<bool> stop{false};
    std::vector<std::thread> creators;
    std::atomic<int> answered{0};
    for (int n = 0; n < 4; ++n)
        creators.emplace_back([&, n] {
            // Each thread meets the directories in another order.
            for (int k = 0; k < 4; ++k) {
                switch ((n + k) % 4) {
                case 0: StockDirectory::i(); break;
                case 1: BoardDirectory::i(); break;
                case 2: SecurityDirectory::i(); break;
                case 3: StockSecDirectory::i(); break;
                }
            }
            while (!stop.load()) {
                // Off the updating thread, lookups hold the table's lock.
                TableLocker lock(db()->table("boards").data());
                if (BoardDirectory::i()->idByCode(1, QStringLiteral("B1")) == 1) ++answered;
            }
        });
    std::mt19937 rng(3);
    apply(R"({"table":"stocks","ops":[{"insert":{"stock_id":1,"stock_code":"DERIV","name":"Derivatives"}}]})");
    apply(R"({"table":"boards","ops":[{"insert":{"stock_id":1,"board_id":1,"board_code":"B1","flags":1}}]})");
    for (int batch = 0; batch < 60; ++batch) {
        QStringList ops;
        for (int n = 0; n < 5; ++n) {
            int id = batch * 5 + n;
            ops << QStringLiteral(R"({"insert":{"stock_id":1,"board_id":1,"sec_id":%1,"sec_code":"S%1","isin_id":%1,"decimals":%2}})")
                       .arg(id).arg(rng() % 5);
        }
        apply(QStringLiteral(R"({"table":"securities","ops":[%1]})").arg(ops.join(',')).toUtf8());
        apply(QStringLiteral(R"({"table":"boards","ops":[{"insert":{"stock_id":1,"board_id":%1,"board_code":"B%1"}}]})")
                  .arg(batch + 2).toUtf8());
    }
    // A slow machine may end the batches before any thread got to look up:
    // give them the time to answer once (the lookup itself is the point).
    for (int waited = 0; answered.load() == 0 && waited < 10000; ++waited)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    stop = true;
    for (auto& t : creators) t.join();

    QSharedPointer<Table> securities = db()->table("securities");
    EXPECT_EQ(securities->indexes().count(SecurityDirectory::i()), 1);
    EXPECT_EQ(securities->indexes().count(StockSecDirectory::i()), 1);
    EXPECT_EQ(db()->table("boards")->dependents().count(BoardDirectory::i()), 1);
    EXPECT_EQ(db()->table("stocks")->dependents().count(StockDirectory::i()), 1);
    EXPECT_GT(answered.load(), 0);
    // Built while batches ran, each directory still agrees with its table.
    for (int board = 1; board <= 61; ++board)
        EXPECT_EQ(BoardDirectory::i()->idByCode(1, QStringLiteral("B%1").arg(board)), board);
    MasterIndex_Column_Pure* master = securities->masterIndex();
    ASSERT_EQ(master->count(), 300);
    for (auto it = master->begin(); it != master->end(); ++it) {
        long long id = it->data("sec_id").toInteger64();
        EXPECT_EQ(StockSecDirectory::i()->decimalsById(1, id), it->data("decimals").toInteger()) << id;
        EXPECT_EQ(SecurityDirectory::i()->codeById(1, 1, id), QStringLiteral("S%1").arg(id));
    }
}

#include "frame_test.moc"
