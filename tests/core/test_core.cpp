#include <core/defaultcore.h>
#include <core/icore.h>
#include <core/transactions.h>

#include <QSignalSpy>
#include <QUrlQuery>
#include <gtest/gtest.h>

#include <thread>
#include <tuple>

namespace {

// Entry `slot` (counted from 1) of the object's table of virtual operations.
template <class Fn>
Fn slotOf(void const* object, int slot)
{
    using Entry = void (*)();
    Entry const* table = *static_cast<Entry const* const*>(object);
    return reinterpret_cast<Fn>(table[slot - 1]);
}

// A program's own core, installed instead of the default: it shares the
// default's table layout, so what is checked of it is ownership.
class ProgramCore : public ICore
{
public:
    explicit ProgramCore(bool* destroyed) : m_destroyed(destroyed) {}
    ~ProgramCore() override { *m_destroyed = true; }
    Database* database() const override { return nullptr; }
    ITransactionService* transactionService() const override { return nullptr; }
    void notify(QString const&, int, void*, void*) override {}
    QString currentLogin() const override { return QString(); }
    bool passwordWarningEnabled() const override { return false; }
    int passwordWarningDays() const override { return 0; }

private:
    bool* m_destroyed;
};

struct DefaultCoreTest : ::testing::Test
{
    void SetUp() override
    {
        ICore::setInstance(nullptr);
        core = DefaultCore::global();
        core->clearNotifications();
    }
    void TearDown() override
    {
        core->clearNotifications();
        core->setCurrentLogin(QString());
        core->setPasswordWarningEnabled(true);
        core->setPasswordWarningDays(7);
    }
    DefaultCore* core = nullptr;
};

} // namespace

// The library reaches the core and its transaction service by slot number:
// each operation is called through its agreed slot, on the default core and
// on the service, with answers that a wrong slot could not give by chance.
TEST_F(DefaultCoreTest, OperationsAreReachedThroughTheirAgreedSlots)
{
    core->setCurrentLogin(QStringLiteral("desk-3"));
    core->setPasswordWarningEnabled(false);
    core->setPasswordWarningDays(12);
    ICore* c = ICore::instance();
    EXPECT_EQ(slotOf<Database* (*)(ICore const*)>(c, 6)(c), c->database());
    EXPECT_NE(c->database(), nullptr);
    EXPECT_EQ(slotOf<ITransactionService* (*)(ICore const*)>(c, 11)(c), core->transactions());
    EXPECT_EQ(slotOf<QString (*)(ICore const*)>(c, 27)(c), QStringLiteral("desk-3"));
    EXPECT_FALSE(slotOf<bool (*)(ICore const*)>(c, 29)(c));
    EXPECT_EQ(slotOf<int (*)(ICore const*)>(c, 31)(c), 12);
    slotOf<void (*)(ICore*, QString const&, int, void*, void*)>(c, 23)(c, QStringLiteral("2|slot|"), 0, nullptr, nullptr);
    EXPECT_EQ(core->notifications(), QStringList{QStringLiteral("2|slot|")});

    bool destroyed = false;
    auto* program = new ProgramCore(&destroyed);
    ICore::setInstance(program);
    c = ICore::instance();
    ASSERT_EQ(c, program);
    ICore::setInstance(nullptr);
    // The installed core was not owned: the default is back and untouched.
    EXPECT_EQ(ICore::instance(), core);
    EXPECT_FALSE(destroyed);
    slotOf<void (*)(ICore*)>(c, 2)(c);   // the deleting destructor
    EXPECT_TRUE(destroyed);

    TransactionService service;
    ITransactionService* s = &service;
    TransactionMeta meta;
    meta.messageCode = 1032;
    meta.stockId = 4;
    meta.name = QStringLiteral("drop by security");
    meta.parameters = QStringList{QStringLiteral("Account")};
    service.registerTemplate(meta);
    RecordingTransport transport;
    service.addTransport(&transport);
    QList<QString> names;
    auto find = slotOf<QList<TransactionMeta> (*)(ITransactionService const*, int, MarketFilter const&, QList<QString>&)>(s, 4);
    QList<TransactionMeta> found = find(s, 1032, MarketFilter::single(4, 12), names);
    ASSERT_EQ(found.size(), 1);
    EXPECT_EQ(names, QList<QString>{meta.name});
    auto build = slotOf<RawTransaction (*)(ITransactionService const*, TransactionMeta const&, QMap<QString, QVariant> const&)>(s, 6);
    RawTransaction tx = build(s, found.first(), {{QStringLiteral("Account"), QStringLiteral("A1")}});
    EXPECT_EQ(tx.messageCode, 1032);
    EXPECT_EQ(tx.params.value(QStringLiteral("Account")).toString(), QStringLiteral("A1"));
    EXPECT_EQ(slotOf<int (*)(ITransactionService*, RawTransaction const&)>(s, 7)(s, tx), 1);
    EXPECT_EQ(transport.taken().size(), 1);
}

