#include "../testnames.h"
#include "accounts_fixture.h"
#include "users.h"

#include <database/exception.h>

#include <QDateTime>
#include <QSignalSpy>

namespace {

constexpr qint64 kNow = 1795000000000;   // 2026-11-18, the clock of these tests
constexpr qint64 kHour = 3600000;
constexpr qint64 kDay = 24 * kHour;

QString at(qint64 msecs)
{
    return QDateTime::fromMSecsSinceEpoch(msecs, Qt::UTC).toString(QStringLiteral("yyyy-MM-dd HH:mm:ss.zzz"));
}

class Users : public AccountTablesTest
{
protected:
    void SetUp() override
    {
        Clock::setFixed(kNow);
        core()->setPasswordWarningDays(7);
        createSchemaTables({"k3.user"});
        resetAfter<K3UserDirectory>();
    }
    void insertUser(QString const& login, QString const& code, int sma, int aspref, QString const& expiry = QString())
    {
        QJsonObject row{{"login", login}, {"client_code", code}, {"sma_flags", sma}, {"aspref", aspref}};
        if (!expiry.isEmpty()) row.insert("password_expiration_date", expiry);
        apply(QJsonDocument(QJsonObject{{"table", "k3.user"}, {"ops", QJsonArray{QJsonObject{{"insert", row}}}}})
                  .toJson(QJsonDocument::Compact));
    }
};

} // namespace

TEST_F(Users, MapKeysAreTrimmedWhileTheIndexesMatchTheStoredText)
{
    insertUser(" abc ", "AB01001", 0, 11);
    insertUser("abd", "AB01002", 4, 12);
    insertUser("xyz", "XY01001", 0, 13);
    K3UserDirectory* users = K3UserDirectory::i();

    EXPECT_EQ(users->getUserList(), QStringList({"abc", "abd", "xyz"}));
    EXPECT_TRUE(users->isUser("abc"));
    EXPECT_TRUE(users->isUser("ab"));   // a prefix of a known login counts
    EXPECT_TRUE(users->isUser(""));
    EXPECT_FALSE(users->isUser("b"));
    EXPECT_FALSE(users->isUser("xyz1"));

    EXPECT_EQ(users->clientCodeByUser("abc"), QString());
    EXPECT_EQ(users->clientCodeByUser(" abc "), "AB01001");
    EXPECT_EQ(users->clientCodeByUser(""), QString());
    EXPECT_EQ(users->asprefByLogin("abd"), 12);
    EXPECT_EQ(users->asprefByLogin("nobody"), 0);
    EXPECT_EQ(users->loginByAspref(11), " abc ");   // as stored
    EXPECT_EQ(users->loginByAspref(99), QString());
    // Longer than the column: no row holds it, even cut to the width.
    EXPECT_EQ(users->asprefByLogin("xyz" + QString(20, 'q')), 0);

    EXPECT_TRUE(users->isSMALogin("abd"));
    EXPECT_FALSE(users->isSMALogin("ab"));   // exact, unlike isUser
    EXPECT_FALSE(users->isSMALogin("xyz"));

    apply(R"({"table":"k3.user","ops":[{"clear":true}]})");
    EXPECT_TRUE(users->getUserList().isEmpty());
    EXPECT_FALSE(users->isUser(""));
    EXPECT_TRUE(users->getSMALogins().isEmpty());
}

TEST_F(Users, ALoginOfSeveralRowsIsListedOnceAndGoesWithTheFirstRemoval)
{
    insertUser("sma", "AB01001", 4, 1);
    insertUser(" sma", "AB01002", 5, 2);   // trims to the same login, also SMA
    insertUser("plain", "AB01003", 0, 3);
    K3UserDirectory* users = K3UserDirectory::i();
    EXPECT_EQ(users->getUserList(), QStringList({"plain", "sma"}));
    EXPECT_EQ(users->getSMALogins(), QStringList({"sma", "sma"}));

    QSignalSpy spy(users, &K3UserDirectory::dataChanged);
    apply(R"({"table":"k3.user","ops":[{"delete":{"login":"sma"}}]})");
    EXPECT_EQ(spy.count(), 1);
    EXPECT_EQ(users->getUserList(), QStringList({"plain"}));   // the other row still holds it
    EXPECT_EQ(users->getSMALogins(), QStringList({"sma"}));
    EXPECT_EQ(users->clientCodeByUser(" sma"), "AB01002");
}

