#include "core_fixture.h"
#include "enumerations.h"
#include "frame.h"

#include <QSignalSpy>
#include <atomic>
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
    void endUpdate() override { Q_EMIT dataChanged(); }
    Index* codeIndex() const { return m_codeIndex; }
Q_SIGNALS:
    void dataChanged();

private:
    int m_code = -1;
    Index* m_codeIndex = nullptr;
};

int registrations(Table const& t) { return t.indexes().size() + t.dependents().size(); }

class Frame : public CoreTablesTest
{
protected:
    void SetUp() override
    {
        g_constructed = 0;
        g_failuresLeft = 0;
        resetAfter<ProbeDirectory>();
        resetAfter<BuySellDirectory>();
    }
};

// The cases that start threads, named so that the ThreadSanitizer run picks them.
class FrameThreads : public Frame {};

} // namespace

TEST_F(FrameThreads, OneInstanceUnderContention)
{
    createTables(kProbeSchema);
    std::vector<std::thread> threads;
    std::vector<ProbeDirectory*> seen(8, nullptr);
    for (int i = 0; i < 8; ++i) threads.emplace_back([&, i] { seen[std::size_t(i)] = ProbeDirectory::i(); });
    for (auto& t : threads) t.join();
    EXPECT_EQ(g_constructed.load(), 1);
    for (ProbeDirectory* p : seen) EXPECT_EQ(p, seen[0]);
    EXPECT_EQ(ProbeDirectory::i(), seen[0]);
    EXPECT_EQ(seen[0]->getClassName(), "ProbeDirectory");
}

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
    // The failed attempt unregistered itself and its index: only the live
    // instance and its one owned index remain.
    EXPECT_EQ(registrations(*probes), before + 2);
}

TEST_F(Frame, MissingTableThrowsTheMessageAndRegistersNothing)
{
    std::vector<int> counts;
    for (QString const& name : db()->tableNames()) counts.push_back(registrations(*db()->table(name)));
    try {
        BuySellDirectory::i();
        FAIL() << "no exception";
    } catch (QString const& e) {
        EXPECT_EQ(e, QStringLiteral("Таблица 'buysells' отсутствует"));
    }
    std::vector<int> after;
    for (QString const& name : db()->tableNames()) after.push_back(registrations(*db()->table(name)));
    EXPECT_EQ(after, counts);
    // Once the table exists, the next call builds the instance.
    createTables(R"({"tables":[{"name":"buysells","key":["buysell"],"columns":[
        {"name":"buysell","type":6,"length":2,"nullable":false},{"name":"name","type":8}]}]})");
    EXPECT_NE(BuySellDirectory::i(), nullptr);
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

    // With the table gone, destruction must not touch it (ASan watches).
    ProbeDirectory::i();
    probes.reset();
    db()->dropTable("probes");
    QSingleton<ProbeDirectory>::reset();
    SUCCEED();
}

TEST_F(Frame, OneSignalPerBatchOfManyRows)
{
    createTables(kProbeSchema);
    ProbeDirectory* p = ProbeDirectory::i();
    QSignalSpy spy(p, &ProbeDirectory::dataChanged);
    QStringList ops;
    for (int i = 0; i < 200; ++i) ops << QStringLiteral(R"({"insert":{"id":%1,"code":"C%1"}})").arg(i);
    apply(QStringLiteral(R"({"table":"probes","ops":[%1]})").arg(ops.join(',')).toUtf8());
    EXPECT_EQ(spy.count(), 1);
    apply(R"({"table":"probes","ops":[{"update":{"id":1,"code":"Z"}},{"delete":{"id":2}}]})");
    EXPECT_EQ(spy.count(), 2);
    // The owned index followed the rows.
    auto* index = static_cast<MasterIndex_Column_Pure*>(p->codeIndex());
    EXPECT_EQ(index->count(), 199);
    EXPECT_EQ(index->at(198).data("code").toString(), "Z");
}

#include "frame_test.moc"