TEST_F(DefaultCoreTest, NotificationsFromSeveralThreadsAreAllKept)
{
    auto burst = [](QString tag) {
        for (int i = 0; i < 500; ++i)
            ICore::instance()->notify(QStringLiteral("1|%1 %2|").arg(tag).arg(i), 0, nullptr, nullptr);
    };
    std::thread a(burst, QStringLiteral("a")), b(burst, QStringLiteral("b"));
    a.join();
    b.join();
    QStringList all = core->notifications();
    EXPECT_EQ(all.size(), 1000);
    EXPECT_EQ(all.filter(QStringLiteral("|a ")).size(), 500);
}

// What a writer builds reads back as it went in, whatever its message holds;
// a text no writer builds is a plain message of kind 0.
TEST(UserNotification, EveryRecordReadsBackAsBuiltAndAnythingElseAsPlainText)
{
    QString const link = UserNotification::linkTo(QStringLiteral("deal"), QStringLiteral("/confirmdeal"),
                                                   {{QStringLiteral("security"), QStringLiteral("A|B")}})
                             .toString();
    EXPECT_FALSE(link.contains(QLatin1Char('|')));
    struct Case { int kind; QString message; QString link; QString text; };
    const Case cases[] = {
        {2, QStringLiteral("<p>Пароль</p>"), QString(), QStringLiteral("2|<p>Пароль</p>|")},
        {1, QStringLiteral("Поток 7 (A|B * 10)"), link, QStringLiteral("1|Поток 7 (A|B * 10)|") + link},
        {3, QString(), QString(), QStringLiteral("3||")},
        {1, QStringLiteral("|"), QString(), QStringLiteral("1|||")},
        // Plain messages go alone, but one that would read as a record.
        {0, QStringLiteral("Закрыт поток 7 (A|1|B * 10)"), QString(), QStringLiteral("Закрыт поток 7 (A|1|B * 10)")},
        {0, QStringLiteral("5|x|y"), QString(), QStringLiteral("0|5|x|y|")},
        {0, QStringLiteral("x"), link, QStringLiteral("0|x|") + link},
    };
    for (Case const& c : cases) {
        UserNotification const built(c.kind, c.message, c.link);
        EXPECT_EQ(built.text(), c.text);
        UserNotification const read = UserNotification::parse(built.text());
        EXPECT_EQ(std::tie(read.kind, read.message, read.link), std::tie(c.kind, c.message, c.link)) << c.text.toStdString();
    }
    for (QString const& plain : {QStringLiteral("Закрыт поток ликвидности S1"), QStringLiteral("x|not a kind|"), QStringLiteral("3|one bar only")}) {
        UserNotification const read = UserNotification::parse(plain);
        EXPECT_EQ(std::tie(read.kind, read.message, read.link), std::make_tuple(0, plain, QString())) << plain.toStdString();
    }
}