TEST_F(Users, SmaFlagOfARow)
{
    insertUser("a", "AB01001", 4, 1);
    insertUser("b", "AB01002", 3, 2);
    apply(R"({"table":"k3.user","ops":[{"insert":{"login":"c","client_code":"AB01003"}}]})");
    Table* t = db()->table("k3.user").data();
    EXPECT_TRUE(K3UserDirectory::isSMALogin(Record(t, "a")));
    EXPECT_FALSE(K3UserDirectory::isSMALogin(Record(t, "b")));
    EXPECT_FALSE(K3UserDirectory::isSMALogin(Record(t, "c")));   // null flags
    EXPECT_FALSE(K3UserDirectory::isSMALogin(Record()));
}

// "FA01U01\0X" would be a row of its own for the master index and the login
// "FA01U01" for every reader of the fixed-width text: its whole batch is
// refused (the file loader's own tests hold the file and line in the text)
// and the real login keeps its row.
TEST_F(Users, ALoginWithAnInvisibleCharacterIsRefusedWithItsWholeBatch)
{
    insertUser("FA01U01", "FA01000", 0, 7001);
    K3UserDirectory* users = K3UserDirectory::i();
    try {
        apply(R"({"table":"k3.user","ops":[{"insert":{"login":"FA01U03","client_code":"FA01002","aspref":7003}},)"
              R"({"insert":{"login":"FA01U01\u0000X","client_code":"QD02002","aspref":9999}}]})");
        FAIL() << "the spoofed login was accepted";
    } catch (Exception const& e) {
        EXPECT_TRUE(e.message().endsWith("row 2: column 'login': the text holds the invisible character U+0000 at position 8"))
            << e.message().toStdString();
    }
    EXPECT_EQ(users->getUserList(), QStringList({"FA01U01"}));
    EXPECT_EQ(users->clientCodeByUser("FA01U01"), "FA01000");
    EXPECT_EQ(users->asprefByLogin("FA01U01"), 7001);
    EXPECT_EQ(users->loginByAspref(9999), QString());
}

TEST(UserHorizon, WrapsIn32BitsAsTheTerminalAlwaysHas)
{
    EXPECT_EQ(K3UserDirectory::warningSpanMSecs(3), 3 * kDay);
    EXPECT_EQ(K3UserDirectory::warningSpanMSecs(24), 2073600000);
    EXPECT_EQ(K3UserDirectory::warningSpanMSecs(25), -2134967296);
    EXPECT_EQ(K3UserDirectory::warningSpanMSecs(49), 4233600000 - 4294967296);
    EXPECT_EQ(K3UserDirectory::warningSpanMSecs(50), 25032704);
    EXPECT_EQ(K3UserDirectory::warningSpanMSecs(0), 0);
    EXPECT_EQ(K3UserDirectory::warningSpanMSecs(-1), -kDay);
    EXPECT_EQ(K3UserDirectory::warningSpanMSecs(2147483647), qint64(qint32(quint32(2147483647) * 86400000u)));
}

struct ExpiryCase
{
    int days;           // the horizon
    qint64 expiresIn;   // from now
    bool warns;
};
// "horizon 5 expiry in 259200000 ms warns", for the case's name and report.
inline std::string describeCase(ExpiryCase const& c)
{
    std::string expiry = c.expiresIn < 0 ? "past " + std::to_string(-c.expiresIn) : std::to_string(c.expiresIn);
    return "horizon " + std::to_string(c.days) + " expiry in " + expiry + " ms " + (c.warns ? "warns" : "is quiet");
}
inline void PrintTo(ExpiryCase const& c, std::ostream* os) { *os << describeCase(c); }

class PasswordExpiry : public Users, public ::testing::WithParamInterface<ExpiryCase> {};