TEST(UserNotification, OutsideTextIsEscapedForMarkupAndAnAnswerLosesItsBars)
{
    QString const outside = QStringLiteral("<b>A&B</b> \"q\" | x%41");
    EXPECT_EQ(UserNotification::escaped(outside), QStringLiteral("&lt;b&gt;A&amp;B&lt;/b&gt; &quot;q&quot; | x%41"));
    EXPECT_EQ(UserNotification::escapedAnswer(outside),
              QStringLiteral("&lt;b&gt;A&amp;B&lt;/b&gt; &quot;q&quot; &#124; x%41"));
    // An answer as the whole message leaves the record three parts at every bar.
    QString const text = UserNotification(3, UserNotification::escapedAnswer(outside)).text();
    EXPECT_EQ(text.split(QLatin1Char('|')).size(), 3);
}

TEST(UserNotification, LinkValuesReadBackExactly)
{
    QList<QPair<QString, QString>> const items{
        {QStringLiteral("stock_id"), QStringLiteral("-2147483648")},
        {QStringLiteral("security"), QStringLiteral("Нефть | A&B #1 + 50% = x%41y")},
        {QStringLiteral("login"), QStringLiteral("a+b c")},
        {QStringLiteral("empty"), QString()}};
    QUrl const link = UserNotification::linkTo(QStringLiteral("stream"), QStringLiteral("/addorder"), items);
    QUrl const read(link.toString());
    EXPECT_EQ(read.scheme(), "vtrm+stream");
    EXPECT_EQ(read.host(), "stream");
    EXPECT_EQ(read.path(), "/addorder");
    EXPECT_EQ(QUrlQuery(read).queryItems(QUrl::FullyDecoded), items);
    EXPECT_EQ(UserNotification::linkTo(QStringLiteral("stream"), QStringLiteral("/addorder"),
                                       {{QStringLiteral("stock_id"), QStringLiteral("5")},
                                        {QStringLiteral("sec_id"), QStringLiteral("77")}})
                  .toString(),
              "vtrm+stream://stream/addorder?stock_id=5&sec_id=77");
}

// The core is told the built text, once, and signals it; without a core
// nothing happens.
TEST(UserNotification, SendingHandsTheTextToTheCoreWhichRecordsAndSignalsIt)
{
    DefaultCore core;
    QSignalSpy spy(core.coreSignals(), &CoreSignals::userNotification);
    UserNotification(1, QStringLiteral("m"), QStringLiteral("vtrm+stream://x")).sendTo(&core);
    UserNotification(0, QStringLiteral("Закрыт поток ликвидности S1")).sendTo(&core);
    UserNotification(2, QStringLiteral("lost")).sendTo(nullptr);
    EXPECT_EQ(core.notifications(), (QStringList{QStringLiteral("1|m|vtrm+stream://x"), QStringLiteral("Закрыт поток ликвидности S1")}));
    ASSERT_EQ(spy.count(), 2);
    EXPECT_EQ(spy.at(1).at(0).toString(), QStringLiteral("Закрыт поток ликвидности S1"));
}

// A core that keeps no notifications (a server's) still tells them to its listeners.
TEST(DefaultCoreKeeping, NotificationsNotKeptAreStillSignalled)
{
    DefaultCore core;
    QStringList heard;
    QObject::connect(core.coreSignals(), &CoreSignals::userNotification, [&](QString const& text) { heard << text; });
    core.notify(QStringLiteral("1|kept|"), 0, nullptr, nullptr);
    EXPECT_EQ(core.notifications(), QStringList{QStringLiteral("1|kept|")});
    core.setKeepingNotifications(false);
    core.notify(QStringLiteral("1|not kept|"), 0, nullptr, nullptr);
    EXPECT_TRUE(core.notifications().isEmpty());
    EXPECT_EQ(heard, (QStringList{QStringLiteral("1|kept|"), QStringLiteral("1|not kept|")}));
}