TEST_P(PasswordExpiry, WarnsInsideTheWrappedHorizonOnly)
{
    ExpiryCase const& c = GetParam();
    core()->setPasswordWarningDays(c.days);
    insertUser("trader", "AB01001", 0, 1, at(kNow + c.expiresIn));
    K3UserDirectory::i();   // the first pass warns
    EXPECT_EQ(core()->notifications().size(), c.warns ? 1 : 0) << c.days << " days, expiring in " << c.expiresIn << " ms";
}

INSTANTIATE_TEST_SUITE_P(Horizons, PasswordExpiry, ::testing::Values(
    ExpiryCase{5, 3 * kDay, true},
    ExpiryCase{2, 3 * kDay, false},
    ExpiryCase{3, 3 * kDay - 1000, true},
    ExpiryCase{3, 3 * kDay, false},            // not earlier than now + span
    ExpiryCase{5, -kHour, false},              // already expired
    ExpiryCase{24, 23 * kDay, true},
    ExpiryCase{25, kHour, false},              // negative span: nothing warns
    ExpiryCase{30, kHour, false},
    ExpiryCase{50, 25032704 - 1000, true},     // just under 7 hours
    ExpiryCase{50, 25032704 + 1000, false},
    ExpiryCase{50, 2 * kDay, false}),
    [](::testing::TestParamInfo<ExpiryCase> const& info) { return caseNameFromWords(describeCase(info.param)); });

TEST_F(Users, WarningTextsBlueForTheCurrentLoginOnlyAndEscaped)
{
    core()->setCurrentLogin("trader");
    insertUser("trader", "AB01001", 0, 1, at(kNow + kDay));
    insertUser(" other ", "AB01002", 0, 2, at(kNow + kDay));
    insertUser("a<b>&\"c", "AB01003", 0, 3, at(kNow + kDay));
    insertUser("later", "AB01004", 0, 4, at(kNow + 30 * kDay));
    K3UserDirectory::i();
    // Rows come in key order: " other ", "a<b>&\"c", "later", "trader".
    EXPECT_EQ(core()->notifications(), QStringList({
        QStringLiteral("2|<p>По данным на конец вчерашнего дня у логина <b>other</b> вашего участника торгов/клиринга "
                       "приближается дата истечения пароля</p>|"),
        QStringLiteral("2|<p>По данным на конец вчерашнего дня у логина <b>a&lt;b&gt;&amp;&quot;c</b> вашего участника "
                       "торгов/клиринга приближается дата истечения пароля</p>|"),
        QStringLiteral("2|<p>По данным на конец вчерашнего дня у логина <span style=\"color: blue;\"><b>trader</b></span> "
                       "вашего участника торгов/клиринга приближается дата истечения пароля</p>|")}));
}

TEST_F(Users, EveryAddOrUpdateInsideTheSpanWarnsAgainUnlessSwitchedOff)
{
    insertUser("trader", "AB01001", 0, 1, at(kNow + kDay));
    K3UserDirectory::i();
    EXPECT_EQ(core()->notifications().size(), 1);
    apply(R"({"table":"k3.user","ops":[{"update":{"login":"trader","aspref":7}}]})");
    EXPECT_EQ(core()->notifications().size(), 2);
    insertUser("second", "AB01002", 0, 2, at(kNow + kDay));
    EXPECT_EQ(core()->notifications().size(), 3);
    insertUser("none", "AB01003", 0, 3);   // null expiry reads as 1970: long expired
    EXPECT_EQ(core()->notifications().size(), 3);

    core()->setPasswordWarningEnabled(false);
    insertUser("third", "AB01004", 0, 4, at(kNow + kDay));
    EXPECT_EQ(core()->notifications().size(), 3);
}

TEST_F(Users, GoneTableGivesEmptyAnswers)
{
    insertUser("trader", "AB01001", 4, 1);
    K3UserDirectory* users = K3UserDirectory::i();
    db()->dropTable("k3.user");
    EXPECT_EQ(users->clientCodeByUser("trader"), QString());
    EXPECT_EQ(users->asprefByLogin("trader"), 0);
    EXPECT_EQ(users->loginByAspref(1), QString());
}

